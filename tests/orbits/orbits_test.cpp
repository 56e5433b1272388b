// Searches for equilibria and for periodic orbits, against those with known place, period and
// multipliers; searches that must end, and answers that are none.
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
constexpr jac_t slope_of_root = [](auto, auto y, auto J) { J[0][0] = 2 * y[0]; };
// Newton's method diverges beyond |y| = 1.39.
constexpr Flow arctangent = [](auto, auto y, auto f) { f[0] = std::atan(y[0]); };
constexpr Flow no_root = [](auto, auto y, auto f) { f[0] = y[0] * y[0] + 1; };
constexpr Flow undefined_right = [](auto, auto y, auto f) { f[0] = y[0] > 1 ? NAN : y[0] - 2; };
// Not finite where a component is 0, and has no tolerance then: it is not examined, but has to be a
// number.
constexpr Flow logarithm = [](auto, auto y, auto f) { f[0] = std::log(y[0]); };
constexpr Flow reciprocal = [](auto, auto y, auto f) { f[0] = 1 / (y[0] * y[0]); };
constexpr Flow nowhere = [](auto, auto y, auto f) { f[0] = std::sqrt(-1 - y[0] * y[0]); };

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
                       {root_of_two, slope_of_root, 0, 10, true},  // a singular start
                       {root_of_two, slope_of_root, std::sqrt(2.0), 1, false},
                       {arctangent, nullptr, 20, 100, false},
                       {no_root, slope_of_root, 0.3, 30, false},
                       {undefined_right, nullptr, 0.5, 10, false},
                       {undefined_right, nullptr, 3, 10, false},
                       {logarithm, nullptr, 0, 10, false},
                       {reciprocal, nullptr, 0, 10, false},
                       {nowhere, nullptr, 0, 10, false}};
    for (const auto& c : cases) {
        const OpenHandle tx = open_variational(c.f, 1, c.jac, nullptr, 1e-10);
        TXSetMaxNewtSteps(tx.get(), c.limit);
        (c.guess == 0 && !c.found ? tx->NewtAbsTol : tx->NewtRelTol) = 0;
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
        tx->cp[0] = 1;  // there is no room for a column of sensitivities
    }
    ~Search() { EXPECT_TRUE(Phi.untouched_outside()); }
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
    for (const int limit : {0, 1, 2}) {
        Search search(Circles::flow, 1e-10, 3.2, 0.1);
        TXSetMaxNewtSteps(search.tx.get(), limit);
        EXPECT_EQ(search.run(), limit == 2);
    }
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
        EXPECT_GT(search.y[0], 1.8016) << guess;
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

/// x' = (1 - arctan x) / 10 draws Newton's method away from its equilibrium; the other component is
/// stiffer the farther away it is, with a power of the distance.
template <int power>
void receding(double t, double* y, double* f) {
    f[0] = 0.1 * (1 - std::atan(y[0]));
    f[1] = (1 + std::pow(std::fabs(y[0]), power)) * (std::cos(t) - y[1]);
}
template <int power>
void receding_slope(double t, double* y, double** J) {
    const double distance = std::fabs(y[0]);
    J[0][0] = -0.1 / (1 + y[0] * y[0]);
    J[0][1] = 0;
    J[1][0] = power * std::pow(distance, power - 1) * (y[0] < 0 ? -1 : 1) * (std::cos(t) - y[1]);
    J[1][1] = -1 - std::pow(distance, power);
}

// From 5 the next iterate is far away, or near enough but with a period that takes too many steps.
TEST(SearchLimits, ForcedOrbitsThatRunAwayAreNotFollowed) {
    struct {
        void (*flow)(double, double*, double*);
        jac_t slope;
        long evaluations;
    } const cases[] = {{Probe::flow<receding<1>>, receding_slope<1>, 300'000},
                       {Probe::flow<receding<3>>, receding_slope<3>, 30'000'000}};
    for (const auto& c : cases) {
        const OpenHandle tx = open_variational(c.flow, 2, c.slope, nullptr, 1e-6);
        const Temporarily limit(Probe::left, c.evaluations);
        double y[] = {5, 0.5};
        Matrix Phi(2, 2);
        int result = 1;
        EXPECT_NO_THROW(result = TXNonAutoOrbit(tx.get(), 0, y, Phi, 2 * pi));
        EXPECT_EQ(result, 0);
        EXPECT_EQ(tx->ErrorCode, 30);
    }
}

double damping = 0;
constexpr Flow damped = [](auto, auto y, auto f) { f[0] = y[1], f[1] = -y[0] - damping * y[1]; };

// A small orbit is one, as long as the tolerance tells its points apart.
TEST(SearchLimits, AnEquilibriumIsNoOrbit) {
    for (const double strength : {0.02, 0.2, 0.6}) {
        for (const double guess : {1e-9, 0.5, 5.0}) {
            const Temporarily set(damping, strength);
            Search search(damped, 1e-9, guess, 0.1 * guess);
            TXSetCut(search.tx.get(), second_component, 1e-9);
            EXPECT_EQ(search.run(), 0);
            EXPECT_EQ(search.tx->ErrorCode, 20) << strength << ' ' << guess;
            EXPECT_LT(std::hypot(search.y[0], search.y[1]), 1e-7);
        }
    }
    const Temporarily small(Cycle::a, 1e-10);
    for (const double tolerance : {1e-7, 3e-5, 1e-4}) {
        Search search(Cycle::flow, 1e-12, 1e-5, 1e-7);
        search.tx->NewtAbsTol = tolerance;
        EXPECT_EQ(search.run(), tolerance < 1e-5);
        EXPECT_EQ(search.tx->ErrorCode, tolerance < 1e-5 ? 0 : 20);
    }
}

}  // namespace
