// One accepted step of the embedded pair: attempts are repeated with smaller steps until the error
// norm is at most 1. The same loop serves the plain and the extended system, which differ only in
// the right-hand side, the number of components and the record that holds the work vectors.
#pragma once

#include <cmath>
#include <cstddef>
#include <type_traits>
#include <utility>

#include "core/simd.hpp"
#include "integration/stage_passes.hpp"
#include "integration/verner.hpp"
#include "tx.h"

namespace trajex {

/// The step size to try first: the proposed one, within the largest allowed.
inline double first_step_size(const Trajex& rec) {
    return rec.hmax > 0 && rec.hmax < rec.h ? rec.hmax : rec.h;
}

/// The step size that should follow an attempt with step h and error norm err. A norm that is not a
/// number shrinks the step as an infinite one does.
inline double next_step_size(double h, double err, double hmax) {
    if (err == 0) return h;
    const double factor = std::isnan(err) ? 0.2 : 0.625 / std::sqrt(std::sqrt(err)) + 0.2;
    const double proposed = h * factor;
    return hmax > 0 && proposed > hmax ? hmax : proposed;
}

/// Whether a step of size h still moves the time on.
inline bool advances(double t, double h) {
    return h > 0 && std::isfinite(h) && t + h > t;
}

/// The argument of stage j and the evaluation there.
template <class Vector, std::size_t j, class Size, class Rhs>
[[gnu::always_inline]] inline void stage(Size n, Trajex& rec, double t, double h, const Rhs& rhs) {
    if constexpr (j == 0) {
        passes::run<passes::FirstArgument, Vector>(n, rec.yfirst, rec.y0, rec.yw);
    } else if constexpr (j == verner::stages - 1) {
        passes::run<passes::LastArgument, Vector>(n, h, rec.k, rec.y0, rec.yw, rec.y5, rec.y6);
    } else {
        passes::run<passes::StageArgument<j>, Vector>(n, h, rec.k, rec.y0, rec.yw);
    }
    constexpr double node = verner::c[j];
    rhs(t + h * node, rec.yw, rec.k + j * n);
}

/// One attempt from rec.yfirst with step h: the stages go to rows 0 to 7 of rec.k, the solutions to
/// rec.y5 and rec.y6. Returns the error norm.
template <class Vector, class Size, class Rhs, std::size_t... j>
[[gnu::always_inline]] inline double attempt_step(Size n, Trajex& rec, double t, double h,
                                                  const Rhs& rhs, std::index_sequence<j...>) {
    (stage<Vector, j>(n, rec, t, h, rhs), ...);
    const passes::Ending ending{
        h, rec.k + (verner::stages - 1) * n, rec.y0, rec.y5, rec.y6, rec.abs_err};
    if (rec.AbsTol == 0 && rec.RelTol == 0) {
        return passes::finish_step<Vector>(n, ending, passes::UncheckedErrors());
    }
    return passes::finish_step<Vector>(n, ending, passes::WeightedErrors{rec.AbsTol, rec.RelTol});
}

/// The attempt loop, a kernel. On entry rec->yfirst is the state at t and *h the step to try;
/// afterwards rec->y6 is the accepted state at rec->tlast and *h the step to try next. Returns
/// false, with *h of no use, when the step has become too small to move the time (or was never a
/// positive number). Until its caller has completed the description of the step, the record says
/// that no step was taken: a callback may throw, and rows of two steps must not be mixed.
template <class Vector>
struct RepeatAttempts {
    template <class Size, class Rhs>
    [[gnu::always_inline]] static inline bool run(Size n, Trajex* rec, double t, double* h,
                                                  const Rhs* rhs) {
        rec->StepTaken = 0;
        while (advances(t, *h)) {
            const double tried = *h;
            const double err = attempt_step<Vector>(n, *rec, t, tried, *rhs,
                                                    std::make_index_sequence<verner::stages>());
            *h = next_step_size(tried, err, rec->hmax);
            if (err <= 1) {
                rec->tlast = t + tried;
                return true;
            }
        }
        return false;
    }
};

/// Up to this many components the passes are unrolled.
inline constexpr std::size_t largest_unrolled = 8;

/// One accepted step of the system y' = rhs with n components, on the work vectors of `rec`.
template <std::size_t unrolled = 1, class Rhs>
bool accepted_step(Trajex& rec, std::size_t n, double t, double& h, const Rhs& rhs) {
    if constexpr (unrolled > largest_unrolled) {
        return dispatch<RepeatAttempts>(n, &rec, t, &h, &rhs);
    } else if (n == unrolled) {
        using Size = std::integral_constant<std::size_t, unrolled>;
        return dispatch<RepeatAttempts>(Size(), &rec, t, &h, &rhs);
    } else {
        return accepted_step<unrolled + 1>(rec, n, t, h, rhs);
    }
}

}  // namespace trajex
