// Stable cycles of stiff systems from trajectories, and a system that has no isolated one.
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <vector>

#include "tx.hpp"

namespace tx {
namespace {

struct Case {
    const char* name;
    System system;
    std::vector<double> state;
    double period;
    double error;
};

TEST(FindCycle, OfStiffSystems) {
    const Case cases[] = {
        {"Oregonator",
         System({"x", "y", "z"}, {},
                [](auto, auto& x, auto&, auto& dx) {
                    dx[0] = 77.27 * (x[1] - x[0] * x[1] + x[0] - 8.375e-6 * x[0] * x[0]);
                    dx[1] = (x[2] - (1 + x[0]) * x[1]) / 77.27;
                    dx[2] = 0.161 * (x[0] - x[2]);
                }),
         {4, 1.1, 4},
         302.858,
         1e-2},
        {"van der Pol",
         System({"x", "y"}, {{"mu", 1000}},
                [](auto, auto& x, auto& c, auto& dx) {
                    dx[0] = x[1];
                    dx[1] = c[0] * ((1 - x[0] * x[0]) * x[1]) - x[0];
                }),
         {2, 0},
         1614.40,
         1e-2},
    };
    for (const Case& c : cases) {
        const Point cycle = c.system.cycle(c.state);
        ASSERT_TRUE(cycle) << c.name << ": " << cycle.reason();
        EXPECT_NEAR(cycle.period(), c.period, c.error) << c.name;
    }
}

// The larger multiplier by integration of the variational equations with 64 bits of mantissa, from
// a chain of segments. Of the first cycle it changes by 1e6 times what the equations are changed
// by; of the second the mesh is coarse where it is attracted fastest.
TEST(FindCycle, StatesErrorsOfMultipliersThatHold) {
    struct Known {
        System system;
        std::vector<double> state;
        double period, exponent, most;
    };
    const System jerk({"x", "y", "z"}, {{"a", 5.7068734754987611}},
                      [](auto, auto& x, auto& c, auto& dx) {
                          dx[0] = x[1];
                          dx[1] = x[2];
                          dx[2] = c[0] * x[0] - 3.375 * x[1] - x[2] - x[0] * x[0] * x[0];
                      });
    const System roessler({"x", "y", "z"}, {{"c", 3.9848716197982958}},
                          [](auto, auto& x, auto& c, auto& dx) {
                              dx[0] = -x[1] - x[2];
                              dx[1] = x[0] + 0.2 * x[1];
                              dx[2] = 0.2 + x[2] * (x[0] - c[0]);
                          });
    for (const auto& [system, state, period, exponent, most] :
         {Known{jerk,
                {0.0117822419773, 0.0327794800388, -0.0440456062493},
                15.31596327,
                -0.417749634987577,
                2e-7},
          Known{roessler,
                {2.47910082488, 4.41483694286, 1.26743454645},
                23.17394792,
                -7.10459585715735,
                1e-8}}) {
        const Point cycle = system.cycle(state, period);
        ASSERT_TRUE(cycle) << cycle.reason();
        const double error = cycle.log_multiplier_errors().at(0);
        EXPECT_NEAR(cycle.log_multipliers().at(0).real(), exponent, 3 * error);
        EXPECT_LE(error, most);
    }
}

// The forcing does not entrain the oscillator: trajectories stay around the response, which repels.
TEST(FindCycle, OfResponsesThatRepel) {
    const System system({"x", "y"}, {{"b", 0.05}}, [](auto t, auto& x, auto& c, auto& dx) {
        using std::cos, std::sqrt;
        const auto growth = 2 * (1 - sqrt(x[0] * x[0] + x[1] * x[1]));
        dx[0] = growth * x[0] - x[1] + c[0] * cos(2 * std::numbers::pi / 5 * t);
        dx[1] = growth * x[1] + x[0];
    });
    const Point cycle = system.forced({.fixed = 5}).cycle({1, 0});
    ASSERT_TRUE(cycle) << cycle.reason();
    EXPECT_EQ(cycle.unstable(), 2u);
}

}  // namespace
}  // namespace tx
