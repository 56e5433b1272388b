// Whole trajectories against a plain statement of the method, and the times that are refused.
#include "integration/trajectory.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "handles.hpp"
#include "integration/textbook.hpp"
#include "systems.hpp"
#include "tx.h"

namespace {

using namespace testing_support;
using textbook::Vector;

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double not_a_number = std::numeric_limits<double>::quiet_NaN();

/// A driven ring of n units: every component feels its neighbour and the time.
template <int n>
void driven_ring(double t, double* y, double* f) {
    for (int i = 0; i < n; ++i) {
        f[i] = std::sin(3 * y[(i + 1) % n]) - 0.3 * y[i] + std::cos(t + i);
    }
}

struct Ring {
    int n;
    textbook::RightHandSide f;
};

/// The library and the textbook side by side, from a step size that is far too large.
struct SideBySide {
    OpenHandle tx;
    textbook::Integrator plain;
    Vector y;
    double t = 0;

    SideBySide(const Ring& ring, double tolerance)
        : tx(open_recording(ring.f, ring.n, tolerance, 2)),
          plain{ring.f, static_cast<std::size_t>(ring.n), tolerance, tolerance / 10, 2} {
        TXSetAbsTol(tx.get(), tolerance / 10);
        for (int i = 0; i < ring.n; ++i) y.push_back(1 + 0.1 * i);
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
    for (const Ring& ring :
         {Ring{1, driven_ring<1>}, Ring{2, driven_ring<2>}, Ring{3, driven_ring<3>},
          Ring{4, driven_ring<4>}, Ring{5, driven_ring<5>}, Ring{8, driven_ring<8>},
          Ring{10, driven_ring<10>}, Ring{11, driven_ring<11>}, Ring{50, driven_ring<50>},
          Ring{200, driven_ring<200>}}) {
        for (const double tolerance : {1e-3, 1e-6, 1e-10}) {
            SCOPED_TRACE(testing::Message() << "order " << ring.n << ", tolerance " << tolerance);
            comparison(SideBySide(ring, tolerance));
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

thread_local int evaluations = 0;

void counted_oscillator(double t, double* y, double* f) {
    ++evaluations;
    Oscillator::flow(t, y, f);
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
        const OpenHandle tx = open_recording(counted_oscillator, 2, 0, 0.25);
        double y[] = {1, 2};
        double t = c.t;
        evaluations = 0;
        EXPECT_EQ(TXIntegrate(tx.get(), &t, c.t1, y), c.code == 0);
        EXPECT_EQ(tx->ErrorCode, c.code);
        EXPECT_EQ(evaluations, c.evaluations);
        EXPECT_EQ(tx->StepTaken, c.evaluations > 0);
        EXPECT_EQ(y[0], c.evaluations > 0 ? tx->ylast[0] : 1);
        EXPECT_TRUE(t == (c.code == 0 ? c.t1 : c.t) || std::isnan(c.t));
    }
}

}  // namespace
