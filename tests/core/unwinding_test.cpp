// Every operation is interrupted at every place where it calls back or asks for memory. What it
// promises to put back is back, and another run on the same handle gives what it gives on a new
// one, to the last bit. Leaks are the business of the sanitizers.
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <tuple>
#include <vector>

#include "allocation.hpp"
#include "operations.hpp"
#include "tx.h"

namespace {

using namespace testing_support;

class Interrupted : public testing::TestWithParam<std::tuple<Jacobians, Operation>> {
  protected:
    const Jacobians jacobians_ = std::get<Jacobians>(GetParam());
    const Operation operation_ = std::get<Operation>(GetParam());

    std::vector<double> outcome_on(Bench& bench) const {
        const int result = operation_.run(bench);
        return bench.outcome(result);
    }

    void expect_restored(const Bench& bench) const {
        EXPECT_EQ(bench.tx->nparam, 2);
        EXPECT_EQ(bench.tx->TerminateOnFatalError, 0);
        const Trajex& sub = *bench.tx->TX;
        for (int i = 0; i < 4; ++i) EXPECT_EQ(sub.j[i + 1] - sub.j[i], 5) << "rows are shifted";
        EXPECT_EQ(sub.j[0], bench.first_row);
        if (operation_.restores == Restores::nothing) return;
        EXPECT_EQ(Bench::A, 1);
        if (operation_.restores == Restores::other_parameter) return;
        EXPECT_EQ(Bench::B, bench.entry_B);
        EXPECT_EQ(bench.tx->cp[0] + bench.tx->cp[1], 2);
        if (operation_.restores == Restores::parameters) return;
        EXPECT_EQ(bench.t, 0);
        EXPECT_EQ(bench.y[0], bench.entry_y[0]);
        EXPECT_EQ(bench.y[1], bench.entry_y[1]);
    }

    /// `interrupted(nth, bench)` runs the operation and tells whether it came as far as place nth.
    /// Taken are each of the first places, then ever fewer of the later ones. Returns their number.
    template <class Interruption>
    int interrupt_everywhere(Interruption interrupted) const {
        Bench undisturbed(jacobians_);
        const std::vector<double> expected = outcome_on(undisturbed);
        EXPECT_EQ(expected.front(), 1) << "the operation does not succeed undisturbed";
        int interruptions = 0;
        for (int nth = 1; !HasFailure(); nth += 1 + nth / 32, ++interruptions) {
            SCOPED_TRACE("place " + std::to_string(nth));
            Bench bench(jacobians_);
            if (!interrupted(nth, bench)) break;
            expect_restored(bench);
            bench.restart();
            EXPECT_EQ(outcome_on(bench), expected);
        }
        return interruptions;
    }
};

INSTANTIATE_TEST_SUITE_P(
    Operation, Interrupted,
    testing::Combine(testing::Values(Jacobians::analytic, Jacobians::numerical),
                     testing::ValuesIn(operations())),
    [](const auto& of) {
        const bool analytic = std::get<Jacobians>(of.param) == Jacobians::analytic;
        return std::get<Operation>(of.param).name + (analytic ? "Analytic" : "Numerical");
    });

bool throws_at(int nth, const Operation& operation, Bench& bench) {
    callbacks_left = nth;
    try {
        operation.run(bench);
    } catch (const Thrown&) {
        return true;
    }
    callbacks_left = 0;
    return false;
}

TEST_P(Interrupted, ByACallbackThatThrows) {
    EXPECT_GT(interrupt_everywhere(
                  [this](int nth, Bench& bench) { return throws_at(nth, operation_, bench); }),
              0);
}

TEST_P(Interrupted, ByAnAllocationThatFails) {
    interrupt_everywhere([this](int nth, Bench& bench) {
        int result = 0;
        bool failed = false;
        {
            const FailingAllocation failing(nth);
            result = operation_.run(bench);
            failed = failing.failed();
        }
        // A search for a bifurcation that finds no memory is one that failed: the run goes on with
        // smaller steps, until they are too small.
        const int code = bench.tx->ErrorCode;
        EXPECT_TRUE(!failed || (result == 0 && (code == 3 || code == 29))) << code;
        return failed;
    });
}

// A step that was interrupted is no step, also after rejected attempts: the caller has what it had,
// and dense output does not mix it with the step before.
TEST(InterruptedStep, IsNoStepForDenseOutput) {
    Bench bench(Jacobians::analytic);
    double* const state = bench.y;
    ASSERT_EQ(TXStep(bench.tx.get(), &bench.t, state), 1);
    ASSERT_EQ(TXVarStep(bench.tx.get(), &bench.t, state, bench.Phi), 1);
    const std::array<double, 3> before{bench.t, state[0], state[1]};
    bench.tx->h = bench.tx->TX->h = 10;
    for (const Operation& operation : operations()) {
        if (operation.name != "Step" && operation.name != "VarStep") continue;
        ASSERT_TRUE(throws_at(30, operation, bench));
        EXPECT_EQ((std::array<double, 3>{bench.t, state[0], state[1]}), before);
    }
    EXPECT_EQ(TXInterpolate(bench.tx.get(), 0.01, state), 0);
    EXPECT_EQ(bench.tx->ErrorCode, 12);
    EXPECT_EQ(TXVarInterpolate(bench.tx.get(), 0.01, state, bench.Phi), 0);
}

}  // namespace
