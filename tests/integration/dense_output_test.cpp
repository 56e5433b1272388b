// Dense output of the last step.
#include "integration/dense_output.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "handles.hpp"
#include "systems.hpp"
#include "tx.h"

namespace {

using testing_support::open_recording;
using testing_support::open_terminating;
using testing_support::OpenHandle;
using testing_support::Oscillator;
using testing_support::TwistAndDecay;

constexpr double start[] = {0.8, 0.6, 1};

/// Largest error of dense output between the `from`th and the `to`th tenth of a step of size h.
double interpolation_error(double h, int from, int to) {
    const OpenHandle tx = open_terminating(TwistAndDecay::flow, 3, 0, h);
    double y[] = {0.8, 0.6, 1};
    double exact[3];
    double t = 1;
    TXStep(tx.get(), &t, y);
    double largest = 0;
    for (int tenth = from; tenth <= to; ++tenth) {
        const double at = 1 + h * tenth / 10;
        TXInterpolate(tx.get(), at, y);
        TwistAndDecay::solution(1, start, at, exact);
        for (int i = 0; i < 3; ++i) largest = std::max(largest, std::fabs(y[i] - exact[i]));
    }
    return largest;
}

TEST(DenseOutput, HasTheErrorOfItsOrder) {
    for (const double h : {0.025, 0.0125}) {
        EXPECT_NEAR(std::log2(interpolation_error(2 * h, 1, 9) / interpolation_error(h, 1, 9)), 7,
                    0.15);
    }
}

TEST(DenseOutput, ExtrapolatesThePolynomial) {
    for (const int from : {-2, 11}) {
        const double coarse = interpolation_error(0.05, from, from + 1);
        const double fine = interpolation_error(0.025, from, from + 1);
        EXPECT_NEAR(std::log2(coarse / fine), 7, 0.3);
    }
}

TEST(DenseOutput, MeetsTheEndsAndLeavesTheStepAlone) {
    const OpenHandle tx = open_terminating(TwistAndDecay::flow, 3, 1e-6, 0.1);
    double y[] = {0.8, 0.6, 1};
    double t = 0.5;
    ASSERT_EQ(TXStep(tx.get(), &t, y), 1);
    const std::vector<double> stages(tx->k, tx->k + 8 * 3);
    const double h = tx->h;
    double first[3];
    double last[3];
    for (int again = 0; again < 2; ++again) {
        ASSERT_EQ(TXInterpolate(tx.get(), tx->tfirst, first), 1);
        ASSERT_EQ(TXInterpolate(tx.get(), tx->tlast, last), 1);
        for (int i = 0; i < 3; ++i) {
            EXPECT_DOUBLE_EQ(first[i], start[i]);
            EXPECT_DOUBLE_EQ(last[i], y[i]);
            EXPECT_EQ(tx->yfirst[i], start[i]);
            EXPECT_EQ(tx->ylast[i], y[i]);
        }
    }
    EXPECT_EQ(stages, std::vector<double>(tx->k, tx->k + 8 * 3));
    EXPECT_EQ(tx->tfirst, 0.5);
    EXPECT_EQ(tx->tlast, t);
    EXPECT_EQ(tx->h, h);
}

TEST(DenseOutput, IsRefusedWithoutAStep) {
    const OpenHandle tx = open_recording(Oscillator::flow, 2);
    double y[] = {7, 8};
    EXPECT_EQ(TXInterpolate(tx.get(), 0, y), 0);
    EXPECT_EQ(tx->ErrorCode, 12);
    EXPECT_EQ(y[0], 7);
    EXPECT_EQ(y[1], 8);
}

}  // namespace
