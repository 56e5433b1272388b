// Every operation is interrupted at every place where it calls back, by an exception or by a value
// that is no number from there on, and at every place where it takes memory. What it promises to
// put back is back, and another run on the same handle gives what it gives on a new one, to the
// last bit. Leaks are the business of the sanitizers.
#include "allocation.hpp"

#include "operations.hpp"
#include "support.hpp"

namespace {

class Interrupted : public testing::TestWithParam<std::tuple<bool, Operation>> {};

INSTANTIATE_TEST_SUITE_P(Operation, Interrupted,
                         testing::Combine(testing::Bool(), testing::ValuesIn(operations())),
                         [](const auto& of) {
                             return std::get<1>(of.param).name +
                                    (std::get<0>(of.param) ? "Analytic" : "Numerical");
                         });

void expect_restored(const Bench& bench, Restores restores) {
    EXPECT_EQ(bench.tx->nparam, 2);
    EXPECT_EQ(bench.tx->TerminateOnFatalError, 0);
    const Trajex& sub = *bench.tx->TX;
    for (int i = 0; i < 4; ++i) EXPECT_EQ(sub.j[i + 1] - sub.j[i], 5) << "rows are shifted";
    EXPECT_EQ(sub.j[0], bench.first_row);
    if (restores == Restores::nothing) return;
    EXPECT_EQ(bench.c2, 2);
    if (restores == Restores::other_parameter) return;
    EXPECT_EQ(bench.c1, bench.entry_c1);
    EXPECT_EQ(bench.tx->cp[0] + bench.tx->cp[1], 2);
    if (restores == Restores::parameters) return;
    EXPECT_EQ(bench.t, 0);
    EXPECT_TRUE(std::equal(bench.y, bench.y + 2, bench.entry_y));
}

enum Interruption { exception, no_number, no_memory };

struct Attempt {
    int result = 0;
    bool interrupted = false;
};

/// Runs the operation with the interruption after so many calls or allocations, if there are more.
Attempt attempt(const Operation& operation, Bench& bench, Interruption by, long granted) {
    Attempt a;
    if (by == no_memory) {
        const FailingAllocation failing(int(granted) + 1);
        a.result = operation.run(bench);
        a.interrupted = failing.failed();
        return a;
    }
    Probe::set(granted, by == exception);
    try {
        a.result = operation.run(bench);
        EXPECT_TRUE(by == no_number || Probe::calls <= granted) << "an exception got lost";
    } catch (const Probe::Thrown&) {
    }
    a.interrupted = Probe::calls > granted;
    Probe::set(Probe::never);
    return a;
}

// Taken are each of the first calls, then ever fewer of the later ones, and each allocation.
TEST_P(Interrupted, PutsBackWhatItPromisesAndCanBeRepeated) {
    const auto& [analytic, operation] = GetParam();
    Bench undisturbed(analytic);
    const std::vector<double> expected = undisturbed.outcome(operation.run(undisturbed));
    ASSERT_EQ(expected.front(), 1) << "code " << expected[1];
    for (const Interruption by : {exception, no_number, no_memory}) {
        bool interrupted = true;
        for (long granted = 0; interrupted; granted += by == no_memory ? 1 : 1 + granted / 2) {
            SCOPED_TRACE(testing::Message() << "interruption " << by << " after " << granted);
            Bench bench(analytic);
            const Attempt made = attempt(operation, bench, by, granted);
            interrupted = made.interrupted;
            ASSERT_TRUE(interrupted || granted > 0 || by == no_memory);
            if (by == no_memory) {
                EXPECT_EQ(made.result, interrupted ? 0 : 1);
                EXPECT_EQ(bench.tx->ErrorCode, interrupted ? 3 : 0);
            }
            if (made.result == 0) expect_restored(bench, operation.restores);
            bench.restart();
            EXPECT_EQ(bench.outcome(operation.run(bench)), expected);
        }
    }
}

// A sub-record needs five pieces of memory, and so does that of a handle, which ends the process
// without; then come rows and elements of its matrix, and the table of parameters with its flags.
// What was registered by an opening before it stays until all is there.
TEST(OpeningDeathTest, TellsThatThereIsNoMemory) {
    static double a = 1, b = 2;
    constexpr int codes[] = {15, 15, 15, 15, 15, 3, 15, 3, 3, 0};
    const auto open = [](Trajex* tx, auto... parameters) {
        return TXVarOpenTrajex(tx, Oscillator::jacobian, int(sizeof...(parameters)), jac_t{}, 1e-6,
                               parameters...);
    };
    const OpenHandle tx = open_recording(Oscillator::flow, 2);
    open(tx.get(), &a);
    for (int nth = 1; nth <= int(std::size(codes)); ++nth) {
        SCOPED_TRACE(testing::Message() << "allocation " << nth);
        const int code = codes[nth - 1];
        const auto [opened, failed] = [&] {
            const FailingAllocation failing(nth);
            return std::pair{open(tx.get(), &a, &b), failing.failed()};
        }();
        EXPECT_TRUE(opened == (code == 0) && failed == (code != 0));
        EXPECT_EQ(tx->ErrorCode, code);
        EXPECT_TRUE(tx->nparam == (code == 0 ? 2 : 1) && tx->c[0] == &a);
        EXPECT_EQ(open(tx.get(), &a), 1);
    }
    for (int nth = 1; nth <= 5; ++nth) {
        const auto open_handle = [nth] {
            const FailingAllocation failing(nth);
            TXOpenTrajex(Oscillator::flow, 2, 1e-6, 0.01);
        };
        EXPECT_EXIT(open_handle(), ExitedWithCode(1), "'TXOpenTrajex': Not enough memory\n");
    }
}

}  // namespace
