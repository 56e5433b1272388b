// What the drivers of one- and of two-parameter continuation share: the step length with its
// bounds, the last accepted point, and the Newton iteration that corrects a predicted one.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <optional>

#include "bifurcation/record.hpp"
#include "continuation/outputs.hpp"
#include "core/errors.hpp"
#include "core/newton.hpp"
#include "core/workspace.hpp"

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
    /// where no smallest step is set.
    bool halve() {
        dc_ *= 0.5;
        return dc_ != 0 ? check() : refuse();
    }
    /// False, and reported, when the step is below the smallest one.
    bool check() { return std::fabs(dc_) >= smallest_ || refuse(); }

  private:
    bool refuse() {
        report(&tx_, Error::minimum_step, where_);
        return false;
    }

    Trajex& tx_;
    double& dc_;
    const char* where_;
    double largest_;
    double smallest_;
};

/// The last accepted point: the values of the unknowns, and the record but for its work matrix.
/// Trial points overwrite both.
class AcceptedPoint {
  public:
    /// The unknowns may be listed later, before the first point is taken.
    AcceptedPoint(TrajexBif& bif, double* const* unknowns, std::size_t size)
        : record_(static_cast<BifRecord&>(bif)),
          unknowns_(unknowns),
          size_(size),
          work_({{&values_, size},
                 {&y_, static_cast<std::size_t>(bif.order)},
                 {&from_c_, record_.values_from_c()}}) {}

    const double* values() const { return values_; }
    bool taken() const { return taken_; }

    void take() {
        for (std::size_t j = 0; j < size_; ++j) values_[j] = *unknowns_[j];
        fields_ = static_cast<const TrajexBif&>(record_);
        std::copy_n(record_.y, record_.order, y_);
        std::copy_n(record_.c, record_.values_from_c(), from_c_);
        taken_ = true;
    }
    void restore() const {
        restore_record();
        for (std::size_t j = 0; j < size_; ++j) *unknowns_[j] = values_[j];
    }
    void restore_record() const {
        static_cast<TrajexBif&>(record_) = fields_;
        std::copy_n(y_, record_.order, record_.y);
        std::copy_n(from_c_, record_.values_from_c(), record_.c);
    }

  private:
    BifRecord& record_;
    double* const* unknowns_;
    std::size_t size_;
    TrajexBif fields_{};
    double* values_ = nullptr;
    double* y_ = nullptr;
    double* from_c_ = nullptr;
    Workspace work_;
    bool taken_ = false;
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
    bool lost = false;
    const auto norm = [&](double previous) {
        const std::optional<double> dist = residual_norm();
        lost = !dist.has_value();
        if (lost) return std::numeric_limits<double>::quiet_NaN();
        out.mark(progress_mark(*dist, previous));
        return *dist;
    };
    const NewtonEnd end = newton({tx.MaxNewtSteps, NewtonLimit::Last::improves}, norm,
                                 [&](double, double) { return improve() < reach; });
    if (lost) return Correction::lost;
    return end == NewtonEnd::converged ? Correction::converged : Correction::failed;
}

}  // namespace trajex
