// Searches for equilibria and for periodic orbits, against those with known place, period and
// multipliers.
#include "support.hpp"

namespace {

constexpr Flow shifted = [](auto, auto y, auto f) { f[0] = y[0] - 1, f[1] = y[1] + 2; };
constexpr jac_t identity = [](auto, auto, auto J) { J[0][0] = J[1][1] = 1, J[0][1] = J[1][0] = 0; };

// From a guess, from the equilibrium itself, and from anywhere when there are no tolerances.
TEST(EquiPoint, TakesOneCorrectionWhereTheSystemIsLinear) {
    struct {
        double RelTol, guess[2], end[2];
        int evaluations;
    } const cases[] = {
        {1e-6, {0, 0}, {1, -2}, 2}, {1e-6, {1, -2}, {1, -2}, 1}, {0, {5, 6}, {5, 6}, 1}};
    for (const auto& c : cases) {
        const OpenHandle tx = open_recording(Probe::flow<shifted>, 2, c.RelTol);
        ASSERT_EQ(TXVarOpenTrajex(tx.get(), identity, 0), 1);
        tx->NewtAbsTol = c.RelTol * 1e-4;
        double y[] = {c.guess[0], c.guess[1]};
        Probe::set(Probe::never);
        EXPECT_EQ(TXEquiPoint(tx.get(), y), 1);
        EXPECT_TRUE(y[0] == c.end[0] && y[1] == c.end[1]);
        EXPECT_EQ(Probe::calls, c.evaluations);
    }
}

constexpr Flow root_of_two = [](auto, auto y, auto f) { f[0] = y[0] * y[0] - 2; };
constexpr jac_t slope_of_root = [](double, double* y, double** J) { J[0][0] = 2 * y[0]; };
constexpr Flow arctangent = [](auto, auto y, auto f) { f[0] = std::atan(y[0]); };
constexpr Flow no_root = [](auto, auto y, auto f) { f[0] = y[0] * y[0] + 1; };
void undefined_right(double, double* y, double* f) {
    f[0] = y[0] > 1 ? not_a_number : y[0] - 2;
}

// Code 30, the guess back in place, whatever the reason.
TEST(EquiPoint, GivesTheGuessBackWhenItFails) {
    struct {
        Flow f;
        jac_t jac;
        double guess;
        int limit;
        bool found;
    } const cases[] = {{root_of_two, slope_of_root, 1, 5, false},
                       {root_of_two, slope_of_root, 1, 6, true},
                       {root_of_two, nullptr, 1, 10, true},
                       {root_of_two, slope_of_root, std::sqrt(2.0), 1, false},
                       {arctangent, nullptr, 20, 100, false},
                       {no_root, slope_of_root, 0.3, 30, false},
                       {undefined_right, nullptr, 0, 10, false},
                       {undefined_right, nullptr, 3, 10, false}};
    for (const auto& c : cases) {
        const OpenHandle tx = open_variational(c.f, 1, c.jac, nullptr, 1e-10);
        TXSetMaxNewtSteps(tx.get(), c.limit);
        tx->NewtRelTol = 0;
        double y[] = {c.guess};
        EXPECT_EQ(TXEquiPoint(tx.get(), y), c.found);
        EXPECT_EQ(tx->ErrorCode, c.found ? 0 : 30);
        EXPECT_NEAR(y[0], c.found ? std::sqrt(2.0) : c.guess, c.found ? 1e-9 : 0);
    }
}

/// A search in the plane, and what it is to find.
struct Search {
    OpenHandle tx;
    double y[2], T = -1;
    Matrix Phi{2, 2};

    Search(Flow flow, double RelTol, double y0, double y1)
        : tx(open_variational(flow, 2, nullptr, nullptr, RelTol, &Circles::c1)), y{y0, y1} {
        TXSetCut(tx.get(), second_component, 10 * RelTol);
    }
    int run(int p = 1, double t = 0) { return TXAutoOrbit(tx.get(), t, y, Phi, p, &T); }

    void expect_multipliers(double other) {
        double er[2], ei[2];
        ASSERT_EQ(TXEigen(tx.get(), 2, Phi, er, ei), 1);
        EXPECT_NEAR(std::fmax(er[0], er[1]), 1, 1e-6);
        EXPECT_NEAR(std::fmin(er[0], er[1]), other, 1e-6);
        EXPECT_EQ(ei[0], 0);
    }
};

// Started in another phase, and where the orbit of twice the period is the same one. A linear
// system takes one correction and a second look; the look at the limit never counts.
TEST(ForcedOrbit, MeetsTheClosedForm) {
    const OpenHandle tx = open_variational(ForcedDecay::flow, 1, nullptr, nullptr, 1e-10);
    Matrix Phi(1, 1);
    double y = 7;
    for (const int turns : {1, 2}) {
        const double t = turns - 1;
        ASSERT_EQ(TXNonAutoOrbit(tx.get(), t, &y, Phi, turns * 2 * pi), 1);
        EXPECT_NEAR(tx->TX->istate[0], y, 1e-8);
        EXPECT_NEAR(y, (std::cos(t) + std::sin(t)) / 2, 1e-8);
        EXPECT_NEAR(Phi[0][0], std::exp(-turns * 2 * pi), 1e-8);
    }
    for (const int limit : {0, 2, 3}) {
        TXSetMaxNewtSteps(tx.get(), limit);
        y = 7;
        EXPECT_EQ(TXNonAutoOrbit(tx.get(), 1, &y, Phi, 2 * pi), limit == 3);
        EXPECT_EQ(TXErrorTrajex(tx.get()), limit == 3 ? 0 : 30);
    }
}

// From inside, from outside, and as one of several turns.
TEST(AutonomousOrbit, FindsTheCircle) {
    for (const int p : {1, 2, 3}) {
        for (const double guess : {2.8, 3.0, 3.2}) {
            Search search(Circles::flow, 1e-10, guess, 0.1);
            ASSERT_EQ(search.run(p), 1);
            EXPECT_NEAR(search.T, p * 2 * pi, 1e-7);
            EXPECT_NEAR(std::fabs(search.y[0] - 2), 1, 4e-8);
            EXPECT_LT(std::fabs(search.y[1]), 1e-8);
            EXPECT_EQ(search.tx->nparam, 1);
            search.expect_multipliers(std::exp(-0.4 * pi * p));
        }
    }
    Search none(Circles::flow, 1e-10, 3.2, 0.3);
    EXPECT_EQ(none.run(0), 0);
    EXPECT_EQ(TXErrorTrajex(none.tx.get()), 30);
    Search found(Circles::flow, 1e-10, 3, 1e-10);  // on the orbit: no correction moves it
    found.tx->NewtAbsTol = 1e-6;
    ASSERT_EQ(found.run(), 1);
    EXPECT_TRUE(found.y[0] == 3 && found.y[1] == 1e-10);
    EXPECT_NEAR(found.T, 2 * pi, 1e-8);
    for (const int limit : {0, 1, 3}) {  // the section is not reached: no code
        Search lost(Circles::flow, 1e-10, 2.1, 0.1);
        TXSetMaxPeriodSteps(lost.tx.get(), limit);
        EXPECT_EQ(lost.run() + TXErrorTrajex(lost.tx.get()), 0);
        EXPECT_EQ(lost.T, -1);
    }
}

// det Phi is the exponential of the divergence integrated round the orbit, and so, one multiplier
// being 1, the other one. Period and amplitude are published. Orbits are the same on any section.
TEST(AutonomousOrbit, MeetsThePublishedFiguresOfVanDerPol) {
    Search search(VanDerPol::flow, 1e-11, 2, 0.1);
    search.tx->jac = VanDerPol::jacobian;
    ASSERT_EQ(search.run(), 1);
    EXPECT_NEAR(search.T, 6.66328685932, 1e-8);
    EXPECT_NEAR(std::fabs(search.y[0]), 2.008619860, 1e-8);
    const OpenHandle plain = open_recording(VanDerPol::flow_and_divergence, 3, 1e-11);
    double z[3] = {search.y[0], search.y[1], 0}, t = 0;
    ASSERT_EQ(TXIntegrate(plain.get(), &t, search.T, z), 1);
    EXPECT_NEAR(determinant(search.Phi, 2) / std::exp(z[2]), 1, 1e-6);
    search.expect_multipliers(std::exp(z[2]));

    Search hyperplane(VanDerPol::flow, 1e-10, 1.5, -1);
    TXSetCut(hyperplane.tx.get(), nullptr, 1e-9);
    EXPECT_EQ(hyperplane.run(), 0);
    EXPECT_EQ(TXErrorTrajex(hyperplane.tx.get()), 8);  // no section yet
    ASSERT_EQ(TXSetAutoCut(hyperplane.tx.get(), 0, hyperplane.y), 1);
    for (const double start : {0.0, 100.0}) {
        hyperplane.y[0] = 1.5, hyperplane.y[1] = -1;
        ASSERT_EQ(hyperplane.run(1, start), 1) << "started at " << start;
        EXPECT_NEAR(hyperplane.T, 6.66328685932, 1e-6);
        EXPECT_LT(std::fabs(TXAutoCut(hyperplane.tx.get(), 0, hyperplane.y)), 1e-8);
    }
}

constexpr Cut height_above_a_tenth = [](double, double* y) { return y[1] - 0.1; };

// A weakly attracting circle on a section that it crosses aslant: corrections leave the section,
// and steps are so short that not even extrapolation finds it again. It is then regained along the
// trajectory, from before it and from beyond it.
TEST(AutonomousOrbit, RegainsTheSectionAlongTheTrajectory) {
    const Temporarily close(Circles::c1, 0.8016), weak(Circles::c2, -20.0);
    for (const double guess : {0.12, 0.3}) {
        Search search(Circles::flow, 1e-9, 1.8016 + guess, 0.09);
        TXSetCut(search.tx.get(), height_above_a_tenth, 1e-8);
        TXSetMaxStep(search.tx.get(), 1e-3);
        TXSetMaxPeriodSteps(search.tx.get(), 20000);
        ASSERT_EQ(search.run(), 1);
        EXPECT_NEAR(search.T, 2 * pi, 1e-6);
        EXPECT_NEAR(std::hypot(search.y[0] - 1.8016, search.y[1]), 0.2, 1e-6);
        EXPECT_NEAR(search.y[1], 0.1, 1e-8);
    }
}

// From any evaluation on the flow may be undefined: the search ends soon, with the code of the step
// that could not be made, and never claims an orbit.
TEST(AutonomousOrbit, EndsWithTheCodeOfAFailingStep) {
    int failures = 0;
    for (const long good : {0, 1, 9, 50, 400, 1000, 3000}) {
        Probe::set(good, false);
        Search search(Probe::flow<Circles::flow>, 1e-8, 3.2, 0.1);
        if (search.run() == 1) {
            EXPECT_LE(Probe::calls, good);
            continue;
        }
        ++failures;
        const int code = TXErrorTrajex(search.tx.get());
        EXPECT_TRUE(code == 29 || code == 30);
        EXPECT_LT(Probe::calls, good + 5000);
    }
    EXPECT_GE(failures, 6);
    Probe::set(100, false);
    Search forced(Probe::flow<Circles::flow>, 1e-8, 3.2, 0.1);
    EXPECT_EQ(TXNonAutoOrbit(forced.tx.get(), 0, forced.y, forced.Phi, 2 * pi), 0);
    EXPECT_EQ(TXErrorTrajex(forced.tx.get()), 29);
    Probe::set(Probe::never);
}

}  // namespace
