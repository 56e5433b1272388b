// Stable cycles of stiff systems from trajectories, and a system that has no isolated one.
#include <gtest/gtest.h>

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

}  // namespace
}  // namespace tx
