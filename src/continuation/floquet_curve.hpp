// What curves of bifurcations of periodic orbits have in common, forced and autonomous: the period
// map phi with the period T, and a criterion on the multiplier k nearest to the unit circle, of
// modulus r,
//
//     phi(y; c1, c2) = y,    g = (r - 1) (1 + |Im k|) = 0;    g = r - 1 on curves of tori.
//
// The gradient of g is formed by forward differences, each of them over a period.
#pragma once

#include <cstddef>
#include <limits>

#include "bifurcation/multipliers.hpp"
#include "continuation/curve.hpp"
#include "core/guards.hpp"
#include "core/workspace.hpp"
#include "orbits/period_map.hpp"

namespace trajex {

class FloquetCurve : public CurveProblem {
  public:
    PathKind kind() const override { return orbit_curve; }
    bool residual(double* r) override;

  protected:
    /// `trivial`: how many multipliers are 1 on every orbit.
    FloquetCurve(Trajex& handle, double* first, double* second, std::size_t unknowns,
                 std::size_t trivial);

    /// The image of the current point, its multipliers, in the record, and [M | de/dc]. False: they
    /// cannot be computed.
    bool linearise();
    /// Rows [M - I | de/dc].
    void closing_rows(double** A) const;

    Critical critical() const;
    double criterion() const;

    /// Calls visit(column, found) at each of the points near by, with the multipliers there in the
    /// record if they were found. The linearisation stays as it is.
    template <class Visit>
    void visit_neighbours(Visit&& visit) {
        const Temporarily without_sensitivities(tx.nparam, 0);
        raise_unknowns(
            [&](std::size_t column) { visit(column, integrate() && find_multipliers()); });
    }
    /// A measure of the multipliers at each of the points near by, for a gradient row.
    template <class Measure>
    void sample(Measure&& measure) {
        visit_neighbours([&](std::size_t column, bool found) {
            samples_[column] = found ? measure() : std::numeric_limits<double>::quiet_NaN();
        });
    }

    double t_;  // moves on with every integration
    double* image_ = nullptr;
    double* samples_ = nullptr;

  private:
    bool integrate();
    bool find_multipliers();

    std::size_t trivial_;
    bool torus_;
    double** M_ = nullptr;  // [M | de/dc]
    double** Phi_ = nullptr;
    PeriodSteps steps_;
    Workspace work_;
};

}  // namespace trajex
