// Taylor numbers: a series of order 5 leaves a remainder of order 6, whatever it went through.
#include "tx/jet.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <string>
#include <vector>

namespace {

using tx::Jet;

struct Case {
    std::string name;
    double at;
    std::function<double(double)> number;
    std::function<Jet<5>(Jet<5>)> series;
    std::function<tx::Dual<3>(tx::Dual<3>)> gradient;
};
template <class F>
Case make(const char* name, double at, F f) {
    return {name, at, f, f, f};
}

/// A curve through `at` that is no line.
template <class Number>
Number curve(double at, const Number& s) {
    return at + 0.7 * s - 0.4 * s * s + 0.3 * s * s * s;
}

TEST(Jet, LeavesARemainderOfOrderSix) {
    using namespace std;  // NOLINT: the functions of doubles, beside those of jets
    const std::vector<Case> cases = {
        make("arithmetic", 1.3,
             [](auto x) { return (2 - x) * (x + 1) / (3 + x * x) - 1 / x + 2 * x; }),
        make("assignments", 1.3,
             [](auto x) {
                 auto y = x;
                 y += 1;
                 y *= x + 2;
                 y -= x / 3;
                 y /= 1 + x;
                 return -y;
             }),
        make("exp", 0.4, [](auto x) { return exp(x) + expm1(x) * exp2(x); }),
        make("log", 1.7, [](auto x) { return log(x) * log1p(x) + log2(x) - log10(x); }),
        make("roots", 2.1, [](auto x) { return sqrt(x) * cbrt(x - 5); }),
        make("powers", 1.2,
             [](auto x) { return pow(x, 7) + pow(x, -3) + pow(x, 2.5) + pow(x, x); }),
        make("powers of numbers", -0.8, [](auto x) { return pow(2, x) + pow(x, 3.0) + pow(x, 0); }),
        make("circular", 0.6, [](auto x) { return sin(x) * cos(2 * x) + tan(x); }),
        make("hyperbolic", 0.6, [](auto x) { return sinh(x) * cosh(x) + tanh(3 * x); }),
        make("inverse circular", 0.3, [](auto x) { return asin(x) * acos(x) + atan(4 * x); }),
        make("inverse hyperbolic", 0.3, [](auto x) { return asinh(x) * acosh(x + 2) + atanh(x); }),
        make("angles", -0.5,
             [](auto x) { return atan2(x, x * x - 1) + atan2(x, 2.0) * hypot(x, 3.0); }),
        make("error function", 0.2, [](auto x) { return erf(x); }),
        make("corners", -0.5,
             [](auto x) { return abs(x) * fmax(x, -2.0) + fmin(x, x * x) + fabs(x); }),
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Jet<5> s = 0;
        s.set(1, 0, 1);
        const Jet<5> h = c.series(curve(c.at, s));
        const auto remainder = [&](double at) {
            double sum = h.coefficient(5);
            for (int k = 4; k >= 0; --k) sum = sum * at + h.coefficient(k);
            return std::fabs(c.number(curve(c.at, at)) - sum);
        };
        const double far = remainder(0.02);
        const double near = remainder(0.01);
        EXPECT_LT(far, 1e-6);
        EXPECT_TRUE(near < 1e-14 || far > 40 * near) << far << " " << near;

        // Several directions are the same number with other seeds.
        tx::Dual<3> x = c.at;
        for (int m = 0; m < 3; ++m) x.set(1, m, 1 - m);
        const tx::Dual<3> g = c.gradient(x);
        EXPECT_DOUBLE_EQ(g.value(), c.number(c.at));
        for (int m = 0; m < 3; ++m) {
            EXPECT_NEAR(g.coefficient(1, m), (1 - m) * h.coefficient(1) / 0.7, 1e-13);
        }
    }
}

TEST(Jet, HasTheDerivativesThatExistAtZero) {
    Jet<2> zero = 0;
    zero.set(1, 0, 1);
    EXPECT_EQ(pow(zero, 1.5).coefficient(1), 0);
    EXPECT_EQ(pow(zero, 2).coefficient(2), 1);
    EXPECT_EQ(pow(zero, 0).coefficient(1), 0);
    EXPECT_EQ(sqrt(Jet<2>(0)).coefficient(1), 0);
    EXPECT_TRUE(std::isinf(sqrt(zero).coefficient(1)));
    EXPECT_TRUE(zero < 1 && zero <= zero && zero == 0 && 1 > zero && zero != Jet<2>(2));
}

}  // namespace
