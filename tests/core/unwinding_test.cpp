// Every operation is interrupted at every place where it calls back: by an exception, or by a
// value that is no number from there on. What it promises to put back is back, and another run on
// the same handle gives what it gives on a new one, to the last bit. Leaks are the business of the
// sanitizers; allocations that fail, of the tests beside the fuzzer.

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

// Taken are each of the first calls, then ever fewer of the later ones.
TEST_P(Interrupted, PutsBackWhatItPromisesAndCanBeRepeated) {
    const auto& [analytic, operation] = GetParam();
    Bench undisturbed(analytic);
    Probe::set(Probe::never);
    const std::vector<double> expected = undisturbed.outcome(operation.run(undisturbed));
    const long calls = Probe::calls;
    ASSERT_EQ(expected.front(), 1) << "code " << expected[1];
    ASSERT_GT(calls, 0);
    for (const bool throws : {true, false}) {
        for (long granted = 0; granted < calls; granted += 1 + granted / 2) {
            SCOPED_TRACE(testing::Message() << (throws ? "throws" : "NaN") << " after " << granted);
            Bench bench(analytic);
            Probe::set(granted, throws);
            int result = 0;
            try {
                result = operation.run(bench);
                EXPECT_FALSE(throws);
            } catch (const Probe::Thrown&) {
            }
            Probe::set(Probe::never);
            if (result == 0) expect_restored(bench, operation.restores);
            bench.restart();
            EXPECT_EQ(bench.outcome(operation.run(bench)), expected);
        }
    }
}

}  // namespace
