// One accepted step of the embedded pair: attempts are repeated with smaller steps until the error
// norm is at most 1. The same loop serves the plain and the extended system, which differ only in
// the right-hand side, the number of components and the record that holds the work vectors.
#pragma once

#include <cmath>
#include <cstddef>
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

/// Whether a step of size h moves the time on, to another finite one.
inline bool advances(double t, double h) {
    return h > 0 && t + h > t && std::isfinite(t + h);
}

/// The argument of stage j and the evaluation there.
template <class Vector, std::size_t j, class Size, class Rhs>
[[gnu::always_inline]] inline void stage(Size n, Trajex& rec, const double* start, double t,
                                         double h, const Rhs& rhs) {
    if constexpr (j == 0) {
        passes::run<passes::FirstArgument, Vector>(n, start, rec.yfirst, rec.y0, rec.yw);
    } else if constexpr (j == verner::stages - 1) {
        passes::run<passes::LastArgument, Vector>(n, h, rec.k, rec.y0, rec.yw, rec.y5, rec.y6);
    } else {
        passes::run<passes::StageArgument<j>, Vector>(n, h, rec.k, rec.y0, rec.yw);
    }
    constexpr double node = verner::c[j];
    rhs(t + h * node, rec.yw, rec.k + j * n);
}

/// One attempt from `start` with step h: the stages go to rows 0 to 7 of rec.k, the solutions to
/// rec.y5 and rec.y6. Returns the error norm.
template <class Vector, class Size, class Rhs, std::size_t... j>
[[gnu::always_inline]] inline double attempt_step(Size n, Trajex& rec, const double* start,
                                                  double t, double h, const Rhs& rhs,
                                                  std::index_sequence<j...>) {
    (stage<Vector, j>(n, rec, start, t, h, rhs), ...);
    const passes::Ending ending{
        h, rec.k + (verner::stages - 1) * n, rec.y0, rec.y5, rec.y6, rec.abs_err};
    if (rec.AbsTol == 0 && rec.RelTol == 0) {
        return passes::finish_step<Vector>(n, ending, passes::UncheckedErrors());
    }
    return passes::finish_step<Vector>(n, ending, passes::WeightedErrors{rec.AbsTol, rec.RelTol});
}

struct StepOutcome {
    bool accepted;
    double next_h;  ///< the step to try next
};

/// The attempt loop, a kernel: attempts from the state `start` at t, the first one with step h.
/// Afterwards rec->yfirst is that state, at rec->tfirst, and rec->y6 the accepted one, at
/// rec->tlast. No attempt is accepted when the step has become too small to move the time, or
/// was never a positive number. Until its caller has completed the description of the step, the
/// record says that no step was taken: a callback may throw, and rows of two steps must not be
/// mixed.
template <class Vector>
struct RepeatAttempts {
    template <class Size, class Rhs>
    [[gnu::always_inline]] static inline StepOutcome run(Size n, Trajex* rec, const double* start,
                                                         double t, double h, const Rhs* rhs) {
        rec->StepTaken = 0;
        rec->tfirst = t;
        while (advances(t, h)) {
            const double err = attempt_step<Vector>(n, *rec, start, t, h, *rhs,
                                                    std::make_index_sequence<verner::stages>());
            const double next_h = next_step_size(h, err, rec->hmax);
            if (err <= 1) {
                rec->tlast = t + h;
                return {true, next_h};
            }
            h = next_h;
            start = rec->yfirst;  // the other one may be y6
        }
        return {false, h};
    }
};

}  // namespace trajex
