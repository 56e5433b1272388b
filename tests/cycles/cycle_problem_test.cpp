// Cycles whose periods and multipliers are known.
#include "cycles/cycle_problem.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <string>
#include <utility>
#include <vector>

#include "cycles/cycles.hpp"

using namespace trajex;
using namespace trajex::cycles_test;

namespace {

constexpr double pi = std::numbers::pi;

struct Solved {
    bool found = false;
    double period = 0;
    std::size_t intervals = 0;
    Spectrum spectrum;
    MultiplierCheck check;
};

Solved solve(const EquationsPtr& f, const State& c, const Orbit& start, const Timing& timing = {},
             double mesh_tol = 1e-6) {
    CycleSettings settings;
    settings.mesh_tol = mesh_tol;
    settings.m = start.m;
    CycleProblem problem(f, timing, {}, c, settings, start);
    std::vector<double> z = problem.start();
    Solved solved;
    solved.found = solve_cycle(problem, z);
    std::vector<double> residual(problem.equations());
    problem.linearise(z.data(), residual.data());
    problem.spectrum(solved.spectrum);
    solved.check = problem.check();
    solved.period = problem.orbit(z.data()).period;
    solved.intervals = problem.segments().intervals();
    return solved;
}

const auto van_der_pol = [](auto, auto& x, auto& c, auto& dx) {
    dx[0] = x[1];
    dx[1] = c[0] * (1 - x[0] * x[0]) * x[1] - x[0];
};
const auto lorenz = [](auto, auto& x, auto& c, auto& dx) {
    dx[0] = c[0] * (x[1] - x[0]);
    dx[1] = x[0] * (c[1] - x[2]) - x[1];
    dx[2] = x[0] * x[1] - c[2] * x[2];
};

/// The system f in the coordinates u = M x, and k times as fast.
template <class F>
auto transformed(F f, double k) {
    return [f, k](auto t, auto& u, auto& c, auto& du) {
        // M = [1 0 0; a 1 0; 0 a 1]: condition a^2 and more.
        constexpr double a = 31.0;
        using Number = std::remove_cvref_t<decltype(du[0])>;
        Number x[3] = {u[0], u[1] - a * u[0], u[2] - a * u[1] + a * a * u[0]};
        Number dx[3];
        f(t, x, c, dx);
        du[0] = k * dx[0];
        du[1] = k * (a * dx[0] + dx[1]);
        du[2] = k * (a * dx[1] + dx[2]);
    };
}

struct Case {
    std::string name;
    EquationsPtr f;
    State c;
    Orbit start;
    double period, period_tolerance;  // relative
    std::vector<double> logarithms;   // of |mu|, largest first
    double tolerance;                 // of them
    double mesh_tol = 1e-6;
};

TEST(Cycle, PeriodsAndMultipliers) {
    const auto vdp = equations(2, 1, van_der_pol);
    const auto butterfly = equations(3, 3, lorenz);
    const auto fast = equations(3, 3, transformed(lorenz, 3.0));
    const auto circles = equations(2, 2, ring_rates);
    const State L{10, 28, 8.0 / 3};
    const State relaxed = integrate(*vdp, {10}, 0, {2, 0}, 100, 100000);
    const State aab{-12.595115397689, -16.970525307084, 27};
    const State aaab{-11.998523280062, -15.684254096883, 27};
    const State aabab{4.25098521, 1.00855855, 27};
    const State mapped{aab[0], aab[1] + 31 * aab[0], aab[2] + 31 * aab[1]};
    const std::vector<double> of_aab{std::log(9.16549182), std::log(2.24625618e-15)};
    const Case cases[] = {
        {"van der Pol, mu = 10",
         vdp,
         {10},
         trace(*vdp, {10}, relaxed, 19.078, 60),
         19.078369567,
         3e-10,
         {-135.43 * std::log(10.0)},
         0.01},
        {"Lorenz AAB", butterfly, L, trace(*butterfly, L, aab, 2.3059, 40), 2.305907263939, 1e-9,
         of_aab, 3e-6},
        {"Lorenz AAAB",
         butterfly,
         L,
         trace(*butterfly, L, aaab, 3.0236, 40),
         3.023583703433,
         1e-9,
         {std::log(16.1136589), std::log(7.02674762e-20)},
         3e-6},
        {"Lorenz AABAB",
         butterfly,
         L,
         trace(*butterfly, L, aabab, 3.8203, 60),
         3.820254163436,
         1e-9,
         {std::log(37.1178601), std::log(5.69955916e-25)},
         5e-6},
        {"Lorenz AAB, N = 30, m = 7", butterfly, L, trace(*butterfly, L, aab, 2.3059, 30, 0, 7),
         2.305907263939, 1e-11, of_aab, 1e-8, 1e-8},
        {"Lorenz AAB, N = 300", butterfly, L, trace(*butterfly, L, aab, 2.3059, 300),
         2.305907263939, 1e-9, of_aab, 3e-6},
        {"Lorenz AAB, other coordinates, 3 times as fast", fast, L,
         trace(*fast, L, mapped, 2.3059 / 3, 40), 2.305907263939 / 3, 1e-9, of_aab, 3e-6},
        {"ring, outer",
         circles,
         {0.04, 0.5},
         trace(*circles, {0.04, 0.5}, {1.2, 0}, 5.7, 20),
         5.711986642891,
         1e-9,
         {std::log(0.0644572163)},
         1e-8},
        {"ring, inner",
         circles,
         {0.04, 0.5},
         trace(*circles, {0.04, 0.5}, {0.8, 0}, 7, 20),
         2 * pi / 0.9,
         1e-9,
         {std::log(9.33734025630)},
         1e-8},
    };
    for (const Case& at : cases) {
        SCOPED_TRACE(at.name);
        const Solved solved = solve(at.f, at.c, at.start, {}, at.mesh_tol);
        EXPECT_TRUE(solved.found);
        EXPECT_NEAR(solved.period, at.period, at.period_tolerance * at.period) << solved.intervals;
        ASSERT_EQ(solved.spectrum.size(), at.logarithms.size());
        for (std::size_t k = 0; k < at.logarithms.size(); ++k) {
            EXPECT_NEAR(solved.spectrum[k].value.real(), at.logarithms[k], at.tolerance);
        }
    }
}

// Errors that are handed out bound the errors made, whatever the mesh.
TEST(Cycle, ErrorsOfMultipliersHold) {
    const auto f = equations(3, 3, lorenz);
    const State c{10, 28, 8.0 / 3};
    for (const double mesh_tol : {1e-4, 1e-5, 1e-6, 1e-7, 1e-8}) {
        const Solved solved = solve(
            f, c, trace(*f, c, {-12.595115397689, -16.970525307084, 27}, 2.3059, 40), {}, mesh_tol);
        ASSERT_TRUE(solved.found);
        const Exponent& unstable = solved.spectrum[0];
        EXPECT_LE(std::fabs(unstable.value.real() - 2.21544554223), unstable.error + 1e-11)
            << mesh_tol;
        EXPECT_LT(unstable.error, 10 * mesh_tol);
    }
}

// At a fold of cycles the monodromy matrix has a Jordan block of the multiplier 1, of which the
// transverse maps see a simple one.
TEST(Cycle, MultiplierAtFoldIsReal) {
    const auto f = equations(2, 2, ring_rates);
    const double mu = 1e-12;
    const Solved solved = solve(f, {mu, 0.5}, trace(*f, {mu, 0.5}, {1 + 1e-6, 0}, 2 * pi, 30));
    ASSERT_EQ(solved.spectrum.size(), 1U);
    EXPECT_EQ(solved.spectrum[0].kind, Exponent::Kind::real);
    EXPECT_NEAR(solved.spectrum[0].value.real(), 0, 1e-4);
}

// y'' = -10 cos(t) y - (24 + 10 sin t) y' has the Floquet exponents 0 and -24; a linear oscillator
// the amplitude and multipliers that everybody knows.
TEST(Cycle, Forced) {
    const auto hill = equations(2, 0, [](auto t, auto& x, auto&, auto& dx) {
        dx[0] = x[1];
        dx[1] = -10 * std::cos(t) * x[0] - (24 + 10 * std::sin(t)) * x[1];
    });
    const Timing fixed{.period = Timing::Period::fixed, .value = 2 * pi};
    Orbit rest{
        .states = 2, .m = 4, .mesh = uniform_mesh(60), .x = State(2 * 241, 1e-3), .period = 2 * pi};
    const Solved floquet = solve(hill, {}, rest, fixed);
    ASSERT_EQ(floquet.spectrum.size(), 2U);
    EXPECT_NEAR(floquet.spectrum[0].value.real(), 0, 1e-6);
    EXPECT_NEAR(floquet.spectrum[1].value.real(), -48 * pi, 1e-4);

    const auto driven = equations(2, 2, [](auto t, auto& x, auto& c, auto& dx) {
        using std::cos;
        dx[0] = x[1];
        dx[1] = cos(c[0] * t) - c[1] * x[1] - 4 * x[0];
    });
    const State c{1.5, 0.3};
    const Timing frequency{.period = Timing::Period::frequency, .parameter = 0};
    rest.period = 2 * pi / 1.5;
    CycleProblem problem(driven, frequency, {0}, c, {.widths = {1.0}}, rest);
    std::vector<double> z = problem.start();
    ASSERT_TRUE(solve_cycle(problem, z));
    const double amplitude = 1 / std::hypot(4 - 2.25, 0.45);
    EXPECT_NEAR(problem.describe(z.data()).high[0], amplitude, 1e-6 * amplitude);
    Spectrum spectrum;
    problem.spectrum(spectrum);
    ASSERT_EQ(spectrum.size(), 2U);
    EXPECT_NEAR(spectrum[0].value.real(), -0.15 * 2 * pi / 1.5, 1e-8);
    EXPECT_EQ(spectrum[0].kind, Exponent::Kind::pair);
}

}  // namespace
