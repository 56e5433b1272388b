// Runs that are refused, that fail, or that meet what is easily taken for something else: nothing
// of the application's is lost, and nothing is reported that is not there.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "allocation.hpp"
#include "continuation/recorder.hpp"
#include "core/guards.hpp"
#include "handles.hpp"
#include "systems.hpp"
#include "tx.h"

namespace {

using namespace testing_support;
using trajex::Temporarily;

double c = 0, other = 0;

void line(double, double* y, double* f) {
    f[0] = c - y[0];
}
void ends_at_half(double, double* y, double* f) {
    f[0] = c > 0.5 ? not_a_number : c - y[0];
}
void pitchfork(double, double* y, double* f) {
    f[0] = c * y[0] - y[0] * y[0] * y[0];
}
/// A pitchfork that is located but not classified: the last component of its eigenvector is 0.
void unclassified(double t, double* y, double* f) {
    pitchfork(t, y, f);
    f[1] = std::cos(t) - y[1];
}
/// Hopf bifurcations of one equilibrium at c = 0 and, with another frequency, at c = 0.05.
void two_hopf_points(double, double* y, double* f) {
    for (const int k : {0, 2}) {
        const double growth = c - (k == 0 ? 0 : 0.05) - y[k] * y[k] - y[k + 1] * y[k + 1];
        f[k] = growth * y[k] - (1 + k) * y[k + 1];
        f[k + 1] = growth * y[k + 1] + (1 + k) * y[k];
    }
}
/// A cycle that grows up to c = 1.5.
void cycle_up_to(double t, double* y, double* f) {
    const Temporarily radius(Cycle::a, c);
    Cycle::flow(t, y, f);
    if (c > 1.5) f[0] = not_a_number;
}

TEST(RunLimits, ABifurcationIsOneOfTheStep) {
    const Temporarily start(c, -0.01);
    const OpenHandle tx = open_study(two_hopf_points, 4, c);
    tx->MaxContSteps = 12;
    double y[4] = {};
    Recording run;
    ASSERT_EQ(run.equilibria(tx, y, c, 0.05), 1);
    const Points found = run.located();
    ASSERT_EQ(found.size(), 2U);
    EXPECT_NEAR(found[0].c[0], 0, 1e-6);
    EXPECT_NEAR(found[1].c[0], 0.05, 1e-6);
}

// Nothing has changed, not even a record been made.
TEST(RunLimits, AStepThatIsNoLengthIsRefused) {
    for (const double dc : {infinity, -infinity, not_a_number}) {
        const Temporarily start(c, 0.25);
        const OpenHandle tx = open_study(line, 1, c, other);
        double y = 7, T = 8;
        Recording run;
        const auto expect_refused = [&](int result) {
            EXPECT_EQ(result, 0);
            EXPECT_EQ(tx->ErrorCode, 29);
            EXPECT_TRUE(run.points.empty());
            EXPECT_EQ(y + c + tx->cp[0] + tx->cp[1], 7.25);
        };
        expect_refused(run.equilibria(tx, &y, c, dc));
        expect_refused(run.forced(tx, &y, T, c, dc));
        run.T = T;
        expect_refused(run.cycles(tx, &y, 1, c, dc));
        EXPECT_TRUE(run.T == T && tx->txb == nullptr);
        start_at(*tx, {7});
        for (const auto kind : {TXEqui2DCont, TXAuto2DCont, TXNonAuto2DCont}) {
            expect_refused(run.curve(kind, tx, c, other, dc));
            EXPECT_EQ(tx->txb->cindi[0] + tx->txb->cindi[2], 0);
        }
    }
}

// The autonomous run as well where not even a step to the section can be made, under either policy.
TEST(RunLimits, AFailedRunIsAtItsLastPoint) {
    for (const int kind : {0, 1, 2}) {
        const Temporarily start(c, kind == 2 ? 1.0 : 0.0);
        const OpenHandle tx =
            open_study(kind == 2 ? cycle_up_to : ends_at_half, kind == 2 ? 2 : 1, c);
        double y[] = {kind == 2 ? 1.1 : 0, 0.1};
        Recording run;
        const auto follow = [&] {
            return kind == 0   ? run.equilibria(tx, y, c, 0.15)
                   : kind == 1 ? run.forced(tx, y, 1, c, 0.15)
                               : run.cycles(tx, y, 1, c, 0.15);
        };
        EXPECT_EQ(follow(), 0);
        EXPECT_EQ(tx->ErrorCode, 29);
        ASSERT_FALSE(run.points.empty());
        const Point& last = run.points.back();
        EXPECT_NEAR(last.c[0], kind == 2 ? 1.5 : 0.5, 1e-4);
        EXPECT_EQ(last.y, std::vector(y, y + tx->order));
        EXPECT_TRUE(kind != 2 || run.T == last.T);
        expect_stopped_at(*tx, last);
        tx->TerminateOnFatalError = 1;
        run.dc = 0.15;
        EXPECT_EXIT(follow(), testing::ExitedWithCode(1), "Minimum stepsize reached");
    }
}

TEST(RunLimits, ASearchWithoutMemoryEndsTheRun) {
    Recording run;
    bool failed = true;
    for (int nth = 1; failed && nth < 500; ++nth) {
        const Temporarily start(c, -0.35);
        const OpenHandle tx = open_study(pitchfork, 1, c);
        tx->MaxContSteps = 8;
        double y = 0, dc = 0.1;
        int result = 0;
        {
            const FailingAllocation failing(nth);
            result = TXNonAutoCont(tx.get(), 0, &y, 1, &c, &dc, 0, 0);
            failed = failing.failed();
        }
        EXPECT_EQ(result, failed ? 0 : 1) << nth;
        EXPECT_EQ(tx->ErrorCode == 3, failed) << nth;
    }
    EXPECT_FALSE(failed);
}

TEST(RunLimits, ASearchInVainLeavesNothingInTheRecord) {
    const Temporarily start(c, -0.2);
    const OpenHandle tx = open_study(unclassified, 2, c);
    TrajexBif& bif = *(tx->txb = TXCreateBif(tx.get()));
    double* const vectors[] = {bif.trans, bif.tang, bif.intang, bif.top,
                               bif.bot,   bif.left, bif.right};
    for (double* const vector : vectors) std::fill_n(vector, 2, 77.0);
    bif.ctop = bif.Ttop = 78;
    double y[] = {0, 0.5};
    Recording run;
    EXPECT_EQ(run.forced(tx, y, 2 * pi, c, 0.05), 0);
    EXPECT_NE(run.text.find(" Checking bifurcation "), std::string::npos);
    for (const double* const vector : vectors) EXPECT_EQ(vector[0] + vector[1], 154);
    EXPECT_EQ(bif.ctop + bif.Ttop, 156);
}

// The state of a run may be that of the record, or one of the orbits in it, as where a run starts
// on a branch that an earlier one has found. It is the same run as with variables outside, also
// over a bifurcation, which is located in the record, and where a record with more room is made.
TEST(RunLimits, AStateInTheRecordIsCopied) {
    double &A = Brusselator::A, &B = Brusselator::B;
    Points expected;
    for (const bool reopened : {false, true}) {
        for (const auto vector : {&TrajexBif::y, &TrajexBif::top, &TrajexBif::left}) {
            const Temporarily start(B, 1.7);
            const OpenHandle tx = open_study(Brusselator::flow, 2, B);
            start_at(*tx, {1, 1.7});
            double outside[] = {1, 1.7};
            tx->MaxContSteps = 8;
            Recording run;
            if (expected.empty()) {
                ASSERT_EQ(run.equilibria(tx, outside, B, 0.1), 1);
                ASSERT_EQ(run.located().size(), 1U);
                expected = run.points;
                B = 1.7;
            }
            double* const inside = tx->txb->*vector;
            inside[0] = 1, inside[1] = 1.7;
            if (reopened) TXVarOpenTrajex(tx.get(), nullptr, 1e-6, 2, nullptr, 1e-6, &B, &A);
            ASSERT_EQ(run.equilibria(tx, inside, B, 0.1), 1);
            ASSERT_EQ(run.points.size(), expected.size());
            for (std::size_t i = 0; i < expected.size(); ++i) {
                EXPECT_EQ(run.points[i].y, expected[i].y) << i;
            }
            if (reopened) continue;  // the old record is gone
            EXPECT_EQ(std::vector(inside, inside + 2), expected.back().y);
        }
    }
    const OpenHandle tx = open_study(Cycle::flow, 2, Cycle::a);
    start_at(*tx, {1.1, 0.1});
    const Temporarily start(Cycle::a, 1.0);
    tx->MaxContSteps = 4;
    double dc = 0.1;
    ASSERT_EQ(TXAutoCont(tx.get(), 0, tx->txb->y, 1, &tx->txb->Ttop, &Cycle::a, &dc, 0, 0), 1);
    EXPECT_NEAR(std::fabs(tx->txb->y[0]), std::sqrt(Cycle::a), 1e-6);
    EXPECT_EQ(tx->txb->Ttop, tx->txb->T);
}

// In the order of what is wrong first; the flags stay as they were.
TEST(RunLimits, CurvesTestTheirParametersFirst) {
    const OpenHandle tx = open_study(line, 1, c, other);
    TXSetCut(tx.get(), nullptr, 1e-9);
    start_at(*tx, {0}, 1);
    tx->cp[0] = tx->cp[1] = 0;
    double stranger = 0;
    Recording run;
    for (const auto kind : {TXEqui2DCont, TXAuto2DCont, TXNonAuto2DCont}) {
        for (double* const second : {&c, &stranger}) {
            EXPECT_EQ(run.curve(kind, tx, c, *second, 0.1), 0);
            EXPECT_EQ(tx->ErrorCode, 26);
            EXPECT_EQ(tx->cp[0] + tx->cp[1], 0);
        }
    }
    EXPECT_EQ(run.curve(TXAuto2DCont, tx, c, other, 0.1), 0);
    EXPECT_EQ(tx->ErrorCode, 8);
}

// A guess that is the trivial solution but for less than the tolerance is one that does not move.
TEST(RunLimits, ABranchThatStandsStillIsFollowedInTheParameter) {
    for (const bool forced : {false, true}) {
        for (const double guess : {1e-12, 1e-10, -1e-9}) {
            for (const double direction : {1, -1}) {
                const Temporarily start(c, -0.5 * direction);
                const OpenHandle tx = open_study(pitchfork, 1, c);
                tx->MaxContSteps = 20;
                double y = guess;
                Recording run;
                const double step = 0.1 * direction;
                ASSERT_EQ(forced ? run.forced(tx, &y, 1, c, step) : run.equilibria(tx, &y, c, step),
                          1)
                    << guess;
                EXPECT_GT(c * direction, 0.5);
                EXPECT_NEAR(y, 0, 1e-7);
                ASSERT_EQ(run.located().size(), 1U);
                EXPECT_NEAR(run.located()[0].c[0], 0, 1e-6);
            }
        }
    }
}

}  // namespace
