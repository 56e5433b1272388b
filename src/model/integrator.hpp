// Steps along a right-hand side rhs(t, y, f) on memory of its own, forwards or backwards in time.
// The step and its dense output are the library's kernels.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <optional>
#include <utility>
#include <vector>

#include "integration/step_memory.hpp"
#include "integration/stepper.hpp"
#include "integration/verner_dense_output.hpp"
#include "tx/trajectory.hpp"

namespace trajex {

/// A step in which no variable moves by more than a hundredth of its size, to begin with: the error
/// estimate does the rest.
inline double first_step_length(std::size_t n, const double* y, const double* f, double span,
                                double h_max) {
    double rate = 0;
    for (std::size_t i = 0; i < n; ++i) {
        rate = std::max(rate, std::fabs(f[i]) / std::max(std::fabs(y[i]), 1e-3));
    }
    double h = rate > 0 && std::isfinite(rate) ? 0.01 / rate : 1e-3;
    if (span > 0) h = std::min(h, span);
    return h_max > 0 ? std::min(h, h_max) : h;
}

template <class Rhs>
class Integrator {
  public:
    /// From `state` at options.t0; `towards` says in which direction of time. The right-hand side
    /// belongs to the integrator, and what it refers to outlives it.
    Integrator(Rhs rhs, const std::vector<double>& state, double towards,
               const tx::IntegrateOptions& options)
        : rhs_(std::move(rhs)),
          sign_(towards < options.t0 ? -1 : 1),
          n_(state.size()),
          y_(state),
          memory_(n_),
          along_{&rhs_, sign_, n_},
          s_(sign_ * options.t0) {
        StepWork& work = memory_.work();
        work.rel_tol = options.rel_tol;
        work.abs_tol = options.abs_tol;
        work.hmax = options.h_max;
        double* const f = work.k;
        along_(s_, y_.data(), f);
        h_ = first_step_length(n_, y_.data(), f, std::fabs(towards - options.t0), options.h_max);
    }
    Integrator(const Integrator&) = delete;
    Integrator& operator=(const Integrator&) = delete;
    ~Integrator() = default;

    /// One step. False when none can be made that moves the time.
    bool step() {
        StepWork& work = memory_.work();
        const StepOutcome outcome = accepted_step<Verner65>(n_, work, y_.data(), s_, h_, along_);
        if (!outcome.accepted) return false;
        h_ = outcome.next_h;
        s_ = work.t_last;
        std::copy_n(work.upper, n_, y_.data());
        describe_step(n_, work);
        dense_.emplace(n_, work, along_);
        return true;
    }

    double time() const { return sign_ * s_; }
    double step_start() { return sign_ * memory_.work().t_first; }
    /// The state, which may be changed between steps.
    std::vector<double>& state() { return y_; }
    const double* previous_state() { return memory_.work().first; }
    /// The state inside the last step; null where it is not finite.
    const double* at(double t) { return dense_->at(sign_ * t); }

  private:
    /// Time counted forwards: dy/ds = sign f(sign s, y).
    struct Along {
        const Rhs* rhs;
        double sign;
        std::size_t n;
        void operator()(double s, const double* y, double* f) const {
            (*rhs)(sign * s, y, f);
            if (sign > 0) return;
            for (std::size_t i = 0; i < n; ++i) f[i] = -f[i];
        }
    };
    using Dense = StepInterpolant<Verner65, StateSums, Along>;

    Rhs rhs_;
    double sign_;
    std::size_t n_;
    std::vector<double> y_;
    StepMemory<Verner65> memory_;
    Along along_;
    std::optional<Dense> dense_;  // of the last step
    double s_;
    double h_ = 0;
};

}  // namespace trajex
