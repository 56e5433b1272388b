// The search for equilibria.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "core/guards.hpp"
#include "handles.hpp"
#include "systems.hpp"
#include "tx.h"

namespace {

using testing_support::Lorenz;
using testing_support::open_recording;
using testing_support::OpenHandle;

thread_local int evaluations = 0;
thread_local int jacobians = 0;

void shifted(double, double* y, double* f) {
    ++evaluations;
    f[0] = y[0] - 1;
    f[1] = y[1] + 2;
}

void identity(double, double*, double** J) {
    ++jacobians;
    J[0][0] = J[1][1] = 1;
    J[0][1] = J[1][0] = 0;
}

TEST(EquiPoint, TakesOneCorrectionWhereTheSystemIsLinear) {
    const OpenHandle tx = open_recording(shifted, 2);
    ASSERT_EQ(TXVarOpenTrajex(tx.get(), identity, 0), 1);
    tx->NewtAbsTol = 1e-10;
    for (const int expected : {2, 1}) {  // from a guess, then from the equilibrium itself
        double y[] = {expected == 2 ? 0.0 : 1.0, expected == 2 ? 0.0 : -2.0};
        evaluations = jacobians = 0;
        EXPECT_EQ(TXEquiPoint(tx.get(), y), 1);
        EXPECT_EQ(y[0], 1);
        EXPECT_EQ(y[1], -2);
        EXPECT_EQ(evaluations, expected);
        EXPECT_EQ(jacobians, expected - 1);
    }
}

TEST(EquiPoint, FindsTheEquilibriumOfLorenz) {
    const trajex::Temporarily rho(Lorenz::rho, 10.0);
    const OpenHandle tx = open_recording(Lorenz::flow, 3, 1e-12);
    ASSERT_EQ(TXVarOpenTrajex(tx.get(), nullptr, 1e-7, 0), 1);
    tx->NewtAbsTol = 1e-12;
    double y[] = {4, 6, 8};
    ASSERT_EQ(TXEquiPoint(tx.get(), y), 1);
    EXPECT_NEAR(y[0], std::sqrt(24.0), 1e-10);
    EXPECT_NEAR(y[1], std::sqrt(24.0), 1e-10);
    EXPECT_NEAR(y[2], 9, 1e-10);
}

void root_of_two(double, double* y, double* f) {
    f[0] = y[0] * y[0] - 2;
}
void slope_of_root(double, double* y, double** J) {
    J[0][0] = 2 * y[0];
}
void arctangent(double, double* y, double* f) {  // Newton's method diverges beyond |y| = 1.39
    f[0] = std::atan(y[0]);
}
void slope_of_arctangent(double, double* y, double** J) {
    J[0][0] = 1 / (1 + y[0] * y[0]);
}
void no_root(double, double* y, double* f) {
    f[0] = y[0] * y[0] + 1;
}
void undefined_right(double, double* y, double* f) {
    f[0] = y[0] > 1 ? std::numeric_limits<double>::quiet_NaN() : y[0] - 2;
}

// Code 30, the guess back in place, whatever the reason.
TEST(EquiPoint, GivesTheGuessBackWhenItFails) {
    struct Failure {
        void (*f)(double, double*, double*);
        jac_t jac;
        double guess;
        int limit;
    };
    const Failure failures[] = {
        {root_of_two, slope_of_root, 1, 4},         {root_of_two, slope_of_root, std::sqrt(2.0), 1},
        {arctangent, slope_of_arctangent, 20, 100}, {no_root, slope_of_root, 0.3, 30},
        {undefined_right, nullptr, 0, 10},          {undefined_right, nullptr, 3, 10}};
    for (const Failure& failure : failures) {
        const OpenHandle tx = open_recording(failure.f, 1, 1e-12);
        if (failure.jac != nullptr) {
            ASSERT_EQ(TXVarOpenTrajex(tx.get(), failure.jac, 0), 1);
        } else {
            ASSERT_EQ(TXVarOpenTrajex(tx.get(), failure.jac, 1e-6, 0), 1);
        }
        TXSetMaxNewtSteps(tx.get(), failure.limit);
        tx->NewtAbsTol = 1e-8;
        tx->NewtRelTol = 0;
        double y[] = {failure.guess};
        EXPECT_EQ(TXEquiPoint(tx.get(), y), 0);
        EXPECT_EQ(tx->ErrorCode, 30);
        EXPECT_EQ(y[0], failure.guess);
    }
    // One iteration more, and the first of them succeeds.
    const OpenHandle tx = open_recording(root_of_two, 1, 1e-12);
    ASSERT_EQ(TXVarOpenTrajex(tx.get(), slope_of_root, 0), 1);
    double y[] = {1};
    EXPECT_EQ(TXEquiPoint(tx.get(), y), 1);
    EXPECT_NEAR(y[0], std::sqrt(2.0), 1e-9);
}

TEST(EquiPoint, TakesAnythingWithoutTolerances) {
    const OpenHandle tx = open_recording(shifted, 2, 0);
    ASSERT_EQ(TXVarOpenTrajex(tx.get(), identity, 0), 1);
    double y[] = {5, 6};
    EXPECT_EQ(TXEquiPoint(tx.get(), y), 1);
    EXPECT_EQ(y[0], 5);
    EXPECT_EQ(y[1], 6);
}

}  // namespace
