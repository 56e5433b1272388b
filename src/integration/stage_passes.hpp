// The vector arithmetic of one step attempt, one pass over the components per stage. Coefficients
// are compile-time constants and zero coefficients cost nothing; the solution of order 5 and the
// head of the one of order 6 are summed in the pass of the last stage, while the rows of k are in
// the cache. Each component is summed in the order of the stages.
#pragma once

#include <cmath>
#include <cstddef>
#include <utility>

#include "integration/verner.hpp"

namespace trajex::passes {

/// Weight lists as types, so that every weight is a constant where it is used.
template <std::size_t j>
struct StageRow {
    static constexpr auto weight = [](std::size_t m) { return verner::a[j][m]; };
};
struct FifthOrder {
    static constexpr auto weight = [](std::size_t m) { return verner::b5[m]; };
};
struct SixthOrder {
    static constexpr auto weight = [](std::size_t m) { return verner::b6[m]; };
};
struct MiddleOfStep {
    static constexpr auto weight = [](std::size_t m) { return verner::d[m]; };
};

template <class Weights, std::size_t m>
[[gnu::always_inline]] inline void add_term(double& sum, const double* k, std::size_t n) {
    constexpr double weight = Weights::weight(m);
    if constexpr (weight != 0) sum += k[m * n] * weight;
}

/// sum over m < count of k[m n] weight(m): one component of a combination of the first `count`
/// rows.
template <class Weights, std::size_t count>
[[gnu::always_inline]] inline double combine(const double* k, std::size_t n) {
    double sum = k[0] * static_cast<double>(Weights::weight(0));
    [&]<std::size_t... m>(std::index_sequence<m...>) {
        (add_term<Weights, m + 1>(sum, k, n), ...);
    }
    (std::make_index_sequence<count - 1>());
    return sum;
}

/// Argument of stage j: yw = h sum a[j][m] k[m] + y0.
template <std::size_t j>
[[gnu::always_inline]] inline void stage_argument(std::size_t n, double h, const double* k,
                                                  const double* y0, double* __restrict yw) {
    for (std::size_t i = 0; i < n; ++i) yw[i] = h * combine<StageRow<j>, j>(k + i, n) + y0[i];
}

/// Argument of the last stage, the solution of order 5, and all of the sixth-order sum that is
/// known before that stage (y6 holds the bare sum until finish_step).
[[gnu::always_inline]] inline void last_argument(std::size_t n, double h, const double* k,
                                                 const double* y0, double* __restrict yw,
                                                 double* __restrict y5, double* __restrict y6) {
    constexpr std::size_t last = verner::stages - 1;
    for (std::size_t i = 0; i < n; ++i) {
        yw[i] = h * combine<StageRow<last>, last>(k + i, n) + y0[i];
        y5[i] = h * combine<FifthOrder, last>(k + i, n) + y0[i];
        y6[i] = combine<SixthOrder, last>(k + i, n);
    }
}

/// Completes y6 and forms the error estimate and its norm, the root of the sum of
/// (|y6 - y5| / (absolute + |y6| relative))^2. A zero error counts nothing even where its weight is
/// zero too; a positive error over a zero weight is infinite.
[[gnu::always_inline]] inline double finish_step(std::size_t n, double h, const double* k,
                                                 const double* y0, const double* y5,
                                                 double* __restrict y6, double* __restrict abs_err,
                                                 double absolute, double relative) {
    constexpr std::size_t last = verner::stages - 1;
    constexpr double weight = verner::b6[last];
    double sum = 0;
    for (std::size_t i = 0; i < n; ++i) {
        const double y = h * (y6[i] + k[last * n + i] * weight) + y0[i];
        const double error = std::fabs(y - y5[i]);
        const double ratio = error / (absolute + std::fabs(y) * relative);
        const double term = error == 0 ? 0 : ratio;
        y6[i] = y;
        abs_err[i] = error;
        sum += term * term;
    }
    return std::sqrt(sum);
}

/// The same with both tolerances zero, where any finite error is as good as none: the norm is 0, or
/// not a number when the estimate is not finite.
[[gnu::always_inline]] inline double finish_unchecked_step(std::size_t n, double h, const double* k,
                                                           const double* y0, const double* y5,
                                                           double* __restrict y6,
                                                           double* __restrict abs_err) {
    constexpr std::size_t last = verner::stages - 1;
    constexpr double weight = verner::b6[last];
    double sum = 0;
    for (std::size_t i = 0; i < n; ++i) {
        y6[i] = h * (y6[i] + k[last * n + i] * weight) + y0[i];
        abs_err[i] = std::fabs(y6[i] - y5[i]);
        sum += abs_err[i] * 0.0;
    }
    return sum;
}

/// The solution in the middle of the step: y = h (sum d[m] k[m] + d[8] f_end) + y0.
[[gnu::always_inline]] inline void middle_of_step(std::size_t n, double h, const double* k,
                                                  const double* f_end, const double* y0,
                                                  double* __restrict y) {
    constexpr double weight = verner::d[verner::stages];
    for (std::size_t i = 0; i < n; ++i) {
        y[i] = h * (combine<MiddleOfStep, verner::stages>(k + i, n) + f_end[i] * weight) + y0[i];
    }
}

}  // namespace trajex::passes
