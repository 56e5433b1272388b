// Searches for periodic orbits against orbits with known period and multipliers.
#include <gtest/gtest.h>

#include <cmath>

#include "core/guards.hpp"
#include "handles.hpp"
#include "matrices.hpp"
#include "systems.hpp"
#include "tx.h"

namespace {

using namespace testing_support;
using trajex::Temporarily;

/// A search in the plane, and what it is to find.
struct Search {
    OpenHandle tx;
    double y[2];
    double T = -1;
    Matrix Phi{2, 2};

    Search(void (*flow)(double, double*, double*), double RelTol, double y0, double y1)
        : tx(open_variational(flow, 2, nullptr, nullptr, RelTol, &Cycle::a)), y{y0, y1} {
        TXSetCut(tx.get(), second_component, 10 * RelTol);
    }
    int run(int p = 1, double t = 0) { return TXAutoOrbit(tx.get(), t, y, Phi, p, &T); }

    void expect_multipliers(double other) {
        double er[2], ei[2];
        ASSERT_EQ(TXEigen(tx.get(), 2, Phi, er, ei), 1);
        EXPECT_NEAR(std::fmax(er[0], er[1]), 1, 1e-6);
        EXPECT_NEAR(std::fmin(er[0], er[1]), other, 1e-6);
        EXPECT_EQ(ei[0], 0);
    }
};

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

// A linear system takes one correction and a second look; the look at the limit never counts.
TEST(ForcedOrbit, FailsWithACode) {
    struct {
        double T;
        int limit, code;
    } const cases[] = {{0, 10, 7},      {-1, 10, 7},           {infinity, 10, 7},
                       {1e-300, 10, 7}, {not_a_number, 10, 7}, {2 * pi, 0, 30},
                       {2 * pi, 2, 30}, {2 * pi, 3, 0}};
    const OpenHandle tx = open_variational(ForcedDecay::flow, 1, nullptr, nullptr, 1e-8);
    Matrix Phi(1, 1);
    for (const auto& c : cases) {
        TXSetMaxNewtSteps(tx.get(), c.limit);
        double y = 7;
        EXPECT_EQ(TXNonAutoOrbit(tx.get(), 1, &y, Phi, c.T), c.code == 0) << c.T;
        EXPECT_EQ(TXErrorTrajex(tx.get()), c.code);
        EXPECT_TRUE(c.code != 7 || y == 7);
    }
}

// From inside, from outside, and as one of several turns.
TEST(AutonomousOrbit, FindsTheUnitCircle) {
    for (const int p : {1, 2, 3}) {
        for (const double guess : {0.6, 1.0, 1.4}) {
            Search search(Cycle::flow, 1e-10, guess, 0.1);
            ASSERT_EQ(search.run(p), 1);
            EXPECT_NEAR(search.T, p * 2 * pi, 1e-7);
            EXPECT_NEAR(std::fabs(search.y[0]), 1, 1e-8);
            EXPECT_LT(std::fabs(search.y[1]), 1e-8);
            EXPECT_EQ(search.tx->nparam, 1);
            search.expect_multipliers(std::exp(-4 * pi * p));
        }
    }
    Search none(Cycle::flow, 1e-10, 1.2, 0.3);
    EXPECT_EQ(none.run(0), 0);
    EXPECT_EQ(TXErrorTrajex(none.tx.get()), 30);

    Search found(Cycle::flow, 1e-10, 1, 1e-10);  // on the orbit: no correction moves it
    found.tx->NewtAbsTol = 1e-6;
    ASSERT_EQ(found.run(), 1);
    EXPECT_TRUE(found.y[0] == 1 && found.y[1] == 1e-10);
    EXPECT_NEAR(found.T, 2 * pi, 1e-8);
}

// det Phi is the exponential of the divergence integrated round the orbit, and so, one multiplier
// being 1, the other one. The amplitude is published too: the section is x' = 0.
TEST(AutonomousOrbit, MeetsThePublishedPeriodOfVanDerPol) {
    Search search(VanDerPol::flow, 1e-11, 2, 0.1);
    search.tx->jac = VanDerPol::jacobian;
    ASSERT_EQ(search.run(), 1);
    EXPECT_NEAR(search.T, 6.66328685932, 1e-8);
    EXPECT_NEAR(std::fabs(search.y[0]), 2.008619860, 1e-8);

    const OpenHandle plain = open_recording(VanDerPol::flow_and_divergence, 3, 1e-11);
    double z[3] = {search.y[0], search.y[1], 0};
    double t = 0;
    ASSERT_EQ(TXIntegrate(plain.get(), &t, search.T, z), 1);
    EXPECT_NEAR(determinant(search.Phi, 2) / std::exp(z[2]), 1, 1e-6);
    search.expect_multipliers(std::exp(z[2]));
}

// The hyperplane through a point serves as section too, and orbits are the same on any.
TEST(AutonomousOrbit, WorksOnTheHyperplane) {
    Search search(VanDerPol::flow, 1e-10, 1.5, -1);
    TXSetCut(search.tx.get(), nullptr, 1e-9);
    EXPECT_EQ(search.run(), 0);
    EXPECT_EQ(TXErrorTrajex(search.tx.get()), 8);  // no section yet
    ASSERT_EQ(TXSetAutoCut(search.tx.get(), 0, search.y), 1);
    for (const double t : {0.0, 100.0}) {
        search.y[0] = 1.5, search.y[1] = -1;
        ASSERT_EQ(search.run(1, t), 1) << "started at " << t;
        EXPECT_NEAR(search.T, 6.66328685932, 1e-6);
        EXPECT_LT(std::fabs(TXAutoCut(search.tx.get(), 0, search.y)), 1e-8);
    }
}

double height_above_a_tenth(double, double* y) {
    return y[1] - 0.1;
}

// A weakly attracting circle on a section that it crosses aslant: corrections leave the section,
// and steps are so short that not even extrapolation finds it again. It is then regained along the
// trajectory, from before it and from beyond it.
TEST(AutonomousOrbit, RegainsTheSectionAlongTheTrajectory) {
    const Temporarily weak(Cycle::a, 0.04);
    for (const double guess : {0.12, 0.3}) {
        Search search(Cycle::flow, 1e-9, guess, 0.09);
        TXSetCut(search.tx.get(), height_above_a_tenth, 1e-8);
        TXSetMaxStep(search.tx.get(), 1e-3);
        TXSetMaxPeriodSteps(search.tx.get(), 20000);
        ASSERT_EQ(search.run(), 1);
        EXPECT_NEAR(search.T, 2 * pi, 1e-6);
        EXPECT_NEAR(std::hypot(search.y[0], search.y[1]), 0.2, 1e-6);
        EXPECT_NEAR(search.y[1], 0.1, 1e-8);
    }
}

TEST(AutonomousOrbit, FailsWithoutACodeWhereTheSectionIsNotReached) {
    for (const int limit : {0, 1, 3}) {
        Search search(Cycle::flow, 1e-10, 0.1, 0.1);
        TXSetMaxPeriodSteps(search.tx.get(), limit);
        EXPECT_EQ(search.run(), 0);
        EXPECT_EQ(TXErrorTrajex(search.tx.get()), 0);
        EXPECT_EQ(search.tx->nparam, 1);
        EXPECT_EQ(search.T, -1);
    }
}

int evaluations = 0;
int good_evaluations = 0;
void failing_cycle(double t, double* y, double* f) {
    Cycle::flow(t, y, f);
    if (++evaluations > good_evaluations) f[0] = not_a_number;
}

// From any evaluation on the flow may be undefined: the search ends soon, with the code of the step
// that could not be made, and never claims an orbit.
TEST(AutonomousOrbit, EndsWithTheCodeOfAFailingStep) {
    int failures = 0;
    for (const int good : {0, 1, 9, 50, 400, 1000, 3000}) {
        evaluations = 0;
        good_evaluations = good;
        Search search(failing_cycle, 1e-8, 1.2, 0.1);
        if (search.run() == 1) {
            EXPECT_LE(evaluations, good);
            continue;
        }
        ++failures;
        const int code = TXErrorTrajex(search.tx.get());
        EXPECT_TRUE(code == 29 || code == 30);
        EXPECT_LT(evaluations, good + 5000);
    }
    EXPECT_GE(failures, 6);

    evaluations = 0;
    good_evaluations = 100;
    Search forced(failing_cycle, 1e-8, 1.2, 0.1);
    EXPECT_EQ(TXNonAutoOrbit(forced.tx.get(), 0, forced.y, forced.Phi, 2 * pi), 0);
    EXPECT_EQ(TXErrorTrajex(forced.tx.get()), 29);
}

}  // namespace
