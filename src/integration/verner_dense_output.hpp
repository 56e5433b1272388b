// Dense output of order 6 for the pair in verner.hpp: a polynomial of degree 6 through the states
// at both ends of the step and the derivatives there, in the middle, at 0.9 and at 0.95. The state
// in the middle is a solution of order 5 from the stages, those at 0.9 and 0.95 are predicted by
// quintic Hermite interpolation. Reference: Enright, Jackson, Norsett and Thomsen, see there.
#pragma once

#include <cstddef>
#include <iterator>

#include "core/simd.hpp"
#include "core/step_work.hpp"
#include "integration/dense_output.hpp"
#include "integration/stage_passes.hpp"
#include "integration/verner.hpp"

namespace trajex {

/// Values of the seven basis polynomials at the normalised time tau.
struct Basis {
    double d0, d1, d2, d3, d4, d5, d6;

    explicit Basis(double tau) {
        const double tau2 = tau * tau;
        const double tau3 = tau2 * tau;
        const double tau4 = tau2 * tau2;
        const double tau1 = tau - 1;
        const double tau12 = tau1 * tau1;
        // Divisions cost most here. Together they become a few of vectors.
        constexpr double divisors[] = {-17, 8721, 17, 51, 918, 8721};
        double q[] = {tau12, -tau * tau12, tau2, tau1 * tau2, tau2 * tau12, tau2 * tau12};
        for (std::size_t k = 0; k < std::size(q); ++k) q[k] /= divisors[k];
        d0 = (400 * tau4 - 808 * tau3 + 462 * tau2 - 34 * tau - 17) * q[0];
        d1 = (30200 * tau3 - 65084 * tau2 + 43806 * tau - 8721) * q[1];
        d2 = (400 * tau4 - 1608 * tau3 + 2478 * tau2 - 1766 * tau + 513) * q[2];
        d3 = (3800 * tau3 - 7396 * tau2 + 4160 * tau - 513) * q[3];
        d4 = (18400 * tau2 - 33088 * tau + 14877) * -q[4];
        d5 = q[4] * (100000 * tau2 - 100000 * tau + 7125);
        d6 = q[5] * (-1600000 * tau2 + 1600000 * tau - 216000);
    }
};

/// The rows of a completed step as component i sees them.
struct StepRows {
    const double* y_start;
    const double* y_end;
    const double* y_middle;
    const double* f_start;
    const double* f_middle;
    const double* f_090;
    const double* f_095;
    const double* f_end;

    StepRows(const StepWork& work, std::size_t n)
        : y_start(work.y0),
          y_end(work.upper),
          y_middle(work.middle),
          f_start(work.k),
          f_middle(work.k + 8 * n),
          f_090(work.k + 9 * n),
          f_095(work.k + 10 * n),
          f_end(work.k + 11 * n) {}
};

/// A linear combination of rows, for one component or a vector of them, summed in the order of the
/// calls.
template <class Number>
struct Combination {
    std::size_t i;
    Number sum, row;

    [[gnu::always_inline]] inline Combination(double weight, const double* first, std::size_t index)
        : i(index) {
        load(row, first + i);
        sum = weight * row;
    }
    [[gnu::always_inline]] inline void add(double weight, const double* next) {
        load(row, next + i);
        sum += weight * row;
    }
};

/// Order of the sums for the state alone.
struct StateSums {
    template <class Number>
    [[gnu::always_inline]] static inline void hermite(Number& y,
                                                      const verner::HermiteWeights<double>& w,
                                                      double h, const StepRows& s, std::size_t i) {
        Combination<Number> states(w.state_start, s.y_start, i);
        states.add(w.state_end, s.y_end);
        states.add(w.state_middle, s.y_middle);
        Combination<Number> slopes(w.slope_start, s.f_start, i);
        slopes.add(w.slope_end, s.f_end);
        slopes.add(w.slope_middle, s.f_middle);
        y = states.sum + h * slopes.sum;
    }
    template <class Number>
    [[gnu::always_inline]] static inline void value(Number& y, const Basis& b, double h,
                                                    const StepRows& s, std::size_t i) {
        Combination<Number> states(b.d0, s.y_start, i);
        states.add(b.d2, s.y_end);
        Combination<Number> slopes(b.d1, s.f_start, i);
        slopes.add(b.d3, s.f_end);
        slopes.add(b.d4, s.f_middle);
        slopes.add(b.d5, s.f_090);
        slopes.add(b.d6, s.f_095);
        y = states.sum + h * slopes.sum;
    }
};

/// Order of the sums for the extended system. The polynomial is the same. There are two orders
/// because both systems keep a promise: whoever compares a computation with an earlier one, of the
/// state or of the extended system, finds the same numbers to the last bit.
struct ExtendedSums {
    template <class Number>
    [[gnu::always_inline]] static inline void hermite(Number& y,
                                                      const verner::HermiteWeights<double>& w,
                                                      double h, const StepRows& s, std::size_t i) {
        Combination<Number> sum(w.slope_middle, s.f_middle, i);
        sum.add(w.slope_start, s.f_start);
        sum.add(w.slope_end, s.f_end);
        sum.sum = h * sum.sum;
        sum.add(w.state_middle, s.y_middle);
        sum.add(w.state_end, s.y_end);
        sum.add(w.state_start, s.y_start);
        y = sum.sum;
    }
    template <class Number>
    [[gnu::always_inline]] static inline void value(Number& y, const Basis& b, double h,
                                                    const StepRows& s, std::size_t i) {
        Combination<Number> sum(b.d0, s.y_start, i);
        sum.add(b.d1 * h, s.f_start);
        sum.add(b.d2, s.y_end);
        sum.add(b.d3 * h, s.f_end);
        sum.add(b.d4 * h, s.f_middle);
        sum.add(b.d5 * h, s.f_090);
        sum.add(b.d6 * h, s.f_095);
        y = sum.sum;
    }
};

namespace passes {

struct MiddleOfStep {
    static constexpr double weight(std::size_t m) { return verner::d[m]; }
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

/// A prediction of the state inside the step.
template <class Sums>
struct Prediction {
    template <class Number>
    [[gnu::always_inline]] static inline void at(std::size_t i, std::size_t,
                                                 const verner::HermiteWeights<double>* weights,
                                                 double h, const StepRows* rows, double* to) {
        Number y;
        Sums::hermite(y, *weights, h, *rows, i);
        store(y, to + i);
    }
};

/// The polynomial.
template <class Sums>
struct Polynomial {
    template <class Number>
    [[gnu::always_inline]] static inline void at(std::size_t i, std::size_t, const Basis* basis,
                                                 double h, const StepRows* rows, double* to) {
        Number y;
        Sums::value(y, *basis, h, *rows, i);
        store(y, to + i);
    }
};

}  // namespace passes

template <>
struct DenseFormula<Verner65> {
    /// Fills rows 8 to 11 of k by four evaluations.
    template <class Sums, class Vector, class Size, class Rhs>
    [[gnu::always_inline]] static inline void complete(Size n, const StepWork& work,
                                                       const Rhs& rhs) {
        const double t = work.t_first;
        const double h = work.t_last - work.t_first;
        const StepRows rows(work, n);
        using Prediction = passes::Prediction<Sums>;
        rhs(work.t_last, work.upper, work.k + 11 * n);
        passes::run<passes::MiddleState, Vector>(n, h, work.k, rows.f_end, work.y0, work.middle);
        rhs(t + 0.5 * h, work.middle, work.k + 8 * n);
        passes::run<Prediction, Vector>(n, &verner::at_090, h, &rows, work.argument);
        rhs(t + 0.9 * h, work.argument, work.k + 9 * n);
        passes::run<Prediction, Vector>(n, &verner::at_095, h, &rows, work.argument);
        rhs(t + 0.95 * h, work.argument, work.k + 10 * n);
    }

    /// The polynomial at the normalised time tau to work.argument.
    template <class Sums, class Vector, class Size>
    [[gnu::always_inline]] static inline void evaluate(Size n, const StepWork& work, double tau) {
        const double h = work.t_last - work.t_first;
        const Basis basis(tau);
        const StepRows rows(work, n);
        passes::run<passes::Polynomial<Sums>, Vector>(n, &basis, h, &rows, work.argument);
    }
};

}  // namespace trajex
