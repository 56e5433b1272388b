// Classification of bifurcations of periodic orbits, against normal forms.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "bifurcation/orbit_forms.hpp"

using namespace orbit_forms;

namespace {

constexpr double full_turn = 2 * pi;
constexpr double amplitude = 0.05;

/// Locates the bifurcation of the form and forgets what the location said.
void locate(Study& study, double parameter, Vector z, double period = full_turn, int mode = 0) {
    study.start(parameter, z, period);
    ASSERT_EQ(study.locate(mode), 1);
    const Vector slope = orbit_slope();
    double* const intang = study.bif().intang;
    intang[0] = intang[1] = 0;
    for (int i = 0; i < 2; ++i) intang[study.tx()->order - 2 + i] = slope[i];
    std::strcpy(study.bif().btype, "?");
}

void expect_vector(const double* computed, Vector exact, double accuracy, const char* what) {
    for (int i = 0; i < 2; ++i) EXPECT_NEAR(computed[i], exact[i], accuracy) << what << i;
}

/// A test orbit of the forced systems: the form's equilibrium z at mu.
void expect_orbit(const double* y, double parameter, double period, double mu, Vector z,
                  double exact_period, const char* what) {
    EXPECT_NEAR(parameter, bifurcation_at + mu, 2e-5) << what;
    EXPECT_EQ(period, exact_period) << what;
    expect_vector(y, orbit_at(bifurcation_at + mu, z), 2e-4, what);
}

/// Left and right of the forced systems, on the branch z = 0.
void expect_neighbours(const TrajexBif& bif) {
    expect_orbit(bif.left, bif.cleft, bif.Tleft, -amplitude, {0, 0}, full_turn, "left");
    expect_orbit(bif.right, bif.cright, bif.Tright, amplitude, {0, 0}, full_turn, "right");
}

Vector along_branch(double sign) {
    const Vector slope = orbit_slope();
    return {sign * slope[0], sign * slope[1]};
}

/// The amplitude at which the displaced orbits have z1 = amplitude: while the correction keeps the
/// displacement along the critical eigenvector, the branch point q moves away under it.
double displaced(double slope_along, double sign, double (*mu_of)(double)) {
    double z = sign * amplitude;
    for (int i = 0; i < 60; ++i) z = sign * amplitude - slope_along * mu_of(z);
    return z;
}

double slope_along_eigenvector() {
    const Vector slope = orbit_slope();
    const Vector v = displacement({1, 0});
    return slope[0] * v[0] + slope[1] * v[1];
}

TEST(ClassifyOrbitBifurcation, Pitchfork) {
    Study study(forced<Pitchfork>, 2);
    locate(study, bifurcation_at - 0.01, {0, 0});
    ASSERT_EQ(study.check(amplitude, 0), 1);
    const TrajexBif& bif = study.bif();
    EXPECT_EQ(bif.biftype, 5);
    EXPECT_STREQ(bif.btype, " 2 -(- 1");
    EXPECT_EQ(study.progress, "");
    const auto mu_of = [](double z) { return z * z; };
    const double up = displaced(slope_along_eigenvector(), 1, mu_of);
    const double down = displaced(slope_along_eigenvector(), -1, mu_of);
    expect_orbit(bif.top, bif.ctop, bif.Ttop, up * up, {up, 0}, full_turn, "top");
    expect_orbit(bif.bot, bif.cbot, bif.Tbot, down * down, {down, 0}, full_turn, "bottom");
    expect_neighbours(bif);
    expect_vector(bif.trans, displacement({1, 0}), 1e-3, "transversal");
    expect_vector(bif.tang, along_branch(-1), 1e-3, "tangent");  // to the stable side: left
    EXPECT_EQ(bif.indir, 3);
    EXPECT_EQ(c, bif.c[0]);
}

TEST(ClassifyOrbitBifurcation, Transcritical) {
    Study study(forced<Transcritical>, 2);
    locate(study, bifurcation_at - 0.01, {0, 0});
    ASSERT_EQ(study.check(amplitude, 0), 1);
    const TrajexBif& bif = study.bif();
    EXPECT_EQ(bif.biftype, 2);
    EXPECT_STREQ(bif.btype, " -/- (2 1)");
    const auto mu_of = [](double z) { return z; };
    const double up = displaced(slope_along_eigenvector(), 1, mu_of);
    expect_orbit(bif.top, bif.ctop, bif.Ttop, up, {up, 0}, full_turn, "top");
    expect_orbit(bif.bot, bif.cbot, bif.Tbot, -up, {-up, 0}, full_turn, "bottom");
    expect_neighbours(bif);
    // The other branch is x = q + mu (1, 0) in the frame of the eigenvectors.
    const Vector v = displacement({1, 0});
    const Vector slope = orbit_slope();
    expect_vector(bif.trans, {slope[0] + v[0], slope[1] + v[1]}, 2e-3, "transversal");
    expect_vector(bif.tang, along_branch(-1), 1e-3, "tangent");

    // From the other side: the displaced orbits change places, and left and right are named.
    ASSERT_EQ(study.check(-amplitude, 0), 1);
    EXPECT_EQ(bif.biftype, 2);
    EXPECT_LT(bif.ctop, bifurcation_at);
    EXPECT_STREQ(bif.btype, " -\\- (2 1)");
}

TEST(ClassifyOrbitBifurcation, SaddleNode) {
    Study study(forced<SaddleNode>, 2);
    locate(study, bifurcation_at + 0.0004, {0.02, 0});
    study.bif().cleft = study.bif().tang[0] = -77;
    ASSERT_EQ(study.check(amplitude, 0), 1);
    const TrajexBif& bif = study.bif();
    EXPECT_EQ(bif.biftype, 3);
    EXPECT_STREQ(bif.btype, " 2 ( 1");
    const auto mu_of = [](double z) { return z * z; };
    const double up = displaced(slope_along_eigenvector(), 1, mu_of);
    const double down = displaced(slope_along_eigenvector(), -1, mu_of);
    expect_orbit(bif.top, bif.ctop, bif.Ttop, up * up, {up, 0}, full_turn, "top");
    expect_orbit(bif.bot, bif.cbot, bif.Tbot, down * down, {down, 0}, full_turn, "bottom");
    expect_vector(bif.trans, displacement({1, 0}), 1e-3, "transversal");
    EXPECT_EQ(bif.cleft, -77);  // not computed: the branch has no orbits on the left
    EXPECT_EQ(bif.tang[0], -77);
}

TEST(ClassifyOrbitBifurcation, PeriodDoubling) {
    Study study(forced<PeriodDoubling>, 2);
    locate(study, bifurcation_at - 0.01, {0, 0});
    const double period = study.bif().T;
    ASSERT_EQ(study.check(amplitude, 0), 1);
    const TrajexBif& bif = study.bif();
    EXPECT_EQ(bif.biftype, 4);
    EXPECT_STREQ(bif.btype, " 2 -(- 1");
    EXPECT_EQ(bif.T, period);
    const auto mu_of = [](double z) { return z * z; };
    const double up = displaced(slope_along_eigenvector(), 1, mu_of);
    const double down = displaced(slope_along_eigenvector(), -1, mu_of);
    expect_orbit(bif.top, bif.ctop, bif.Ttop, up * up, {up, 0}, 2 * full_turn, "top");
    expect_orbit(bif.bot, bif.cbot, bif.Tbot, down * down, {down, 0}, 2 * full_turn, "bottom");
    expect_neighbours(bif);
    expect_vector(bif.trans, displacement({1, 0}), 1e-3, "transversal");
}

TEST(ClassifyOrbitBifurcation, Torus) {
    Study study(forced<Torus>, 2);
    locate(study, bifurcation_at - 0.01, {0, 0});
    ASSERT_EQ(study.check(amplitude, 0), 1);
    const TrajexBif& bif = study.bif();
    EXPECT_EQ(bif.biftype, 1);
    EXPECT_STREQ(bif.btype + 2, bif.ctop > c ? " -oO- 0" : " -Oo- 0");
    EXPECT_EQ(bif.btype[1], '2');
    expect_neighbours(bif);
    expect_vector(bif.tang, along_branch(-1), 1e-3, "tangent");
    EXPECT_EQ(bif.indir, 3);
}

TEST(ClassifyOrbitBifurcation, AutonomousOrbits) {
    const double period = full_turn / (1 + bifurcation_at);
    {
        Study study(autonomous<PeriodDoubling>, 4);
        locate(study, bifurcation_at - 0.01, {0, 0}, period, 1);
        const double found = study.bif().T;
        ASSERT_EQ(study.check(amplitude, 1), 1);
        const TrajexBif& bif = study.bif();
        EXPECT_EQ(bif.biftype, 4);
        EXPECT_STREQ(bif.btype, " 3 -(- 2");
        EXPECT_EQ(bif.T, found);
        EXPECT_NEAR(bif.Ttop, 2 * full_turn / (1 + bif.ctop), 1e-5);
        EXPECT_NEAR(bif.Tbot, 2 * full_turn / (1 + bif.cbot), 1e-5);
        EXPECT_NEAR(bif.Tleft, full_turn / (1 + bif.cleft), 1e-5);
        EXPECT_NEAR(bif.Tright, full_turn / (1 + bif.cright), 1e-5);
        EXPECT_NEAR(bif.right[0], 1, 1e-6);  // on the cycle, and on the section
        EXPECT_NEAR(bif.right[1], 0, 1e-8);
        expect_vector(bif.right + 2, orbit_at(bif.cright, {0, 0}), 2e-4, "right");
        EXPECT_EQ(bif.indir, 3);
    }
    {
        Study study(autonomous<Torus>, 4);
        locate(study, bifurcation_at - 0.01, {0, 0}, period, 1);
        ASSERT_EQ(study.check(amplitude, 1), 1);
        EXPECT_EQ(study.bif().biftype, 1);
        EXPECT_EQ(study.bif().btype[1], '3');
        EXPECT_STREQ(study.bif().btype + 7, " 1");
    }
}

// The test orbit that lies against the incoming tangent, whichever of the four it is.
TEST(ClassifyOrbitBifurcation, MarksTheIncomingDirection) {
    Study study(forced<Transcritical>, 2);
    locate(study, bifurcation_at - 0.01, {0, 0});
    ASSERT_EQ(study.check(amplitude, 0), 1);
    TrajexBif& bif = study.bif();
    const Vector slope = orbit_slope();
    const Vector v = displacement({1, 0});
    for (int i = 0; i < 2; ++i) bif.intang[i] = slope[i];  // on the branch z = 0, from below
    ASSERT_EQ(study.check(amplitude, 0), 1);
    EXPECT_EQ(bif.indir, 3);
    for (int i = 0; i < 2; ++i) bif.intang[i] = slope[i] + v[i];  // on the branch z = mu
    ASSERT_EQ(study.check(amplitude, 0), 1);
    EXPECT_EQ(bif.indir, 2);
    ASSERT_EQ(study.check(-amplitude, 0), 1);
    EXPECT_EQ(bif.indir, 1);
}

TEST(ClassifyOrbitBifurcation, AdaptsTheAmplitude) {
    {
        SCOPED_TRACE("orbits that fall back to the bifurcation");
        Study study(forced<Pitchfork>, 2);
        locate(study, bifurcation_at - 0.01, {0, 0});
        ASSERT_EQ(study.check(amplitude / 64, 0), 1);
        const std::size_t doublings =
            study.progress.find_first_not_of('^') == std::string::npos ? study.progress.size() : 0;
        ASSERT_GE(doublings, 1U);
        // The bottom orbit starts from the amplitude that the top orbit ended with; left and right
        // start afresh.
        const TrajexBif& bif = study.bif();
        const double reached = amplitude / 64 * std::pow(2, doublings);
        EXPECT_NEAR(std::hypot(bif.top[0] - bif.y[0], bif.top[1] - bif.y[1]), reached,
                    0.2 * reached);
        EXPECT_NEAR(bif.ctop - bif.cbot, 0, 0.2 * reached * reached);
        EXPECT_NEAR(bif.cright - c, amplitude / 64, 1e-12);
        EXPECT_EQ(bif.biftype, 5);
    }
    {
        SCOPED_TRACE("searches that diverge");
        Study study(forced<PeriodDoubling>, 2);
        locate(study, bifurcation_at - 0.01, {0, 0});
        TXSetMaxNewtSteps(study.tx(), 4);
        ASSERT_EQ(study.check(2, 0), 1);
        EXPECT_GE(study.progress.size(), 1U);
        EXPECT_EQ(study.progress.find_first_not_of('v'), std::string::npos);
        EXPECT_EQ(study.bif().biftype, 4);
        EXPECT_EQ(TXCheckBif(study.tx(), &study.bif(), &c, 2, 0, nullptr), 1);
    }
}

TEST(ClassifyOrbitBifurcation, AFailedCheckRestoresPeriodAndType) {
    Study study(forced<PeriodDoubling>, 2);
    locate(study, bifurcation_at - 0.01, {0, 0});
    TrajexBif& bif = study.bif();
    const double period = bif.T;
    const double found = c;
    const auto expect_restored = [&](const char* what) {
        EXPECT_EQ(bif.T, period) << what;
        EXPECT_EQ(bif.biftype, 0) << what;
        EXPECT_EQ(study.tx()->nparam, 1) << what;
        c = found;
        bif.biftype = 4;
        fault = Fault::none;
    };
    bif.biftype = 4;

    double stranger = 0;
    EXPECT_EQ(TXCheckBif(study.tx(), &bif, &stranger, amplitude, 0, nullptr), 0);
    expect_restored("stranger");

    TXSetMaxNewtSteps(study.tx(), 0);
    EXPECT_EQ(study.check(amplitude, 0), 0);
    EXPECT_EQ(study.progress, "v");
    EXPECT_EQ(TXErrorTrajex(study.tx()), 0);
    expect_restored("no iterations");
    TXSetMaxNewtSteps(study.tx(), 10);

    for (const long call : {10L, 700L, 3000L}) {
        fault = Fault::not_a_number;
        calls_before_fault = call;
        EXPECT_EQ(study.check(amplitude, 0), 0);
        EXPECT_EQ(study.progress.substr(0, 11), "vvvvvvvvvvv");
        expect_restored("not a number");

        fault = Fault::exception;
        calls_before_fault = call;
        EXPECT_THROW(study.check(amplitude, 0), std::runtime_error);
        expect_restored("exception");
    }

    bif.T = 0;
    EXPECT_EQ(study.check(amplitude, 0), 0);
    bif.T = period;
    expect_restored("no period");
    EXPECT_EQ(study.check(amplitude, 0), 1);
}

TEST(ClassifyOrbitBifurcation, ALostSectionEndsTheCheck) {
    Study study(autonomous<PeriodDoubling>, 4);
    locate(study, bifurcation_at - 0.01, {0, 0}, full_turn / (1 + bifurcation_at), 1);
    const double period = study.bif().T;
    TXSetCut(
        study.tx(), [](double, double* y) { return y[1] * y[1] + 1; }, 1e-9);
    EXPECT_EQ(study.check(amplitude, 1), 0);
    EXPECT_EQ(study.progress, "");
    EXPECT_EQ(TXErrorTrajex(study.tx()), 0);
    EXPECT_EQ(study.bif().T, period);
    EXPECT_EQ(study.bif().biftype, 0);
}

}  // namespace
