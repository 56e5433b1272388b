// The vector arithmetic of one step attempt, one pass over the components per stage. Coefficients
// are compile-time constants and zero coefficients cost nothing; the solution of order 5 and the
// head of the one of order 6 are summed in the pass of the last stage, while the rows of k are in
// registers. Each component is summed in the order of the stages, alone or in a pack of four.
#pragma once

#include <cmath>
#include <cstddef>
#include <utility>

#include "core/simd.hpp"
#include "integration/verner.hpp"

namespace trajex::passes {

/// Weight lists as types, so that every weight is a constant where it is used.
template <std::size_t j>
struct StageRow {
    static constexpr double weight(std::size_t m) { return verner::a[j][m]; }
};
struct FifthOrder {
    static constexpr double weight(std::size_t m) { return verner::b5[m]; }
};
struct SixthOrder {
    static constexpr double weight(std::size_t m) { return verner::b6[m]; }
};
struct MiddleOfStep {
    static constexpr double weight(std::size_t m) { return verner::d[m]; }
};

template <class Weights, std::size_t m, class Number>
[[gnu::always_inline]] inline void add_term(Number& sum, const double* k, std::size_t n) {
    constexpr double weight = Weights::weight(m);
    if constexpr (weight != 0) sum = sum + load<Number>(k + m * n) * weight;
}

template <class Weights, class Number, std::size_t... m>
[[gnu::always_inline]] inline Number combine_rows(const double* k, [[maybe_unused]] std::size_t n,
                                                  std::index_sequence<m...>) {
    Number sum = load<Number>(k) * Weights::weight(0);
    (add_term<Weights, m + 1>(sum, k, n), ...);
    return sum;
}

/// sum over m < count of k[m n] weight(m): one component of a combination of the first `count`
/// rows.
template <class Weights, std::size_t count, class Number>
[[gnu::always_inline]] inline Number combine(const double* k, std::size_t n) {
    return combine_rows<Weights, Number>(k, n, std::make_index_sequence<count - 1>());
}

/// Runs a pass whose components do not depend on each other: Pass::at for all of them, in packs.
/// The last pack overlaps the one before it where n is no multiple of their size; next to the few
/// packs of a small system the right-hand side would wait for such doubly written components.
template <class Pass, class... Arguments>
[[gnu::always_inline]] inline void run(std::size_t n, Arguments... arguments) {
    std::size_t i = 0;
    if (n <= 2 * pack_size) {
        for (; i + pack_size <= n; i += pack_size) Pass::template at<Pack>(i, n, arguments...);
        for (; i < n; ++i) Pass::template at<double>(i, n, arguments...);
    } else {
        for (; i + pack_size < n; i += pack_size) Pass::template at<Pack>(i, n, arguments...);
        Pass::template at<Pack>(n - pack_size, n, arguments...);
    }
}

/// The same as a kernel in the sense of core/simd.hpp.
template <class Pass>
struct Kernel {
    template <class... Arguments>
    [[gnu::always_inline]] static inline void run(std::size_t n, Arguments... arguments) {
        passes::run<Pass>(n, arguments...);
    }
};

/// Argument of the first stage: the state itself. Sums that start from zero never end in a negative
/// zero, whatever the state; ours start with their first term and get there by giving the attempt a
/// state without any.
struct FirstArgument {
    template <class Number>
    [[gnu::always_inline]] static inline void at(std::size_t i, std::size_t, const double* state,
                                                 double* y0, double* yw) {
        const Number y = load<Number>(state + i) + 0.0;
        store(y0 + i, y);
        store(yw + i, y);
    }
};

/// Argument of stage j: yw = h sum a[j][m] k[m] + y0.
template <std::size_t j>
struct StageArgument {
    template <class Number>
    [[gnu::always_inline]] static inline void at(std::size_t i, std::size_t n, double h,
                                                 const double* k, const double* y0, double* yw) {
        const Number sum = combine<StageRow<j>, j, Number>(k + i, n);
        store(yw + i, sum * h + load<Number>(y0 + i));
    }
};

/// Argument of the last stage, the solution of order 5, and all of the sixth-order sum that is
/// known before that stage (y6 holds the bare sum until the step is finished).
struct LastArgument {
    template <class Number>
    [[gnu::always_inline]] static inline void at(std::size_t i, std::size_t n, double h,
                                                 const double* k, const double* y0, double* yw,
                                                 double* y5, double* y6) {
        constexpr std::size_t last = verner::stages - 1;
        const Number sum = combine<StageRow<last>, last, Number>(k + i, n);
        const Number sum5 = combine<FifthOrder, last, Number>(k + i, n);
        const Number sum6 = combine<SixthOrder, last, Number>(k + i, n);
        const Number y = load<Number>(y0 + i);
        store(yw + i, sum * h + y);
        store(y5 + i, sum5 * h + y);
        store(y6 + i, sum6);
    }
};

/// The solution in the middle of the step: y = h (sum d[m] k[m] + d[8] f_end) + y0.
struct MiddleState {
    template <class Number>
    [[gnu::always_inline]] static inline void at(std::size_t i, std::size_t n, double h,
                                                 const double* k, const double* f_end,
                                                 const double* y0, double* y) {
        constexpr double weight = verner::d[verner::stages];
        const Number sum = combine<MiddleOfStep, verner::stages, Number>(k + i, n) +
                           load<Number>(f_end + i) * weight;
        store(y + i, sum * h + load<Number>(y0 + i));
    }
};

/// The vectors that end a step attempt.
struct Ending {
    double h;
    const double* k_last;
    const double* y0;
    const double* y5;
    double* y6;
    double* abs_err;
};

/// Completes component i of y6 from the last row of k and forms the error estimate |y6 - y5|.
/// Overwrites what it reads: once per component.
template <class Number>
[[gnu::always_inline]] inline Number finish(const Ending& s, std::size_t i, Number& error) {
    constexpr double weight = verner::b6[verner::stages - 1];
    const Number sum = load<Number>(s.y6 + i) + load<Number>(s.k_last + i) * weight;
    const Number y = sum * s.h + load<Number>(s.y0 + i);
    error = absolute(y - load<Number>(s.y5 + i));
    store(s.y6 + i, y);
    store(s.abs_err + i, error);
    return y;
}

/// A term of the error norm is a component's error over its tolerance. A zero error counts nothing
/// even where its tolerance is zero too; a positive error over a zero tolerance is infinite.
struct WeightedErrors {
    double absolute_tolerance;
    double relative_tolerance;

    template <class Number>
    [[gnu::always_inline]] inline Number term(const Number& error, const Number& y) const {
        const Number tolerance = absolute(y) * relative_tolerance + absolute_tolerance;
        return unless_zero(error, error / tolerance);
    }
};

/// Without tolerances any finite error is as good as none: the norm is 0, or not a number when the
/// estimate is not finite.
struct UncheckedErrors {
    template <class Number>
    [[gnu::always_inline]] static inline Number term(const Number& error, const Number&) {
        return error * 0.0;
    }
};

template <class Number, class Errors>
[[gnu::always_inline]] inline void finish_and_add(const Ending& s, const Errors& errors,
                                                  std::size_t i, double& sum) {
    Number error;
    const Number y = finish(s, i, error);
    const Number term = errors.term(error, y);
    add_in_order(sum, term * term);
}

/// Completes the step and returns the error norm, the root of the sum of the squares of the terms.
template <class Errors>
[[gnu::always_inline]] inline double finish_step(std::size_t n, const Ending& s,
                                                 const Errors& errors) {
    double sum = 0;
    std::size_t i = 0;
    for (; i + pack_size <= n; i += pack_size) finish_and_add<Pack>(s, errors, i, sum);
    for (; i < n; ++i) finish_and_add<double>(s, errors, i, sum);
    return std::sqrt(sum);
}

}  // namespace trajex::passes
