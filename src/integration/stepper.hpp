// One accepted step of the embedded pair: attempts are repeated with smaller steps until the error
// norm is at most 1. The same loop serves the plain and the extended system, which differ only in
// the right-hand side, the number of components and the record that holds the work vectors.
#pragma once

#include <algorithm>
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

/// Whether a step of size h still moves the time on.
inline bool advances(double t, double h) {
    return h > 0 && std::isfinite(h) && t + h > t;
}

/// Runs the passes for a number of components known when compiling: everything is unrolled.
template <std::size_t size>
struct FixedSize {
    static constexpr std::size_t n = size;
    template <class Pass, class... Arguments>
    static auto run(Arguments... arguments) {
        return Pass::run(n, arguments...);
    }
};

/// Runs them for any number of components, with the widest vectors of the processor.
struct AnySize {
    std::size_t n;
    template <class Pass, class... Arguments>
    auto run(Arguments... arguments) const {
        return dispatch<Pass>(n, arguments...);
    }
};

/// One attempt from rec.y0 with step h: the stages go to rows 0 to 7 of rec.k, the solutions to
/// rec.y5 and rec.y6. Returns the error norm.
template <class Size, class Rhs>
double attempt_step(const Size& size, Trajex& rec, double t, double h, Rhs& rhs) {
    const std::size_t n = size.n;
    double* const k = rec.k;
    const double* const k_last = k + (verner::stages - 1) * n;
    const auto evaluate = [&](std::size_t j) {
        rhs(t + h * static_cast<double>(verner::c[j]), rec.yw, k + j * n);
    };
    std::copy_n(rec.y0, n, rec.yw);
    evaluate(0);
    [&]<std::size_t... j>(std::index_sequence<j...>) {
        ((size.template run<passes::StageArgument<j + 1>>(h, k, rec.y0, rec.yw), evaluate(j + 1)),
         ...);
    }
    (std::make_index_sequence<verner::stages - 2>());
    size.template run<passes::LastArgument>(h, k, rec.y0, rec.yw, rec.y5, rec.y6);
    evaluate(verner::stages - 1);
    if (rec.AbsTol == 0 && rec.RelTol == 0) {
        return size.template run<passes::FinishUncheckedStep>(h, k_last, rec.y0, rec.y5, rec.y6,
                                                              rec.abs_err);
    }
    return size.template run<passes::FinishStep>(h, k_last, rec.y0, rec.y5, rec.y6, rec.abs_err,
                                                 rec.AbsTol, rec.RelTol);
}

/// The attempt loop. On entry rec.y0 is the state at t and h the step to try; afterwards rec.y6 is
/// the accepted state at rec.tlast and h the step to try next. Returns false, with h of no use,
/// when the step has become too small to move the time (or was never a positive number). Until its
/// caller has completed the description of the step, the record says that no step was taken: a
/// callback may throw, and rows of two steps must not be mixed.
template <class Size, class Rhs>
bool repeat_attempts(const Size& size, Trajex& rec, double t, double& h, Rhs& rhs) {
    rec.StepTaken = 0;
    while (advances(t, h)) {
        const double err = attempt_step(size, rec, t, h, rhs);
        const double tried = h;
        h = next_step_size(h, err, rec.hmax);
        if (err <= 1) {
            rec.tlast = t + tried;
            return true;
        }
    }
    return false;
}

/// One accepted step of the system y' = rhs with n components, on the work vectors of `rec`.
template <class Rhs>
bool accepted_step(Trajex& rec, std::size_t n, double t, double& h, Rhs& rhs) {
    switch (n) {
        case 1:
            return repeat_attempts(FixedSize<1>{}, rec, t, h, rhs);
        case 2:
            return repeat_attempts(FixedSize<2>{}, rec, t, h, rhs);
        case 3:
            return repeat_attempts(FixedSize<3>{}, rec, t, h, rhs);
        case 4:
            return repeat_attempts(FixedSize<4>{}, rec, t, h, rhs);
        default:
            return repeat_attempts(AnySize{n}, rec, t, h, rhs);
    }
}

}  // namespace trajex
