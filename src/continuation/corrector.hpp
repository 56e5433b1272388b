// What the drivers of one- and of two-parameter continuation share: the step length with its
// bounds, and the Newton iteration that corrects a predicted point.
#pragma once

#include <cmath>
#include <cstddef>
#include <optional>

#include "continuation/outputs.hpp"
#include "core/errors.hpp"
#include "core/newton.hpp"

namespace trajex {

/// The signed step length of a run, kept in the caller's variable: its size on entry is the largest
/// of the run, and the Newton tolerances of that size are the smallest.
class StepLength {
  public:
    StepLength(Trajex& tx, double* dc, const char* where)
        : tx_(tx),
          dc_(*dc),
          where_(where),
          largest_(std::fabs(*dc)),
          smallest_(largest_ * tx.NewtRelTol + tx.NewtAbsTol) {}

    double value() const { return dc_; }
    double largest() const { return largest_; }
    double smallest() const { return smallest_; }
    void set(double value) { dc_ = value; }

    /// False, and reported, when the step has become too small. One that reaches zero has too, even
    /// where no smallest step is set, and one that is no finite number never gets better.
    bool halve() {
        dc_ *= 0.5;
        return dc_ != 0 && std::isfinite(dc_) ? check() : refuse();
    }
    /// False, and reported, when the step is below the smallest one.
    bool check() { return std::fabs(dc_) >= smallest_ || refuse(); }

  private:
    bool refuse() { return report(&tx_, Error::minimum_step, where_) == 1; }

    Trajex& tx_;
    double& dc_;
    const char* where_;
    double largest_;
    double smallest_;
};

/// Distance of the unknowns from a point in the space of state and parameters; a period, behind
/// these, takes no part.
inline double distance_from(const double* point, double* const* unknowns, std::size_t state,
                            std::size_t parameters) {
    double squares = 0;
    const auto add = [&](std::size_t j) {
        const double difference = *unknowns[j] - point[j];
        squares += difference * difference;
    };
    for (std::size_t j = state; j < state + parameters; ++j) add(j);
    for (std::size_t j = 0; j < state; ++j) add(j);
    return std::sqrt(squares);
}

enum class Correction { converged, failed, lost };

/// Newton's method from a predicted point. `residual_norm()` forms the residual, and gives nothing
/// where it cannot be formed; `improve()` takes a Newton step and returns how far the point now is
/// from the last accepted one. The iteration is given up when it takes too many steps, diverges, or
/// leaves the ball of radius `reach`: NaN is never inside.
template <class ResidualNorm, class Improve>
Correction correct_point(const Trajex& tx, const Outputs& out, double reach,
                         ResidualNorm&& residual_norm, Improve&& improve) {
    double dist = 0;
    for (int its = 1;; ++its) {
        const double previous = dist;
        const std::optional<double> norm = residual_norm();
        if (!norm.has_value()) return Correction::lost;
        dist = *norm;
        out.mark(progress_mark(dist, previous));
        if (dist <= 1) return Correction::converged;
        if (std::isnan(dist)) return Correction::failed;
        const double moved = improve();
        const bool shrinking = previous == 0 || dist < 2 * previous;
        if (!(its < tx.MaxNewtSteps && shrinking && moved < reach)) return Correction::failed;
    }
}

}  // namespace trajex
