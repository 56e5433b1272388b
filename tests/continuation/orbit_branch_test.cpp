// Branches of periodic orbits against exact ones and published periods.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <stdexcept>
#include <vector>

#include "core/guards.hpp"
#include "handles.hpp"
#include "matrices.hpp"
#include "systems.hpp"
#include "tx.h"

namespace {

using namespace testing_support;
using trajex::Temporarily;

/// A point of the branch, as the user output of a run sees it.
struct Point {
    double c, T;
    std::array<double, 2> y, er, ei;
    int steps;
};
using Path = std::vector<Point>;

// The run hands the stream of the user output over untouched.
void collect(Trajex* tx, FILE* path) {
    const TrajexBif& bif = *tx->txb;
    Point point{bif.c[bif.cindi[1]], bif.T, {}, {}, {}, bif.steps};
    for (std::size_t i = 0; i < static_cast<std::size_t>(tx->order); ++i) {
        point.y[i] = bif.y[i];
        point.er[i] = bif.er[i];
        point.ei[i] = bif.ei[i];
    }
    reinterpret_cast<Path*>(path)->push_back(point);
}

FILE* as_stream(Path& path) {
    return reinterpret_cast<FILE*>(&path);
}

OpenHandle open_study(void (*fcn)(double, double*, double*), int order, double& parameter) {
    OpenHandle tx = open_variational(fcn, order, nullptr, nullptr, 1e-9, &parameter);
    TXSetCut(tx.get(), second_component, 1e-8);
    return tx;
}

// A cycle of radius sqrt(a) and period 2 pi / w, followed in each of the two.
TEST(AutonomousBranch, FollowsACircle) {
    {
        const Temporarily restored(Cycle::a, 1.0);
        const OpenHandle tx = open_study(Cycle::flow, 2, Cycle::a);
        tx->MaxContSteps = 25;
        double y[2] = {1.1, 0.1};
        double T = 0;
        double dc = 0.1;
        Path path;
        ASSERT_EQ(TXAutoCont(tx.get(), 0, y, 1, &T, &Cycle::a, &dc, 0, 4, collect, as_stream(path)),
                  1);
        ASSERT_EQ(path.size(), 25u);
        EXPECT_GT(path.back().c, 2.5);
        double previous = 0.9;
        for (const Point& point : path) {
            EXPECT_GT(point.c, previous);
            previous = point.c;
            EXPECT_NEAR(std::fabs(point.y[0]), std::sqrt(point.c), 1e-6);
            EXPECT_LE(std::fabs(point.y[1]), 1e-8);
            EXPECT_NEAR(point.T, 2 * pi, 1e-6);
            EXPECT_NEAR(point.er[1], 1, 1e-5);  // the trivial multiplier comes last
            EXPECT_NEAR(point.er[0], std::exp(-4 * pi * point.c), 1e-6);
        }
    }
    const Temporarily restored(Cycle::w, 1.0);
    const OpenHandle tx = open_study(Cycle::flow, 2, Cycle::w);
    tx->MaxContSteps = 25;
    double y[2] = {1.1, 0.1};
    double T = 0;
    double dc = -0.1;
    Path path;
    EXPECT_EQ(TXAutoCont(tx.get(), 0, y, 1, &T, &Cycle::w, &dc, 0, 4, collect, as_stream(path)), 0);
}

/// T(mu) by the cubic through the four points nearest to mu.
double period_at(Path path, double mu) {
    const auto nearer = [mu](const Point& p, const Point& q) {
        return std::fabs(p.c - mu) < std::fabs(q.c - mu);
    };
    std::sort(path.begin(), path.end(), nearer);
    double T = 0;
    for (std::size_t i = 0; i < 4; ++i) {
        double weight = 1;
        for (std::size_t j = 0; j < 4; ++j) {
            if (j != i) weight *= (mu - path[j].c) / (path[i].c - path[j].c);
        }
        T += weight * path[i].T;
    }
    return T;
}

TEST(AutonomousBranch, MeetsThePeriodsOfVanDerPol) {
    const Temporarily restored(VanDerPol::mu, 1.0);
    const OpenHandle tx = open_study(VanDerPol::flow, 2, VanDerPol::mu);
    tx->MaxContSteps = 3000;
    double y[2] = {2, 0.1};
    double T = 0;
    double dc = 0.05;
    Path path;
    ASSERT_EQ(
        TXAutoCont(tx.get(), 0, y, 1, &T, &VanDerPol::mu, &dc, 0, 4, collect, as_stream(path)), 1);
    ASSERT_EQ(path.size(), 3000u);
    EXPECT_NEAR(path.front().T, 6.66328685932, 1e-6);
    ASSERT_GT(path.back().c, 3.1);
    printf("%.9f %.9f\n", period_at(path, 2), period_at(path, 3));
}

}  // namespace
