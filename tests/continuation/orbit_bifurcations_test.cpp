// Bifurcations found and classified on the way along branches of periodic orbits: exact ones, and
// those of well-known systems.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <string>
#include <vector>

#include "bifurcation/orbit_forms.hpp"
#include "core/guards.hpp"
#include "handles.hpp"
#include "systems.hpp"
#include "tx.h"

using namespace testing_support;
using trajex::Temporarily;

namespace {

/// A bifurcation as its report has it.
struct Found {
    int biftype;
    std::string title;
    double c;
    double T;
    int indir;
};

/// A run and what it reported.
class BranchRun {
  public:
    BranchRun(void (*fcn)(double, double*, double*), int order, double& parameter)
        : tx_(open_variational(fcn, order, nullptr, nullptr, 1e-9, &parameter)), c_(parameter) {
        tx_->NewtAbsTol = 1e-7;
        tx_->NewtRelTol = 1e-5;
        tx_->LambdaNewtRelTol = 1e-6;
        TXSetCut(tx_.get(), first_component, 1e-9);
    }

    Trajex* tx() const { return tx_.get(); }
    const TrajexBif& bif() const { return *tx_->txb; }

    /// Integrates the transient away.
    void settle(double time, double* y) const {
        double t = 0;
        TXIntegrate(tx(), &t, time, y);
    }
    int follow_cycle(double* y, int turns, double step, int bifurcations = 1) {
        return follow([&](FILE* state) {
            return TXAutoCont(tx(), 0, y, turns, &T, &c_, &step, bifurcations, 1 | 4, state,
                              collect, reinterpret_cast<FILE*>(this));
        });
    }
    int follow_forced(double* y, double period, double step, int bifurcations = 1) {
        T = period;
        return follow([&](FILE* state) {
            return TXNonAutoCont(tx(), 0, y, period, &c_, &step, bifurcations, 1 | 4, state,
                                 collect, reinterpret_cast<FILE*>(this));
        });
    }

    double T = 0;
    std::vector<Found> found;
    std::vector<double> path;  // the parameter at every point
    std::string text;

  private:
    template <class Follow>
    int follow(Follow&& run) {
        found.clear();
        path.clear();
        text.clear();
        FILE* state = std::tmpfile();
        const int result = run(state);
        std::rewind(state);
        for (int character; (character = std::fgetc(state)) != EOF;) {
            text += static_cast<char>(character);
        }
        std::fclose(state);
        return result;
    }
    // The run hands the stream of the user output over untouched. A bifurcation lies between two
    // points and has the step number of the first.
    static void collect(Trajex* tx, FILE* self) {
        BranchRun& run = *reinterpret_cast<BranchRun*>(self);
        const TrajexBif& bif = *tx->txb;
        if (!run.path.empty() && bif.steps == run.last_step_) {
            run.found.push_back({bif.biftype, std::string(TrajexBifName[bif.biftype]) + bif.btype,
                                 bif.c[0], bif.T, bif.indir});
        } else {
            run.path.push_back(bif.c[0]);
        }
        run.last_step_ = bif.steps;
    }

    OpenHandle tx_;
    double& c_;
    int last_step_ = -1;
};

TEST(OrbitBifurcations, RoesslerDoublesItsPeriod) {
    {
        const Temporarily restored(Roessler::c, 2.5);
        BranchRun run(Roessler::flow, 3, Roessler::c);
        double y[] = {1, 1, 1};
        run.settle(500, y);
        ASSERT_EQ(run.follow_cycle(y, 1, 0.1), 1);
        ASSERT_EQ(run.found.size(), 1u);
        EXPECT_EQ(run.found[0].title, "PERIOD DOUBLING 2 -(- 1");
        EXPECT_NEAR(run.found[0].c, 2.832445, 2e-6);
        EXPECT_NEAR(run.found[0].T, 5.769820, 2e-6);
        EXPECT_EQ(run.found[0].indir, 3);  // from the left, along the branch
        EXPECT_EQ(Roessler::c, run.found[0].c);
        EXPECT_NE(run.text.find("Checking bifurcation"), std::string::npos);
    }
    const Temporarily restored(Roessler::c, 3.2);
    double y[] = {1, 1, 1};
    {
        BranchRun run(Roessler::flow, 3, Roessler::c);
        run.settle(500, y);
        double t = 0;
        while (y[0] < 0) TXStep(run.tx(), &t, y);  // the crossing at y > 0 comes next
        double start[] = {y[0], y[1], y[2]};
        ASSERT_EQ(run.follow_cycle(start, 2, 0.1), 1);
        ASSERT_EQ(run.found.size(), 1u);
        EXPECT_EQ(run.found[0].title, "PERIOD DOUBLING 2 -(- 1");
        EXPECT_NEAR(run.found[0].c, 3.83736, 1e-5);
    }
    // Downward the doubled orbit comes to its end, and what is found is the doubling of the other.
    Roessler::c = 3.2;
    BranchRun run(Roessler::flow, 3, Roessler::c);
    ASSERT_EQ(run.follow_cycle(y, 2, -0.1), 1);
    ASSERT_EQ(run.found.size(), 1u);
    EXPECT_EQ(run.found[0].title, "PERIOD DOUBLING 2 -(- 1");
    EXPECT_NEAR(run.found[0].c, 2.832445, 2e-6);
    EXPECT_NEAR(run.found[0].T, 5.769820, 2e-6);
    EXPECT_NE(run.text.find("Searching for bifurcation %"), std::string::npos);
}

TEST(OrbitBifurcations, DuffingResonanceFoldsTwice) {
    const Temporarily restored(Duffing::omega, 0.9);
    BranchRun run(Duffing::resonance, 2, Duffing::omega);
    run.tx()->MaxContSteps = 400;
    double y[] = {0, 0};
    run.settle(200 * pi, y);
    ASSERT_EQ(run.follow_forced(y, 2 * pi, 0.05, 2), 1);
    ASSERT_EQ(run.found.size(), 2u);
    EXPECT_EQ(run.found[0].title, "SADDLE-NODE 2 ) 1");
    EXPECT_NEAR(run.found[0].c, 1.65767, 1e-5);
    EXPECT_EQ(run.found[1].title, "SADDLE-NODE 2 ( 1");
    EXPECT_NEAR(run.found[1].c, 1.42306, 1e-5);
    // Up, back between the folds, and nowhere past them.
    const auto turn = std::max_element(run.path.begin(), run.path.end());
    EXPECT_TRUE(std::is_sorted(run.path.begin(), turn));
    EXPECT_TRUE(std::is_sorted(run.path.rbegin(), std::make_reverse_iterator(turn)));
    EXPECT_LT(*turn, 1.65767);
    EXPECT_GT(run.path.back(), 1.42306);
}

TEST(OrbitBifurcations, DuffingDoublesItsPeriod) {
    const Temporarily restored(Duffing::gamma, 0.2);
    BranchRun run(Duffing::two_wells, 2, Duffing::gamma);
    const double period = 2 * pi / 1.2;
    double y[] = {1, 0};
    run.settle(100 * period, y);
    ASSERT_EQ(run.follow_forced(y, period, 0.01), 1);
    ASSERT_EQ(run.found.size(), 1u);
    EXPECT_EQ(run.found[0].title, "PERIOD DOUBLING 2 -(- 1");
    EXPECT_NEAR(run.found[0].c, 0.265583, 1e-6);
    EXPECT_EQ(run.found[0].T, period);
}

// At lambda = 2 the cycle r = z = 1 loses its stability to a torus; its multipliers are then
// exp(+-i sqrt(1.2) T).
TEST(OrbitBifurcations, LangfordsCycleMakesATorus) {
    const Temporarily restored(Langford::lambda, 1.9);
    BranchRun run(Langford::flow, 3, Langford::lambda);
    TXSetCut(run.tx(), second_component, 1e-9);
    double y[] = {0.85, 0, 1.17};
    run.settle(400, y);
    ASSERT_EQ(run.follow_cycle(y, 1, 0.05), 1);
    ASSERT_EQ(run.found.size(), 1u);
    EXPECT_EQ(run.found[0].title.substr(0, 7), "TORUS 2");
    EXPECT_NEAR(run.found[0].c, 2, 1e-6);
    EXPECT_NEAR(run.found[0].T, 2 * pi / Langford::c, 1e-5);
    EXPECT_NEAR(std::fabs(run.bif().y[0]), 1, 1e-6);
    EXPECT_NEAR(run.bif().y[2], 1, 1e-6);
    const double angle = std::sqrt(1.2) * run.found[0].T;
    EXPECT_NEAR(run.bif().er[0], std::cos(angle), 1e-4);
    EXPECT_NEAR(std::fabs(run.bif().ei[0]), std::fabs(std::sin(angle)), 1e-4);
}

TEST(OrbitBifurcations, ForcedNormalForms) {
    using namespace orbit_forms;
    struct Case {
        const char* title;
        void (*flow)(double, double*, double*);
        double accuracy;
    };
    const Case cases[] = {{"PITCHFORK 2 -(- 1", forced<Pitchfork>, 3e-6},
                          {"TRANSCRITICAL -/- (2 1)", forced<Transcritical>, 1e-4},
                          {"PERIOD DOUBLING 2 -(- 1", forced<PeriodDoubling>, 3e-6}};
    for (const Case& test : cases) {
        SCOPED_TRACE(test.title);
        fault = Fault::none;
        const Temporarily restored(orbit_forms::c, bifurcation_at - 0.12);
        BranchRun run(test.flow, 2, orbit_forms::c);
        Vector y = orbit_at(orbit_forms::c, {0, 0});
        ASSERT_EQ(run.follow_forced(y.component, 2 * pi, 0.05), 1);
        ASSERT_EQ(run.found.size(), 1u);
        EXPECT_EQ(run.found[0].title, test.title);
        EXPECT_NEAR(run.found[0].c, bifurcation_at, test.accuracy);
    }
}

TEST(OrbitBifurcations, ChecksAndLimitsAreTheCallers) {
    const auto start = [](BranchRun& run, double* y) {
        Roessler::c = 2.7;
        run.settle(500, y);
        run.tx()->MaxContSteps = 20;
    };
    {
        SCOPED_TRACE("unclassified");
        const Temporarily restored(Roessler::c, 2.7);
        BranchRun run(Roessler::flow, 3, Roessler::c);
        run.tx()->CheckBifs = 0;
        double y[] = {1, 1, 1};
        start(run, y);
        ASSERT_EQ(run.follow_cycle(y, 1, 0.1), 1);
        ASSERT_EQ(run.found.size(), 1u);
        EXPECT_EQ(run.found[0].biftype, 0);
        EXPECT_EQ(run.found[0].indir, 0);
        EXPECT_EQ(run.text.find("Checking"), std::string::npos);
        EXPECT_NE(run.bif().intang[1], 0);
    }
    {
        SCOPED_TRACE("no limit: past the bifurcation, to the last step");
        const Temporarily restored(Roessler::c, 2.7);
        BranchRun run(Roessler::flow, 3, Roessler::c);
        double y[] = {1, 1, 1};
        start(run, y);
        ASSERT_EQ(run.follow_cycle(y, 1, 0.1, 0), 1);
        EXPECT_EQ(run.found.size(), 1u);
        EXPECT_EQ(run.path.size(), 20u);
        EXPECT_GT(Roessler::c, 2.9);
    }
    {
        SCOPED_TRACE("rejected searches: nearer and nearer, but never past");
        const Temporarily restored(Roessler::c, 2.7);
        BranchRun run(Roessler::flow, 3, Roessler::c);
        double y[] = {1, 1, 1};
        start(run, y);
        run.tx()->LambdaNewtRelTol = 1e-30;  // out of reach
        EXPECT_EQ(run.follow_cycle(y, 1, 0.1), 1);
        EXPECT_TRUE(run.found.empty());
        EXPECT_LT(run.path.size(), 18u);
        EXPECT_LT(*std::max_element(run.path.begin(), run.path.end()), 2.832445);
        EXPECT_GT(run.path.back(), 2.8);
        EXPECT_EQ(run.tx()->nparam, 1);
        EXPECT_EQ(run.tx()->TerminateOnFatalError, 0);
    }
}

// Wherever a right-hand side goes wrong on the way to a bifurcation, in its location or in its
// classification, the run ends, and another one on the same handle succeeds.
TEST(OrbitBifurcations, ARunThatBreaksOffLeavesAUsableHandle) {
    using namespace orbit_forms;
    fault = Fault::none;
    const Temporarily restored(orbit_forms::c, 0.0);
    BranchRun run(forced<PeriodDoubling>, 2, orbit_forms::c);
    const auto follow = [&run](Fault kind, long calls) {
        orbit_forms::c = bifurcation_at - 0.02;
        calls_before_fault = calls;
        const Temporarily faulty(fault, kind);
        Vector y = orbit_at(orbit_forms::c, {0, 0});
        return run.follow_forced(y.component, 2 * pi, 0.05);
    };
    calls_before_fault = 1000000000;
    ASSERT_EQ(follow(Fault::exception, calls_before_fault), 1);
    const long needed = 1000000000 - calls_before_fault;
    for (long calls = 10; calls < needed; calls += needed / 40) {
        EXPECT_THROW(follow(Fault::exception, calls), std::runtime_error) << calls;
        EXPECT_EQ(run.tx()->nparam, 1);
        EXPECT_EQ(run.tx()->TerminateOnFatalError, 0);
        EXPECT_EQ(follow(Fault::not_a_number, calls), 0) << calls;
        EXPECT_NE(run.tx()->ErrorCode, 0);
        EXPECT_EQ(run.tx()->nparam, 1);
        EXPECT_EQ(run.bif().biftype, 0);
    }
    EXPECT_EQ(follow(Fault::none, 0), 1);
    EXPECT_EQ(run.found.back().title, "PERIOD DOUBLING 2 -(- 1");
    EXPECT_EQ(run.bif().T, 2 * pi);
}

}  // namespace
