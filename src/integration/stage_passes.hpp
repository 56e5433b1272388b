// The vector arithmetic of one step attempt, one pass over the components per stage. Coefficients
// are compile-time constants and zero coefficients cost nothing; the solution of order 5 and the
// head of the one of order 6 are summed in the pass of the last stage, while the rows of k are in
// registers. Each component is summed in the order of the stages, a vector at a time.
#pragma once

#include <algorithm>
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
    if constexpr (weight != 0) {
        Number row;
        load(row, k + m * n);
        sum += weight * row;
    }
}

template <class Weights, class Number, std::size_t... m>
[[gnu::always_inline]] inline void combine(Number& sum, const double* k,
                                           [[maybe_unused]] std::size_t n,
                                           std::index_sequence<0, m...>) {
    load(sum, k);
    sum = Weights::weight(0) * sum;
    (add_term<Weights, m>(sum, k, n), ...);
}

/// One component, or a vector of them, of a combination of the first `count` rows of k:
/// sum over m < count of k[m n] weight(m).
template <class Weights, std::size_t count, class Number>
[[gnu::always_inline]] inline void combine(Number& sum, const double* k, std::size_t n) {
    combine<Weights>(sum, k, n, std::make_index_sequence<count>());
}

/// Runs a pass whose components do not depend on each other: Pass::at for all of them, vector by
/// vector; what remains goes by a pair and one by one. In a small system nothing goes by pairs: its
/// right-hand side has stored the components one by one a moment ago, and a pair would have to wait
/// until both have reached the cache.
template <class Pass, class Vector, class... Arguments>
[[gnu::always_inline]] inline void run(std::size_t n, Arguments... arguments) {
    constexpr std::size_t step = width<Vector>;
    std::size_t i = 0;
    for (; i + step <= n; i += step) Pass::template at<Vector>(i, n, arguments...);
    if constexpr (step > width<Pair>) {
        if (n > largest_unrolled && i + width<Pair> <= n) {
            Pass::template at<Pair>(i, n, arguments...);
            i += width<Pair>;
        }
    }
    for (; i < n; ++i) Pass::template at<double>(i, n, arguments...);
}

/// Copies a state. A small one goes number by number, which is all that volatile is for: a block
/// copy of what was just stored number by number waits until all of it has reached the cache.
template <class Size>
[[gnu::always_inline]] inline void copy_state(Size n, const double* from, double* to) {
    if (n > largest_unrolled) {
        std::copy_n(from, std::size_t{n}, to);
        return;
    }
    const volatile double* const source = from;
    for (std::size_t i = 0; i < n; ++i) to[i] = source[i];
}

/// Argument of the first stage: the state itself, which is kept in `first`. A sum that starts from
/// zero is never a negative zero. Ours start with their first term; adding zero to the state, which
/// changes nothing else, frees it of negative zeros and has the same effect.
struct FirstArgument {
    template <class Number>
    [[gnu::always_inline]] static inline void at(std::size_t i, std::size_t, const double* state,
                                                 double* first, double* y0, double* yw) {
        Number y;
        load(y, state + i);
        store(y, first + i);
        y = 0.0 + y;
        store(y, y0 + i);
        store(y, yw + i);
    }
};

/// Argument of stage j: yw = h sum a[j][m] k[m] + y0.
template <std::size_t j>
struct StageArgument {
    template <class Number>
    [[gnu::always_inline]] static inline void at(std::size_t i, std::size_t n, double h,
                                                 const double* k, const double* y0, double* yw) {
        Number sum, y;
        combine<StageRow<j>, j>(sum, k + i, n);
        load(y, y0 + i);
        store(h * sum + y, yw + i);
    }
};

/// Argument of the last stage, the solution of order 5, and all of the sixth-order sum that is
/// known before that stage (y6 holds the bare sum until the step is finished). Neither solution
/// uses the second stage, but a step with a stage that is not finite must not be accepted: its
/// term, zero otherwise, makes the error estimate not a number then.
struct LastArgument {
    template <class Number>
    [[gnu::always_inline]] static inline void at(std::size_t i, std::size_t n, double h,
                                                 const double* k, const double* y0, double* yw,
                                                 double* y5, double* y6) {
        constexpr std::size_t last = verner::stages - 1;
        Number sum, sum5, sum6, second, y;
        combine<StageRow<last>, last>(sum, k + i, n);
        combine<FifthOrder, last>(sum5, k + i, n);
        combine<SixthOrder, last>(sum6, k + i, n);
        load(second, k + i + n);
        sum5 += 0.0 * second;
        load(y, y0 + i);
        store(h * sum + y, yw + i);
        store(h * sum5 + y, y5 + i);
        store(sum6, y6 + i);
    }
};

/// The solution in the middle of the step: y = h (sum d[m] k[m] + d[8] f_end) + y0.
struct MiddleState {
    template <class Number>
    [[gnu::always_inline]] static inline void at(std::size_t i, std::size_t n, double h,
                                                 const double* k, const double* f_end,
                                                 const double* y0, double* y) {
        constexpr double weight = verner::d[verner::stages];
        Number sum, slope, state;
        combine<MiddleOfStep, verner::stages>(sum, k + i, n);
        load(slope, f_end + i);
        load(state, y0 + i);
        store(h * (sum + weight * slope) + state, y + i);
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
[[gnu::always_inline]] inline void finish(const Ending& s, std::size_t i, Number& y,
                                          Number& error) {
    constexpr double weight = verner::b6[verner::stages - 1];
    Number row, start, y5;
    load(y, s.y6 + i);
    load(row, s.k_last + i);
    load(start, s.y0 + i);
    load(y5, s.y5 + i);
    y = s.h * (y + weight * row) + start;
    error = y - y5;
    take_magnitude(error);
    store(y, s.y6 + i);
    store(error, s.abs_err + i);
}

/// A term of the error norm is a component's error over its tolerance. A zero error counts nothing
/// even where its tolerance is zero too; a positive error over a zero tolerance is infinite.
struct WeightedErrors {
    double absolute;
    double relative;

    template <class Number>
    [[gnu::always_inline]] inline void term(Number& term, const Number& error, Number& y) const {
        take_magnitude(y);
        term = error / (absolute + relative * y);
        clear_where_zero(term, error);
    }
};

/// Without tolerances any finite error is as good as none: the norm is 0, or not a number when the
/// estimate is not finite.
struct UncheckedErrors {
    template <class Number>
    [[gnu::always_inline]] static inline void term(Number& term, const Number& error, Number&) {
        term = 0.0 * error;
    }
};

template <class Number, class Errors>
[[gnu::always_inline]] inline void finish_and_add(const Ending& s, const Errors& errors,
                                                  std::size_t i, double& sum) {
    Number y, error, term;
    finish(s, i, y, error);
    errors.term(term, error, y);
    add_in_order(sum, term * term);
}

/// Completes the step and returns the error norm, the root of the sum of the squares of the terms.
template <class Vector, class Errors>
[[gnu::always_inline]] inline double finish_step(std::size_t n, const Ending& s,
                                                 const Errors& errors) {
    double sum = 0;
    std::size_t i = 0;
    constexpr std::size_t step = width<Vector>;
    for (; i + step <= n; i += step) finish_and_add<Vector>(s, errors, i, sum);
    for (; i < n; ++i) finish_and_add<double>(s, errors, i, sum);
    return std::sqrt(sum);
}

}  // namespace trajex::passes
