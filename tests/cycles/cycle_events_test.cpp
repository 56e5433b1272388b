// Families of cycles whose bifurcations are known, followed with one set of options.
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <string>
#include <utility>
#include <vector>

#include "branches/continuer.hpp"
#include "cycles/cycles.hpp"
#include "cycles/starts.hpp"

using namespace trajex;
using namespace trajex::cycles_test;

namespace {

constexpr double pi = std::numbers::pi;

struct Event {
    std::string type;
    double parameter;
    double period;
    double tolerance = 1e-9;
    std::string coefficient{};
    double value = 0;
};

struct Family {
    std::string name;
    EquationsPtr f;
    Timing timing;
    State c;
    std::size_t vary;
    tx::Window window;
    Orbit start;  // from the cycle near it, downwards or upwards,
    bool up = true;
    State hopf{};  // or from the Hopf point near this state
    double omega = 0;
    std::vector<Event> events{};
    tx::StopReason::Value stop = tx::StopReason::parameter_bound;
};

CycleStart begin(const Family& family) {
    const double width = family.window.hi - family.window.lo;
    const CycleSettings settings{.widths = {width}, .verify = true};
    if (!family.hopf.empty()) {
        HopfPoint hopf{family.hopf, family.c, family.omega};
        EXPECT_TRUE(solve_hopf(*family.f, 0, family.vary, width, hopf));
        return start_from_hopf(family.f, hopf, {family.vary}, settings);
    }
    CycleStart start;
    start.problem = std::make_unique<CycleProblem>(
        family.f, family.timing, std::vector{family.vary}, family.c, settings, family.start);
    start.z = start.problem->start();
    EXPECT_TRUE(solve_cycle(*start.problem, start.z));
    EXPECT_TRUE(first_tangent(*start.problem, start.z, family.up, start.tangent));
    return start;
}

Trace follow(const Family& family) {
    CycleStart start = begin(family);
    if (!start.problem) return {};
    RunSettings settings;
    settings.windows = {family.window};
    return follow_half(*start.problem, start.z, start.tangent, settings);
}

double coefficient(const Finding& finding, const std::string& name) {
    for (const Finding::Coefficient& c : finding.coefficients)
        if (c.name == name) return c.value;
    return NAN;
}

void check(const Family& family) {
    SCOPED_TRACE(family.name);
    const Trace trace = follow(family);
    EXPECT_EQ(trace.stop.text(), tx::StopReason(family.stop).text()) << trace.stop_detail;
    ASSERT_EQ(trace.specials.size(), family.events.size());
    for (std::size_t k = 0; k < family.events.size(); ++k) {
        const Event& expected = family.events[k];
        const Finding& found = trace.specials[k].finding;
        EXPECT_EQ(found.type, expected.type);
        EXPECT_EQ(found.status, "located") << found.reason;
        const double away = std::fabs(found.z.back() - expected.parameter);
        EXPECT_LE(away, expected.tolerance) << found.z.back();
        EXPECT_LE(away, found.error + 1e-11);  // the error handed out holds
        EXPECT_NEAR(trace.specials[k].description.period, expected.period,
                    100 * expected.tolerance);
        if (found.type != "H") {
            EXPECT_LE(coefficient(found, "shooting error"), 1e-6);
        }
        for (const Finding::Coefficient& c : found.coefficients) {
            if (c.name != expected.coefficient) continue;
            EXPECT_NEAR(c.value, expected.value, 1e-5 * std::fabs(expected.value) + 1e-7) << c.name;
        }
    }
}

TEST(CycleEvents, OfAutonomousSystems) {
    const auto feedback = equations(3, 2, [](auto, auto& x, auto& c, auto& dx) {
        dx[0] = x[1];
        dx[1] = x[2];
        dx[2] = -c[0] * x[2] - c[1] * x[1] - x[0] + x[0] * x[0];
    });
    const auto ring = equations(2, 2, ring_rates);
    const auto crossing = equations(3, 2, [](auto, auto& x, auto& c, auto& dx) {
        const auto r2 = x[0] * x[0] + x[1] * x[1];
        dx[0] = x[0] - x[1] - x[0] * r2;
        dx[1] = x[0] + x[1] - x[1] * r2;
        dx[2] = (c[0] + c[1] * x[0]) * x[2] - x[2] * x[2] * x[2];
    });
    const auto round = equations(2, 2, [](auto, auto& x, auto& c, auto& dx) {
        const auto r2 = x[0] * x[0] + x[1] * x[1];
        dx[0] = c[0] * x[0] - c[1] * x[1] - r2 * x[0];
        dx[1] = c[0] * x[1] + c[1] * x[0] - r2 * x[1];
    });
    const auto canard = equations(2, 1, [](auto, auto& x, auto& c, auto& dx) {
        dx[0] = (x[1] - x[0] * x[0] * x[0] / 3 + x[0]) / 0.01;
        dx[1] = c[0] - x[0];
    });
    const double r = 1 + std::sqrt(0.3);
    const Family families[] = {
        {.name = "feedback",
         .f = feedback,
         .timing = {},
         .c = {1, 1},
         .vary = 0,
         .window = {0.5, 2},
         .start = {},
         .hopf = {0, 0, 0},
         .omega = 1,
         .events = {{"PD", 0.630302006160, 6.364071339442, 1e-9, "c", -1.94185683}}},
        {.name = "ring",
         .f = ring,
         .timing = {},
         .c = {0.3, 0.5},
         .vary = 0,
         .window = {-1, 0.5},
         .start = trace(*ring, {0.3, 0.5}, {r, 0}, 2 * pi / (1 + 0.5 * (r - 1)), 20),
         .up = false,
         .events = {{"LPC", 0, 2 * pi, 1e-9, "k", 1}}},
        {.name = "crossing",
         .f = crossing,
         .timing = {},
         .c = {-0.3, 0.5},
         .vary = 0,
         .window = {-0.5, 0.5},
         .start = trace(*crossing, {-0.3, 0.5}, {1, 0, 0}, 2 * pi, 20),
         .up = true,
         .events = {{"BPC", 0, 2 * pi, 1e-9, "k", 1}}},
        {.name = "down to a Hopf point",
         .f = round,
         .timing = {},
         .c = {0.5, 2},
         .vary = 0,
         .window = {-1, 1},
         .start = trace(*round, {0.5, 2}, {std::sqrt(0.5), 0}, pi, 20),
         .up = false,
         .events = {{"H", 0, pi}},
         .stop = tx::StopReason::hopf},
        {.name = "canards",
         .f = canard,
         .timing = {},
         .c = {1},
         .vary = 0,
         .window = {0, 1.5},
         .start = {},
         .hopf = {1, -2.0 / 3},
         .omega = 10},
    };
    for (const Family& family : families) check(family);
}

TEST(CycleEvents, OfForcedSystems) {
    const auto oscillator = equations(2, 4, [](auto t, auto& x, auto& c, auto& dx) {
        const auto r2 = x[0] * x[0] + x[1] * x[1];
        const auto growth = c[0] + c[2] * std::cos(t);
        dx[0] = growth * x[0] - c[1] * x[1] - r2 * (x[0] + c[3] * x[1]);
        dx[1] = growth * x[1] + c[1] * x[0] - r2 * (x[1] - c[3] * x[0]);
    });
    const auto predators = equations(2, 2, [](auto t, auto& x, auto& c, auto& dx) {
        const auto eaten = 4 * pi * x[0] * x[1] / (c[0] * (1 + c[1] * std::cos(2 * pi * t)) + x[0]);
        dx[0] = 2 * pi * (1 - x[0]) * x[0] - eaten;
        dx[1] = eaten - 2 * pi * x[1];
    });
    const auto duffing = equations(2, 1, [](auto t, auto& x, auto& c, auto& dx) {
        using std::cos;
        dx[0] = x[1];
        dx[1] = 0.6 * cos(c[0] * t) - 0.15 * x[1] - x[0] - x[0] * x[0] * x[0];
    });
    const Timing turn{.period = Timing::Period::fixed, .value = 2 * pi};
    const Timing unit{.period = Timing::Period::fixed, .value = 1};
    const Timing frequency{.period = Timing::Period::frequency, .parameter = 0};
    const Orbit rest{
        .states = 2, .m = 4, .mesh = uniform_mesh(20), .x = State(162, 1e-3), .period = 2 * pi};
    const State season{0.6, 0.3};
    const State settled = integrate(*predators, season, 0, {0.5, 0.3}, 100, 100000);
    const State driven = integrate(*duffing, {2.8}, 0, {0, 0}, 200 * pi / 2.8, 100000);
    const Family families[] = {
        {.name = "oscillator",
         .f = oscillator,
         .timing = turn,
         .c = {-0.2, 0.3, 0.7, 0.5},
         .vary = 0,
         .window = {-0.5, 0.5},
         .start = rest,
         .events = {{"NS", 0, 2 * pi, 1e-9, "d", -2}}},
        {.name = "predators",
         .f = predators,
         .timing = unit,
         .c = season,
         .vary = 0,
         .window = {0.2, 0.8},
         .start = trace(*predators, season, settled, 1, 20),
         .up = false,
         .events = {{"PD", 0.39146403053, 1},
                    {"PD", 0.37261543492, 1},
                    {"NS", 0.33864952160, 1, 1e-9, "theta", 2.925237315}}},
        {.name = "Duffing",
         .f = duffing,
         .timing = frequency,
         .c = {2.8},
         .vary = 0,
         .window = {0.5, 3},
         .start = trace(*duffing, {2.8}, driven, 2 * pi / 2.8, 20),
         .up = false,
         .events = {{"LPC", 1.48108537222, 2 * pi / 1.48108537222, 1e-9, "half-map multiplier", 1},
                    {"LPC", 2.00756062019, 2 * pi / 2.00756062019, 1e-8}}},
    };
    for (const Family& family : families) check(family);
}

}  // namespace
