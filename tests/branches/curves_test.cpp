// Curves of bifurcations in two parameters: special points and their coefficients against published
// and closed values, the curves themselves against closed forms.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>

#include "branch_systems.hpp"

namespace {

using namespace trajex::systems;

struct Value {
    const char* name;  ///< of a coefficient, its absolute value
    double value;
};

/// A point that has to be on a curve; t is taken by its absolute value where both signs are listed.
struct Expected {
    const char* type;
    double p1, p2;
    std::vector<Value> values;
};

void expect_points(const tx::Branch& curve, const std::vector<Expected>& expected, double tol) {
    SCOPED_TRACE(curve.text());
    std::size_t matched = 0;
    for (const tx::Special& special : curve.specials()) {
        SCOPED_TRACE(special.text());
        EXPECT_EQ(special.status(), "located") << special.reason();
        const double p1 = special.parameter(curve.vary()[0]);
        const double p2 = special.parameter(curve.vary()[1]);
        const auto found = std::find_if(expected.begin(), expected.end(), [&](const Expected& e) {
            return special.type() == e.type && std::hypot(p1 - e.p1, p2 - e.p2) < tol;
        });
        ASSERT_NE(found, expected.end()) << "not expected";
        ++matched;
        for (const Value& v : found->values) {
            const double value = std::abs(special.coefficient(v.name));
            EXPECT_NEAR(value, v.value, 3e-8 * std::max(1.0, v.value)) << v.name;
        }
    }
    EXPECT_EQ(matched, expected.size());
}

const std::vector<Expected> lorenz_fold = {
    {"BT", 1.44671670112, 0.0209401696833, {{"a", 0.214423351}, {"b", 0.606514552}}},
    {"BT", 1.44671670112, -0.0209401696833, {{"a", 0.214423351}, {"b", 0.606514552}}},
    {"ZH", 1.28341929614, 0.000126540834121, {}},
    {"ZH", 1.28341929614, -0.000126540834121, {}},
    {"CP", 1.27828330988, 0, {}},
};
const std::vector<Expected> lorenz_hopf = {
    {"BT", 1.44671670112, 0.0209401696833, {{"a", 0.214423351}, {"b", 0.606514552}}},
    {"BT", 1.44671670112, -0.0209401696833, {{"a", 0.214423351}, {"b", 0.606514552}}},
    {"GH", 2.37636008825, 0.0501974320085, {{"omega", 0.690367474}, {"Re c2", 0.155801165}}},
    {"GH", 2.37636008825, -0.0501974320085, {{"omega", 0.690367474}, {"Re c2", 0.155801165}}},
    {"HH", 2.53322110696, 0.0262739429831, {{"omega2", 1.15154524857}, {"omega", 0.743219271}}},
    {"HH", 2.53322110696, -0.0262739429831, {{"omega2", 1.15154524857}, {"omega", 0.743219271}}},
};
const std::vector<Expected> lorenz_other_hopf = {
    {"HH", 2.53322110696, 0.0262739429831, {{"omega", 1.15154524857}, {"omega2", 0.743219271}}},
    {"HH", 2.53322110696, -0.0262739429831, {{"omega", 1.15154524857}, {"omega2", 0.743219271}}},
    {"ZH", 1.28341929614, 0.000126540834121, {}},
    {"ZH", 1.28341929614, -0.000126540834121, {}},
};
const tx::ParameterPair FT = {"F", "T"};
const tx::WindowPair FT_windows = {{0.5, 3.5}, {-0.2, 0.2}};

TEST(Curves, OfLorenz84) {
    const tx::Branch branch =
        point_at(lorenz84(), {2.98, -0.04, 0.06, -0.02}).follow("F", {0.5, 3.5});
    const auto of = [&](const tx::Special& s) { return s.follow(FT, FT_windows); };
    const tx::Branch fold = of(branch["LP1"]);
    EXPECT_EQ(fold.kind(), "LP curve");
    expect_points(fold, lorenz_fold, 1e-10);
    for (const char* id : {"H2", "H3"}) {
        const tx::Branch hopf = of(branch[id]);
        EXPECT_EQ(hopf.kind(), "H curve");
        expect_points(hopf, lorenz_hopf, 1e-10);
    }
    const tx::Branch hopf = of(branch["H1"]);
    expect_points(hopf, lorenz_other_hopf, 1e-10);

    // From where curves meet, the other one.
    expect_points(of(hopf["HH1"]), lorenz_hopf, 1e-10);
    expect_points(of(hopf["ZH1"]), lorenz_fold, 1e-10);
    expect_points(of(fold["ZH1"]), lorenz_other_hopf, 1e-10);
    expect_points(of(fold["BT1"]), lorenz_hopf, 1e-10);
    expect_points(of(fold["CP1"]), lorenz_fold, 1e-10);
}

TEST(Curves, OfCarbonMonoxideOxidation) {
    const Expected bt1 = {
        "BT", 1.41762763760, 0.971397573485, {{"a", 0.0837844414}, {"b", 2.13627993}}};
    const Expected bt2 = {"BT", 1.16119870882, 0.722339072522, {}};
    const Expected cp = {"CP", 1.00640832968, 0.355991273209, {{"c", 0.36278866}}};
    const Expected gh1 = {"GH", 0.924255015219, 0.305879267478, {}};
    const Expected gh2 = {"GH", 0.891318980774, 0.232487354203, {}};
    const tx::Branch branch = point_at(co_oxidation(), {0.001, 0.7, 0.2}).follow("q2", {0.5, 2});
    const tx::WindowPair windows = {{0.5, 2}, {0.05, 2}};
    for (const char* id : {"LP1", "LP2"})
        expect_points(branch[id].follow({"q2", "k"}, windows), {bt1, bt2, cp}, 2e-11);
    for (const char* id : {"H1", "H2"})
        expect_points(branch[id].follow({"q2", "k"}, windows), {bt1, bt2, gh1, gh2}, 2e-11);
}

TEST(Curves, FollowClosedForms) {
    const tx::Branch cubic = point_at(cusp(), {1.0}).follow("b1", {-2, 2});
    const tx::Branch folds = cubic["LP1"].follow({"b1", "b2"}, {{-2, 2}, {-1, 2}});
    expect_points(folds, {{"CP", 0, 0, {{"c", 1}}}}, 1e-14);
    for (std::size_t i = 0; i < folds.size(); ++i)
        EXPECT_NEAR(27 * std::pow(folds.column("b1")[i], 2), 4 * std::pow(folds.column("b2")[i], 3),
                    1e-10);

    const tx::WindowPair windows = {{-1, 1}, {-2, 2}};
    const tx::Branch start = point_at(takens_bogdanov(), {-0.0916, 0}).follow("b1", {-1, 1});
    const Expected bt = {"BT", 0, 0, {{"a", 1}, {"b", 1}}};
    const tx::Branch lp = start["LP1"].follow({"b1", "b2"}, windows);
    const tx::Branch h = start["H1"].follow({"b1", "b2"}, windows);
    for (const tx::Branch& curve :
         {lp, h, lp["BT1"].follow({"b1", "b2"}, windows), h["BT1"].follow({"b1", "b2"}, windows)}) {
        expect_points(curve, {bt}, 1e-12);
        const bool is_fold = curve.kind() == "LP curve";
        for (std::size_t i = 0; i < curve.size(); ++i) {
            const double b2 = curve.column("b2")[i];
            EXPECT_NEAR(curve.column("b1")[i], is_fold ? b2 * b2 / 4 : 0, 1e-10);
            if (!is_fold) {
                EXPECT_NEAR(curve.column("kappa")[i], -b2, 1e-10);
            }
        }
    }
    // Only Hopf points, where neutral saddles are not wanted.
    const tx::Branch stopped = start["H1"].follow({"b1", "b2"}, windows, {.past_bt = false});
    EXPECT_TRUE(stopped.stop()[0] == tx::StopReason::user ||
                stopped.stop()[1] == tx::StopReason::user);
    const auto kappa = stopped.column("kappa");
    EXPECT_LE(std::count_if(kappa.begin(), kappa.end(), [](double k) { return k < 0; }), 1);

    const tx::Branch line = point_at(brusselator(), {0.8, 1 / 0.8}).follow("B", {1, 3});
    EXPECT_NEAR(line["H1"].coefficient("l1"), -0.723684210526, 1e-11);
    const tx::Branch hopf = line["H1"].follow({"B", "A"}, {{1, 3}, {0.2, 1.4}});
    EXPECT_TRUE(hopf.specials().empty());
    for (std::size_t i = 0; i < hopf.size(); ++i)
        EXPECT_NEAR(hopf.column("B")[i], 1 + std::pow(hopf.column("A")[i], 2), 1e-10);
}

TEST(Curves, OfBranchPointsLastAsLongAsTheBranchesCross) {
    const tx::Branch trunk =
        point_at(lorenz84().with("T", 0), {1.05, -0.01, 0.23, 0}).follow("F", {0.5, 3.5});
    const tx::Special bp = trunk["BP1"];
    const tx::Branch curve = bp.follow({"F", "G"}, {{0.5, 3.5}, {0.1, 1}});
    EXPECT_EQ(curve.kind(), "BP curve");
    EXPECT_EQ(curve.stop()[0], tx::StopReason::parameter_bound);
    EXPECT_EQ(curve.stop()[1], tx::StopReason::parameter_bound);
    ASSERT_GT(curve.size(), 10U);
    const double x = 1.04 / 0.987;
    for (std::size_t i = 0; i < curve.size(); ++i) {
        const double g = curve.column("G")[i];
        EXPECT_NEAR(curve.column("F")[i], x + g * g / (0.25 * ((1 - x) * (1 - x) + x * x)), 1e-10);
    }
    // T breaks the symmetry.
    const tx::Branch broken = bp.follow({"F", "T"}, {{0.5, 3.5}, {-0.1, 0.1}});
    EXPECT_EQ(broken.stop()[0], tx::StopReason::inconsistent);
    EXPECT_LE(broken.size(), 5U);
    EXPECT_THROW(bp.follow({"F", "G"}, {{2, 3.5}, {0.1, 1}}), tx::Error);
}

}  // namespace
