// Location of bifurcations of periodic orbits, against exact ones.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "bifurcation/orbit_forms.hpp"

using namespace orbit_forms;

namespace {

constexpr double full_turn = 2 * pi;

/// The record holds the orbit of the bifurcation, and a critical multiplier of modulus 1.
void expect_located(const Study& study, double period, double accuracy = 3e-6) {
    const TrajexBif& bif = study.bif();
    const int n = study.tx()->order;
    EXPECT_NEAR(c, bifurcation_at, accuracy);
    EXPECT_EQ(bif.c[0], c);
    EXPECT_NEAR(bif.T, period, 1e-6);
    const Vector exact = orbit_at(c, {0, 0});
    for (int i = 0; i < 2; ++i) EXPECT_NEAR(bif.y[n - 2 + i], exact[i], 10 * accuracy) << i;
    double nearest = 1;
    const int nontrivial = n == 4 ? 3 : 2;
    for (int i = 0; i < nontrivial; ++i) {
        nearest = std::min(nearest, std::fabs(std::hypot(bif.er[i], bif.ei[i]) - 1));
    }
    EXPECT_LT(nearest, 2e-6);
    EXPECT_EQ(bif.biftype, 0);
    EXPECT_EQ(bif.indir, 0);
    EXPECT_EQ(study.tx()->nparam, 1);
    EXPECT_EQ(study.progress[0], '.');
}

TEST(LocateOrbitBifurcation, FindsEveryTypeOnForcedOrbits) {
    {
        SCOPED_TRACE("pitchfork");
        Study study(forced<Pitchfork>, 2);
        study.start(bifurcation_at - 0.01, {0, 0}, full_turn);
        ASSERT_EQ(study.locate(0), 1);
        expect_located(study, full_turn);
    }
    {
        SCOPED_TRACE("transcritical, from the other branch");
        Study study(forced<Transcritical>, 2);
        study.start(bifurcation_at + 0.01, {0.01, 0}, full_turn);
        ASSERT_EQ(study.locate(0), 1);
        // Two branches cross: the equations are singular there, and an orbit that is not on the
        // branches closes to second order.
        expect_located(study, full_turn, 1e-4);
    }
    {
        SCOPED_TRACE("saddle-node");
        Study study(forced<SaddleNode>, 2);
        study.start(bifurcation_at + 0.0004, {0.02, 0}, full_turn);
        ASSERT_EQ(study.locate(0), 1);
        expect_located(study, full_turn);
    }
    {
        SCOPED_TRACE("period doubling");
        Study study(forced<PeriodDoubling>, 2);
        study.start(bifurcation_at + 0.02, {0, 0}, full_turn);
        ASSERT_EQ(study.locate(0), 1);
        expect_located(study, full_turn);
        // The monodromy matrix and its parameter column are those of the located orbit:
        // -diag(1, e^-2pi) in the frame of the eigenvectors, and (I - M) dq/dc.
        const TrajexBif& bif = study.bif();
        const double stable = -std::exp(-full_turn);
        EXPECT_NEAR(bif.Phi[0][0] + bif.Phi[1][1], -1 + stable, 1e-5);
        EXPECT_NEAR(bif.Phi[0][0] * bif.Phi[1][1] - bif.Phi[0][1] * bif.Phi[1][0], -stable, 1e-5);
        for (int i = 0; i < 2; ++i) {
            const Vector slope = orbit_slope();
            const double image = bif.Phi[i][0] * slope[0] + bif.Phi[i][1] * slope[1];
            EXPECT_NEAR(bif.Phi[i][2], slope[i] - image, 1e-4) << i;
        }
    }
    {
        SCOPED_TRACE("torus");
        Study study(forced<Torus>, 2);
        study.start(bifurcation_at - 0.02, {0, 0}, full_turn);
        ASSERT_EQ(study.locate(0), 1);
        expect_located(study, full_turn);
        EXPECT_NEAR(std::atan2(std::fabs(study.bif().ei[0]), study.bif().er[0]), 0.4 * pi, 1e-5);
    }
}

TEST(LocateOrbitBifurcation, FindsThePeriodOfAutonomousOrbits) {
    for (const bool doubling : {true, false}) {
        Study study(doubling ? autonomous<PeriodDoubling> : autonomous<Torus>, 4);
        study.start(bifurcation_at + 0.02, {0, 0}, full_turn / 1.32);
        ASSERT_EQ(study.locate(1), 1) << doubling;
        expect_located(study, full_turn / (1 + bifurcation_at));
        EXPECT_NEAR(study.bif().er[3], 1, 1e-5);  // the trivial multiplier is last
    }
}

// The orbit of twice the period shortly after the period doubling is recognised, and the search
// goes on with the orbit that it branched from. Half a period is two crossings of the section with
// mode 2, half the time with mode 1.
TEST(LocateOrbitBifurcation, HalvesADoubledOrbit) {
    const double mu = 0.003;
    const Vector doubled{std::sqrt(mu), 0};
    {
        Study study(forced<PeriodDoubling>, 2);
        study.start(bifurcation_at + mu, doubled, 2 * full_turn);
        ASSERT_EQ(study.locate(0), 1);
        EXPECT_EQ(study.progress.substr(0, 3), "%..");
        EXPECT_EQ(std::count(study.progress.begin(), study.progress.end(), '%'), 1);
        study.progress.erase(0, 1);
        expect_located(study, full_turn);
    }
    for (const int mode : {1, 2}) {
        Study study(autonomous<PeriodDoubling>, 4);
        study.start(bifurcation_at + mu, doubled, 2 * full_turn / (1 + bifurcation_at + mu));
        ASSERT_EQ(study.locate(mode), 1) << mode;
        EXPECT_EQ(study.progress.substr(0, 3), "%..") << mode;
        study.progress.erase(0, 1);
        expect_located(study, full_turn / (1 + bifurcation_at));
    }
}

TEST(LocateOrbitBifurcation, LeavesAPointWithinToleranceAlone) {
    Study study(forced<PeriodDoubling>, 2);
    study.start(bifurcation_at, {0, 0}, full_turn);
    const double start = study.bif().y[0];
    study.bif().biftype = 4;
    study.bif().indir = 3;
    ASSERT_EQ(study.locate(0), 1);
    EXPECT_EQ(study.progress, ".");
    EXPECT_EQ(c, bifurcation_at);
    EXPECT_EQ(study.bif().y[0], start);
    expect_located(study, full_turn);
    EXPECT_EQ(TXLocateBif(study.tx(), &study.bif(), &c, 0, nullptr), 1);
}

// Searches that end without a bifurcation leave no code: the run that asked takes a smaller step.
TEST(LocateOrbitBifurcation, GivesUpQuietly) {
    {
        SCOPED_TRACE("no iterations left");
        Study study(forced<PeriodDoubling>, 2);
        TXSetMaxNewtSteps(study.tx(), 0);
        study.start(bifurcation_at + 0.02, {0, 0}, full_turn);
        EXPECT_EQ(study.locate(0), 0);
        EXPECT_EQ(study.progress, ".");
        EXPECT_EQ(TXErrorTrajex(study.tx()), 0);
        EXPECT_EQ(study.tx()->nparam, 1);
    }
    {
        SCOPED_TRACE("section out of reach");
        Study study(autonomous<PeriodDoubling>, 4);
        TXSetCut(
            study.tx(), [](double, double* y) { return y[1] - 5; }, 1e-9);
        TXSetMaxPeriodSteps(study.tx(), 20);
        study.start(bifurcation_at + 0.02, {0, 0}, full_turn / 1.32);
        EXPECT_EQ(study.locate(2), 0);
        EXPECT_EQ(study.progress, "");
        EXPECT_EQ(TXErrorTrajex(study.tx()), 0);
    }
    {
        SCOPED_TRACE("not a period");
        for (const double period : {0.0, -1.0, std::nan("")}) {
            Study study(forced<PeriodDoubling>, 2);
            study.start(bifurcation_at, {0, 0}, period);
            EXPECT_EQ(study.locate(0), 0) << period;
        }
    }
    {
        SCOPED_TRACE("a record made for fewer parameters");
        Study study(forced<PeriodDoubling>, 2);
        study.start(bifurcation_at, {0, 0}, full_turn);
        double second = 0;
        TXVarOpenTrajex(study.tx(), nullptr, 1e-6, 2, nullptr, 1e-6, &c, &second);
        EXPECT_EQ(study.locate(0), 0);
        EXPECT_EQ(TXErrorTrajex(study.tx()), 28);
        EXPECT_EQ(study.check(0.1, 0), 0);
        EXPECT_EQ(TXErrorTrajex(study.tx()), 28);
    }
    {
        SCOPED_TRACE("not a parameter of the handle");
        Study study(forced<PeriodDoubling>, 2);
        double stranger = 0;
        study.start(bifurcation_at, {0, 0}, full_turn);
        EXPECT_EQ(TXLocateBif(study.tx(), &study.bif(), &stranger, 0, nullptr), 0);
        EXPECT_EQ(TXErrorTrajex(study.tx()), 0);
    }
}

/// The values that the parameter takes in the course of a location.
std::vector<double> parameter_iterates() {
    std::vector<double> values{bifurcation_at + 0.02};
    for (int steps = 0; steps < 10; ++steps) {
        Study study(autonomous<PeriodDoubling>, 4);
        TXSetMaxNewtSteps(study.tx(), steps);
        study.start(values.front(), {0, 0}, full_turn / 1.32);
        const int located = study.locate(1);
        values.push_back(c);
        if (located == 1) break;
    }
    return values;
}

TEST(LocateOrbitBifurcation, FaultsLeaveNothingPerturbed) {
    const std::vector<double> iterates = parameter_iterates();
    ASSERT_LT(iterates.size(), 10U);
    for (const Fault kind : {Fault::exception, Fault::not_a_number}) {
        int faults = 0;
        for (long call = 1; faults < 40; call += 977) {
            Study study(autonomous<PeriodDoubling>, 4);
            study.start(iterates.front(), {0, 0}, full_turn / 1.32);
            calls_before_fault = call;
            fault = kind;
            if (kind == Fault::exception) {
                try {
                    if (study.locate(1) == 1) break;  // the location was over before the fault
                } catch (const std::runtime_error&) {
                }
            } else {
                if (study.locate(1) == 1) break;
            }
            ++faults;
            fault = Fault::none;
            ASSERT_EQ(study.tx()->nparam, 1) << call;
            const auto same = [](double value) { return std::fabs(c - value) < 1e-10; };
            ASSERT_TRUE(std::any_of(iterates.begin(), iterates.end(), same)) << call << ": " << c;
        }
        fault = Fault::none;
        EXPECT_GT(faults, 10);
    }
}

}  // namespace
