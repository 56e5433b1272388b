// Searches for periodic orbits against orbits with known period and multipliers.
#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <limits>

#include "core/guards.hpp"
#include "handles.hpp"
#include "matrices.hpp"
#include "systems.hpp"
#include "tx.h"

namespace {

using namespace testing_support;
using trajex::Temporarily;

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double not_a_number = std::numeric_limits<double>::quiet_NaN();

OpenHandle open_cycle(double RelTol = 1e-10) {
    OpenHandle tx = open_variational(Cycle::flow, 2, nullptr, nullptr, RelTol, &Cycle::a);
    TXSetCut(tx.get(), second_component, 1e-9);
    return tx;
}

TEST(ForcedOrbit, MeetsTheClosedForm) {
    const OpenHandle tx = open_variational(ForcedDecay::flow, 1, nullptr, nullptr, 1e-10);
    double y = 7;
    Matrix Phi(1, 1);
    ASSERT_EQ(TXNonAutoOrbit(tx.get(), 0, &y, Phi, 2 * pi), 1);
    EXPECT_NEAR(tx->TX->istate[0], 0.5, 1e-8);
    EXPECT_NEAR(y, 0.5, 1e-8);
    EXPECT_NEAR(Phi[0][0], std::exp(-2 * pi), 1e-8);

    // Started in another phase, and where the orbit of twice the period is the same one.
    ASSERT_EQ(TXNonAutoOrbit(tx.get(), 1, &y, Phi, 4 * pi), 1);
    EXPECT_NEAR(y, (std::cos(1) + std::sin(1)) / 2, 1e-8);
}

TEST(ForcedOrbit, RefusesAPeriodThatIsNone) {
    const OpenHandle tx = open_variational(ForcedDecay::flow, 1, nullptr, nullptr, 1e-6);
    Matrix Phi(1, 1);
    for (const double T : {0.0, -1.0, infinity, not_a_number, 1e-300}) {
        double y = 7;
        EXPECT_EQ(TXNonAutoOrbit(tx.get(), 1, &y, Phi, T), 0);
        EXPECT_EQ(TXErrorTrajex(tx.get()), 7);
        EXPECT_EQ(y, 7);
    }
}

TEST(ForcedOrbit, CountsItsIterations) {
    const OpenHandle tx = open_variational(ForcedDecay::flow, 1, nullptr, nullptr, 1e-8);
    Matrix Phi(1, 1);
    // A linear system takes one correction and a second look; the look at the limit never counts.
    for (const int limit : {0, 1, 2, 3, 4}) {
        TXSetMaxNewtSteps(tx.get(), limit);
        double y = 7;
        EXPECT_EQ(TXNonAutoOrbit(tx.get(), 0, &y, Phi, 2 * pi), limit > 2) << limit;
        EXPECT_EQ(TXErrorTrajex(tx.get()), limit > 2 ? 0 : 30);
    }
}

TEST(AutonomousOrbit, FindsTheUnitCircleFromBothSides) {
    const OpenHandle tx = open_cycle();
    for (const double guess : {0.6, 1.0, 1.4}) {
        double y[2] = {guess, 0.1};
        double T = not_a_number;
        Matrix Phi(2, 2);
        ASSERT_EQ(TXAutoOrbit(tx.get(), 3, y, Phi, 1, &T), 1);
        EXPECT_NEAR(T, 2 * pi, 1e-7);
        EXPECT_NEAR(std::fabs(y[0]), 1, 1e-8);
        EXPECT_LT(std::fabs(y[1]), 1e-8);
        EXPECT_EQ(tx->nparam, 1);

        double er[2], ei[2];
        ASSERT_EQ(TXEigen(tx.get(), 2, Phi, er, ei), 1);
        EXPECT_NEAR(std::fmax(er[0], er[1]), 1, 1e-6);
        EXPECT_NEAR(std::fmin(er[0], er[1]), std::exp(-4 * pi), 1e-6);
        EXPECT_EQ(ei[0], 0);
    }
}

TEST(AutonomousOrbit, MeetsThePublishedPeriodOfVanDerPol) {
    const OpenHandle tx = open_variational(VanDerPol::flow, 2, VanDerPol::jacobian, nullptr, 1e-11);
    TXSetCut(tx.get(), second_component, 1e-10);
    double y[2] = {2, 0.1};
    double T = 0;
    Matrix Phi(2, 2);
    ASSERT_EQ(TXAutoOrbit(tx.get(), 0, y, Phi, 1, &T), 1);
    EXPECT_NEAR(T, 6.66328685932, 1e-8);
    EXPECT_NEAR(std::fabs(y[0]), 2.008619860, 1e-8);  // the amplitude: the section is x' = 0

    // det Phi is the exponential of the divergence integrated round the orbit, and so, one
    // multiplier being 1, the other one.
    const OpenHandle plain = open_recording(VanDerPol::flow_and_divergence, 3, 1e-11);
    double z[3] = {y[0], y[1], 0};
    double t = 0;
    ASSERT_EQ(TXIntegrate(plain.get(), &t, T, z), 1);
    EXPECT_NEAR(determinant(Phi, 2) / std::exp(z[2]), 1, 1e-6);
    double er[2], ei[2];
    TXEigen(tx.get(), 2, Phi, er, ei);
    EXPECT_NEAR(std::fmax(er[0], er[1]), 1, 1e-6);
    EXPECT_NEAR(std::fmin(er[0], er[1]), std::exp(z[2]), 1e-8);
}

// The hyperplane through a point serves as section too, and orbits are the same on any.
TEST(AutonomousOrbit, WorksOnTheHyperplane) {
    const OpenHandle tx = open_variational(VanDerPol::flow, 2, nullptr, nullptr, 1e-10);
    tx->CutEps = 1e-9;
    double y[2] = {1.5, -1};
    double T = 0;
    Matrix Phi(2, 2);
    EXPECT_EQ(TXAutoOrbit(tx.get(), 0, y, Phi, 1, &T), 0);
    EXPECT_EQ(TXErrorTrajex(tx.get()), 8);  // no section yet
    ASSERT_EQ(TXSetAutoCut(tx.get(), 0, y), 1);
    ASSERT_EQ(TXAutoOrbit(tx.get(), 0, y, Phi, 1, &T), 1);
    EXPECT_NEAR(T, 6.66328685932, 1e-6);
    EXPECT_LT(std::fabs(TXAutoCut(tx.get(), 0, y)), 1e-8);
}

TEST(AutonomousOrbit, CountsCrossingsForAMultiplePeriod) {
    const OpenHandle tx = open_cycle();
    for (const int p : {1, 2, 3}) {
        double y[2] = {1.2, 0.3};
        double T = 0;
        Matrix Phi(2, 2);
        ASSERT_EQ(TXAutoOrbit(tx.get(), 0, y, Phi, p, &T), 1);
        EXPECT_NEAR(T, p * 2 * pi, 1e-7);
    }
    double y[2] = {1.2, 0.3};
    double T = 0;
    Matrix Phi(2, 2);
    EXPECT_EQ(TXAutoOrbit(tx.get(), 0, y, Phi, 0, &T), 0);  // no period at all
    EXPECT_EQ(TXErrorTrajex(tx.get()), 30);
}

TEST(AutonomousOrbit, TakesAnOrbitAsItFindsIt) {
    const OpenHandle tx = open_cycle();
    double y[2] = {1, 1e-10};  // on the section, and on the orbit: no correction moves it
    double T = 0;
    Matrix Phi(2, 2);
    tx->NewtAbsTol = 1e-6;
    ASSERT_EQ(TXAutoOrbit(tx.get(), 0, y, Phi, 1, &T), 1);
    EXPECT_EQ(y[0], 1);
    EXPECT_EQ(y[1], 1e-10);
    EXPECT_NEAR(T, 2 * pi, 1e-8);
}

double height_above_a_tenth(double, double* y) {
    return y[1] - 0.1;
}

// A weakly attracting circle on a section that it crosses aslant: corrections leave the section,
// and steps are so short that not even extrapolation finds it again. It is then regained along the
// trajectory, from before it and from beyond it.
TEST(AutonomousOrbit, RegainsTheSectionAlongTheTrajectory) {
    const Temporarily weak(Cycle::a, 0.04);
    const OpenHandle tx = open_variational(Cycle::flow, 2, nullptr, nullptr, 1e-9);
    TXSetCut(tx.get(), height_above_a_tenth, 1e-8);
    TXSetMaxStep(tx.get(), 1e-3);
    TXSetMaxPeriodSteps(tx.get(), 20000);
    for (const double guess : {0.12, 0.3}) {
        double y[2] = {guess, 0.09};
        double T = 0;
        Matrix Phi(2, 2);
        ASSERT_EQ(TXAutoOrbit(tx.get(), 0, y, Phi, 1, &T), 1);
        EXPECT_NEAR(T, 2 * pi, 1e-6);
        EXPECT_NEAR(std::hypot(y[0], y[1]), 0.2, 1e-6);
        EXPECT_NEAR(y[1], 0.1, 1e-8);
    }
}

TEST(AutonomousOrbit, FailsWithoutACodeWhereTheSectionIsNotReached) {
    const OpenHandle tx = open_cycle();
    double T = -1;
    Matrix Phi(2, 2);
    for (const int limit : {0, 1, 3}) {
        double y[2] = {0.1, 0.1};
        TXSetMaxPeriodSteps(tx.get(), limit);
        EXPECT_EQ(TXAutoOrbit(tx.get(), 0, y, Phi, 1, &T), 0);
        EXPECT_EQ(TXErrorTrajex(tx.get()), 0);
        EXPECT_EQ(tx->nparam, 1);
        EXPECT_EQ(T, -1);
    }
}

// ---- Right-hand sides that fail -----------------------------------------------------------------

int evaluations = 0;
int good_evaluations = 0;
void failing_cycle(double t, double* y, double* f) {
    Cycle::flow(t, y, f);
    if (++evaluations > good_evaluations) f[0] = not_a_number;
}

// From any evaluation on the flow may be undefined: the search ends soon, with the code of the step
// that could not be made, and never claims an orbit.
TEST(AutonomousOrbit, EndsWithTheCodeOfAFailingStep) {
    const Temporarily reset(evaluations, 0);
    int failures = 0;
    for (const int good : {0, 1, 9, 50, 400, 1000, 3000}) {
        const OpenHandle tx = open_variational(failing_cycle, 2, nullptr, nullptr, 1e-8);
        TXSetCut(tx.get(), second_component, 1e-7);
        evaluations = 0;
        good_evaluations = good;
        double y[2] = {1.2, 0.1};
        double T = 0;
        Matrix Phi(2, 2);
        if (TXAutoOrbit(tx.get(), 0, y, Phi, 1, &T) == 1) {
            EXPECT_LE(evaluations, good);
            continue;
        }
        ++failures;
        EXPECT_TRUE(TXErrorTrajex(tx.get()) == 29 || TXErrorTrajex(tx.get()) == 30);
        EXPECT_LT(evaluations, good + 5000);
    }
    EXPECT_GE(failures, 6);

    const OpenHandle tx = open_variational(failing_cycle, 2, nullptr, nullptr, 1e-8);
    evaluations = 0;
    good_evaluations = 100;
    double y[2] = {1.2, 0.1};
    Matrix Phi(2, 2);
    EXPECT_EQ(TXNonAutoOrbit(tx.get(), 0, y, Phi, 2 * pi), 0);
    EXPECT_EQ(TXErrorTrajex(tx.get()), 29);
}

TEST(PeriodicOrbits, NeedTheSubRecord) {
    const OpenHandle tx = open_terminating(Cycle::flow, 2);
    double y[2] = {1, 0};
    double T = 1;
    Matrix Phi(2, 2);
    EXPECT_EXIT(TXAutoOrbit(tx.get(), 0, y, Phi, 1, &T), testing::ExitedWithCode(1),
                "'TXAutoOrbit': Trajex not opened");
    EXPECT_EXIT(TXNonAutoOrbit(tx.get(), 0, y, Phi, T), testing::ExitedWithCode(1),
                "'TXNonAutoOrbit': Trajex not opened");
}

}  // namespace
