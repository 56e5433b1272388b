// The vector arithmetic of one step attempt, one pass over the components per stage. Coefficients
// are compile-time constants and zero coefficients cost nothing; the lower solution and the
// head of the upper one are summed in the pass of the last stage, while the rows of k are in
// registers. Each component is summed in the order of the stages, a vector at a time.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <utility>

#include "core/simd.hpp"

namespace trajex::passes {

/// Weight lists as types, so that every weight is a constant where it is used.
template <class Method, std::size_t j>
struct StageRow {
    static constexpr double weight(std::size_t m) { return Method::coefficient(j, m); }
};
template <class Method>
struct LowerSolution {
    static constexpr double weight(std::size_t m) { return Method::lower_weight(m); }
};
template <class Method>
struct UpperSolution {
    static constexpr double weight(std::size_t m) { return Method::upper_weight(m); }
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
template <class Method, std::size_t j>
struct StageArgument {
    template <class Number>
    [[gnu::always_inline]] static inline void at(std::size_t i, std::size_t n, double h,
                                                 const double* k, const double* y0, double* yw) {
        Number sum, y;
        combine<StageRow<Method, j>, j>(sum, k + i, n);
        load(y, y0 + i);
        store(h * sum + y, yw + i);
    }
};

/// Argument of the last stage, the lower solution, and all of the sum of the upper one that is
/// known before that stage (`upper` holds the bare sum until the step is finished). Neither
/// solution need use every stage, but a step with a stage that is not finite must not be accepted:
/// the term of the unused one, zero otherwise, makes the error estimate not a number then.
template <class Method>
struct LastArgument {
    template <class Number>
    [[gnu::always_inline]] static inline void at(std::size_t i, std::size_t n, double h,
                                                 const double* k, const double* y0, double* yw,
                                                 double* lower, double* upper) {
        constexpr std::size_t last = Method::stages - 1;
        Number sum, sum_lower, sum_upper, unused, y;
        combine<StageRow<Method, last>, last>(sum, k + i, n);
        combine<LowerSolution<Method>, last>(sum_lower, k + i, n);
        combine<UpperSolution<Method>, last>(sum_upper, k + i, n);
        load(unused, k + i + Method::unused_stage * n);
        sum_lower += 0.0 * unused;
        load(y, y0 + i);
        store(h * sum + y, yw + i);
        store(h * sum_lower + y, lower + i);
        store(sum_upper, upper + i);
    }
};

/// The vectors that end a step attempt.
struct Ending {
    double h;
    const double* k_last;
    const double* y0;
    const double* lower;
    double* upper;
    double* error;
};

/// Completes component i of the upper solution from the last row of k and forms the error estimate
/// |upper - lower|. Overwrites what it reads: once per component.
template <class Method, class Number>
[[gnu::always_inline]] inline void finish(const Ending& s, std::size_t i, Number& y,
                                          Number& error) {
    constexpr double weight = Method::upper_weight(Method::stages - 1);
    Number row, start, lower;
    load(y, s.upper + i);
    load(row, s.k_last + i);
    load(start, s.y0 + i);
    load(lower, s.lower + i);
    y = s.h * (y + weight * row) + start;
    error = y - lower;
    take_magnitude(error);
    store(y, s.upper + i);
    store(error, s.error + i);
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

template <class Method, class Number, class Errors>
[[gnu::always_inline]] inline void finish_and_add(const Ending& s, const Errors& errors,
                                                  std::size_t i, double& sum) {
    Number y, error, term;
    finish<Method>(s, i, y, error);
    errors.term(term, error, y);
    add_in_order(sum, term * term);
}

/// Completes the step and returns the error norm, the root of the sum of the squares of the terms.
template <class Method, class Vector, class Errors>
[[gnu::always_inline]] inline double finish_step(std::size_t n, const Ending& s,
                                                 const Errors& errors) {
    double sum = 0;
    std::size_t i = 0;
    constexpr std::size_t step = width<Vector>;
    for (; i + step <= n; i += step) finish_and_add<Method, Vector>(s, errors, i, sum);
    for (; i < n; ++i) finish_and_add<Method, double>(s, errors, i, sum);
    return std::sqrt(sum);
}

}  // namespace trajex::passes
