// One accepted step of an embedded pair: attempts are repeated with smaller steps until the error
// norm is at most 1. The method, the right-hand side, the number of components and the work vectors
// are parameters; whose they are, a handle's or anybody's, makes no difference here.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <utility>

#include "core/simd.hpp"
#include "core/step_work.hpp"
#include "integration/stage_passes.hpp"
#include "integration/verner.hpp"

namespace trajex {

/// The proposed step size, within the largest allowed. By a branch, and not by a selection of the
/// smaller one: at the largest step the next one need not wait for the roots of the proposal then.
inline double limited_step_size(double proposed, double hmax) {
    if (hmax > 0 && proposed > hmax) {
#ifdef __GNUC__
        asm volatile("");  // is not done on trial, so that this stays a branch
#endif
        return hmax;
    }
    return proposed;
}

/// The step size that should follow an attempt with step h and error norm err. A norm that is not a
/// number shrinks the step as an infinite one does.
template <class Method = Verner65>
double next_step_size(double h, double err, double hmax) {
    if (err == 0) return h;
    const double proposed = h * (std::isnan(err) ? Method::least_factor : Method::factor(err));
    return limited_step_size(proposed, hmax);
}

/// The step size after an attempt whose estimate was exactly 0. It stays, since nothing is known
/// about a better one; but where it was never found, as after a jump of the right-hand side that
/// cut it to nothing, it would stay for ever. So it doubles after a while.
inline double step_size_after_zero(StepWork& work, double h) {
    constexpr unsigned patience = 100;
    constexpr double largest = 1e300;  // the time stays finite
    if (work.zero_estimates < patience) {
        ++work.zero_estimates;
        return h;
    }
    if (!(h < largest)) return h;
    return work.hmax > 0 ? std::max(h, std::min(2 * h, work.hmax)) : 2 * h;
}

/// The step size to try after an attempt. Without tolerances nothing is estimated: every step has
/// the size of the first.
template <class Method>
[[gnu::always_inline]] inline double choose_step_size(StepWork& work, double h, double err) {
    if (err == 0) [[unlikely]] {
        const bool estimated = work.abs_tol != 0 || work.rel_tol != 0;
        return estimated ? step_size_after_zero(work, h) : h;
    }
    work.zero_estimates = 0;
    return next_step_size<Method>(h, err, work.hmax);
}

/// Whether a step of size h moves the time on, to another finite one.
inline bool advances(double t, double h) {
    return h > 0 && t + h > t && std::isfinite(t + h);
}

/// The argument of stage j and the evaluation there.
template <class Method, class Vector, std::size_t j, class Size, class Rhs>
[[gnu::always_inline]] inline void stage(Size n, const StepWork& work, const double* start,
                                         double t, double h, const Rhs& rhs) {
    if constexpr (j == 0) {
        passes::run<passes::FirstArgument, Vector>(n, start, work.first, work.y0, work.argument);
    } else if constexpr (j == Method::stages - 1) {
        passes::run<passes::LastArgument<Method>, Vector>(n, h, work.k, work.y0, work.argument,
                                                          work.lower, work.upper);
    } else {
        passes::run<passes::StageArgument<Method, j>, Vector>(n, h, work.k, work.y0, work.argument);
    }
    constexpr double node = Method::node(j);
    rhs(t + h * node, work.argument, work.k + j * n);
}

/// One attempt from `start` with step h: the stages go to the first rows of work.k, the solutions
/// to work.lower and work.upper. Returns the error norm.
template <class Method, class Vector, class Size, class Rhs, std::size_t... j>
[[gnu::always_inline]] inline double attempt_step(Size n, const StepWork& work, const double* start,
                                                  double t, double h, const Rhs& rhs,
                                                  std::index_sequence<j...>) {
    (stage<Method, Vector, j>(n, work, start, t, h, rhs), ...);
    const passes::Ending ending{
        h, work.k + (Method::stages - 1) * n, work.y0, work.lower, work.upper, work.error};
    if (work.abs_tol == 0 && work.rel_tol == 0) {
        return passes::finish_step<Method, Vector>(n, ending, passes::UncheckedErrors());
    }
    return passes::finish_step<Method, Vector>(n, ending,
                                               passes::WeightedErrors{work.abs_tol, work.rel_tol});
}

struct StepOutcome {
    bool accepted;
    double next_h;  ///< the step to try next
};

/// The attempt loop, a kernel: attempts from the state `start` at t, the first one with step h.
/// Afterwards work->first is that state, at work->t_first, and work->upper the accepted one, at
/// work->t_last. No attempt is accepted when the step has become too small to move the time, or was
/// never a positive number. Stages lie at t + c h and the step ends at the rounded t + h: h becomes
/// the distance to there, so that the time that is told and the time that is integrated do not
/// part.
template <class Method>
struct RepeatAttempts {
    template <class Vector>
    struct For {
        template <class Size, class Rhs>
        [[gnu::always_inline]] static inline StepOutcome run(Size n, StepWork* work,
                                                             const double* start, double t,
                                                             double h, const Rhs* rhs) {
            work->t_first = t;
            while (advances(t, h)) {
                h = (t + h) - t;
                const double err = attempt_step<Method, Vector>(
                    n, *work, start, t, h, *rhs, std::make_index_sequence<Method::stages>());
                const double next_h = choose_step_size<Method>(*work, h, err);
                if (err <= 1) {
                    work->t_last = t + h;
                    return {true, next_h};
                }
                if (t + next_h == t + h) break;  // the same attempt again, at the resolution of t
                h = next_h;
                start = work->first;  // the other one may be work->upper
            }
            return {false, h};
        }
    };
};

/// One accepted step of n components: the kernel for this processor. The right-hand side is called
/// as rhs(t, y, f); it may throw, and the work is then that of no step.
template <class Method, class Rhs>
[[gnu::always_inline]] inline StepOutcome accepted_step(std::size_t n, StepWork& work,
                                                        const double* start, double t, double h,
                                                        const Rhs& rhs) {
    return dispatch_sized<RepeatAttempts<Method>::template For>(n, &work, start, t, h, &rhs);
}

/// Completes the description of the accepted step, which dense output needs.
inline void describe_step(std::size_t n, const StepWork& work) {
    passes::copy_state(n, work.upper, work.last);
}

}  // namespace trajex
