// Taylor numbers: truncated power series that calculate like double and carry exact derivatives
// through a right-hand side. Part of tx.hpp, which is what applications include.
//
// Products are Cauchy products; an elementary function h = g(a) is found from its differential
// equation h' = slope(h, a) a', coefficient by coefficient:
//
//     k h_k = sum_{j=1}^{k} j a_j slope_{k-j}.
//
// Knuth, The Art of Computer Programming 2, 4.7; Griewank, Walther, Evaluating Derivatives, ch. 13.
#ifndef TX_JET_HPP
#define TX_JET_HPP

#include <cmath>
#include <compare>
#include <concepts>
#include <cstddef>
#include <limits>
#include <numbers>
#include <type_traits>
#include <utility>

namespace tx {

/// a(s) = value + sum_{k=1}^{K} coefficient(k) s^k, in M directions at once: the directions share
/// the value and do not mix. Numbers of order 1 in several directions are gradients.
///
/// Comparisons are those of the values. Functions are found by the arguments, so that generic code
/// calls `exp(x)`, after `using std::exp;` where x may be a double too.
template <int K, int M = 1>
class Jet {
    static_assert(K >= 1 && M >= 1);

  public:
    static constexpr int order = K;
    static constexpr int directions = M;

    constexpr Jet() = default;
    constexpr Jet(double value)
        : value_(value) {}  // NOLINT(google-explicit-constructor): a constant

    constexpr double value() const { return value_; }
    /// The coefficient of s^k, k = 0 ... K, in the direction m.
    constexpr double coefficient(int k, int m = 0) const {
        return k == 0 ? value_ : c_[(k - 1) * M + m];
    }
    constexpr void set(int k, int m, double coefficient) {
        (k == 0 ? value_ : c_[(k - 1) * M + m]) = coefficient;
    }

    constexpr Jet& operator+=(const Jet& b) {
        value_ += b.value_;
        each([&](int i) { c_[i] += b.c_[i]; });
        return *this;
    }
    constexpr Jet& operator-=(const Jet& b) {
        value_ -= b.value_;
        each([&](int i) { c_[i] -= b.c_[i]; });
        return *this;
    }
    constexpr Jet& operator*=(const Jet& b) { return *this = *this * b; }
    constexpr Jet& operator/=(const Jet& b) { return *this = *this / b; }
    constexpr Jet& operator+=(double b) { return value_ += b, *this; }
    constexpr Jet& operator-=(double b) { return value_ -= b, *this; }
    constexpr Jet& operator*=(double b) {
        value_ *= b;
        each([&](int i) { c_[i] *= b; });
        return *this;
    }
    constexpr Jet& operator/=(double b) {
        value_ /= b;
        each([&](int i) { c_[i] /= b; });
        return *this;
    }

    friend constexpr Jet operator+(const Jet& a) { return a; }
    friend constexpr Jet operator-(Jet a) { return a *= -1.0; }
    friend constexpr Jet operator+(Jet a, const Jet& b) { return a += b; }
    friend constexpr Jet operator+(Jet a, double b) { return a += b; }
    friend constexpr Jet operator+(double a, Jet b) { return b += a; }
    friend constexpr Jet operator-(Jet a, const Jet& b) { return a -= b; }
    friend constexpr Jet operator-(Jet a, double b) { return a -= b; }
    friend constexpr Jet operator-(double a, const Jet& b) { return -b += a; }
    friend constexpr Jet operator*(Jet a, double b) { return a *= b; }
    friend constexpr Jet operator*(double a, Jet b) { return b *= a; }
    friend constexpr Jet operator/(Jet a, double b) { return a /= b; }
    friend constexpr Jet operator/(double a, const Jet& b) { return Jet(a) / b; }

    friend constexpr Jet operator*(const Jet& a, const Jet& b) {
        Jet r(a.value_ * b.value_);
        each([&](int i) { r.c_[i] = a.value_ * b.c_[i] + a.c_[i] * b.value_; });
        for (int k = 1; k < K; ++k) {
            for (int j = 0; j < k; ++j) {
                for (int m = 0; m < M; ++m)
                    r.c_[k * M + m] += a.c_[j * M + m] * b.c_[(k - 1 - j) * M + m];
            }
        }
        return r;
    }
    /// r b = a: r_k = (a_k - sum_{j=0}^{k-1} r_j b_{k-j}) / b_0.
    friend constexpr Jet operator/(const Jet& a, const Jet& b) {
        Jet r(a.value_ / b.value_);
        each([&](int i) { r.c_[i] = a.c_[i] - r.value_ * b.c_[i]; });
        for (int k = 0; k < K; ++k) {
            for (int j = 0; j < k; ++j) {
                for (int m = 0; m < M; ++m)
                    r.c_[k * M + m] -= r.c_[j * M + m] * b.c_[(k - 1 - j) * M + m];
            }
            for (int m = 0; m < M; ++m) r.c_[k * M + m] /= b.value_;
        }
        return r;
    }

    friend constexpr bool operator==(const Jet& a, const Jet& b) { return a.value_ == b.value_; }
    friend constexpr bool operator==(const Jet& a, double b) { return a.value_ == b; }
    friend constexpr auto operator<=>(const Jet& a, const Jet& b) { return a.value_ <=> b.value_; }
    friend constexpr auto operator<=>(const Jet& a, double b) { return a.value_ <=> b; }

    /// The solution of h' = slope(h) a' whose value is h_0. The slope is asked anew for each order,
    /// when the coefficients of h that it depends on are there.
    template <class Slope>
    static constexpr Jet solve(const Jet& a, double h_0, const Slope& slope) {
        Jet h(h_0);
        for (int k = 1; k <= K; ++k) h.integrate(k, slope(h), a);
        return h;
    }

    /// Adds the coefficient k of the integral of slope a' to this one's.
    constexpr void integrate(int k, const Jet& slope, const Jet& a) {
        if constexpr (K == 1) {
            each([&](int m) { c_[m] += slope.value_ * a.c_[m]; });
        } else {
            for (int m = 0; m < M; ++m) {
                double sum = 0;
                for (int j = 1; j <= k; ++j)
                    sum += j * a.coefficient(j, m) * slope.coefficient(k - j, m);
                c_[(k - 1) * M + m] += sum / k;
            }
        }
    }

    /// Whether it is a constant.
    constexpr bool constant() const {
        bool zero = true;
        for (const double c : c_) zero = zero && c == 0;
        return zero;
    }

  private:
    /// f(i) for all coefficients; unrolled, so that moderate optimisation does well too.
    template <class F>
    static constexpr void each(const F& f) {
#pragma GCC unroll 16
        for (int i = 0; i < K * M; ++i) f(i);
    }

    double value_ = 0;
    double c_[K * M] = {};  // order by order
};

/// The number that a right-hand side is called with for its highest derivatives.
using jet = Jet<5>;
/// A value and its derivatives in M directions.
template <int M>
using Dual = Jet<1, M>;

// ---- Powers ----

/// a^e for e >= 0.
template <int K, int M>
constexpr Jet<K, M> positive_power(Jet<K, M> a, unsigned e) {
    Jet<K, M> power = 1.0;
    for (; e != 0; e /= 2) {
        if (e % 2 != 0) power *= a;
        if (e > 1) a *= a;
    }
    return power;
}

template <int K, int M, std::integral Integer>
constexpr Jet<K, M> pow(const Jet<K, M>& a, Integer e) {
    if (e >= 0) return positive_power(a, static_cast<unsigned>(e));
    return 1.0 / positive_power(a, 0U - static_cast<unsigned>(e));
}

/// (a_0 + d)^e is the binomial series in d, which has no constant term. At a_0 = 0 this gives the
/// derivatives that exist.
template <int K, int M>
Jet<K, M> pow(const Jet<K, M>& a, double e) {
    if (e == std::trunc(e) && std::fabs(e) <= 1024) return pow(a, static_cast<int>(e));
    const Jet<K, M> d = a - a.value();
    double binomial = 1;
    double outer[K + 1];
    for (int k = 0; k <= K; ++k) {
        outer[k] = binomial * std::pow(a.value(), e - k);
        binomial *= (e - k) / (k + 1);
    }
    Jet<K, M> h = outer[0];
    Jet<K, M> power = 1.0;
    for (int k = 1; k <= K; ++k) {
        power *= d;  // begins with s^k
        for (int j = k; j <= K; ++j) {
            for (int m = 0; m < M; ++m) {
                const double p = power.coefficient(j, m);
                // Where d^k vanishes, an infinite derivative does not matter.
                if (p != 0) h.set(j, m, h.coefficient(j, m) + outer[k] * p);
            }
        }
    }
    return h;
}

template <int K, int M>
Jet<K, M> sqrt(const Jet<K, M>& a) {
    if (a.constant()) return std::sqrt(a.value());
    return Jet<K, M>::solve(a, std::sqrt(a.value()), [](const auto& h) { return 0.5 / h; });
}
template <int K, int M>
Jet<K, M> cbrt(const Jet<K, M>& a) {
    if (a.constant()) return std::cbrt(a.value());
    return Jet<K, M>::solve(a, std::cbrt(a.value()), [](const auto& h) { return 1 / (3 * h * h); });
}
template <int K, int M>
Jet<K, M> hypot(const Jet<K, M>& a, const Jet<K, M>& b) {
    return sqrt(a * a + b * b);
}

// ---- Exponentials and logarithms ----

template <int K, int M>
Jet<K, M> exp(const Jet<K, M>& a) {
    return Jet<K, M>::solve(
        a, std::exp(a.value()), [](const auto& h) -> const auto& { return h; });
}
template <int K, int M>
Jet<K, M> expm1(const Jet<K, M>& a) {
    return Jet<K, M>::solve(a, std::expm1(a.value()), [](const auto& h) { return 1 + h; });
}
template <int K, int M>
Jet<K, M> exp2(const Jet<K, M>& a) {
    return Jet<K, M>::solve(a, std::exp2(a.value()),
                            [](const auto& h) { return std::numbers::ln2 * h; });
}

/// The function with the value h_0 whose derivative is `slope`, a function of a alone.
template <int K, int M>
constexpr Jet<K, M> antiderivative(const Jet<K, M>& a, double h_0, const Jet<K, M>& slope) {
    return Jet<K, M>::solve(
        a, h_0, [&](const auto&) -> const auto& { return slope; });
}

template <int K, int M>
Jet<K, M> log(const Jet<K, M>& a) {
    return antiderivative(a, std::log(a.value()), 1 / a);
}
template <int K, int M>
Jet<K, M> log1p(const Jet<K, M>& a) {
    return antiderivative(a, std::log1p(a.value()), 1 / (1 + a));
}
template <int K, int M>
Jet<K, M> log2(const Jet<K, M>& a) {
    return antiderivative(a, std::log2(a.value()), std::numbers::log2e / a);
}
template <int K, int M>
Jet<K, M> log10(const Jet<K, M>& a) {
    return antiderivative(a, std::log10(a.value()), std::numbers::log10e / a);
}

template <int K, int M>
Jet<K, M> pow(double a, const Jet<K, M>& e) {
    if (e.constant() || a == 0) return std::pow(a, e.value());
    const double log_a = std::log(a);
    return Jet<K, M>::solve(e, std::pow(a, e.value()), [&](const auto& h) { return log_a * h; });
}
template <int K, int M>
Jet<K, M> pow(const Jet<K, M>& a, const Jet<K, M>& e) {
    if (e.constant()) return pow(a, e.value());
    if (a.constant()) return pow(a.value(), e);
    return exp(e * log(a));
}

// ---- Circular and hyperbolic functions ----

/// s' = c a', c' = sign s a' from s_0, c_0: sine and cosine, or the hyperbolic ones.
template <int K, int M>
constexpr std::pair<Jet<K, M>, Jet<K, M>> sine_and_cosine(const Jet<K, M>& a, double sign,
                                                          double s_0, double c_0) {
    Jet<K, M> s = s_0;
    Jet<K, M> c = c_0;
    for (int k = 1; k <= K; ++k) {
        s.integrate(k, c, a);
        c.integrate(k, sign * s, a);
    }
    return {s, c};
}
template <int K, int M>
Jet<K, M> sin(const Jet<K, M>& a) {
    return sine_and_cosine(a, -1, std::sin(a.value()), std::cos(a.value())).first;
}
template <int K, int M>
Jet<K, M> cos(const Jet<K, M>& a) {
    return sine_and_cosine(a, -1, std::sin(a.value()), std::cos(a.value())).second;
}
template <int K, int M>
Jet<K, M> sinh(const Jet<K, M>& a) {
    return sine_and_cosine(a, 1, std::sinh(a.value()), std::cosh(a.value())).first;
}
template <int K, int M>
Jet<K, M> cosh(const Jet<K, M>& a) {
    return sine_and_cosine(a, 1, std::sinh(a.value()), std::cosh(a.value())).second;
}
template <int K, int M>
Jet<K, M> tan(const Jet<K, M>& a) {
    return Jet<K, M>::solve(a, std::tan(a.value()), [](const auto& h) { return 1 + h * h; });
}
template <int K, int M>
Jet<K, M> tanh(const Jet<K, M>& a) {
    return Jet<K, M>::solve(a, std::tanh(a.value()), [](const auto& h) { return 1 - h * h; });
}
template <int K, int M>
Jet<K, M> asin(const Jet<K, M>& a) {
    return antiderivative(a, std::asin(a.value()), 1 / sqrt(1 - a * a));
}
template <int K, int M>
Jet<K, M> acos(const Jet<K, M>& a) {
    return antiderivative(a, std::acos(a.value()), -1 / sqrt(1 - a * a));
}
template <int K, int M>
Jet<K, M> atan(const Jet<K, M>& a) {
    return antiderivative(a, std::atan(a.value()), 1 / (1 + a * a));
}
template <int K, int M>
Jet<K, M> asinh(const Jet<K, M>& a) {
    return antiderivative(a, std::asinh(a.value()), 1 / sqrt(a * a + 1));
}
template <int K, int M>
Jet<K, M> acosh(const Jet<K, M>& a) {
    return antiderivative(a, std::acosh(a.value()), 1 / sqrt(a * a - 1));
}
template <int K, int M>
Jet<K, M> atanh(const Jet<K, M>& a) {
    return antiderivative(a, std::atanh(a.value()), 1 / (1 - a * a));
}
template <int K, int M>
Jet<K, M> erf(const Jet<K, M>& a) {
    const double two_over_root_pi = 2 * std::numbers::inv_sqrtpi;
    return antiderivative(a, std::erf(a.value()), two_over_root_pi * exp(-a * a));
}
/// h' = (x y' - y x') / (x^2 + y^2).
template <int K, int M>
Jet<K, M> atan2(const Jet<K, M>& y, const Jet<K, M>& x) {
    const Jet<K, M> square = x * x + y * y;
    return antiderivative(y, std::atan2(y.value(), x.value()), x / square) -
           antiderivative(x, 0, y / square);
}

// ---- Functions with corners: the side is chosen by the values ----

template <int K, int M>
constexpr Jet<K, M> abs(const Jet<K, M>& a) {
    return a.value() < 0 ? -a : a;
}
template <int K, int M>
constexpr Jet<K, M> fabs(const Jet<K, M>& a) {
    return abs(a);
}
template <int K, int M>
constexpr Jet<K, M> max(const Jet<K, M>& a, const Jet<K, M>& b) {
    return a < b ? b : a;
}
template <int K, int M>
constexpr Jet<K, M> min(const Jet<K, M>& a, const Jet<K, M>& b) {
    return b < a ? b : a;
}
template <int K, int M>
constexpr Jet<K, M> fmax(const Jet<K, M>& a, const Jet<K, M>& b) {
    return max(a, b);
}
template <int K, int M>
constexpr Jet<K, M> fmin(const Jet<K, M>& a, const Jet<K, M>& b) {
    return min(a, b);
}
template <int K, int M>
bool isfinite(const Jet<K, M>& a) {
    return std::isfinite(a.value());
}
template <int K, int M>
bool isnan(const Jet<K, M>& a) {
    return std::isnan(a.value());
}

// Functions of two numbers, one of them plain.
namespace detail {
template <class A, class B>
struct CommonJet {};
template <int K, int M, class B>
requires std::is_arithmetic_v<B>
struct CommonJet<Jet<K, M>, B> {
    using type = Jet<K, M>;
};
template <class A, int K, int M>
requires std::is_arithmetic_v<A>
struct CommonJet<A, Jet<K, M>> {
    using type = Jet<K, M>;
};
}  // namespace detail

template <class A, class B, class J = typename detail::CommonJet<A, B>::type>
J hypot(const A& a, const B& b) {
    return hypot(J(a), J(b));
}
template <class A, class B, class J = typename detail::CommonJet<A, B>::type>
J atan2(const A& a, const B& b) {
    return atan2(J(a), J(b));
}
template <class A, class B, class J = typename detail::CommonJet<A, B>::type>
constexpr J max(const A& a, const B& b) {
    return max(J(a), J(b));
}
template <class A, class B, class J = typename detail::CommonJet<A, B>::type>
constexpr J min(const A& a, const B& b) {
    return min(J(a), J(b));
}
template <class A, class B, class J = typename detail::CommonJet<A, B>::type>
constexpr J fmax(const A& a, const B& b) {
    return max(J(a), J(b));
}
template <class A, class B, class J = typename detail::CommonJet<A, B>::type>
constexpr J fmin(const A& a, const B& b) {
    return min(J(a), J(b));
}

}  // namespace tx

#endif
