// Poincare sections: crossings of the harmonic oscillator, whose times are known, and cut functions
// that cannot be bracketed.
#include "integration/section.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "handles.hpp"
#include "systems.hpp"
#include "tx.h"

namespace {

using testing_support::first_component;
using testing_support::open_recording;
using testing_support::open_terminating;
using testing_support::OpenHandle;
using testing_support::Oscillator;
using testing_support::pi;

constexpr double not_a_number = std::numeric_limits<double>::quiet_NaN();

thread_local int evaluations = 0;

void counted_oscillator(double t, double* y, double* f) {
    ++evaluations;
    Oscillator::flow(t, y, f);
}

double jump(double, double* y) {
    return y[0] > 0 ? 1 : -1;
}

double undefined_between(double, double* y) {
    return std::fabs(y[0]) < 0.05 ? not_a_number : y[0];
}

double undefined_at_first(double t, double* y) {
    return t == 0 ? not_a_number : y[0];
}

double undefined_later(double t, double*) {
    return t == 0 ? 1 : not_a_number;
}

double constant(double, double*) {
    return 1;
}

// Fixed steps, so that the evaluations can be counted: 8 for a step, 4 more where it is crossed,
// however long the bisection takes.
TEST(PoincareStep, FindsEveryCrossingOnce) {
    const OpenHandle tx = open_terminating(counted_oscillator, 2, 0, 0.0625);
    ASSERT_EQ(TXSetCut(tx.get(), first_component, 1e-8), 1);
    double y[] = {1, 0};
    double t = 0;
    for (int crossing = 0; crossing < 6;) {
        const double before = y[0];
        evaluations = 0;
        if (TXPoincareStep(tx.get(), &t, y) == 0) {
            EXPECT_EQ(tx->ErrorCode, 0);
            EXPECT_EQ(evaluations, 8);
            ASSERT_LT(t, 20);
            continue;
        }
        EXPECT_EQ(evaluations, 12);
        EXPECT_NEAR(t, (crossing + 0.5) * pi, 3e-8);
        EXPECT_LT(std::fabs(y[0]), 1e-8);
        EXPECT_LT(before * y[0], 0) << "not beyond the section";
        EXPECT_LE(tx->tfirst, t);
        EXPECT_GE(tx->tlast, t);
        ++crossing;
    }
}

TEST(PoincareStep, StartsOnThePositiveSideAtZero) {
    const OpenHandle tx = open_terminating(counted_oscillator, 2, 0, 0.0625);
    ASSERT_EQ(TXSetCut(tx.get(), first_component, 1e-8), 1);
    double up[] = {0, 1};
    double down[] = {0, -1};
    double t = 0;
    EXPECT_EQ(TXPoincareStep(tx.get(), &t, up), 0);
    t = 0;
    EXPECT_EQ(TXPoincareStep(tx.get(), &t, down), 1);
    EXPECT_LT(down[0], 0);
}

TEST(PoincareStep, EndsWhereNoCrossingCanBeBracketed) {
    for (const auto cut : {jump, undefined_between}) {
        const OpenHandle tx = open_recording(counted_oscillator, 2, 0, 0.5);
        ASSERT_EQ(TXSetCut(tx.get(), cut, 1e-8), 1);
        for (const int limit : {0, 100, 3}) {
            ASSERT_EQ(TXSetMaxPoincareSteps(tx.get(), limit), 1);
            double y[] = {std::sin(0.25), -std::cos(0.25)};
            double t = 0;
            EXPECT_EQ(TXPoincareStep(tx.get(), &t, y), 0);
            EXPECT_EQ(tx->ErrorCode, 13);
            EXPECT_GT(t, 0);
            EXPECT_LT(t, 0.5);
            EXPECT_DOUBLE_EQ(tx->tlast, 0.5);
        }
    }
    // Without a limit a crossing is still found.
    const OpenHandle tx = open_recording(counted_oscillator, 2, 0, 0.0625);
    TXSetCut(tx.get(), first_component, 1e-12);
    TXSetMaxPoincareSteps(tx.get(), 0);
    double y[] = {std::sin(0.03), -std::cos(0.03)};
    double t = 0;
    EXPECT_EQ(TXPoincareStep(tx.get(), &t, y), 1);
    EXPECT_NEAR(t, 0.03, 1e-11);
}

TEST(PoincareStep, TakesNoCrossingFromAnUndefinedCut) {
    for (const auto cut : {undefined_at_first, undefined_later}) {
        const OpenHandle tx = open_recording(counted_oscillator, 2, 0, 0.5);
        ASSERT_EQ(TXSetCut(tx.get(), cut, 1e-8), 1);
        double y[] = {std::sin(0.25), -std::cos(0.25)};
        double t = 0;
        EXPECT_EQ(TXPoincareStep(tx.get(), &t, y), 0);
        EXPECT_EQ(tx->ErrorCode, 0);
        EXPECT_EQ(t, 0.5);
    }
}

void not_defined(double, double*, double* f) {
    f[0] = f[1] = not_a_number;
}

TEST(PoincareStep, PassesAFailedStepOn) {
    const OpenHandle tx = open_recording(not_defined, 2);
    ASSERT_EQ(TXSetCut(tx.get(), first_component, 1e-8), 1);
    double y[] = {1, 0};
    double t = 0;
    EXPECT_EQ(TXPoincareStep(tx.get(), &t, y), 0);
    EXPECT_EQ(tx->ErrorCode, 29);
    EXPECT_EQ(t, 0);
}

TEST(Hyperplane, StandsAcrossTheFlow) {
    const OpenHandle tx = open_recording(counted_oscillator, 2, 0, 0.0625);
    double y[] = {3, 4};
    ASSERT_EQ(TXSetAutoCut(tx.get(), 0, y), 1);
    double state[2];
    double normal[2];
    ASSERT_EQ(TXCutSurface(tx.get(), state, normal), 1);
    EXPECT_EQ(state[0], 3);
    EXPECT_EQ(state[1], 4);
    EXPECT_DOUBLE_EQ(normal[0], 0.8);
    EXPECT_DOUBLE_EQ(normal[1], -0.6);
    EXPECT_EQ(TXAutoCut(tx.get(), 0, y), 0);
    double beside[] = {3 + 0.8 * 0.25 + 0.6, 4 - 0.6 * 0.25 + 0.8};
    EXPECT_DOUBLE_EQ(TXAutoCut(tx.get(), 0, beside), 0.25);

    // The flow returns to its starting point after one period; a cut function takes precedence,
    // and no cut function brings the hyperplane back.
    ASSERT_EQ(TXSetCut(tx.get(), first_component, 1e-8), 1);
    ASSERT_EQ(TXSetCut(tx.get(), nullptr, 1e-8), 1);
    double t = 0;
    int crossings = 0;
    while (crossings < 2) {
        crossings += TXPoincareStep(tx.get(), &t, y);
        ASSERT_LT(t, 7);
    }
    EXPECT_NEAR(t, 2 * pi, 1e-8);
    EXPECT_NEAR(y[0], 3, 1e-7);
    EXPECT_NEAR(y[1], 4, 1e-7);
}

TEST(Hyperplane, RefusesWhatCannotBeCut) {
    const OpenHandle tx = open_recording(counted_oscillator, 2);
    double y[] = {1, 0};
    double state[] = {5, 5};
    double normal[] = {6, 6};
    EXPECT_EQ(TXAutoCut(tx.get(), 0, y), 0);
    EXPECT_EQ(tx->ErrorCode, 8);
    EXPECT_EQ(TXCutSurface(tx.get(), state, normal), 0);
    EXPECT_EQ(tx->ErrorCode, 8);
    EXPECT_EQ(state[0] + normal[1], 11);
    double t = 0;
    EXPECT_EQ(TXPoincareStep(tx.get(), &t, y), 0);  // the step is taken, no section is seen
    EXPECT_EQ(tx->ErrorCode, 8);
    EXPECT_GT(t, 0);

    double rest[] = {0, 0};
    EXPECT_EQ(TXSetAutoCut(tx.get(), 0, rest), 0);
    EXPECT_EQ(tx->ErrorCode, 10);
    EXPECT_EQ(tx->CutSurfaceDefined, 0);

    for (const double eps : {0.0, -1e-8, not_a_number}) {
        EXPECT_EQ(TXSetCut(tx.get(), first_component, eps), 0);
        EXPECT_EQ(tx->ErrorCode, 16);
        EXPECT_EQ(tx->cut, nullptr);
        EXPECT_DOUBLE_EQ(tx->CutEps, 1e-5);
    }
}

// From either side of the section, moving either way: the point just beyond it, as the flow goes.
TEST(ClosestCut, MovesToTheNearbyPointBeyondTheSection) {
    for (const double speed : {1.0, -1.0}) {
        for (const double away : {-0.02, 0.0, 0.02}) {
            const OpenHandle tx = open_recording(counted_oscillator, 2, 0, 0.0625);
            ASSERT_EQ(TXSetCut(tx.get(), first_component, 1e-9), 1);
            double y[] = {speed * std::sin(away), speed * std::cos(away)};
            double t = away;
            ASSERT_EQ(CLOSESTCUT(tx.get(), &t, y), 1);
            EXPECT_NEAR(t, 0, 1e-8);
            EXPECT_GE(speed * y[0], 0);
            EXPECT_LE(speed * y[0], 1e-9);
            EXPECT_NEAR(y[1], speed, 1e-8);
        }
    }
}

TEST(ClosestCut, GivesUpQuietly) {
    const OpenHandle tx = open_terminating(counted_oscillator, 2, 0, 0.0625);
    for (const auto cut : {constant, undefined_later}) {
        ASSERT_EQ(TXSetCut(tx.get(), cut, 1e-9), 1);
        double y[] = {1, 0};
        double t = 0;
        EXPECT_EQ(CLOSESTCUT(tx.get(), &t, y), 0);
        EXPECT_EQ(tx->ErrorCode, 0);
    }
}

}  // namespace
