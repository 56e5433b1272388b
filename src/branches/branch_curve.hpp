// Curves of branch points of equilibria in two parameters, z = (x, mu, p1, p2): a branch point with
// respect to one of the parameters, q, is one in
//
//     f(x; p) + mu b = 0,   [ f_x  f_q  b ] [ N ]   [ 0 ]
//                           [ R    .    0 ] [ g ] = [ I ],   g = (g1, g2) = 0.
//
// mu = 0 is one condition more than a curve can meet in general. It holds by itself where symmetry
// or an invariant subspace keeps the branches crossing; elsewhere the curve leaves mu = 0, and
// ends.
#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <string_view>
#include <vector>

#include "branches/dense_curve.hpp"
#include "branches/derivatives.hpp"
#include "branches/equilibrium_problem.hpp"

namespace trajex {

class BranchPointCurve : public DenseCurve {
  public:
    /// `which`: 0 or 1, the parameter with respect to which the points are branch points.
    BranchPointCurve(std::unique_ptr<EquilibriumProblem> base, std::size_t which);

    /// Finds the null vectors at z = (x, 0, p1, p2) near a branch point.
    bool begin(const double* z);

    /// Scaled distance by which the branches miss one another at a point of the curve.
    double imperfection(const double* z) const;

    bool residual(const double* z, double* f) override;
    bool linearise(const double* z, double* f) override;

    EventNames event_names() const override { return {{}, "BP", {}, {}, "ZH"}; }
    void spectrum(Spectrum& out) override;
    void add_critical(const double*, Spectrum& out) const override { out.emplace_back(); }
    bool accepted(std::vector<double>& z, Directions directions) override;
    std::string_view end(const double* z, Finding& finding) override;

    Description describe(const double* z) override;
    void examine(Finding& finding) override;
    std::unique_ptr<Problem> clone() const override;
    std::string_view kind() const override { return "BP curve"; }

  private:
    bool solve_borders(const double* z, double* f);
    void renew_borders();
    double strength(const double* z);

    std::size_t which_;
    std::size_t n_;
    std::vector<double> b_, R_;  // borders: n; two rows of n + 1
    std::vector<double> N_, w_;  // two columns of n + 1; n
    std::array<double, 2> g_{};
    DenseLu bordered_;
    std::vector<double> rhs_, direction_, gradient_;
};

}  // namespace trajex
