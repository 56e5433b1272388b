// Dense output: the state anywhere in the last accepted step, from its stages and a few more
// evaluations. "Completing" a step makes those evaluations; after that the state costs arithmetic
// only, which is what loops over one step (bisection, samples) use. The formula is the method's.
#pragma once

#include <cstddef>

#include "core/finite.hpp"
#include "core/simd.hpp"
#include "core/step_work.hpp"
#include "integration/stage_passes.hpp"

namespace trajex {

/// The dense output of a method, to be specialised for each:
///     complete<Sums, Vector>(n, work, rhs)   the evaluations that the stages lack
///     evaluate<Sums, Vector>(n, work, tau)   the state at t_first + tau (t_last - t_first) to
///                                            work.argument; outside [0, 1] it extrapolates
/// Sums is the order in which the method's terms are summed.
template <class Method>
struct DenseFormula;

/// A kernel: the evaluations for the last accepted step. The step starts from work->first and ends
/// at work->last; the vectors beside them may have been used for an attempt that failed.
template <class Method, class Sums>
struct CompleteStep {
    template <class Vector>
    struct For {
        template <class Size, class Rhs>
        [[gnu::always_inline]] static inline void run(Size n, StepWork* work, const Rhs* rhs) {
            passes::copy_state(n, work->first, work->y0);
            passes::copy_state(n, work->last, work->upper);
            DenseFormula<Method>::template complete<Sums, Vector>(n, *work, *rhs);
        }
    };
};

/// A kernel: the state at time t of a completed step to work->argument.
template <class Method, class Sums>
struct EvaluateStep {
    template <class Vector>
    struct For {
        template <class Size>
        [[gnu::always_inline]] static inline void run(Size n, StepWork* work, double t) {
            const double tau = (t - work->t_first) / (work->t_last - work->t_first);
            DenseFormula<Method>::template evaluate<Sums, Vector>(n, *work, tau);
        }
    };
};

/// Dense output of one step that is asked for several times: the step is completed at the first.
template <class Method, class Sums, class Rhs>
class StepInterpolant {
  public:
    /// `work` holds an accepted step of n components that has been described, that is,
    /// work.last is its end. `rhs` outlives the interpolant.
    StepInterpolant(std::size_t n, StepWork& work, const Rhs& rhs)
        : n_(n), work_(work), rhs_(rhs) {}

    /// The state at time t, in the work vectors until the next use; null where it is not finite,
    /// because the right-hand side is not in the step: the evaluations of dense output are not
    /// among those that a step is accepted by.
    const double* at(double t) {
        if (!complete_) dispatch_sized<CompleteStep<Method, Sums>::template For>(n_, &work_, &rhs_);
        complete_ = true;
        dispatch_sized<EvaluateStep<Method, Sums>::template For>(n_, &work_, t);
        return all_finite(work_.argument, n_) ? work_.argument : nullptr;
    }

  private:
    std::size_t n_;
    StepWork& work_;
    const Rhs& rhs_;
    bool complete_ = false;
};

}  // namespace trajex
