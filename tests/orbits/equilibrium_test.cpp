// The search for equilibria.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "core/guards.hpp"
#include "handles.hpp"
#include "systems.hpp"
#include "tx.h"

namespace {

using namespace testing_support;

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

// From a guess, from the equilibrium itself, and from anywhere when there are no tolerances.
TEST(EquiPoint, TakesOneCorrectionWhereTheSystemIsLinear) {
    struct {
        double RelTol, guess[2], end[2];
        int evaluations;
    } const cases[] = {
        {1e-6, {0, 0}, {1, -2}, 2}, {1e-6, {1, -2}, {1, -2}, 1}, {0, {5, 6}, {5, 6}, 1}};
    for (const auto& c : cases) {
        const OpenHandle tx = open_recording(shifted, 2, c.RelTol);
        ASSERT_EQ(TXVarOpenTrajex(tx.get(), identity, 0), 1);
        tx->NewtAbsTol = c.RelTol * 1e-4;
        double y[] = {c.guess[0], c.guess[1]};
        evaluations = jacobians = 0;
        EXPECT_EQ(TXEquiPoint(tx.get(), y), 1);
        EXPECT_EQ(y[0], c.end[0]);
        EXPECT_EQ(y[1], c.end[1]);
        EXPECT_EQ(evaluations, c.evaluations);
        EXPECT_EQ(jacobians, c.evaluations - 1);
    }
}

TEST(EquiPoint, FindsTheEquilibriumOfLorenz) {
    const trajex::Temporarily rho(Lorenz::rho, 10.0);
    const OpenHandle tx = open_recording(Lorenz::flow, 3, 1e-12);
    ASSERT_EQ(TXVarOpenTrajex(tx.get(), nullptr, 1e-7, 0), 1);
    tx->NewtAbsTol = 1e-12;
    double y[] = {4, 6, 8};
    ASSERT_EQ(TXEquiPoint(tx.get(), y), 1);
    const double exact[] = {std::sqrt(24.0), std::sqrt(24.0), 9};
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(y[i], exact[i], 1e-10);
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
    struct {
        void (*f)(double, double*, double*);
        jac_t jac;
        double guess;
        int limit;
        bool found;
    } const cases[] = {{root_of_two, slope_of_root, 1, 5, false},
                       {root_of_two, slope_of_root, 1, 6, true},
                       {root_of_two, slope_of_root, std::sqrt(2.0), 1, false},
                       {arctangent, slope_of_arctangent, 20, 100, false},
                       {no_root, slope_of_root, 0.3, 30, false},
                       {undefined_right, nullptr, 0, 10, false},
                       {undefined_right, nullptr, 3, 10, false}};
    for (const auto& c : cases) {
        const OpenHandle tx = open_variational(c.f, 1, c.jac, nullptr, 1e-10);
        TXSetMaxNewtSteps(tx.get(), c.limit);
        tx->NewtRelTol = 0;
        double y[] = {c.guess};
        EXPECT_EQ(TXEquiPoint(tx.get(), y), c.found);
        EXPECT_EQ(tx->ErrorCode, c.found ? 0 : 30);
        EXPECT_NEAR(y[0], c.found ? std::sqrt(2.0) : c.guess, c.found ? 1e-9 : 0);
    }
}

}  // namespace
