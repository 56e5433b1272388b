// Branches of periodic orbits against exact ones and published periods, and how their runs end.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <string>

#include "continuation/recorder.hpp"
#include "core/guards.hpp"
#include "handles.hpp"
#include "systems.hpp"
#include "tx.h"

namespace {

using namespace testing_support;
using trajex::Temporarily;

OpenHandle open_study(void (*fcn)(double, double*, double*), int order, double& parameter) {
    OpenHandle tx = open_variational(fcn, order, nullptr, nullptr, 1e-9, &parameter);
    TXSetCut(tx.get(), second_component, 1e-8);
    return tx;
}

/// The points of a run with one parameter from a guess, which ends with `expected`.
struct Branch {
    Points points;
    double T = 0;

    void autonomous(Trajex* tx, double* y, double& c, double dc, int expected = 1) {
        EXPECT_EQ(TXAutoCont(tx, 0, y, 1, &T, &c, &dc, 0, 4, record_point, as_stream(points)),
                  expected);
    }
    void forced(Trajex* tx, double* y, double period, double& c, double dc, int expected = 1) {
        EXPECT_EQ(TXNonAutoCont(tx, 0, y, period, &c, &dc, 0, 4, record_point, as_stream(points)),
                  expected);
    }
};

TEST(AutonomousBranch, FollowsACircleThatGrows) {
    const Temporarily restored(Cycle::a, 1.0);
    const OpenHandle tx = open_study(Cycle::flow, 2, Cycle::a);
    tx->MaxContSteps = 25;
    double y[2] = {1.1, 0.1};
    Branch run;
    run.autonomous(tx.get(), y, Cycle::a, 0.1);
    ASSERT_EQ(run.points.size(), 25u);
    double previous = 0.99;
    for (const Point& point : run.points) {
        const double a = point.c[0];
        EXPECT_GT(a, previous);
        previous = a;
        EXPECT_NEAR(std::fabs(point.y[0]), std::sqrt(a), 1e-6);
        EXPECT_LE(std::fabs(point.y[1]), 1e-8);
        EXPECT_NEAR(point.T, 2 * pi, 1e-6);
        EXPECT_NEAR(point.er[1], 1, 1e-5);  // the trivial multiplier comes last
        EXPECT_NEAR(point.er[0] / std::exp(-4 * pi * a), 1, 1e-3);
    }
    EXPECT_EQ(tx->txb->cindi[0], 1);
    expect_stopped_at(*tx, run.points.back());
}

// Here the state stays where it is and the period alone moves.
TEST(AutonomousBranch, FollowsACircleThatTurnsFaster) {
    const Temporarily restored(Cycle::w, 1.0);
    const OpenHandle tx = open_study(Cycle::flow, 2, Cycle::w);
    tx->MaxContSteps = 25;
    for (const double dc : {0.1, -0.02}) {
        Cycle::w = 1;
        double y[2] = {1.1, 0.1};
        Branch run;
        run.autonomous(tx.get(), y, Cycle::w, dc);
        ASSERT_EQ(run.points.size(), 25u);
        EXPECT_GT((run.points.back().c[0] - 1) / dc, 2);
        for (const Point& point : run.points) {
            EXPECT_NEAR(point.T, 2 * pi / point.c[0], 1e-6);
            EXPECT_NEAR(std::fabs(point.y[0]), 1, 1e-6);
        }
    }
}

/// T(c) by the cubic through the four points nearest to c.
double period_at(Points points, double c) {
    std::sort(points.begin(), points.end(), [c](const Point& p, const Point& q) {
        return std::fabs(p.c[0] - c) < std::fabs(q.c[0] - c);
    });
    double T = 0;
    for (std::size_t i = 0; i < 4; ++i) {
        double weight = 1;
        for (std::size_t j = 0; j < 4; ++j) {
            if (j != i) weight *= (c - points[j].c[0]) / (points[i].c[0] - points[j].c[0]);
        }
        T += weight * points[i].T;
    }
    return T;
}

TEST(AutonomousBranch, MeetsThePublishedPeriodsOfVanDerPol) {
    const Temporarily restored(VanDerPol::mu, 1.0);
    const OpenHandle tx = open_study(VanDerPol::flow, 2, VanDerPol::mu);
    tx->MaxContSteps = 220;
    double y[2] = {2, 0.1};
    Branch upward;
    upward.autonomous(tx.get(), y, VanDerPol::mu, 0.05);
    ASSERT_EQ(upward.points.size(), 220u);
    EXPECT_NEAR(upward.points.front().T, 6.66328685932, 1e-7);
    ASSERT_GT(upward.points.back().c[0], 2);
    EXPECT_NEAR(period_at(upward.points, 2), 7.62987447967, 1e-7);

    // For small mu the angular velocity has a known series.
    VanDerPol::mu = 0.3;
    tx->MaxContSteps = 12;
    y[0] = 2;
    y[1] = 0.1;
    Branch downward;
    downward.autonomous(tx.get(), y, VanDerPol::mu, -0.02);
    ASSERT_EQ(downward.points.size(), 12u);
    EXPECT_LT(downward.points.back().c[0], 0.2);
    for (const Point& point : downward.points) {
        const double m = point.c[0] * point.c[0];
        const double velocity = 1 - m / 16 + 17 * m * m / 3072 + 35 * m * m * m / 884736;
        EXPECT_NEAR(point.T, 2 * pi / velocity, 1e-6);
    }
}

double first_component_past_one(double, double* y) {
    return y[0] - 1;
}

// From near its birth at B = 2, with the period 2 pi, to B = 3.
TEST(AutonomousBranch, FollowsTheCycleOfTheBrusselator) {
    const Temporarily restored(Brusselator::B, 2.02);
    const OpenHandle tx = open_study(Brusselator::flow, 2, Brusselator::B);
    TXSetCut(tx.get(), first_component_past_one, 1e-8);
    TXSetMaxNewtSteps(tx.get(), 30);
    tx->MaxContSteps = 160;
    double y[2] = {1.2, 2};
    Branch run;
    run.autonomous(tx.get(), y, Brusselator::B, 0.05);
    ASSERT_EQ(run.points.size(), 160u);
    EXPECT_NEAR(period_at(run.points, 2), 2 * pi, 1e-5);
    ASSERT_GT(run.points.back().c[0], 3);

    // The last orbit closes under an integration of higher accuracy, and not before its period.
    const OpenHandle plain = open_recording(Brusselator::flow, 2, 1e-12);
    const Point& last = run.points.back();
    double z[2] = {last.y[0], last.y[1]};
    double t = 0;
    TXIntegrate(plain.get(), &t, last.T / 2, z);
    EXPECT_GT(std::fabs(z[0] - last.y[0]) + std::fabs(z[1] - last.y[1]), 0.1);
    TXIntegrate(plain.get(), &t, last.T, z);
    EXPECT_NEAR(z[0], last.y[0], 1e-5);
    EXPECT_NEAR(z[1], last.y[1], 1e-5);
}

TEST(ForcedBranch, FollowsTheResponseThroughResonance) {
    const Temporarily restored(ForcedOscillator::stiffness, 2.0);
    const OpenHandle tx = open_study(ForcedOscillator::flow, 2, ForcedOscillator::stiffness);
    tx->MaxContSteps = 90;
    double y[2] = {0, 0};
    Branch run;
    run.forced(tx.get(), y, 2 * pi, ForcedOscillator::stiffness, -0.1);
    ASSERT_EQ(run.points.size(), 90u);
    EXPECT_LT(run.points.back().c[0], 0.7);
    for (const Point& point : run.points) {
        ForcedOscillator::stiffness = point.c[0];
        EXPECT_EQ(point.T, 2 * pi);
        EXPECT_NEAR(point.y[0], ForcedOscillator::in_phase(), 1e-6);
        EXPECT_NEAR(point.y[1], ForcedOscillator::out_of_phase(), 1e-6);
        for (std::size_t i = 0; i < 2; ++i) {
            EXPECT_NEAR(std::hypot(point.er[i], point.ei[i]),
                        std::exp(-pi * ForcedOscillator::damping), 1e-6);
        }
    }
}

/// y' = c y - y^3: y = 0 is an orbit of any period, for all c, and loses its stability at c = 0.
struct Pitchfork {
    static inline double c = -0.5;
    static void flow(double, double* y, double* f) { f[0] = c * y[0] - y[0] * y[0] * y[0]; }
};

// An orbit that does not move with the parameter: steps in the parameter alone, through a
// bifurcation that is located and named.
TEST(ForcedBranch, PassesABifurcationOfATrivialOrbit) {
    for (const int check : {0, 1}) {
        const Temporarily restored(Pitchfork::c, -0.5);
        const OpenHandle tx = open_study(Pitchfork::flow, 1, Pitchfork::c);
        tx->LambdaNewtRelTol = 1e-6;
        tx->MaxContSteps = 20;
        tx->CheckBifs = check;
        double y = 0;
        double dc = 0.1;
        const TextStream text;
        ASSERT_EQ(
            TXNonAutoCont(tx.get(), 0, &y, 1.0, &Pitchfork::c, &dc, 1, 1, static_cast<FILE*>(text)),
            1);
        EXPECT_NEAR(Pitchfork::c, 0, 1e-6);
        EXPECT_EQ(tx->txb->biftype, check != 0 ? 5 : 0);
        EXPECT_EQ(tx->txb->intang[0], 0);
        EXPECT_NE(text.text().find("\nSearching for bifurcation "), std::string::npos);
        EXPECT_EQ(text.text().find(" Checking bifurcation ") != std::string::npos, check != 0);

        Pitchfork::c = -0.5;
        Branch run;
        y = 0;
        run.forced(tx.get(), &y, 1, Pitchfork::c, 0.1);
        EXPECT_GT(run.points.back().c[0], 0.5);  // the run goes on along the trivial orbit
        EXPECT_EQ(run.points.back().y[0], 0);
    }
}

// ---- Runs that fail -----------------------------------------------------------------------------

TEST(OrbitBranches, ReportWhyTheyDidNotStart) {
    const OpenHandle tx = open_study(Cycle::flow, 2, Cycle::a);
    double y[2] = {1, 0.1};
    double T = 0;
    double dc = 0.1;
    double stranger = 1;
    EXPECT_EQ(TXAutoCont(tx.get(), 0, y, 1, &T, &stranger, &dc, 0, 0), 0);
    EXPECT_EQ(TXErrorTrajex(tx.get()), 26);
    EXPECT_EQ(TXNonAutoCont(tx.get(), 0, y, 1.0, &stranger, &dc, 0, 0), 0);
    EXPECT_EQ(TXErrorTrajex(tx.get()), 26);

    EXPECT_EQ(TXNonAutoCont(tx.get(), 0, y, 0.0, &Cycle::a, &dc, 0, 0), 0);
    EXPECT_EQ(TXErrorTrajex(tx.get()), 7);

    y[0] = 1.5;
    TXSetMaxNewtSteps(tx.get(), 0);
    EXPECT_EQ(TXNonAutoCont(tx.get(), 0, y, 1.0, &Cycle::a, &dc, 0, 0), 0);
    EXPECT_EQ(TXErrorTrajex(tx.get()), 30);

    TXSetMaxPeriodSteps(tx.get(), 0);  // the search for the section fails without a code
    EXPECT_EQ(TXAutoCont(tx.get(), 0, y, 1, &T, &Cycle::a, &dc, 0, 0), 0);
    EXPECT_EQ(TXErrorTrajex(tx.get()), 13);
    EXPECT_EQ(tx->nparam, 1);
}

/// The oscillator, not defined for a stiffness below 1.5.
void undefined_below(double t, double* y, double* f) {
    ForcedOscillator::flow(t, y, f);
    if (ForcedOscillator::stiffness < 1.5) f[1] = std::numeric_limits<double>::quiet_NaN();
}

// The failure of an integration is not the end of a run that can take a smaller step: under either
// policy the run itself ends, where steps have become too small.
TEST(OrbitBranches, HalveTheStepWhereTheFlowIsNotDefined) {
    const Temporarily restored(ForcedOscillator::stiffness, 2.0);
    const OpenHandle tx = open_study(undefined_below, 2, ForcedOscillator::stiffness);
    const auto follow = [&](Points& points) {
        ForcedOscillator::stiffness = 2;
        double y[2] = {0, 0};
        double dc = -0.1;
        return TXNonAutoCont(tx.get(), 0, y, 2 * pi, &ForcedOscillator::stiffness, &dc, 0, 4,
                             record_point, as_stream(points));
    };
    Points points;
    EXPECT_EQ(follow(points), 0);
    EXPECT_EQ(TXErrorTrajex(tx.get()), 29);
    EXPECT_GE(points.back().c[0], 1.5);
    EXPECT_LT(points.back().c[0], 1.50001);
    EXPECT_EQ(tx->TerminateOnFatalError, 0);

    tx->TerminateOnFatalError = 1;
    EXPECT_EXIT(follow(points), testing::ExitedWithCode(1),
                "'TXNonAutoCont': Minimum stepsize reached");
}

struct Interruption {};
void throwing_below(double t, double* y, double* f) {
    if (Cycle::a > 1.2) throw Interruption();
    Cycle::flow(t, y, f);
}

TEST(OrbitBranches, LetExceptionsPass) {
    const Temporarily restored(Cycle::a, 1.0);
    const OpenHandle tx = open_study(throwing_below, 2, Cycle::a);
    tx->TerminateOnFatalError = 1;
    double y[2] = {1.1, 0.1};
    double T = 0;
    double dc = 0.1;
    EXPECT_THROW(TXAutoCont(tx.get(), 0, y, 1, &T, &Cycle::a, &dc, 0, 0), Interruption);
    EXPECT_EQ(tx->nparam, 1);
    EXPECT_EQ(tx->TerminateOnFatalError, 1);
    Cycle::a = 1;
    tx->MaxContSteps = 3;
    EXPECT_EQ(TXAutoCont(tx.get(), 0, y, 1, &T, &Cycle::a, &dc, 0, 0), 1);
}

}  // namespace
