// Location and classification of bifurcations: of equilibria, exact ones; of orbits, searches that
// must end, and what they tell where they have to be told a section first. Continuation runs locate
// more of them.
#include "continuation/recorder.hpp"

namespace {

double c = 0, unused = 5, entry_c = 0, raised_c = 0;

/// At y = +-1 / sqrt 3.
constexpr Flow two_folds = [](auto, auto y, auto f) { f[0] = c + y[0] - y[0] * y[0] * y[0]; };
constexpr Flow never_critical = [](auto, auto y, auto f) { f[0] = c - y[0]; };
constexpr Flow undefined_above = [](auto, auto y, auto f) { f[0] = c > 0 ? NAN : c - y[0]; };

/// A study with a record that is ready to locate from a guess.
struct Location : Study {
    Location(Flow flow, const std::vector<double>& guess, double& parameter, double value)
        : Study(flow, guess, parameter, value, unused), bif(record(0, 4)) {
        tx->LambdaNewtRelTol = 1e-8;
        tx->NewtRelTol = tx->NewtAbsTol = 1e-16;  // the state is weighed with their roots
        bif.indir = 4;
    }
    int locate(FILE* state = nullptr) { return TXLocateEquiBif(tx.get(), &bif, &c, state); }
    int check() { return TXCheckEquiBif(tx.get(), &bif, &c, 0.1, nullptr); }
    TrajexBif& bif;
};

TEST(EquilibriumBifurcation, FoldsAreExact) {
    for (const double side : {1.0, -1.0}) {
        Location fold(two_folds, {side * 0.6}, c, side * -0.3);
        const TrajexBif& bif = fold.bif;
        ASSERT_EQ(fold.locate(), 1);
        EXPECT_NEAR(c, side * -2 / std::sqrt(27), 1e-8);
        EXPECT_NEAR(bif.y[0], side / std::sqrt(3), 1e-6);
        EXPECT_EQ(bif.biftype + bif.indir, 0);
        EXPECT_TRUE(bif.c[0] == c && bif.er[0] == bif.Phi[0][0]);
        EXPECT_NEAR(bif.Phi[0][1], 1, 1e-8);  // df/dc
        ASSERT_EQ(fold.check(), 1);
        EXPECT_EQ(Point::of(*fold.tx).type, "SADDLE-NODE ) or ( ");
    }
}

TEST(EquilibriumBifurcation, HopfPointsAreExact) {
    double& B = Brusselator::B;
    const Temporarily unit(Brusselator::A, 1.5);
    Location point(Brusselator::flow, {1.5, 3.1 / 1.5}, B, 3.1);
    const TrajexBif& bif = point.bif;
    ASSERT_EQ(point.locate(), 1);
    EXPECT_NEAR(B, 1 + 1.5 * 1.5, 1e-6);
    EXPECT_NEAR(std::fabs(bif.ei[0]), 1.5, 1e-6);
    const double located = B;
    const TextStream state;
    ASSERT_EQ(point.locate(state), 1);
    EXPECT_EQ(state.text(), ".") << "a located point is left alone";
    EXPECT_EQ(B, located);
    B = 17;  // the classification gives the application the parameters of the record
    ASSERT_EQ(point.check(), 1);
    EXPECT_EQ(B, located);
    EXPECT_EQ(Point::of(*point.tx).type, "HOPF -Oo- or -oO- ");
    EXPECT_NEAR(std::hypot(bif.trans[0], bif.trans[1]), 1, 1e-12);
}

TEST(EquilibriumBifurcation, MayNotBeFound) {
    for (const auto flow : {never_critical, undefined_above, two_folds}) {
        Location point(flow, {0.6}, c, flow == two_folds ? -0.3 : 0.5);
        double stranger = 0;  // none of the handle's
        EXPECT_EQ(TXLocateEquiBif(point.tx.get(), &point.bif, &stranger, nullptr), 0);
        EXPECT_EQ(TXCheckEquiBif(point.tx.get(), &point.bif, &stranger, 0.1, nullptr), 0);
        EXPECT_EQ(point->ErrorCode, 0);
        EXPECT_EQ(point.bif.biftype, 4);
        TXSetMaxNewtSteps(point.tx.get(), flow == two_folds ? 1 : 10);
        EXPECT_EQ(point.locate(), 0);
        EXPECT_EQ(point->ErrorCode, 30);
    }
}

void note_raised() {
    if ((raised_c = c) != entry_c) throw Probe::Thrown();
}

// The first evaluation with another parameter is one for a difference quotient: with numerical
// Jacobians that of f, with analytic ones that of the criterion.
TEST(Location, RestoresAPerturbedParameterExactly) {
    for (const bool analytic : {false, true}) {
        Location fold([](auto, auto y, auto f) { note_raised(), f[0] = c - y[0] * y[0]; }, {0.25},
                      c, 1e-9);  // c + h - h is not c
        entry_c = c;
        fold->LambdaPert = 1e-5;
        if (analytic) {
            fold->jac = [](auto, auto y, auto J) { note_raised(), J[0][0] = -2 * y[0]; };
            fold->paramjac = [](auto, auto, auto P) { P[0][0] = 1, P[0][1] = 0; };
        }
        EXPECT_THROW(fold.locate(), Probe::Thrown);
        EXPECT_EQ(c, entry_c);
        EXPECT_NEAR(raised_c, analytic ? fold->LambdaPert : fold->ParamJacPert, 2e-9);
        EXPECT_EQ(fold.bif.y[0], 0.25);
        fold.bif.T = 0.1;
        EXPECT_THROW(TXLocateBif(fold.tx.get(), &fold.bif, &c, 0, nullptr), Probe::Thrown);
        EXPECT_EQ(c, entry_c);
        EXPECT_EQ(fold->nparam, 2);
    }
}

/// The multiplier reaches 1 only at infinite c, where the second component is infinitely stiff.
constexpr Flow receding = [](auto t, auto y, auto f) {
    f[0] = -std::exp(-1e-3 * c) * y[0], f[1] = (1 + c * c) * (std::cos(t) - y[1]);
};
/// A pitchfork beside a forced oscillation, in a parameter that has to move far: along the branch
/// displaced by A it is 10000 A^2.
constexpr Flow gentle_pitchfork = [](auto t, auto y, auto f) {
    f[0] = std::cos(t) - y[0], f[1] = 1e-4 * c * y[1] - y[1] * y[1] * y[1];
};

// The evaluations do not run out.
TEST(OrbitBifurcation, ALocationThatRunsAwayEnds) {
    Study run(Probe::flow<receding>, {0, 0.5}, c, 0);
    const Temporarily limit(Probe::left, 1'000'000L);
    EXPECT_EQ(TXLocateBif(run.tx.get(), &run.record(2 * pi), &c, 0, nullptr), 0);
    EXPECT_EQ(run->nparam, 1);
}

TEST(OrbitBifurcation, ATestOrbitFarAwayIsLookedForNearer) {
    Study run(gentle_pitchfork, {0.5, 0}, c, -20);
    TrajexBif& bif = run.record(2 * pi);
    run->LambdaPert = 1e-3;
    ASSERT_EQ(TXLocateBif(run.tx.get(), &bif, &c, 0, nullptr), 1);
    const TextStream progress;
    ASSERT_EQ(TXCheckBif(run.tx.get(), &bif, &c, 2, 0, progress), 1);
    EXPECT_EQ(progress.text().substr(0, 1), "v");
    EXPECT_LT(std::fabs(bif.ctop), 1e4 * (1 + std::fabs(bif.c[0])));
    EXPECT_EQ(bif.biftype, trajex::pitchfork);
}

}  // namespace
