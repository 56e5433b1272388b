// Newton's method from far guesses, and all equilibria of a box.
#include "branches/search.hpp"

#include <gtest/gtest.h>

#include <cmath>

#include "tx/system.hpp"

namespace {

struct Case {
    const char* name;
    tx::System system;
    std::vector<double> guess;
    std::vector<double> expected;  // empty: there is none
    double tolerance = 1e-12;
};

TEST(EquilibriumSearch, FindsWhatIsThereAndSaysWhereNothingIs) {
    const Case cases[] = {
        {"far out on an arc tangent",
         {{"x"}, {}, [](auto, auto& x, auto&, auto& dx) { dx[0] = -atan(x[0] - 1); }},
         {30},
         {1}},
        {"beyond the end of a logarithm",
         {{"x"}, {}, [](auto, auto& x, auto&, auto& dx) { dx[0] = -log(x[0] / 5); }},
         {100},
         {5}},
        {"a minimum of |f| on the way",
         {{"v", "w"},
          {{"I", 0.5}},
          [](auto, auto& x, auto& c, auto& dx) {
              dx[0] = x[0] - x[0] * x[0] * x[0] / 3 - x[1] + c[0];
              dx[1] = 0.08 * (x[0] + 0.7 - 0.8 * x[1]);
          }},
         {1, 1},
         {-0.8048477470083, -0.1310596837604},
         1e-10},
        {"a double solution",
         {{"x"}, {}, [](auto, auto& x, auto&, auto& dx) { dx[0] = -(x[0] - 1) * (x[0] - 1); }},
         {3},
         {1},
         1e-5},
        {"at the solution",
         {{"x"}, {}, [](auto, auto& x, auto&, auto& dx) { dx[0] = x[0]; }},
         {0},
         {0}},
        {"sizes far apart",
         {{"x", "y"},
          {},
          [](auto, auto& x, auto&, auto& dx) {
              dx[0] = 1e-9 - x[0] * (1 + x[1] * 1e-6);
              dx[1] = 1e6 - x[1];
          }},
         {1, 1},
         {0.5e-9, 1e6},
         1e-3},
        {"no solution",
         {{"x"}, {}, [](auto, auto& x, auto&, auto& dx) { dx[0] = 1 + x[0] * x[0]; }},
         {3},
         {}},
        {"not finite",
         {{"x"}, {}, [](auto, auto& x, auto&, auto& dx) { dx[0] = log(x[0]); }},
         {-1},
         {}},
        {"constant", {{"x"}, {}, [](auto, auto&, auto&, auto& dx) { dx[0] = 1; }}, {0}, {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const tx::Point point = c.system.equilibrium(c.guess);
        ASSERT_EQ(static_cast<bool>(point), !c.expected.empty()) << point.reason();
        EXPECT_EQ(point.status(), point ? "found" : "not found");
        EXPECT_EQ(point.reason().empty(), static_cast<bool>(point));
        for (std::size_t i = 0; i < c.expected.size(); ++i) {
            EXPECT_NEAR(point.state()[i], c.expected[i], c.tolerance);
            EXPECT_EQ(point.eigenvalues().size(), c.expected.size());
        }
    }
}

TEST(EquilibriumSearch, FindsAllInABox) {
    const tx::System cubes({"a", "b", "c"}, {}, [](auto, auto& x, auto&, auto& dx) {
        for (std::size_t i = 0; i < 3; ++i) dx[i] = x[i] * (1 - x[i] * x[i]);
    });
    const tx::System sine({"x"}, {}, [](auto, auto& x, auto&, auto& dx) { dx[0] = sin(x[0]); });
    const tx::System line({"x", "y"}, {}, [](auto, auto& x, auto&, auto& dx) {
        dx[0] = x[0] * x[1];
        dx[1] = -x[0];
    });
    EXPECT_EQ(cubes.equilibria({{-2, 2}, {-2, 2}, {-2, 2}}).points.size(), 27U);
    EXPECT_EQ(cubes.equilibria({{0.5, 2}, {-2, 2}, {-1, 1}}).points.size(), 9U);
    const tx::Equilibria found = sine.equilibria({{-20, 20}});
    EXPECT_EQ(found.points.size(), 13U);
    EXPECT_GT(found.fruitless, 30U);
    EXPECT_EQ(found.text().find("13 equilibria from "), 0U);
    // A continuum of them: it comes to an end, and every one is one.
    for (const tx::Point& point : line.equilibria({{-1, 1}, {-1, 1}}).points) {
        EXPECT_NEAR(point.state()[0], 0, 1e-9);
    }
}

}  // namespace
