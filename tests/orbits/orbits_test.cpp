// Searches for equilibria and for periodic orbits, against those with known place, period and
// multipliers; searches that must end, and answers that are none.
#include "support.hpp"

namespace {

constexpr double root = std::numbers::sqrt2;
constexpr Flow line = [](auto, auto y, auto f) { f[0] = y[0] - root; };
constexpr jac_t slope_of_line = [](auto, auto, auto J) { J[0][0] = 1; };
constexpr Flow square = [](auto, auto y, auto f) { f[0] = y[0] * y[0] - 2; };
constexpr jac_t slope_of_square = [](auto, auto y, auto J) { J[0][0] = 2 * y[0]; };
// Newton's method diverges beyond |y| = 1.39.
constexpr Flow arctangent = [](auto, auto y, auto f) { f[0] = std::atan(y[0]); };
constexpr Flow no_root = [](auto, auto y, auto f) { f[0] = y[0] * y[0] + 1; };
constexpr Flow undefined_right = [](auto, auto y, auto f) { f[0] = y[0] > 1 ? NAN : y[0] - 2; };
// Not finite where a component is 0, and has no tolerance then: it is not examined, but has to be a
// number.
constexpr Flow logarithm = [](auto, auto y, auto f) { f[0] = std::log(y[0]); };
constexpr Flow reciprocal = [](auto, auto y, auto f) { f[0] = 1 / (y[0] * y[0]); };
constexpr Flow nowhere = [](auto, auto y, auto f) { f[0] = std::sqrt(-1 - y[0] * y[0]); };

// A linear system takes one correction and a second look, the root itself one look, and so does
// any point when there are no tolerances; the look at the limit never counts. Whatever the reason
// of a failure, it is code 30, and the guess is back in place.
TEST(EquiPoint, EndsAtARootOrAtItsGuess) {
    struct {
        Flow f;
        jac_t jac;
        double guess, relative, absolute, end;  // the end is the guess where none is found
        int limit;
        bool found;
    } const cases[] = {{line, slope_of_line, 0, 1e-8, 1e-8, root, 3, true},
                       {line, slope_of_line, 0, 1e-8, 1e-8, 0, 2, false},
                       {line, slope_of_line, root, 1e-8, 1e-8, root, 2, true},
                       {line, slope_of_line, 5, 0, 0, 5, 2, true},
                       {square, slope_of_square, 1, 0, 1e-8, 1, 5, false},
                       {square, slope_of_square, 1, 0, 1e-8, root, 6, true},
                       {square, nullptr, 1, 0, 1e-8, root, 10, true},
                       {square, slope_of_square, 0, 0, 1e-8, root, 10, true},  // singular at first
                       {square, slope_of_square, root, 0, 1e-8, root, 1, false},
                       {arctangent, nullptr, 20, 0, 1e-8, 20, 100, false},
                       {no_root, slope_of_square, 0.3, 0, 1e-8, 0.3, 30, false},
                       {undefined_right, nullptr, 0.5, 0, 1e-8, 0.5, 10, false},
                       {undefined_right, nullptr, 3, 0, 1e-8, 3, 10, false},
                       {logarithm, nullptr, 0, 1e-8, 0, 0, 10, false},
                       {reciprocal, nullptr, 0, 1e-8, 0, 0, 10, false},
                       {nowhere, nullptr, 0, 1e-8, 0, 0, 10, false}};
    for (const auto& c : cases) {
        const OpenHandle tx = open_variational(c.f, 1, c.jac, nullptr, 1e-10);
        TXSetMaxNewtSteps(tx.get(), c.limit);
        tx->NewtRelTol = c.relative, tx->NewtAbsTol = c.absolute;
        double y[] = {c.guess};
        EXPECT_EQ(TXEquiPoint(tx.get(), y), c.found);
        EXPECT_EQ(tx->ErrorCode, c.found ? 0 : 30);
        EXPECT_NEAR(y[0], c.end, c.end == c.guess ? 0 : 1e-9);
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
    /// 1, or the negative code of the failure, 0 where it has none.
    int run(int turns = 1, double t = 0) {
        return TXAutoOrbit(tx.get(), t, y, Phi, turns, &T) == 1 ? 1 : -tx->ErrorCode;
    }
};

/// The periodic solution is (cos t + sin t) / 2.
constexpr Flow forced_decay = [](auto t, auto y, auto f) { f[0] = -y[0] + std::cos(t); };

// Started in another phase, and where the orbit of twice the period is the same one. A linear
// system takes one correction and a second look; the look at the limit never counts.
TEST(ForcedOrbit, MeetsTheClosedForm) {
    const OpenHandle tx = open_variational(forced_decay, 1, nullptr, nullptr, 1e-10);
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

// From inside, from outside, as one of several turns, and on a plane across the flow at any time.
TEST(AutonomousOrbit, FindsTheCircle) {
    for (const int p : {1, 2, 3}) {
        for (const double guess : {2.8, 3.0, 3.2}) {
            Search search(Circles::flow, 1e-10, guess, 0.1);
            if (p == 2) {
                TXSetCut(search.tx.get(), nullptr, 1e-9);
                EXPECT_EQ(search.run(p), -8) << "no section yet";
                TXSetAutoCut(search.tx.get(), 0, search.y);
            }
            ASSERT_EQ(search.run(p, 50 * (p - 1)), 1);
            EXPECT_NEAR(search.T, p * 2 * pi, 1e-7);
            EXPECT_NEAR(std::hypot(search.y[0] - 2, search.y[1]), 1, 4e-8);
            EXPECT_LT(std::fabs((p == 2 ? TXAutoCut(search.tx.get(), 0, search.y) : search.y[1])),
                      1e-8);
            EXPECT_EQ(search.tx->nparam, 1);
            double er[2], ei[2];
            ASSERT_EQ(TXEigen(search.tx.get(), 2, search.Phi, er, ei), 1);
            EXPECT_NEAR(std::fmax(er[0], er[1]), 1, 1e-6);
            EXPECT_NEAR(std::fmin(er[0], er[1]), std::exp(-0.4 * pi * p), 1e-6);
            EXPECT_EQ(ei[0], 0);
        }
    }
    EXPECT_EQ(Search(Circles::flow, 1e-10, 3.2, 0.3).run(0), -30);  // no turns
    Search found(Circles::flow, 1e-10, 3, 1e-10);  // on the orbit: no correction moves it
    found.tx->NewtAbsTol = 1e-6;
    ASSERT_EQ(found.run(), 1);
    EXPECT_TRUE(found.y[0] == 3 && found.y[1] == 1e-10);
    EXPECT_NEAR(found.T, 2 * pi, 1e-8);
    for (const int limit : {0, 1, 2}) {
        Search search(Circles::flow, 1e-10, 3.2, 0.1);
        TXSetMaxNewtSteps(search.tx.get(), limit);
        EXPECT_EQ(search.run(), limit == 2 ? 1 : -30);
    }
    for (const int limit : {0, 1, 3}) {  // the section is not reached: no code
        Search lost(Circles::flow, 1e-10, 2.1, 0.1);
        TXSetMaxPeriodSteps(lost.tx.get(), limit);
        EXPECT_EQ(lost.run(), 0);
        EXPECT_EQ(lost.T, -1);
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
    for (const long good : {0, 1, 9, 50, 400, 1000, 3000, 100000}) {
        Probe::set(good, false);
        Search search(Probe::flow<Circles::flow>, 1e-8, 3.2, 0.1);
        const int result = search.run();
        EXPECT_TRUE(good == 100000 ? result == 1 : result == -29 || result == -30)
            << good << result;
        EXPECT_LT(Probe::calls, good + 5000);
    }
    Probe::set(100, false);
    Search forced(Probe::flow<Circles::flow>, 1e-8, 3.2, 0.1);
    EXPECT_EQ(TXNonAutoOrbit(forced.tx.get(), 0, forced.y, forced.Phi, 2 * pi), 0);
    EXPECT_EQ(forced.tx->ErrorCode, 29);
    Probe::set(Probe::never);
}

/// x' = (1 - arctan x) / 10 draws Newton's method away from its equilibrium; the other component is
/// stiffer the farther away it is, with a power of the distance.
template <int power>
void receding(double t, double* y, double* f) {
    f[0] = 0.1 * (1 - std::atan(y[0]));
    f[1] = (1 + std::pow(std::fabs(y[0]), power)) * (std::cos(t) - y[1]);
}

// From 5 the next iterate is far away, or near enough but with a period that takes too many steps:
// the evaluations do not run out.
TEST(SearchLimits, ForcedOrbitsThatRunAwayAreNotFollowed) {
    const std::pair<Flow, long> cases[] = {{Probe::flow<receding<1>>, 300'000},
                                           {Probe::flow<receding<3>>, 50'000'000}};
    for (const auto& [flow, evaluations] : cases) {
        const OpenHandle tx = open_variational(flow, 2, nullptr, nullptr, 1e-6);
        const Temporarily limit(Probe::left, evaluations);
        double y[] = {5, 0.5};
        Matrix Phi(2, 2);
        EXPECT_EQ(TXNonAutoOrbit(tx.get(), 0, y, Phi, 2 * pi), 0);
        EXPECT_EQ(tx->ErrorCode, 30);
    }
}

double damping = 0;
constexpr Flow damped = [](auto, auto y, auto f) { f[0] = y[1], f[1] = -y[0] - damping * y[1]; };

// A small orbit is one, as long as the tolerance tells its points apart.
TEST(SearchLimits, AnEquilibriumIsNoOrbit) {
    const auto search_near = [](Flow flow, double guess, double RelTol, double tolerance) {
        Search search(flow, RelTol, guess, 0.1 * guess);
        search.tx->NewtAbsTol = tolerance;
        const int result = search.run();
        EXPECT_LT(std::hypot(search.y[0], search.y[1]), flow == damped ? 1e-7 : 1.1e-5);
        return result;
    };
    for (const double strength : {0.02, 0.2, 0.6}) {
        for (const double guess : {1e-9, 0.5, 5.0}) {
            const Temporarily set(damping, strength);
            EXPECT_EQ(search_near(damped, guess, 1e-9, 1e-7), -20) << strength << ' ' << guess;
        }
    }
    const Temporarily small(Cycle::a, 1e-10);
    for (const double tolerance : {1e-7, 3e-5, 1e-4}) {
        EXPECT_EQ(search_near(Cycle::flow, 1e-5, 1e-12, tolerance), tolerance < 1e-5 ? 1 : -20);
    }
}

}  // namespace
