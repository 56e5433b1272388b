// Every allocation fails in turn, in every operation: it is told, what the operation promises to
// put back is back, and another run on the same handle gives what it gives on a new one.
#include "allocation.hpp"

#include "operations.hpp"
#include "support.hpp"

namespace {

/// Runs the operation with the first allocation failing, then the second, until it needs no more;
/// expect(nth, failed, result) after each.
void fail_in_turn(auto operation, auto expect) {
    bool failed = true;
    int nth = 0;
    while (failed && ++nth < 1000) {
        SCOPED_TRACE(testing::Message() << "allocation " << nth);
        int result = 0;
        {
            const FailingAllocation failing(nth);
            result = operation();
            failed = failing.failed();
        }
        EXPECT_EQ(result, failed ? 0 : 1);
        expect(nth, failed);
    }
    EXPECT_FALSE(failed);
}

TEST(FailedAllocation, IsToldByEveryOperation) {
    for (const bool analytic : {true, false}) {
        for (const Operation& operation : operations()) {
            SCOPED_TRACE(operation.name);
            Bench undisturbed(analytic);
            const std::vector<double> expected = undisturbed.outcome(operation.run(undisturbed));
            auto bench = std::make_unique<Bench>(analytic);
            fail_in_turn([&] { return operation.run(*bench); },
                         [&](int, bool failed) {
                             EXPECT_EQ(bench->tx->ErrorCode, failed ? 3 : 0);
                             EXPECT_EQ(bench->tx->nparam, 2);
                             EXPECT_TRUE(operation.restores == Restores::nothing || bench->c2 == 2);
                             bench->restart();
                             EXPECT_EQ(bench->outcome(operation.run(*bench)), expected);
                             bench.reset();
                             bench = std::make_unique<Bench>(analytic);
                         });
        }
    }
}

// A search in a run that finds no memory ends it.
TEST(FailedAllocation, EndsARunThatSearches) {
    static double c = 0;
    constexpr Flow pitchfork = [](auto, auto y, auto f) { f[0] = c * y[0] - y[0] * y[0] * y[0]; };
    OpenHandle tx;
    double y = 0, dc = 0;
    const auto reopen = [&] {
        tx = open_variational(pitchfork, 1, nullptr, nullptr, 1e-9, &c);
        tx->LambdaNewtRelTol = 1e-6;
        tx->MaxContSteps = 8;
        y = 0, dc = 0.1, c = -0.35;
    };
    reopen();
    fail_in_turn([&] { return TXNonAutoCont(tx.get(), 0, &y, 1, &c, &dc, 0, 0); },
                 [&](int, bool failed) {
                     EXPECT_EQ(tx->ErrorCode, failed ? 3 : 0);
                     reopen();
                 });
}

// Its record needs five pieces of memory, and so does that of a handle, which ends the process
// without; then come rows and elements of its matrix, and the table of parameters with its flags.
// What was registered by an opening before it stays until all is there.
TEST(FailedAllocationDeathTest, IsToldByOpening) {
    static double a = 1, b = 2;
    constexpr int codes[] = {15, 15, 15, 15, 15, 3, 15, 3, 3};
    const auto open = [](Trajex* tx, auto... parameters) {
        return TXVarOpenTrajex(tx, Oscillator::jacobian, int(sizeof...(parameters)), jac_t{}, 1e-6,
                               parameters...);
    };
    OpenHandle tx = open_recording(Oscillator::flow, 2);
    open(tx.get(), &a);
    fail_in_turn([&] { return open(tx.get(), &a, &b); },
                 [&](int nth, bool failed) {
                     ASSERT_EQ(failed, nth <= int(std::size(codes)));
                     EXPECT_EQ(tx->ErrorCode, failed ? codes[nth - 1] : 0);
                     EXPECT_TRUE(tx->nparam == (failed ? 1 : 2) && tx->c[0] == &a);
                     EXPECT_EQ(open(tx.get(), &a), 1);
                 });
    for (int nth = 1; nth <= 5; ++nth) {
        const auto open_handle = [nth] {
            const FailingAllocation failing(nth);
            TXOpenTrajex(Oscillator::flow, 2, 1e-6, 0.01);
        };
        EXPECT_EXIT(open_handle(), ExitedWithCode(1), "'TXOpenTrajex': Not enough memory\n");
    }
}

}  // namespace
