// Diagrams: all branches, each once, and what is said of those that are not followed.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <string>
#include <vector>

#include "tx.hpp"

namespace {

struct Case {
    const char* name;
    tx::System system;
    tx::Window window;
    std::vector<double> start;
    std::size_t branches;  ///< half branches that begin at a branch point count each
    std::map<std::string, std::vector<double>> points;  ///< by type, sorted values of the parameter
};

/// x' = c x - x^3.
tx::System pitchfork() {
    return {{"x"}, {{"c", 0.5}}, [](auto, auto& x, auto& c, auto& dx) {
                dx[0] = c[0] * x[0] - x[0] * x[0] * x[0];
            }};
}

/// A predator and its prey, which is also harvested: u = v = 0, v = 0 and u = 1/3 are three
/// branches.
tx::System harvest() {
    return {{"u", "v"}, {{"p", 0.1}}, [](auto, auto& x, auto& c, auto& dx) {
                using std::exp;
                dx[0] = 3 * x[0] * (1 - x[0]) - x[0] * x[1] - c[0] * (1 - exp(-5 * x[0]));
                dx[1] = -x[1] + 3 * x[0] * x[1];
            }};
}

/// Two pitchforks side by side: x and y do not know of each other, nine branches of equilibria.
tx::System two_pitchforks() {
    return {{"x", "y"}, {{"c", -0.5}}, [](auto, auto& x, auto& c, auto& dx) {
                dx[0] = c[0] * x[0] - x[0] * x[0] * x[0];
                dx[1] = (c[0] - 0.5) * x[1] - x[1] * x[1] * x[1];
            }};
}

std::vector<Case> cases() {
    const double second = (2.0 / 3) / (1 - std::exp(-5.0 / 3));
    return {
        {"pitchfork", pitchfork(), {-1, 1}, {0}, 3, {{"BP", {0}}}},
        {"harvest",
         harvest(),
         {0, 1},
         {0, 0},
         0,
         {{"BP", {0.6, second}},
          {"LP", {0.832929322234}},
          {"H", {1 / (3 - 8 * std::exp(-5.0 / 3))}}}},
        {"two pitchforks", two_pitchforks(), {-1, 1}, {0, 0}, 0, {{"BP", {0, 0.5, 0.5, 0.5}}}},
    };
}

bool near_a_special_point(const tx::Branch& branch, double p) {
    const std::vector<tx::Special> specials = branch.specials();
    return std::any_of(specials.begin(), specials.end(), [&](const tx::Special& special) {
        return std::abs(special.parameter(branch.vary()[0]) - p) < 0.02;
    });
}

/// Points that a branch has in common with another one, but for where they meet.
std::size_t common_points(const tx::Branch& a, const tx::Branch& b) {
    std::size_t common = 0;
    for (std::size_t i = 0; i + 1 < b.size(); ++i) {
        const std::vector<double> from = b.point(i).state();
        const std::vector<double> to = b.point(i + 1).state();
        const double p = b.column(b.vary()[0])[i];
        const double q = b.column(b.vary()[0])[i + 1];
        for (std::size_t j = 0; j < a.size(); ++j) {
            const double here = a.column(a.vary()[0])[j];
            const double share = (here - p) / (q - p);
            const bool meeting = near_a_special_point(a, here) || near_a_special_point(b, here);
            if (!(share > 0 && share < 1) || meeting) continue;
            const std::vector<double> x = a.point(j).state();
            double distance = 0;
            for (std::size_t k = 0; k < x.size(); ++k) {
                distance = std::max(distance, std::abs(x[k] - from[k] - share * (to[k] - from[k])));
            }
            common += distance < 1e-3;  // more than a chord is off its arc
        }
    }
    return common;
}

TEST(Diagram, HasEachBranchOnceAndAllSpecialPoints) {
    for (const Case& one : cases()) {
        SCOPED_TRACE(one.name);
        const std::string parameter = one.system.parameters()[0];
        const tx::Diagram diagram = one.system.diagram(parameter, one.window, {.start = one.start});
        SCOPED_TRACE(diagram.text());
        EXPECT_TRUE(one.branches == 0 || diagram.size() == one.branches);
        std::map<std::string, std::vector<double>> found;
        for (const tx::Special& special : diagram.specials()) {
            found[special.type()].push_back(special.parameter(parameter));
        }
        for (const auto& [type, values] : one.points) {
            std::vector<double>& located = found[type];
            std::sort(located.begin(), located.end());
            ASSERT_EQ(located.size(), values.size()) << type;
            for (std::size_t i = 0; i < values.size(); ++i) {
                EXPECT_NEAR(located[i], values[i], 1e-9) << type;
            }
        }
        EXPECT_EQ(found.size(), one.points.size());
        for (std::size_t a = 0; a < diagram.size(); ++a) {
            for (std::size_t b = 0; b < diagram.size(); ++b) {
                if (a == b || diagram.branch(a).kind() != diagram.branch(b).kind()) continue;
                EXPECT_EQ(common_points(diagram.branch(a), diagram.branch(b)), 0U) << a << " " << b;
            }
            for (const double residual : diagram.branch(a).column("residual")) {
                EXPECT_LT(residual, 1e-8);
            }
        }
    }
}

TEST(Diagram, FindsAStartByItself) {
    const tx::Diagram diagram = harvest().diagram("p", {0, 1});
    EXPECT_GE(diagram.size(), 1U) << diagram.text();
    // A trajectory goes round one equilibrium; from where it ends Newton's method comes to 0.
    const tx::System oregonator{
        {"x", "z"}, {{"f", 1.0}}, [](auto, auto& x, auto& c, auto& dx) {
            dx[0] = 25 * (x[0] * (1 - x[0]) - c[0] * x[1] * (x[0] - 8e-4) / (x[0] + 8e-4));
            dx[1] = x[0] - x[1];
        }};
    const tx::Diagram around = oregonator.diagram("f", {0.3, 3}, {.depth = 0});
    EXPECT_EQ(around.specials().size(), 2U) << around.text();
    // x' = 1 + x^2 + c has no equilibrium where c > -1.
    const tx::System none{{"x"}, {{"c", 0.0}}, [](auto, auto& x, auto& c, auto& dx) {
                              dx[0] = 1 + x[0] * x[0] + c[0];
                          }};
    const tx::Diagram empty = none.diagram("c", {0, 1});
    EXPECT_EQ(empty.size(), 0U);
    ASSERT_EQ(empty.log().size(), 1U);
    EXPECT_NE(empty.log()[0].find("no equilibrium"), std::string::npos) << empty.log()[0];
}

TEST(Diagram, LimitsAreNoted) {
    const auto log = [](const tx::Options& options) {
        const tx::Diagram diagram = pitchfork().diagram("c", {-1, 1}, options);
        EXPECT_EQ(diagram.size(), 1U);
        return diagram.log().empty() ? "" : diagram.log()[0];
    };
    EXPECT_EQ(log({.start = {0}, .depth = 0}), "BP1: not followed, depth 0 is reached");
    EXPECT_EQ(log({.start = {0}, .max_branches = 1}), "BP1: not followed, there are 1 branches");
    EXPECT_EQ(log({.start = {0}, .max_work = 100}), "BP1: not followed, max_work is used up");
    const tx::Branch cut =
        pitchfork().equilibrium({0}).follow("c", {-1, 1}, {.max_work = 20, .h_max = 0.01});
    EXPECT_EQ(cut.stop()[1], "work_bound") << cut.text();
    EXPECT_LT(cut.size(), 30U);
    int points = 0;
    EXPECT_EQ(log({.start = {0}, .on_point = [&](const tx::Point&) { return ++points < 5; }}), "");
    EXPECT_EQ(points, 5);
    EXPECT_THROW(pitchfork().diagram("c", {-1, 1}, {.start = {0, 1}}), tx::Error);
}

}  // namespace
