// One step: its orders, the law of the step size, and the ways in which a step can fail.
#include "integration/stepper.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

#include "handles.hpp"
#include "systems.hpp"
#include "tx.h"

namespace {

using testing_support::open_recording;
using testing_support::open_terminating;
using testing_support::OpenHandle;
using testing_support::Oscillator;
using testing_support::TwistAndDecay;

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double not_a_number = std::numeric_limits<double>::quiet_NaN();

/// Largest errors, after one step of size h, of the solution and of its estimate of order 5.
struct StepErrors {
    double sixth = 0;
    double estimate = 0;

    explicit StepErrors(double h) {
        const OpenHandle tx = open_terminating(TwistAndDecay::flow, 3, 0, h);
        const double start[] = {0.8, 0.6, 1};
        double y[] = {0.8, 0.6, 1};
        double exact[3];
        double t = 1;
        TXStep(tx.get(), &t, y);
        TwistAndDecay::solution(1, start, t, exact);
        for (int i = 0; i < 3; ++i) {
            sixth = std::max(sixth, std::fabs(y[i] - exact[i]));
            estimate = std::max(estimate, tx->abs_err[i]);
        }
    }
};

TEST(Step, HasTheLocalErrorsOfItsOrders) {
    for (const double h : {0.025, 0.0125}) {
        const StepErrors coarse(2 * h);
        const StepErrors fine(h);
        EXPECT_NEAR(std::log2(coarse.sixth / fine.sixth), 7, 0.15);
        EXPECT_NEAR(std::log2(coarse.estimate / fine.estimate), 6, 0.15);
    }
}

TEST(Step, DescribesItselfInTheHandle) {
    const OpenHandle tx = open_terminating(Oscillator::flow, 2, 1e-6, 0.1);
    double y[] = {1, 2};
    double t = 0.5;
    ASSERT_EQ(TXStep(tx.get(), &t, y), 1);
    EXPECT_EQ(tx->tfirst, 0.5);
    EXPECT_EQ(tx->tlast, 0.6);
    EXPECT_EQ(t, 0.6);
    EXPECT_EQ(tx->StepTaken, 1);
    EXPECT_EQ(tx->yfirst[0], 1);
    EXPECT_EQ(tx->yfirst[1], 2);
    for (int i = 0; i < 2; ++i) EXPECT_EQ(tx->ylast[i], y[i]);
    EXPECT_EQ(tx->k[0], 2);
    EXPECT_EQ(tx->k[1], -1);
}

void constant_speed(double, double*, double* f) {
    f[0] = 1;
}

TEST(Step, FollowsTheLawOfTheStepSize) {
    const OpenHandle tx = open_terminating(Oscillator::flow, 2, 1e-7, 0.1);
    ASSERT_EQ(TXSetAbsTol(tx.get(), 1e-9), 1);
    double y[] = {1, 2};
    double t = 0;
    ASSERT_EQ(TXStep(tx.get(), &t, y), 1);
    double squares = 0;
    for (int i = 0; i < 2; ++i) {
        const double term = tx->abs_err[i] / (1e-9 + std::fabs(tx->y6[i]) * 1e-7);
        squares += term * term;
    }
    const double err = std::sqrt(squares);
    ASSERT_LE(err, 1);
    EXPECT_EQ(tx->h, 0.1 * (0.625 / std::sqrt(std::sqrt(err)) + 0.2));

    // No error, no change; growth stops at hmax, and so does a first step beyond it.
    EXPECT_EQ(trajex::next_step_size(0.1, 0, 0), 0.1);
    EXPECT_DOUBLE_EQ(trajex::next_step_size(0.1, 1, 0), 0.0825);
    EXPECT_DOUBLE_EQ(trajex::next_step_size(0.1, 1e-8, 0), 6.27);
    EXPECT_EQ(trajex::next_step_size(0.1, 1e-8, 0.15), 0.15);
    for (const double err_of_rejection : {infinity, not_a_number}) {
        EXPECT_EQ(trajex::next_step_size(0.1, err_of_rejection, 0), 0.1 * 0.2);
    }
    const OpenHandle limited = open_terminating(constant_speed, 1, 1e-6, 0.1);
    ASSERT_EQ(TXSetMaxStep(limited.get(), 0.05), 1);
    for (int step = 1; step <= 3; ++step) {
        double y1[] = {1};
        double t1 = 0;
        ASSERT_EQ(TXStep(limited.get(), &t1, y1), 1);
        EXPECT_EQ(t1, 0.05);
        EXPECT_DOUBLE_EQ(y1[0], 1.05);
        EXPECT_LE(limited->h, 0.05);
    }
}

TEST(Step, IsFixedWithoutTolerances) {
    const OpenHandle tx = open_terminating(Oscillator::flow, 2, 0, 0.5);
    double y[] = {1, 0};
    double t = 0;
    for (int step = 1; step <= 20; ++step) {
        ASSERT_EQ(TXStep(tx.get(), &t, y), 1);
        EXPECT_EQ(t, 0.5 * step);
        EXPECT_EQ(tx->h, 0.5);
    }
}

// What the right-hand side sees of its caller during the attempts of one step.
struct Watched {
    const Trajex* tx;
    const double* t;
    const double* y;
    int evaluations;
    int changes;
};
thread_local Watched watched{};

void watching_oscillator(double t, double* y, double* f) {
    ++watched.evaluations;
    watched.changes += *watched.t != 1 || watched.y[0] != 1 || watched.y[1] != 0 ||
                       watched.tx->tlast != 1 || watched.tx->ylast[0] != 1;
    Oscillator::flow(t, y, f);
}

TEST(Step, RejectedAttemptsLeaveTheCallerAlone) {
    const OpenHandle tx = open_terminating(watching_oscillator, 2, 1e-10, 10);
    double y[] = {1, 0};
    double t = 1;
    tx->tlast = 1;
    tx->ylast[0] = 1;
    watched = {tx.get(), &t, y, 0, 0};
    ASSERT_EQ(TXStep(tx.get(), &t, y), 1);
    EXPECT_GT(watched.evaluations, 8) << "no attempt was rejected";
    EXPECT_EQ(watched.evaluations % 8, 0);
    EXPECT_EQ(watched.changes, 0);
    EXPECT_NEAR(y[0], std::cos(t - 1), 1e-9);
}

thread_local int stage = 0;

// In the first attempt only the stage that the solution of order 6 does not use is different from
// zero: an estimated error in a component that is exactly zero.
void nothing_but_an_error(double, double* y, double* f) {
    f[0] = ++stage == 6 ? 1 : 0;
    f[1] = -y[1];
}

TEST(Step, TakesZeroWeightsForWhatTheyAre) {
    const OpenHandle tx = open_terminating(nothing_but_an_error, 2, 1e-6, 0.01);
    double y[] = {0, 1};
    double t = 0;
    stage = 0;
    ASSERT_EQ(TXStep(tx.get(), &t, y), 1);
    EXPECT_EQ(stage, 16);
    EXPECT_EQ(t, 0.01 * 0.2);
    ASSERT_EQ(TXStep(tx.get(), &t, y), 1);  // no error at all over the zero weight
    EXPECT_EQ(stage, 24);
    EXPECT_EQ(y[0], 0);
}

void not_defined(double, double*, double* f) {
    f[0] = not_a_number;
}

void unbounded(double, double*, double* f) {
    f[0] = infinity;
}

void ends_at_one(double t, double* y, double* f) {
    f[0] = t <= 1 ? -y[0] : not_a_number;
}

void blows_up(double, double* y, double* f) {  // y = 1 / (1 - t)
    f[0] = y[0] * y[0];
}

TEST(Step, EndsWithACodeWhereTheSystemIsNotDefined) {
    for (const double tolerance : {1e-6, 0.0}) {
        for (const auto f : {not_defined, unbounded}) {
            const OpenHandle tx = open_recording(constant_speed, 1, tolerance, 0.01);
            double y[] = {1};
            double t = 2;
            ASSERT_EQ(TXStep(tx.get(), &t, y), 1);
            const std::array<double, 3> before{t, y[0], tx->h};
            tx->fcn = f;
            EXPECT_EQ(TXStep(tx.get(), &t, y), 0);
            EXPECT_EQ(tx->ErrorCode, 29);
            EXPECT_EQ((std::array<double, 3>{t, y[0], tx->h}), before);
            EXPECT_EQ(tx->StepTaken, 0);
            EXPECT_EQ(TXIntegrate(tx.get(), &t, 3, y), 0);
            EXPECT_EQ(tx->ErrorCode, 29);
            EXPECT_EQ((std::array<double, 3>{t, y[0], tx->h}), before);
            tx->fcn = constant_speed;
            EXPECT_EQ(TXStep(tx.get(), &t, y), 1);
        }
    }
}

TEST(Step, StopsAtTheEndOfTheSolution) {
    for (const auto f : {ends_at_one, blows_up}) {
        const OpenHandle tx = open_recording(f, 1, 1e-6, 0.01);
        double y[] = {1};
        double t = 0;
        EXPECT_EQ(TXIntegrate(tx.get(), &t, 2, y), 0);
        EXPECT_EQ(tx->ErrorCode, 29);
        EXPECT_EQ(t, 0);
        EXPECT_EQ(y[0], 1);
        EXPECT_EQ(tx->h, 0.01);
        EXPECT_EQ(tx->StepTaken, 0);
        int steps = 0;
        while (TXStep(tx.get(), &t, y) == 1) ASSERT_LT(++steps, 5000);
        EXPECT_EQ(tx->ErrorCode, 29);
        EXPECT_NEAR(t, 1, 1e-5);
    }
}

TEST(Step, RefusesStepSizesThatDoNotMoveTheTime) {
    const OpenHandle tx = open_recording(constant_speed, 1);
    for (const double h : {0.0, -0.01, 1e-20, 1e-320, infinity, not_a_number}) {
        SCOPED_TRACE(h);
        tx->h = h;
        double y[] = {1};
        double t = 1;
        EXPECT_EQ(TXStep(tx.get(), &t, y), 0);
        EXPECT_EQ(tx->ErrorCode, 29);
        EXPECT_EQ(t, 1);
    }
}

TEST(StepDeathTest, ReportsUnderTheNameOfTheOperation) {
    const OpenHandle tx = open_terminating(not_defined, 1);
    double y[] = {1};
    double t = 0;
    EXPECT_EXIT(TXStep(tx.get(), &t, y), testing::ExitedWithCode(1),
                "'TXStep': Minimum stepsize reached");
    EXPECT_EXIT(TXIntegrate(tx.get(), &t, 1, y), testing::ExitedWithCode(1),
                "'TXIntegrate': Minimum stepsize reached");
}

}  // namespace
