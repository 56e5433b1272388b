// Branches of equilibria in one parameter, all with default options: positions and coefficients of
// special points against closed forms and values computed with 25 digits, ends of branches, and
// random systems followed with two step lengths.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <stdexcept>
#include <string>

#include "branches/following.hpp"
#include "tx.hpp"

namespace {

using testing_support::equilibrium;

struct Expected {
    std::string type, subtype;
    double p;
    double digits = 1e-11;  ///< of p
    std::string coefficient{};
    double value = 0;
    double tolerance = 1e-8;  ///< of the coefficient, relative
};

struct Case {
    const char* name;
    tx::System system;
    std::vector<double> start;
    tx::Window window;
    std::string ends;  ///< reasons at the first and last point
    std::vector<Expected> specials;
};

tx::System predator_prey() {  // with a saturated harvest
    return {{"u", "v"}, {{"p", 0.0}}, [](auto, auto& x, auto& c, auto& dx) {
                using std::exp;
                dx[0] = 3 * x[0] * (1 - x[0]) - x[0] * x[1] - c[0] * (1 - exp(-5 * x[0]));
                dx[1] = -x[1] + 3 * x[0] * x[1];
            }};
}

tx::System selkov() {
    return {{"x", "y"}, {{"b", 0.5}, {"a", 0.06}}, [](auto, auto& x, auto& c, auto& dx) {
                dx[0] = -x[0] + c[1] * x[1] + x[0] * x[0] * x[1];
                dx[1] = c[0] - c[1] * x[1] - x[0] * x[0] * x[1];
            }};
}

tx::System rosenzweig_macarthur(double K) {
    return {{"x", "y"}, {{"K", K}}, [](auto, auto& x, auto& c, auto& dx) {
                dx[0] = x[0] * (1 - x[0] / c[0]) - x[0] * x[1] / (1 + x[0]);
                dx[1] = x[0] * x[1] / (1 + x[0]) - x[1] / 2;
            }};
}

tx::System shimizu_morioka() {
    return {{"x", "y", "z"}, {{"al", 1.5}, {"la", 1.0}}, [](auto, auto& x, auto& c, auto& dx) {
                dx[0] = x[1];
                dx[1] = x[0] - c[1] * x[1] - x[0] * x[2];
                dx[2] = -c[0] * x[2] + x[0] * x[0];
            }};
}

tx::System lorenz84() {
    return {{"X", "Y", "Z", "U"},
            {{"F", 3.0}, {"T", 0.04}, {"G", 0.25}},
            [](auto, auto& x, auto& c, auto& dx) {
                dx[0] =
                    -x[1] * x[1] - x[2] * x[2] - 0.25 * x[0] + 0.25 * c[0] - 0.987 * x[3] * x[3];
                dx[1] = x[0] * x[1] - x[0] * x[2] - x[1] + c[2];
                dx[2] = x[0] * x[1] + x[0] * x[2] - x[2];
                dx[3] = -1.04 * x[3] + 0.987 * x[0] * x[3] + c[1];
            }};
}

tx::System co_oxidation() {
    return {{"x", "y", "s"}, {{"q2", 1.2}}, [](auto, auto& x, auto& c, auto& dx) {
                const auto z = 1 - x[0] - x[1] - x[2];
                dx[0] = 5 * z * z - 2 * x[0] * x[0] - 10 * x[0] * x[1];
                dx[1] = c[0] * z - 0.1 * x[1] - 10 * x[0] * x[1];
                dx[2] = 0.0675 * (z - 0.4 * x[2]);
            }};
}

tx::System pitchfork(double c0) {
    return {{"x", "y"}, {{"c", c0}}, [](auto, auto& x, auto& c, auto& dx) {
                dx[0] = c[0] * x[0] - x[0] * x[0] * x[0];
                dx[1] = -x[1];
            }};
}

tx::System cubic(double slope) {  // folds at p = -+2 (slope/3)^(3/2), beside a constant variable
    return {{"x", "k"}, {{"p", -1.0}, {"s", slope}}, [](auto, auto& x, auto& c, auto& dx) {
                dx[0] = c[0] + c[1] * x[0] - x[0] * x[0] * x[0];
                dx[1] = 2.0 - x[1];
            }};
}

tx::System circle(double p) {
    return {{"x"}, {{"p", p}}, [](auto, auto& x, auto& c, auto& dx) {
                dx[0] = 1 - x[0] * x[0] - c[0] * c[0];
            }};
}

// Pairs with real parts m and m - d.
tx::System two_pairs(double d) {
    return {{"a", "b", "c", "d"}, {{"m", -1.0}}, [d](auto, auto& x, auto& c, auto& dx) {
                const auto k = c[0] - d;
                dx[0] = c[0] * x[0] - x[1];
                dx[1] = x[0] + c[0] * x[1];
                dx[2] = k * x[2] - 2.0 * x[3] + x[0] * x[0];
                dx[3] = 2.0 * x[2] + k * x[3];
            }};
}

// A pair with real part d - m^2, unstable for |m| < sqrt d only.
tx::System hidden_pair(double d) {
    return {{"a", "b"}, {{"m", -1.0}}, [d](auto, auto& x, auto& c, auto& dx) {
                const auto k = d - c[0] * c[0];
                dx[0] = k * x[0] - x[1];
                dx[1] = x[0] + k * x[1];
            }};
}

tx::System square_symmetric() {
    return {{"a", "b"}, {{"m", -1.0}}, [](auto, auto& x, auto& c, auto& dx) {
                dx[0] = c[0] * x[0] - x[0] * (x[0] * x[0] + 2.0 * x[1] * x[1]);
                dx[1] = c[0] * x[1] - x[1] * (x[1] * x[1] + 2.0 * x[0] * x[0]);
            }};
}

tx::System one(double p, int which) {
    return {{"x"}, {{"p", p}}, [which](auto, auto& x, auto& c, auto& dx) {
                using std::sqrt;
                if (which == 0) dx[0] = c[0] * x[0] - 1.0;
                if (which == 1) dx[0] = sqrt(c[0]) - x[0];
                if (which == 2) dx[0] = c[0] * x[0];
                if (which == 3) dx[0] = c[0] * x[0] - x[0] * x[0] * x[0];
            }};
}

// Its positive equilibria turn sharply at f = 1, beside others that go straight on: hyperbolas of
// radius 500 in a variable of 7e4.
tx::System oregonator() {
    return {{"x", "y", "z"}, {{"f", 0.4}}, [](auto, auto& x, auto& c, auto& dx) {
                dx[0] = 77.27 * (x[1] + x[0] * (1 - 8.375e-6 * x[0] - x[1]));
                dx[1] = (c[0] * x[2] - (1 + x[0]) * x[1]) / 77.27;
                dx[2] = 0.161 * (x[0] - x[2]);
            }};
}

tx::System lotka_volterra() {
    return {{"x", "y"}, {{"a", 1.0}}, [](auto, auto& x, auto& c, auto& dx) {
                dx[0] = x[0] * (c[0] - x[1]);
                dx[1] = x[1] * (x[0] - 1);
            }};
}

std::vector<Case> cases() {
    const std::string bound = "parameter_bound parameter_bound";
    const double b1 = std::sqrt((1 - 0.12 - std::sqrt(0.52)) / 2);
    const double b2 = std::sqrt((1 - 0.12 + std::sqrt(0.52)) / 2);
    const double cusp = 2 * std::pow(1.0 / 3, 1.5);
    const double thin = 2 * std::pow(1e-4 / 3, 1.5);
    const double crossing = 2.0 / 3 / (1 - std::exp(-5.0 / 3));
    const double hopf = 1 / (3 - 8 * std::exp(-5.0 / 3));
    return {
        {"no prey", predator_prey(), {0, 0}, {0, 1}, bound, {{"BP", "transcritical", 0.6}}},
        {"no predator",
         predator_prey().with("p", 0.75),
         {1, 0},
         {0.7, 1},
         bound,
         {{"LP", "generic", 0.832929322234, 1e-12, "a", 1.66742341},
          {"BP", "transcritical", crossing, 1e-10}}},
        {"coexistence",
         predator_prey(),
         {1.0 / 3, 2},
         {0, 1},
         bound,
         {{"H", "supercritical", hopf, 1e-12, "Re c1", -0.429274790},
          {"BP", "transcritical", crossing, 1e-10}}},
        {"Selkov",
         selkov(),
         {0.5, 1.6},
         {0.1, 1.5},
         bound,
         {{"H", "supercritical", b1, 1e-12, "l1", -1.29824694685},
          {"H", "supercritical", b2, 1e-12, "l1", -0.245615744235}}},
        {"Rosenzweig-MacArthur",
         rosenzweig_macarthur(2),
         {1, 1},
         {0.5, 5},
         bound,
         {{"BP", "transcritical", 1, 1e-9},
          {"H", "supercritical", 3, 1e-11, "l1", -std::sqrt(6) / 10}}},
        {"start on its Hopf point",
         rosenzweig_macarthur(3),
         {1, 4.0 / 3},
         {0.5, 5},
         bound,
         {{"BP", "transcritical", 1, 1e-9}, {"H", "supercritical", 3, 1e-11}}},
        {"Shimizu-Morioka",
         shimizu_morioka(),
         {1.2, 0, 1},
         {0.2, 2},
         bound,
         {{"H", "supercritical", 1, 1e-11, "l1", -3.0 / 40}}},
        {"Shimizu-Morioka, neutral saddle", shimizu_morioka(), {0, 0, 0}, {0.2, 2}, bound, {}},
        {"Lorenz-84",
         lorenz84(),
         {2.98, -0.04, 0.06, -0.02},
         {1, 3},
         bound,
         {{"H", "subcritical", 2.85987541275, 1e-11, "Re c1", 0.30384558},
          {"H", "supercritical", 2.46722212311, 1e-11, "Re c1", -0.1348746, 1e-6},
          {"H", "subcritical", 1.61965782094, 1e-11, "omega", 0.295286816713},
          {"LP", "generic", 1.54664837260, 1e-11}}},
        {"CO oxidation",
         co_oxidation(),
         {0.001, 0.8, 0.1},
         {0.5, 2},
         bound,
         {{"H", "subcritical", 1.04099156953, 1e-11, "Re c1", 4.331379, 1e-6},
          {"LP", "generic", 1.05220028787, 1e-11},
          {"LP", "generic", 1.04204850538, 1e-11},
          {"H", "subcritical", 1.05155746246, 1e-11, "Re c1", 10.70102, 1e-6}}},
        {"pitchfork from its trunk",
         pitchfork(-1),
         {0, 0},
         {-1, 1},
         bound,
         {{"BP", "pitchfork", 0}}},
        {"pitchfork from its prong",
         pitchfork(1),
         {1, 0},
         {-1, 1},
         bound,
         {{"BP", "pitchfork", 0}}},
        {"pitchfork of one variable from its prong",
         one(1, 3),
         {1},
         {-1, 1},
         bound,
         {{"BP", "pitchfork", 0}}},
        {"start on a branch point", pitchfork(0), {0, 0}, {-1, 1}, bound, {{"BP", "pitchfork", 0}}},
        {"hysteresis",
         cubic(1),
         {-1.3, 2},
         {-2, 2},
         bound,
         {{"LP", "generic", cusp}, {"LP", "generic", -cusp}}},
        {"hysteresis inside one step",
         cubic(1e-4),
         {-1, 2},
         {-1, 1},
         bound,
         {{"LP", "generic", thin, 1e-13}, {"LP", "generic", -thin, 1e-13}}},
        {"isola",
         circle(0.3),
         {0.9},
         {-2, 2},
         "closed closed",
         {{"LP", "generic", 1}, {"LP", "generic", -1}}},
        {"isola from its fold",
         circle(1),
         {0},
         {-2, 2},
         "closed closed",
         {{"LP", "generic", 1}, {"LP", "generic", -1}}},
        {"start at the edge", circle(0.3), {0.9}, {0.3, 2}, bound, {{"LP", "generic", 1}}},
        {"two Hopf points in one step",
         two_pairs(1e-3),
         {0, 0, 0, 0},
         {-1, 1},
         bound,
         {{"H", "undetermined", 0}, {"H", "undetermined", 1e-3}}},
        {"hidden Hopf points",
         hidden_pair(1e-4),
         {0, 0},
         {-1, 1},
         bound,
         {{"H", "undetermined", -0.01}, {"H", "undetermined", 0.01}}},
        {"symmetry of the square",
         square_symmetric(),
         {0, 0},
         {-1, 1.1},
         bound,
         {{"BP", "multiple", 0, 1e-9}}},
        {"to infinity", one(1, 0), {1}, {-1, 1}, "norm_bound parameter_bound", {}},
        {"end of definition", one(1, 1), {1}, {-1, 1}, "not_computable parameter_bound", {}},
        {"vertical branch", one(-1, 2), {0}, {-1, 1}, bound, {{"BP", "undetermined", 0, 1e-9}}},
        {"sharp turn beside another branch",
         oregonator(),
         {71643, 0.4, 71643},
         {0.4, 3},
         bound,
         {{"H", "subcritical", 0.50106952269467}, {"H", "subcritical", 1.52672725526449}}},
        {"centres", lotka_volterra(), {1, 1}, {0.5, 2}, bound, {}},
    };
}

void check(const tx::Special& found, const Expected& expected, const std::string& parameter) {
    SCOPED_TRACE(found.text());
    EXPECT_EQ(found.type(), expected.type);
    EXPECT_EQ(found.subtype(), expected.subtype);
    EXPECT_EQ(found.status(), "located");
    const double distance = std::abs(found.parameter(parameter) - expected.p);
    EXPECT_LE(distance, expected.digits);
    EXPECT_LE(distance, found.error() + expected.digits) << "the error does not hold";
    if (expected.coefficient.empty()) return;
    const double value = found.coefficient(expected.coefficient);
    const double sign = expected.type == "LP" ? std::copysign(1, value * expected.value) : 1;
    EXPECT_NEAR(sign * value, expected.value, expected.tolerance * std::abs(expected.value));
}

TEST(Equilibria, SpecialPointsAndEnds) {
    for (const Case& c : cases()) {
        SCOPED_TRACE(c.name);
        const std::string& parameter = c.system.parameters()[0];
        const tx::Branch branch = equilibrium(c.system, c.start).follow(parameter, c.window);
        EXPECT_EQ(branch.stop()[0].str() + " " + branch.stop()[1].str(), c.ends);
        const std::vector<tx::Special> specials = branch.specials();
        EXPECT_EQ(specials.size(), c.specials.size()) << branch.text();
        for (std::size_t i = 0; i < std::min(specials.size(), c.specials.size()); ++i)
            check(specials[i], c.specials[i], parameter);
        const std::span<const double> p = branch.column(parameter);
        for (const double value : p) {
            EXPECT_GE(value, c.window.lo);
            EXPECT_LE(value, c.window.hi);
        }
        for (const int end : {0, 1}) {
            if (!(branch.stop()[static_cast<std::size_t>(end)] == tx::StopReason::parameter_bound))
                continue;
            const double last = end == 0 ? p.front() : p.back();
            EXPECT_TRUE(last == c.window.lo || last == c.window.hi) << last;
        }
    }
}

// A quadratic system in p and x with a cubic that keeps its equilibria bounded; x = 0 for p = 0.
tx::System random_system(unsigned seed, std::size_t n) {
    std::mt19937 generator(7919 * seed + 1);
    const auto numbers = [&generator](std::size_t count) {
        std::vector<double> result(count);
        for (double& x : result) x = static_cast<double>(generator()) / 2147483648.0 - 1;
        return result;
    };
    const auto A = numbers(n * n), B = numbers(n * n * n), C = numbers(n * n), P = numbers(n),
               Q = numbers(n * n);
    std::vector<std::string> names;
    for (std::size_t i = 0; i < n; ++i) names.push_back("x" + std::to_string(i));
    return {names, {{"p", 0.0}}, [=](auto, auto& x, auto& c, auto& dx) {
                for (std::size_t i = 0; i < n; ++i) {
                    auto f = P[i] * c[0] - x[i] * x[i] * x[i];
                    for (std::size_t j = 0; j < n; ++j) {
                        const std::size_t ij = i * n + j;
                        f = f + (A[ij] + c[0] * Q[ij] - 0.5 * C[ij] * C[ij] * x[i] * x[j]) * x[j];
                        for (std::size_t k = 0; k < n; ++k) f = f + B[ij * n + k] * x[j] * x[k];
                    }
                    dx[i] = f;
                }
            }};
}

// Of the 200 systems sanitizers, which make them twenty times slower, see 40 of all orders.
#ifdef TX_TEST_SANITIZED
constexpr unsigned every = 6;
#else
constexpr unsigned every = 1;
#endif

class RandomSystems : public testing::TestWithParam<unsigned> {};

// Ten times shorter steps see no event that the default ones do not, at the same places.
TEST_P(RandomSystems, HaveTheSameEventsWithShortSteps) {
    std::size_t located = 0;
    for (unsigned seed = GetParam(); seed < GetParam() + 25; seed += every) {
        const std::size_t n = 2 + seed % 5;
        const tx::Point start = equilibrium(random_system(seed, n), std::vector<double>(n, 0.0));
        tx::Options fine;
        fine.h_max /= 10;
        fine.max_points = 40000;
        const tx::Branch coarse_branch = start.follow("p", {-2, 2});
        const tx::Branch fine_branch = start.follow("p", {-2, 2}, fine);
        const auto a = coarse_branch.specials();
        const auto b = fine_branch.specials();
        ASSERT_EQ(a.size(), b.size()) << "seed " << seed;
        EXPECT_EQ(coarse_branch.stop(), fine_branch.stop()) << "seed " << seed;
        for (std::size_t i = 0; i < a.size(); ++i) {
            EXPECT_EQ(a[i].type() + a[i].subtype() + a[i].status(),
                      b[i].type() + b[i].subtype() + b[i].status())
                << "seed " << seed;
            EXPECT_NEAR(a[i].parameter("p"), b[i].parameter("p"),
                        a[i].error() + b[i].error() + 1e-12)
                << "seed " << seed;
        }
        located += a.size();
    }
    EXPECT_GT(located * every, 50U);
}
INSTANTIATE_TEST_SUITE_P(Seeds, RandomSystems, testing::Range(0U, 200U, 25U));

TEST(Equilibria, OptionsOfARun) {
    const tx::Point start = equilibrium(cubic(1), {-1.3, 2});
    tx::Options options;
    options.at("p", {-0.25}).when("x passes 1", [](const tx::Point& point) {
        return point["x"] - 1;
    });
    options.detect = tx::Detect::only({"UZ"});
    const tx::Branch watched = start.follow("p", {-2, 2}, options);
    ASSERT_EQ(watched.specials().size(), 4U);  // p = -0.25 on three sheets, x = 1 once
    for (const tx::Special& special : watched.specials())
        EXPECT_NEAR(special.subtype() == "x passes 1" ? special["x"] : special.parameter("p"),
                    special.subtype() == "x passes 1" ? 1 : -0.25, 1e-13);

    tx::Options stopped;
    stopped.direction = tx::Direction::up;
    stopped.stop_when("enough", [](const tx::Point& point) { return point["x"]; });
    const tx::Branch half = start.follow("p", {-2, 2}, stopped);
    EXPECT_EQ(half.stop()[0], "start");
    EXPECT_EQ(half.stop()[1], "user");
    EXPECT_NEAR(half.column("x").back(), 0, 1e-13);
    EXPECT_EQ(half.column("p").front(), -1);

    int calls = 0;
    tx::Options cancelled;
    cancelled.on_point = [&calls](const tx::Point&) { return ++calls < 5; };
    EXPECT_EQ(start.follow("p", {-2, 2}, cancelled).stop()[1], "cancelled");
    EXPECT_EQ(calls, 5);
    tx::Options few;
    few.max_points = 7;
    EXPECT_EQ(start.follow("p", {-2, 2}, few).stop()[1], "max_points");
    EXPECT_THROW(start.follow("p", {0, 2}), tx::Error);
}

// What a right-hand side throws comes out, from wherever it is called, and the system can be used
// again.
TEST(Equilibria, ExceptionsOfTheRightHandSidePass) {
    auto calls = std::make_shared<int>(-1);
    const tx::System system({"x"}, {{"p", 0.3}}, [calls](auto, auto& x, auto& c, auto& dx) {
        if (--*calls == 0) throw std::runtime_error("enough");
        dx[0] = 1 - x[0] * x[0] - c[0] * c[0];
    });
    const tx::Point start = equilibrium(system, {0.9});
    for (const int n : {1, 2, 3, 5, 20, 100, 300, 500}) {
        *calls = n;
        EXPECT_THROW(start.follow("p", {-2, 2}), std::runtime_error) << n;
    }
    *calls = -1;
    EXPECT_EQ(start.follow("p", {-2, 2}).stop()[0], "closed");
}

}  // namespace
