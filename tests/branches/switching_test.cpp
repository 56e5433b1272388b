// Branch points: named, located, measured and left, against closed forms.
#include <gtest/gtest.h>

#include <cmath>
#include <set>
#include <string>

#include "branch_systems.hpp"

namespace {

using namespace trajex::systems;

std::vector<tx::Special> of_type(const tx::Branch& branch, const std::string& type) {
    std::vector<tx::Special> out;
    for (const tx::Special& special : branch.specials())
        if (special.type() == type) out.push_back(special);
    return out;
}

TEST(Switching, NamesAndMeasuresBranchPoints) {
    struct Case {
        tx::System system;
        std::vector<double> start;
        const char* subtype;
        const char* verdict;
        double p, slope, curvature;
    };
    // With y = e x^2 + c the equation of x is c + s x + k (e x^2 + c) - d x^2 = 0 beside x = 0.
    const Case cases[] = {
        {coupled(0, 0, 0, 1, 0), {0, -1}, "pitchfork", "supercritical", 0, 0, 1},
        {coupled(0, 0, 0, -1, 0), {0, -1}, "pitchfork", "subcritical", 0, 0, -1},
        {coupled(0, 0, 1, 1, 2), {0, -1}, "pitchfork", "subcritical", 0, 0, -0.5},
        {coupled(0, 0, -0.5, 1, 2), {0, -1}, "pitchfork", "supercritical", 0, 0, 4},
        {coupled(0, 0.7, 1, 1, 2), {0, -1}, "transcritical", "", 0, -0.35, -0.5},
        {coupled(0, 0.01, 0, 1, 0), {0, -1}, "transcritical", "", 0, -0.01, 1},
        {predator_prey(), {0, 0}, "transcritical", "", 0.6, 0.9, -2.5},
        {lorenz84().with("T", 0), {1.05, -0.01, 0.23, 0}, "pitchfork", "", 1.27828330988, 0, 3.948},
    };
    for (const Case& c : cases) {
        const std::string& parameter = c.system.parameters()[0];
        const tx::Window window = {-1.2, 3.5};
        const tx::Branch branch = point_at(c.system, c.start).follow(parameter, window);
        const auto points = of_type(branch, "BP");
        ASSERT_EQ(points.size(), 1U) << branch.text();
        const tx::Special& bp = points[0];
        SCOPED_TRACE(bp.text());
        EXPECT_EQ(bp.status(), "located");
        EXPECT_EQ(bp.subtype(), c.subtype);
        EXPECT_NE(bp.text().find(c.verdict), std::string::npos);
        EXPECT_NEAR(bp.parameter(parameter), c.p, 1e-11);
        EXPECT_NEAR(bp.coefficient("slope"), c.slope, 1e-9);
        EXPECT_NEAR(bp.coefficient("k"), c.curvature, 1e-6);
        EXPECT_NEAR(bp.coefficient("slope"), c.slope, bp.coefficient_error("slope"));
        EXPECT_NEAR(bp.coefficient("k"), c.curvature, bp.coefficient_error("k"));

        // The branches that leave it do so on both sides, away from the branch at hand.
        const auto halves = bp.switch_branch();
        ASSERT_EQ(halves.size(), 2U);
        for (const tx::Branch& half : halves) {
            ASSERT_GT(half.size(), 5U);
            EXPECT_EQ(half.stop()[0], tx::StopReason::branch_point);
            double away = 0;
            for (const std::string& x : c.system.states())
                away += std::abs(half.column(x).back() - bp[x]);
            EXPECT_GT(away, 0.01);
        }
    }
}

TEST(Switching, ComesBackToThePointFromTheOtherBranch) {
    const tx::Branch trunk = point_at(predator_prey(), {0, 0}).follow("p", {0, 1});
    std::set<std::string> seen;
    for (const tx::Branch& half : trunk["BP1"].switch_branch({.window = {0, 1}})) {
        for (const tx::Special& bp : of_type(half, "BP")) {
            EXPECT_NEAR(bp.parameter("p"), (2.0 / 3) / (1 - std::exp(-5.0 / 3)), 1e-12);
            for (const tx::Branch& third : bp.switch_branch())
                for (const tx::Special& h : of_type(third, "H")) {
                    seen.insert("H");
                    EXPECT_NEAR(h.parameter("p"), 1 / (3 - 8 * std::exp(-5.0 / 3)), 1e-11);
                    EXPECT_NEAR(h.coefficient("Re c1"), -0.429274788, 2e-9);
                }
        }
        for (const tx::Special& lp : of_type(half, "LP")) {
            seen.insert("LP");
            EXPECT_NEAR(lp.parameter("p"), 0.832929322234, 1e-11);
            EXPECT_NEAR(std::abs(lp.coefficient("a")), 1.66742341, 1e-8);
        }
    }
    EXPECT_EQ(seen, (std::set<std::string>{"H", "LP"}));
}

TEST(Switching, FindsAllBranchesThatSymmetryCallsFor) {
    struct Case {
        tx::System system;
        std::size_t n, branches;
    };
    const Case cases[] = {
        {symmetric<2>(1, 1), 2, 6}, {symmetric<2>(2), 2, 8}, {symmetric<3>(0.3), 3, 26}};
    for (const Case& c : cases) {
        const tx::Branch trunk =
            point_at(c.system, std::vector<double>(c.n, 0.0)).follow("c", {-1, 1});
        const auto points = of_type(trunk, "BP");
        ASSERT_EQ(points.size(), 1U) << trunk.text();
        EXPECT_EQ(points[0].subtype(), "multiple");
        EXPECT_NEAR(points[0].parameter("c"), 0, 1e-9);
        EXPECT_EQ(points[0].switch_branch().size(), c.branches);
    }
}

TEST(Switching, LeavesAnImperfectPitchforkAlone) {
    // The branch turns away smoothly; the fold is on the other one.
    const tx::System system = coupled(1e-3, 0, 0, 1, 0);
    const tx::Branch branch = point_at(system, {1e-3, -1}).follow("c", {-1, 1});
    EXPECT_TRUE(branch.specials().empty()) << branch.text();
    const tx::Branch other = point_at(system.with("c", 1), {-1, 1}).follow("c", {-1, 1});
    ASSERT_EQ(other.specials().size(), 1U) << other.text();
    EXPECT_NEAR(other["LP1"].parameter("c"), 3 * std::cbrt(1e-6 / 4), 1e-12);
}

}  // namespace
