// Every allocation fails in turn, in every operation: it is told, what the operation promises to
// put back is back, and another run on the same handle gives what it gives on a new one.
#include <gtest/gtest.h>

#include <cstdlib>
#include <utility>
#include <vector>

#include "allocation.hpp"
#include "operations.hpp"
#include "tx.h"

namespace {

using namespace testing_support;
using testing::ExitedWithCode;

TEST(FailedAllocation, IsToldByEveryOperation) {
    for (const bool analytic : {true, false}) {
        for (const Operation& operation : operations()) {
            Bench undisturbed(analytic);
            const std::vector<double> expected = undisturbed.outcome(operation.run(undisturbed));
            bool failed = true;
            for (int nth = 1; failed; ++nth) {
                SCOPED_TRACE(testing::Message() << operation.name << ", allocation " << nth);
                Bench bench(analytic);
                int result = 0;
                {
                    const FailingAllocation failing(nth);
                    result = operation.run(bench);
                    failed = failing.failed();
                }
                EXPECT_EQ(result, failed ? 0 : 1);
                // A search in a run that finds no memory is one that failed: it takes smaller
                // steps.
                const int code = bench.tx->ErrorCode;
                EXPECT_TRUE(code == (failed ? 3 : 0) || (failed && code == 29)) << code;
                EXPECT_EQ(bench.tx->nparam, 2);
                EXPECT_TRUE(operation.restores == Restores::nothing || bench.c2 == 2);
                bench.restart();
                EXPECT_EQ(bench.outcome(operation.run(bench)), expected);
            }
        }
    }
}

/// Opens with the nth allocation failing; the process ends with what became of it.
template <class Open>
void expect_told_by_opening(Open open) {
    constexpr int succeeded = 17, told = 18, wrong = 19;
    bool opened = false;
    int nth = 0;
    while (!opened) {
        ASSERT_LT(++nth, 100);
        const auto attempt = [&] { std::exit(open(nth) ? succeeded : wrong); };
        const auto as_expected = [&](int status) {
            opened = ExitedWithCode(succeeded)(status);
            return opened || ExitedWithCode(1)(status) || ExitedWithCode(told)(status);
        };
        EXPECT_EXIT(attempt(), as_expected, "^$|OpenTrajex': Not enough memory\n");
    }
    EXPECT_GT(nth, 2) << "no allocation was made to fail";
}

TEST(FailedAllocationDeathTest, IsToldByOpening) {
    expect_told_by_opening([](int nth) {
        bool failed = false;
        Trajex* tx = nullptr;
        {
            const FailingAllocation failing(nth);
            tx = TXOpenTrajex(Oscillator::flow, 2, 1e-6, 0.01);
            failed = failing.failed();
        }
        TXCloseTrajex(tx);
        return !failed;
    });
    // What was registered by an opening before it stays.
    static double a = 1, b = 2;
    expect_told_by_opening([](int nth) {
        const OpenHandle tx = open_recording(Oscillator::flow, 2);
        TXVarOpenTrajex(tx.get(), Oscillator::jacobian, 1, jac_t{}, 1e-6, &a);
        int result = 0;
        bool failed = false;
        {
            const FailingAllocation failing(nth);
            result = TXVarOpenTrajex(tx.get(), Oscillator::jacobian, 2, jac_t{}, 1e-6, &a, &b);
            failed = failing.failed();
        }
        if (!failed) return result == 1;
        const bool told = result == 0 && (tx->ErrorCode == 15 || tx->ErrorCode == 3);
        const bool kept = tx->nparam == 1 && tx->c[0] == &a;
        if (told && kept && TXVarOpenTrajex(tx.get(), Oscillator::jacobian, 0) == 1) std::exit(18);
        return false;
    });
}

}  // namespace
