// The method: its order conditions over all rooted trees, and those of its dense output.
#include "integration/verner_dense_output.hpp"
#include "support.hpp"

using namespace trajex;

namespace {

constexpr std::size_t stages = 12;  // f at the end, in the middle, at 0.9 and 0.95 after the eight
using Weights = std::array<double, stages>;
using Tableau = std::array<Weights, stages>;

/// The elementary weights of a rooted tree at every stage, its order, and its density gamma.
struct Tree {
    Weights at_stages;
    int order;
    double density;
};

/// The first tree with the second one planted on its root. A planted tree is A times its weights;
/// the density is the order times those of the trees on the root.
Tree grafted(const Tableau& a, Tree tree, const Tree& branch) {
    for (std::size_t i = 0; i < stages; ++i) {
        double planted = 0;
        for (std::size_t j = 0; j < stages; ++j) planted += a[i][j] * branch.at_stages[j];
        tree.at_stages[i] *= planted;
    }
    const int order = tree.order + branch.order;
    tree.density *= branch.density * order / tree.order;
    tree.order = order;
    return tree;
}

/// All rooted trees of up to the given order, some of them more than once.
std::vector<Tree> rooted_trees(const Tableau& a, int largest) {
    std::vector<Tree> trees{{{}, 1, 1}};
    trees[0].at_stages.fill(1);
    for (int order = 2; order <= largest; ++order) {
        for (std::size_t p = 0, before = trees.size(); p < before * before; ++p) {
            const Tree &tree = trees[p / before], &branch = trees[p % before];
            if (tree.order + branch.order != order) continue;
            trees.push_back(grafted(a, tree, branch));
        }
    }
    return trees;
}

/// sum_i b_i Phi_i(tree) = theta^order / gamma: how much the worst tree of up to the order misses.
double worst_condition(const std::vector<Tree>& trees, const Weights& b, int order, double theta) {
    double worst = 0;
    for (const Tree& tree : trees) {
        if (tree.order > order) continue;
        double sum = 0;
        for (std::size_t i = 0; i < stages; ++i) sum += b[i] * tree.at_stages[i];
        worst = std::max(worst, std::fabs(sum - std::pow(theta, tree.order) / tree.density));
    }
    return worst;
}

template <class List>
Weights padded(const List& list) {
    Weights row{};
    for (std::size_t m = 0; m < list.size() && m < 8; ++m) row[m] = list[m];
    return row;
}

/// The Hermite prediction as a row: states are combinations of stages, too.
Weights predicted(const verner::HermiteWeights<double>& w, const Weights& end,
                  const Weights& middle) {
    Weights row{};
    for (std::size_t i = 0; i < stages; ++i) {
        row[i] = w.state_end * end[i] + w.state_middle * middle[i];
    }
    row[0] += w.slope_start;
    row[8] += w.slope_end;
    row[9] += w.slope_middle;
    return row;
}

TEST(Method, SatisfiesTheOrderConditionsOfAllTrees) {
    Tableau a{};
    for (std::size_t j = 1; j < 8; ++j) a[j] = padded(verner::a[j]);
    const Weights end = padded(verner::b6);
    Weights middle = padded(verner::d);
    middle[8] = verner::d[8];
    a[8] = end;
    a[9] = middle;
    a[10] = predicted(verner::at_090, end, middle);
    a[11] = predicted(verner::at_095, end, middle);
    const auto trees = rooted_trees(a, 6);
    ASSERT_EQ(trees.size(), 1U + 1 + 2 + 5 + 14 + 42);
    EXPECT_LT(worst_condition(trees, padded(verner::b5), 5, 1), 1e-14);
    EXPECT_GT(worst_condition(trees, padded(verner::b5), 6, 1), 1e-5) << "estimates nothing";
    EXPECT_LT(worst_condition(trees, end, 6, 1), 1e-14);
    EXPECT_LT(worst_condition(trees, middle, 5, 0.5), 1e-14);
    for (const double theta : {0.1, 0.37, 0.5, 0.9, 1.2}) {
        const Basis basis(theta);
        Weights b = end;
        for (double& weight : b) weight *= basis.d2;
        b[0] += basis.d1;
        b[8] += basis.d3;
        b[9] += basis.d4;
        b[10] += basis.d5;
        b[11] += basis.d6;
        EXPECT_NEAR(basis.d0 + basis.d2, 1, 1e-13);
        EXPECT_LT(worst_condition(trees, b, 6, theta), 1e-13) << theta;
    }
}

}  // namespace
