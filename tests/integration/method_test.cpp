// The method: its order conditions over all rooted trees, and those of its dense output.
#include "support.hpp"

namespace {

/// A rooted tree: a smaller one, the trunk, with another one planted on its root.
struct Tree {
    std::size_t trunk, branch;
    int order;
    double density;
};
std::vector<Tree> trees{{0, 0, 1, 1}};  // a root alone

// For every tree its derivative is the product of those that are planted on its root. From zero
// the solutions are t^order / density, and a step of size 1 gives the elementary weights.
constexpr Flow growth = [](double, double* y, double* f) {
    f[0] = 1;
    for (std::size_t i = 1; i < trees.size(); ++i) f[i] = f[trees[i].trunk] * y[trees[i].branch];
};

/// How much the worst tree of up to the order misses of its solution at t.
double worst_condition(const double* y, int order, double t) {
    double worst = 0;
    for (std::size_t i = 0; i < trees.size() && trees[i].order <= order; ++i) {
        worst = std::max(worst, std::fabs(y[i] - std::pow(t, trees[i].order) / trees[i].density));
    }
    return worst;
}

TEST(Method, SatisfiesTheOrderConditionsOfAllTrees) {
    for (int order = 2; order <= 6; ++order) {
        for (std::size_t p = 0, smaller = trees.size(); p < smaller * smaller; ++p) {
            const Tree trunk = trees[p / smaller], branch = trees[p % smaller];
            if (trunk.order + branch.order != order) continue;
            const double density = trunk.density * branch.density * order / trunk.order;
            trees.push_back({p / smaller, p % smaller, order, density});
        }
    }
    ASSERT_EQ(trees.size(), 1U + 1 + 2 + 5 + 14 + 42);  // some of them more than once
    const OpenHandle tx = open_recording(growth, int(trees.size()), 0, 1);
    std::vector<double> y(trees.size());
    double t = 0;
    ASSERT_EQ(TXStep(tx.get(), &t, y.data()), 1);
    EXPECT_LT(worst_condition(tx->y5, 5, 1), 1e-14);
    EXPECT_GT(worst_condition(tx->y5, 6, 1), 1e-5) << "estimates nothing";
    EXPECT_LT(worst_condition(tx->y6, 6, 1), 1e-14);
    for (const double theta : {0.1, 0.37, 0.5, 0.9, 1.2}) {
        ASSERT_EQ(TXInterpolate(tx.get(), theta, y.data()), 1);
        EXPECT_LT(worst_condition(y.data(), 6, theta), 1e-13) << theta;
    }
    EXPECT_LT(worst_condition(tx->ynp1d2, 5, 0.5), 1e-14);
}

}  // namespace
