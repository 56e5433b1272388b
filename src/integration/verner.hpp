// The eight-stage pair of orders 5 and 6 and its dense output of order 6.
// Pair: J. H. Verner, Explicit Runge-Kutta methods with estimates of the local truncation error,
// SIAM J. Numer. Anal. 15 (1978). Dense output: W. H. Enright, K. R. Jackson, S. P. Norsett and
// P. G. Thomsen, Interpolants for Runge-Kutta formulas, ACM Trans. Math. Softw. 12 (1986).
// The coefficients are exact quotients. The linear ones of the conditions that define them are
// checked when compiling; a test checks those of all trees.
#pragma once

#include <array>
#include <cmath>
#include <cstddef>
#include <numeric>

namespace trajex {

namespace verner {

/// An exact quotient. Overflow in its arithmetic is an error at compile time.
struct Fraction {
    long long numerator = 0;
    long long denominator = 1;

    constexpr Fraction() = default;
    constexpr Fraction(long long whole) : numerator(whole) {}
    constexpr Fraction(long long p, long long q) : numerator(p), denominator(q) {}

    constexpr operator double() const {
        return static_cast<double>(numerator) / static_cast<double>(denominator);
    }
    friend constexpr Fraction operator+(Fraction x, Fraction y) {
        const long long common = std::lcm(x.denominator, y.denominator);
        return reduced(
            x.numerator * (common / x.denominator) + y.numerator * (common / y.denominator),
            common);
    }
    friend constexpr Fraction operator*(Fraction x, Fraction y) {
        const Fraction p = reduced(x.numerator, y.denominator);
        const Fraction q = reduced(y.numerator, x.denominator);
        return {p.numerator * q.numerator, p.denominator * q.denominator};
    }
    friend constexpr bool equal(Fraction x, Fraction y) {
        const Fraction p = reduced(x.numerator, x.denominator);
        const Fraction q = reduced(y.numerator, y.denominator);
        return p.numerator == q.numerator && p.denominator == q.denominator;
    }

  private:
    static constexpr Fraction reduced(long long p, long long q) {
        const long long divisor = std::gcd(p, q);
        return {p / divisor, q / divisor};
    }
};

inline constexpr std::size_t stages = 8;

/// Nodes.
inline constexpr std::array<Fraction, stages> c{
    {{0}, {1, 6}, {4, 15}, {2, 3}, {5, 6}, {1}, {1, 15}, {1}}};

/// Stage coefficients, row by row.
inline constexpr std::array<std::array<Fraction, stages - 1>, stages> a{{
    {},
    {{{1, 6}}},
    {{{4, 75}, {16, 75}}},
    {{{5, 6}, {-8, 3}, {5, 2}}},
    {{{-165, 64}, {55, 6}, {-425, 64}, {85, 96}}},
    {{{12, 5}, {-8}, {4015, 612}, {-11, 36}, {88, 255}}},
    {{{-8263, 15000}, {124, 75}, {-643, 680}, {-81, 250}, {2484, 10625}, {0}}},
    {{{3501, 1720}, {-300, 43}, {297275, 52632}, {-319, 2322}, {24068, 84065}, {0}, {3850, 26703}}},
}};

/// Weights of the solutions of order 5 and 6.
inline constexpr std::array<Fraction, stages> b5{
    {{13, 160}, {0}, {2375, 5984}, {5, 16}, {12, 85}, {3, 44}, {0}, {0}}};
inline constexpr std::array<Fraction, stages> b6{
    {{3, 40}, {0}, {875, 2244}, {23, 72}, {264, 1955}, {0}, {125, 11592}, {43, 616}}};

/// Weights of the solution in the middle of the step; the last belongs to f at its end.
inline constexpr std::array<Fraction, stages + 1> d{{{121, 1536},
                                                     {0},
                                                     {317125, 861696},
                                                     {397, 6912},
                                                     {-1, 68},
                                                     {17, 704},
                                                     {125, 12096},
                                                     {-817, 14784},
                                                     {1, 32}}};

/// Weights of a quintic Hermite prediction of the state inside the step, from the states at its
/// start, end and middle and h times the derivatives there.
template <class Number>
struct HermiteWeights {
    Number state_start, state_end, state_middle;
    Number slope_start, slope_end, slope_middle;
};

/// At 0.9 and at 0.95 of the step.
inline constexpr HermiteWeights<Fraction> exact_090{{128, 3125}, {2592, 3125}, {81, 625},
                                                    {18, 3125},  {-162, 3125}, {162, 3125}};
inline constexpr HermiteWeights<Fraction> exact_095{{5427, 400000},   {380133, 400000},
                                                    {361, 10000},     {1539, 800000},
                                                    {-29241, 800000}, {3249, 200000}};

constexpr HermiteWeights<double> rounded(const HermiteWeights<Fraction>& w) {
    return {w.state_start, w.state_end, w.state_middle, w.slope_start, w.slope_end, w.slope_middle};
}

inline constexpr HermiteWeights<double> at_090 = rounded(exact_090);
inline constexpr HermiteWeights<double> at_095 = rounded(exact_095);

// ---- The conditions that define the tables -----------------------------------------------------

template <std::size_t count>
constexpr Fraction sum(const std::array<Fraction, count>& values) {
    Fraction total;
    for (const Fraction& value : values) total = total + value;
    return total;
}

constexpr bool rows_sum_to_nodes() {
    for (std::size_t j = 0; j < stages; ++j) {
        if (!equal(sum(a[j]), c[j])) return false;
    }
    return true;
}

/// Quadrature conditions: sum b_j c_j^(q-1) = 1/q up to the order of the solution.
constexpr bool integrates_powers(const std::array<Fraction, stages>& weights, int order) {
    for (int q = 1; q <= order; ++q) {
        Fraction total;
        for (std::size_t j = 0; j < stages; ++j) {
            Fraction term = weights[j];
            for (int power = 1; power < q; ++power) term = term * c[j];
            total = total + term;
        }
        if (!equal(total, Fraction(1, q))) return false;
    }
    return true;
}

/// A Hermite prediction at s is exact for 1 and for the normalised time itself.
constexpr bool predicts_lines(const HermiteWeights<Fraction>& w, Fraction s) {
    const Fraction constant = w.state_start + w.state_end + w.state_middle;
    const Fraction linear = w.state_end + w.state_middle * Fraction(1, 2) + w.slope_start +
                            w.slope_end + w.slope_middle;
    return equal(constant, 1) && equal(linear, s);
}

static_assert(rows_sum_to_nodes());
static_assert(integrates_powers(b5, 5));
static_assert(integrates_powers(b6, 6));
static_assert(equal(sum(d), Fraction(1, 2)));
static_assert(predicts_lines(exact_090, Fraction(9, 10)));
static_assert(predicts_lines(exact_095, Fraction(19, 20)));

}  // namespace verner

/// The method as the stepper takes it. Its dense output is a DenseFormula.
struct Verner65 {
    static constexpr std::size_t stages = verner::stages;
    static constexpr std::size_t rows = stages + 4;  ///< of k, those of dense output included
    static constexpr std::size_t unused_stage = 1;   ///< that has no weight in either solution
    static constexpr double least_factor = 0.2;      ///< of the step size

    static constexpr double node(std::size_t j) { return verner::c[j]; }
    static constexpr double coefficient(std::size_t j, std::size_t m) { return verner::a[j][m]; }
    static constexpr double lower_weight(std::size_t m) { return verner::b5[m]; }
    static constexpr double upper_weight(std::size_t m) { return verner::b6[m]; }

    /// By which the step size is multiplied after an attempt with error norm err > 0.
    static double factor(double err) { return 0.625 / std::sqrt(std::sqrt(err)) + least_factor; }
};

}  // namespace trajex
