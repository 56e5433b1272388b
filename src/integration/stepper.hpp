// One accepted step of the embedded pair: attempts are repeated with smaller steps until the error
// norm is at most 1. The same loop serves the plain and the extended system, which differ only in
// the right-hand side, the number of components and the record that holds the work vectors.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>

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

/// Arithmetic passes for a number of components known when compiling: everything is unrolled.
template <std::size_t size>
struct FixedPasses {
    static constexpr std::size_t n = size;
    template <std::size_t j>
    static void stage_argument(double h, const double* k, const double* y0, double* yw) {
        passes::stage_argument<j>(n, h, k, y0, yw);
    }
    static void last_argument(double h, const double* k, const double* y0, double* yw, double* y5,
                              double* y6) {
        passes::last_argument(n, h, k, y0, yw, y5, y6);
    }
    static double finish_step(double h, const Trajex& rec) {
        return passes::finish_step(n, h, rec.k, rec.y0, rec.y5, rec.y6, rec.abs_err, rec.AbsTol,
                                   rec.RelTol);
    }
};

/// The same for any number of components, in vectorised code of its own (stage_passes.cpp).
struct VectorPasses {
    std::size_t n;
    template <std::size_t j>
    void stage_argument(double h, const double* k, const double* y0, double* yw) const;
    void last_argument(double h, const double* k, const double* y0, double* yw, double* y5,
                       double* y6) const;
    double finish_step(double h, const Trajex& rec) const;
};

/// One attempt from rec.y0 with step h: the stages go to rows 0 to 7 of rec.k, the solutions to
/// rec.y5 and rec.y6. Returns the error norm.
template <class Passes, class Rhs>
double attempt_step(const Passes& pass, Trajex& rec, double t, double h, Rhs& rhs) {
    const std::size_t n = pass.n;
    double* const k = rec.k;
    const auto evaluate = [&](std::size_t j) {
        rhs(t + h * static_cast<double>(verner::c[j]), rec.yw, k + j * n);
    };
    std::copy_n(rec.y0, n, rec.yw);
    evaluate(0);
    [&]<std::size_t... j>(std::index_sequence<j...>) {
        ((pass.template stage_argument<j + 1>(h, k, rec.y0, rec.yw), evaluate(j + 1)), ...);
    }
    (std::make_index_sequence<verner::stages - 2>());
    pass.last_argument(h, k, rec.y0, rec.yw, rec.y5, rec.y6);
    evaluate(verner::stages - 1);
    if (rec.AbsTol == 0 && rec.RelTol == 0) {
        return passes::finish_unchecked_step(n, h, k, rec.y0, rec.y5, rec.y6, rec.abs_err);
    }
    return pass.finish_step(h, rec);
}

/// The attempt loop. On entry rec.y0 is the state at t and h the step to try; afterwards rec.y6 is
/// the accepted state at rec.tlast and h the step to try next. Returns false, with h of no use,
/// when the step has become too small to move the time (or was never a positive number). Until its
/// caller has completed the description of the step, the record says that no step was taken: a
/// callback may throw, and rows of two steps must not be mixed.
template <class Passes, class Rhs>
bool repeat_attempts(const Passes& pass, Trajex& rec, double t, double& h, Rhs& rhs) {
    rec.StepTaken = 0;
    while (advances(t, h)) {
        const double err = attempt_step(pass, rec, t, h, rhs);
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
            return repeat_attempts(FixedPasses<1>{}, rec, t, h, rhs);
        case 2:
            return repeat_attempts(FixedPasses<2>{}, rec, t, h, rhs);
        case 3:
            return repeat_attempts(FixedPasses<3>{}, rec, t, h, rhs);
        case 4:
            return repeat_attempts(FixedPasses<4>{}, rec, t, h, rhs);
        default:
            return repeat_attempts(VectorPasses{n}, rec, t, h, rhs);
    }
}

}  // namespace trajex
