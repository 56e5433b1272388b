// Integration to a given time, and whole trajectories against a plain statement of the method.
#include "integration/trajectory.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "handles.hpp"
#include "integration/textbook.hpp"
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

thread_local int evaluations = 0;

void counted_oscillator(double t, double* y, double* f) {
    ++evaluations;
    Oscillator::flow(t, y, f);
}

/// A driven ring of n units: every component feels its neighbour and the time.
template <int n>
void ring(double t, double* y, double* f) {
    for (int i = 0; i < n; ++i) {
        f[i] = std::sin(3 * y[(i + 1) % n]) - 0.3 * y[i] + std::cos(t + i);
    }
}

struct Ring {
    int n;
    textbook::RightHandSide f;
};

class Textbook : public testing::TestWithParam<Ring> {};

INSTANTIATE_TEST_SUITE_P(Orders, Textbook,
                         testing::Values(Ring{1, ring<1>}, Ring{2, ring<2>}, Ring{3, ring<3>},
                                         Ring{4, ring<4>}, Ring{5, ring<5>}, Ring{8, ring<8>},
                                         Ring{10, ring<10>}, Ring{11, ring<11>}, Ring{50, ring<50>},
                                         Ring{200, ring<200>}),
                         [](const auto& of) { return std::to_string(of.param.n); });

textbook::Vector start_of(int n) {
    textbook::Vector y(static_cast<std::size_t>(n));
    for (int i = 0; i < n; ++i) y[static_cast<std::size_t>(i)] = 1 + 0.1 * i;
    return y;
}

// Every step, its size and the proposed one, then the dense output at the end: the same bits. The
// first step size is far too large, so that attempts are rejected too.
TEST_P(Textbook, TrajectoriesAreTheSameToTheLastBit) {
    const auto [n, f] = GetParam();
    for (const double tolerance : {1e-3, 1e-6, 1e-10}) {
        SCOPED_TRACE(tolerance);
        const OpenHandle tx = open_recording(f, n, tolerance, 2);
        ASSERT_EQ(TXSetAbsTol(tx.get(), tolerance / 10), 1);
        textbook::Integrator plain{f, static_cast<std::size_t>(n), tolerance, tolerance / 10, 2};
        textbook::Vector y = start_of(n);
        textbook::Vector expected = y;
        int steps = 0;
        for (double t = 0; t < 10; ++steps) {
            ASSERT_EQ(TXStep(tx.get(), &t, y.data()), 1);
            plain.step(plain.t_end, expected);
            expected = plain.end;
            ASSERT_EQ(t, plain.t_end);
            ASSERT_EQ(tx->h, plain.h);
            ASSERT_EQ(y, expected);
            const double inside = tx->tfirst + 0.3 * (tx->tlast - tx->tfirst);
            textbook::Vector between(y);
            ASSERT_EQ(TXInterpolate(tx.get(), inside, between.data()), 1);
            ASSERT_EQ(between, plain.dense_output(inside));
        }
        EXPECT_GT(plain.attempts, steps) << "no attempt was rejected";

        const OpenHandle whole = open_recording(f, n, tolerance, 2);
        TXSetAbsTol(whole.get(), tolerance / 10);
        textbook::Vector end = start_of(n);
        double t = 0;
        ASSERT_EQ(TXIntegrate(whole.get(), &t, 9.9, end.data()), 1);
        textbook::Integrator again{f, static_cast<std::size_t>(n), tolerance, tolerance / 10, 2};
        textbook::Vector state = start_of(n);
        while (again.t_end < 9.9) {
            again.step(again.t_end, state);
            state = again.end;
        }
        EXPECT_EQ(end, again.dense_output(9.9));
        EXPECT_EQ(whole->h, again.h);
        EXPECT_EQ(whole->tlast, again.t_end);
        EXPECT_EQ(textbook::Vector(whole->ylast, whole->ylast + n), again.end);
    }
}

TEST(Integrate, MeetsTheToleranceOverManySteps) {
    for (const double tolerance : {1e-6, 1e-10}) {
        const OpenHandle tx = open_recording(TwistAndDecay::flow, 3, tolerance);
        const double start[] = {1, 0.5, 2};
        double y[] = {1, 0.5, 2};
        double exact[3];
        double t = 0.25;
        ASSERT_EQ(TXSetAbsTol(tx.get(), tolerance), 1);
        ASSERT_EQ(TXIntegrate(tx.get(), &t, 5, y), 1);
        TwistAndDecay::solution(0.25, start, 5, exact);
        for (int i = 0; i < 3; ++i) EXPECT_NEAR(y[i], exact[i], 100 * tolerance);
    }
}

TEST(Integrate, ToTheSameTimeChangesNothing) {
    const OpenHandle tx = open_recording(counted_oscillator, 2);
    double y[] = {1, 2};
    double t = 3;
    evaluations = 0;
    EXPECT_EQ(TXIntegrate(tx.get(), &t, 3, y), 1);
    EXPECT_EQ(evaluations, 0);
    EXPECT_EQ(t, 3);
    EXPECT_EQ(y[0], 1);
    EXPECT_EQ(y[1], 2);
    EXPECT_EQ(tx->StepTaken, 0);
    EXPECT_EQ(tx->h, 0.01);
}

TEST(Integrate, RefusesTimesThatAreNotAhead) {
    const OpenHandle tx = open_recording(counted_oscillator, 2);
    double y[] = {1, 2};
    double t = 3;
    evaluations = 0;
    for (const double t1 : {2.999, -infinity, infinity, not_a_number}) {
        SCOPED_TRACE(t1);
        EXPECT_EQ(TXIntegrate(tx.get(), &t, t1, y), 0);
        EXPECT_EQ(tx->ErrorCode, 7);
        EXPECT_EQ(t, 3);
        EXPECT_EQ(y[0], 1);
        EXPECT_EQ(tx->StepTaken, 0);
    }
    double undefined = not_a_number;
    EXPECT_EQ(TXIntegrate(tx.get(), &undefined, 1, y), 0);
    EXPECT_EQ(tx->ErrorCode, 7);
    EXPECT_EQ(evaluations, 0);
}

// The last step ends beyond the end time, and the handle describes it; the next integration starts
// from the end time all the same.
TEST(Integrate, OvershootsAndInterpolates) {
    const OpenHandle tx = open_terminating(Oscillator::flow, 2, 1e-9, 0.3);
    double y[] = {1, 0};
    double t = 0;
    ASSERT_EQ(TXIntegrate(tx.get(), &t, 1, y), 1);
    EXPECT_EQ(t, 1);
    EXPECT_NEAR(y[0], std::cos(1.0), 1e-7);
    EXPECT_GT(tx->tlast, 1);
    EXPECT_LT(tx->tfirst, 1);
    double later[2];
    ASSERT_EQ(TXInterpolate(tx.get(), tx->tlast, later), 1);
    EXPECT_NEAR(later[0], std::cos(tx->tlast), 1e-7);

    const double last = tx->tlast;
    ASSERT_EQ(TXIntegrate(tx.get(), &t, 0.5 * (1 + last), y), 1);
    EXPECT_EQ(tx->tfirst, 1);
    EXPECT_NEAR(y[0], std::cos(t), 1e-7);
}

TEST(Integrate, LandsWithoutInterpolationWhereAStepEnds) {
    const OpenHandle tx = open_terminating(counted_oscillator, 2, 0, 0.25);
    double y[] = {1, 0};
    double t = 0;
    evaluations = 0;
    ASSERT_EQ(TXIntegrate(tx.get(), &t, 1, y), 1);
    EXPECT_EQ(evaluations, 4 * 8);
    EXPECT_EQ(t, 1);
    EXPECT_EQ(y[0], tx->ylast[0]);
}

}  // namespace
