// Whole trajectories, and the step as compiled for each instruction set, against a plain statement
// of the method; the times that are refused.
#include "integration/trajectory.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>

#include "core/simd.hpp"
#include "handles.hpp"
#include "integration/stepper.hpp"
#include "integration/textbook.hpp"
#include "systems.hpp"
#include "tx.h"

namespace {

using namespace testing_support;
using textbook::Vector;

/// A driven ring of `order` units: every component feels its neighbour and the time.
thread_local int order = 0;
void ring(double t, double* y, double* f) {
    for (int i = 0; i < order; ++i) {
        f[i] = std::sin(3 * y[(i + 1) % order]) - 0.3 * y[i] + std::cos(t + i);
    }
}
/// The same with a first unit that rests at zero: its error has no tolerance either.
void partly_resting_ring(double t, double* y, double* f) {
    ring(t, y, f);
    f[0] = -y[0];
}

/// The library and the textbook side by side, from a step size that is far too large.
struct SideBySide {
    OpenHandle tx;
    textbook::Integrator plain;
    Vector y;
    double t = 0;

    SideBySide(textbook::RightHandSide f, double RelTol, double AbsTol)
        : tx(open_recording(f, order, RelTol, 2)),
          plain{f, static_cast<std::size_t>(order), RelTol, AbsTol, 2} {
        TXSetAbsTol(tx.get(), AbsTol);
        for (int i = 0; i < order; ++i) y.push_back(1 + 0.1 * i);
    }
    Vector copy(const double* vector) const { return {vector, vector + y.size()}; }
    bool same_step() const {
        return tx->h == plain.h && tx->tfirst == plain.t_start && tx->tlast == plain.t_end &&
               copy(tx->yfirst) == plain.start && copy(tx->ylast) == plain.end &&
               copy(tx->k) == plain.F[0];
    }
};

/// Runs the comparison for the orders that the library treats differently, and three tolerances.
template <class Comparison>
void compare(Comparison&& comparison) {
    for (const int n : {1, 2, 3, 4, 5, 8, 10, 11, 50, 200}) {
        for (const double tolerance : {1e-3, 1e-6, 1e-10}) {
            SCOPED_TRACE(testing::Message() << "order " << n << ", tolerance " << tolerance);
            order = n;
            comparison(SideBySide(ring, tolerance, tolerance / 10));
        }
    }
}

TEST(Textbook, StepsAndDenseOutputAreTheSameToTheLastBit) {
    compare([](SideBySide run) {
        auto& [tx, plain, y, t] = run;
        int steps = 0;
        for (; t < 10; ++steps) {
            plain.step(t, y);
            ASSERT_EQ(TXStep(tx.get(), &t, y.data()), 1);
            ASSERT_EQ(t, plain.t_end);
            ASSERT_EQ(y, plain.end);
            Vector inside(y.size());
            for (const double part : {0.3, 1.0, 1.2}) {
                const double at = tx->tfirst + part * (tx->tlast - tx->tfirst);
                ASSERT_EQ(TXInterpolate(tx.get(), at, inside.data()), 1);
                ASSERT_EQ(inside, plain.dense_output(at));
            }
            ASSERT_TRUE(run.same_step()) << t;
        }
        EXPECT_GT(plain.attempts, steps) << "no attempt was rejected";
    });
}

// The last step ends beyond the end time; the next integration starts at the end time all the same.
TEST(Textbook, IntegrationsAreTheSameToTheLastBit) {
    compare([](SideBySide run) {
        auto& [tx, plain, y, t] = run;
        Vector expected = y;
        double reached = 0;
        for (const double t1 : {4.3, 9.9}) {
            for (; reached < t1; reached = plain.t_end, expected = plain.end) {
                plain.step(reached, expected);
            }
            expected = plain.dense_output(reached = t1);
            ASSERT_EQ(TXIntegrate(tx.get(), &t, t1, y.data()), 1);
            EXPECT_EQ(t, t1);
            EXPECT_EQ(y, expected);
            EXPECT_TRUE(run.same_step());
        }
    });
}

using Flow = const trajex::StateFlow*;
using Kernel = trajex::StepOutcome (*)(std::size_t n, Trajex* rec, const double* start, double t,
                                       double h, Flow flow);

/// Five steps of the kernel, each with all that it leaves behind, compared bit by bit.
void compare_steps(Kernel kernel, double AbsTol) {
    SideBySide run(partly_resting_ring, 1e-7, AbsTol);
    auto& [tx, plain, y, t] = run;
    y[0] = 0;
    const std::size_t n = y.size();
    const trajex::StateFlow flow{*tx, nullptr};
    double h = tx->h;
    for (int step = 0; step < 5; ++step, y = plain.end, t = plain.t_end) {
        plain.step(t, y);
        const trajex::StepOutcome taken = kernel(n, tx.get(), y.data(), t, h, &flow);
        h = taken.next_h;
        ASSERT_TRUE(taken.accepted);
        ASSERT_EQ(h, plain.h) << "n = " << n;
        ASSERT_EQ(run.copy(tx->yfirst), y);
        ASSERT_EQ(tx->tlast, plain.t_end);
        ASSERT_EQ(run.copy(tx->y6), plain.end);
        for (std::size_t j = 0; j < 8; ++j) ASSERT_EQ(run.copy(tx->k + j * n), plain.F[j]);
    }
}

TEST(Textbook, StepsAreTheSameWithEveryInstructionSet) {
    const Kernel baseline =
        trajex::run_for_baseline<trajex::RepeatAttempts<trajex::Pair>, std::size_t, Trajex*,
                                 const double*, double, double, Flow>;
    const Kernel avx2 = trajex::run_for_avx2<trajex::RepeatAttempts<trajex::Longest>, std::size_t,
                                             Trajex*, const double*, double, double, Flow>;
    for (order = 1; order <= 21; ++order) {
        for (const double AbsTol : {0.0, 1e-9}) {
            compare_steps(baseline, AbsTol);
            if (trajex::has_avx2()) compare_steps(avx2, AbsTol);
        }
    }
}

// Only times ahead are reached; where a fixed step ends, without an interpolation.
TEST(Integrate, EvaluatesNothingInVain) {
    struct {
        double t, t1;
        int code, evaluations;
    } const cases[] = {{3, 3, 0, 0},        {3, 2.999, 7, 0},        {3, -infinity, 7, 0},
                       {3, infinity, 7, 0}, {3, not_a_number, 7, 0}, {not_a_number, 1, 7, 0},
                       {3, 4, 0, 4 * 8}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.t << " to " << c.t1);
        const OpenHandle tx = open_recording(CountedOscillator::flow, 2, 0, 0.25);
        double y[] = {1, 2};
        double t = c.t;
        CountedOscillator::evaluations = 0;
        EXPECT_EQ(TXIntegrate(tx.get(), &t, c.t1, y), c.code == 0);
        EXPECT_EQ(tx->ErrorCode, c.code);
        EXPECT_EQ(CountedOscillator::evaluations, c.evaluations);
        EXPECT_EQ(tx->StepTaken, c.evaluations > 0);
        EXPECT_EQ(y[0], c.evaluations > 0 ? tx->ylast[0] : 1);
        EXPECT_TRUE(t == (c.code == 0 ? c.t1 : c.t) || std::isnan(c.t));
    }
}

}  // namespace
