// Locations and checks that an application calls itself, outside a run.
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

#include "core/guards.hpp"
#include "handles.hpp"
#include "tx.h"

using namespace testing_support;
using trajex::Temporarily;

namespace {

constexpr double period = 2 * std::numbers::pi;

double c = 0;

/// A forced oscillation y[0], and a pitchfork of y[1] at c = 0, defined up to |y[1]| = 3.
void bounded_pitchfork(double t, double* y, double* f) {
    f[0] = std::cos(t) - y[0];
    f[1] = std::fabs(y[1]) > 3 ? NAN : c * y[1] - y[1] * y[1] * y[1];
}

OpenHandle open_pitchfork() {
    OpenHandle tx = open_variational(bounded_pitchfork, 2, nullptr, nullptr, 1e-9, &c);
    tx->NewtRelTol = 1e-5;
    tx->LambdaNewtRelTol = 1e-6;
    return tx;
}

}  // namespace

TEST(DirectCalls, NeedARecord) {
    const OpenHandle tx = open_pitchfork();
    const auto code = [&](int result) { return result == 0 ? TXErrorTrajex(tx.get()) : -1; };
    EXPECT_EQ(code(TXLocateEquiBif(tx.get(), tx->txb, &c, nullptr)), 28);
    EXPECT_EQ(code(TXCheckEquiBif(tx.get(), tx->txb, &c, 0.1, nullptr)), 28);
    EXPECT_EQ(code(TXLocateBif(tx.get(), tx->txb, &c, 0, nullptr)), 28);
    EXPECT_EQ(code(TXCheckBif(tx.get(), tx->txb, &c, 0.1, 0, nullptr)), 28);
}

// Orbits that fail on the way are part of the search, also under the policy to end the process.
TEST(DirectCalls, AnswerUnderThePolicyToTerminate) {
    const Temporarily start(c, -0.2);
    const OpenHandle tx = open_pitchfork();
    tx->CheckBifs = 0;
    double y[] = {0.5, 0};
    double dc = 0.05;
    ASSERT_EQ(TXNonAutoCont(tx.get(), 0, y, period, &c, &dc, 1, 0), 1);
    TrajexBif& located = *tx->txb;
    const Temporarily terminating(tx->TerminateOnFatalError, 1);

    constexpr double too_far = 10;
    EXPECT_EQ(TXCheckBif(tx.get(), &located, &c, too_far, 0, nullptr), 1);
    EXPECT_STREQ(TrajexBifName[located.biftype], "PITCHFORK");

    located.y[1] = too_far;
    EXPECT_EQ(TXLocateBif(tx.get(), &located, &c, 0, nullptr), 0);
    EXPECT_NE(tx->TerminateOnFatalError, 0);
}
