// The vector arithmetic of one step attempt, one pass over the components per stage. Coefficients
// are compile-time constants and zero coefficients cost nothing; the solution of order 5 and the
// head of the one of order 6 are summed in the pass of the last stage, while the rows of k are in
// the cache. Each component is summed in the order of the stages. The passes are kernels in the
// sense of core/simd.hpp: inlined where the size is known when compiling, dispatched where it is
// not.
#pragma once

#include <algorithm>
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
struct StageArgument {
    [[gnu::always_inline]] static inline void run(std::size_t n, double h, const double* k,
                                                  const double* y0, double* __restrict yw) {
        for (std::size_t i = 0; i < n; ++i) yw[i] = h * combine<StageRow<j>, j>(k + i, n) + y0[i];
    }
};

/// Argument of the last stage, the solution of order 5, and all of the sixth-order sum that is
/// known before that stage (y6 holds the bare sum until the step is finished). Three plain loops
/// over a block that stays in the cache are what compilers vectorise.
struct LastArgument {
    [[gnu::always_inline]] static inline void run(std::size_t n, double h, const double* k,
                                                  const double* y0, double* __restrict yw,
                                                  double* __restrict y5, double* __restrict y6) {
        constexpr std::size_t last = verner::stages - 1;
        constexpr std::size_t block = 128;
        for (std::size_t begin = 0; begin < n; begin += block) {
            const std::size_t end = std::min(n, begin + block);
            for (std::size_t i = begin; i < end; ++i) {
                yw[i] = h * combine<StageRow<last>, last>(k + i, n) + y0[i];
            }
            for (std::size_t i = begin; i < end; ++i) {
                y5[i] = h * combine<FifthOrder, last>(k + i, n) + y0[i];
            }
            for (std::size_t i = begin; i < end; ++i) {
                y6[i] = combine<SixthOrder, last>(k + i, n);
            }
        }
    }
};

/// Completes y6 from the last row of k and forms the error estimate |y6 - y5|.
[[gnu::always_inline]] inline double finish_component(std::size_t i, double h, const double* k_last,
                                                      const double* y0, const double* y5,
                                                      double* y6, double* abs_err) {
    constexpr double weight = verner::b6[verner::stages - 1];
    y6[i] = h * (y6[i] + k_last[i] * weight) + y0[i];
    abs_err[i] = std::fabs(y6[i] - y5[i]);
    return abs_err[i];
}

/// Completes the step and returns the error norm, the root of the sum of
/// (|y6 - y5| / (absolute + |y6| relative))^2. A zero error counts nothing even where its weight is
/// zero too; a positive error over a zero weight is infinite.
struct FinishStep {
    [[gnu::always_inline]] static inline double run(std::size_t n, double h, const double* k_last,
                                                    const double* y0, const double* y5,
                                                    double* __restrict y6,
                                                    double* __restrict abs_err, double absolute,
                                                    double relative) {
        double sum = 0;
        for (std::size_t i = 0; i < n; ++i) {
            const double error = finish_component(i, h, k_last, y0, y5, y6, abs_err);
            const double ratio = error / (absolute + std::fabs(y6[i]) * relative);
            const double term = error == 0 ? 0 : ratio;
            sum += term * term;
        }
        return std::sqrt(sum);
    }
};

/// The same with both tolerances zero, where any finite error is as good as none: the norm is 0, or
/// not a number when the estimate is not finite.
struct FinishUncheckedStep {
    [[gnu::always_inline]] static inline double run(std::size_t n, double h, const double* k_last,
                                                    const double* y0, const double* y5,
                                                    double* __restrict y6,
                                                    double* __restrict abs_err) {
        double sum = 0;
        for (std::size_t i = 0; i < n; ++i) {
            sum += finish_component(i, h, k_last, y0, y5, y6, abs_err) * 0.0;
        }
        return sum;
    }
};

/// The solution in the middle of the step: y = h (sum d[m] k[m] + d[8] f_end) + y0.
struct MiddleState {
    [[gnu::always_inline]] static inline void run(std::size_t n, double h, const double* k,
                                                  const double* f_end, const double* y0,
                                                  double* __restrict y) {
        constexpr double weight = verner::d[verner::stages];
        for (std::size_t i = 0; i < n; ++i) {
            y[i] =
                h * (combine<MiddleOfStep, verner::stages>(k + i, n) + f_end[i] * weight) + y0[i];
        }
    }
};

}  // namespace trajex::passes
