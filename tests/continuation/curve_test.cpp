// Curves of bifurcations of equilibria and of periodic orbits in two parameters, against exact
// ones.
#include "continuation/recorder.hpp"

namespace {

using trajex::hopf, trajex::saddle_node, trajex::torus;

double c1, c2;

/// Folds where x^2 = c2 / 3, c1 = -2 x^3.
constexpr Flow cusp = [](auto, auto y, auto f) { f[0] = c1 + c2 * y[0] - y[0] * y[0] * y[0]; };
/// Folds at x = 0 where c1 = c2.
constexpr Flow parabola = [](auto, auto y, auto f) { f[0] = c1 - c2 + y[0] * y[0]; };
/// Folds where c1 = -sqrt(1 - c2); nothing beyond c2 = 1. Is not asked where there is no point.
constexpr Flow ending = [](auto, auto y, auto f) {
    EXPECT_TRUE(std::isfinite(c1 + c2 + y[0]));
    f[0] = c1 + std::sqrt(1 - c2) + y[0] * y[0];
};
/// Folds at the orbit sin(2 pi t) where c1 = c2.
constexpr Flow forced_parabola = [](auto t, auto y, auto f) {
    const double u = y[0] - std::sin(2 * pi * t);
    f[0] = c1 - c2 + u * u + 2 * pi * std::cos(2 * pi * t);
};
/// The same where c1 = 5 c2^2, and beside it v' = c2 v: both multipliers are 1 at c2 = 0, and the
/// curve goes on.
constexpr Flow forced_parabola_beside_growth = [](auto t, auto y, auto f) {
    forced_parabola(t, y, f);
    f[0] += c2 - 5 * c2 * c2, f[1] = c2 * y[1];
};
/// u' = v, v' = c1 + c2 v + u^2 + u v has Hopf points where c1 = -c2^2, u = -c2, up to c2 = 0. A
/// forcing of the period 1 carries the equilibrium round: they become tori, with both multipliers 1
/// at the end.
constexpr Flow bogdanov_takens = [](auto, auto y, auto f) {
    f[0] = y[1], f[1] = c1 + c2 * y[1] + y[0] * y[0] + y[0] * y[1];
};
constexpr Flow forced_bogdanov_takens = [](auto t, auto y, auto f) {
    double shifted[] = {y[0] - 0.5 * std::cos(2 * pi * t), y[1] - 0.3 * std::sin(2 * pi * t)};
    bogdanov_takens(t, shifted, f);
    f[0] -= pi * std::sin(2 * pi * t), f[1] += 0.6 * pi * std::cos(2 * pi * t);
};

/// A study with a record at the parameters' present values.
template <class... Parameter>
struct At : Study {
    At(Flow flow, const std::vector<double>& guess, double period, int type, double& first,
       Parameter&... others)
        : Study(flow, guess, first, first, first, others...) {
        tx->JacPert = tx->ParamJacPert = 1e-7;
        tx->LambdaNewtAbsTol = 1e-7;
        record(period, type);
    }
};
struct AtCusp : At<double> {
    AtCusp() : At(cusp, {-1 / std::sqrt(3)}, 0, saddle_node, placed(), c2) {}
    static double& placed() { return c2 = 1, c1 = 2 / (3 * std::sqrt(3)); }
};

// ---- Equilibria ---------------------------------------------------------------------------------

TEST(EquilibriumCurve, PassesThroughACusp) {
    AtCusp run;
    run->NewtRelTol = run->NewtAbsTol = 0;  // curves are measured with other tolerances
    run->MaxContSteps = 60;
    ASSERT_EQ(run.curve(TXEqui2DCont, c1, c2, -0.05), 1);  // towards smaller c2
    ASSERT_EQ(run.points.size(), 61U);
    double nearest = 1;
    for (const Point& p : run.points) {
        const double x = p.y[0];
        EXPECT_NEAR(p.c[1], 3 * x * x, 1e-5) << p.steps;
        EXPECT_NEAR(p.c[0], -2 * x * x * x, 1e-5) << p.steps;
        nearest = std::min(nearest, std::fabs(x));
    }
    EXPECT_LT(nearest, 0.05);
    EXPECT_GT(run->txb->y[0], 0.5);
}

TEST(EquilibriumCurve, OfHopfPointsIsExactInBothDirections) {
    double &sigma = Lorenz::sigma, &rho = Lorenz::rho, &beta = Lorenz::beta;
    double &A = Brusselator::A, &B = Brusselator::B;
    const auto follow = [](Study& run, double& first, double& second, double dc,
                           double (*distance)(const std::vector<double>&)) {
        run->MaxContSteps = 30;
        ASSERT_EQ(run.curve(TXEqui2DCont, first, second, dc), 1);
        for (const Point& p : run.points) EXPECT_NEAR(distance(p.c), 0, 1e-4) << p.steps;
        const auto leading = std::size_t(std::max(run->txb->cindi[1], run->txb->cindi[2]));
        const auto moved = [&](const Point& p) { return p.c[leading] - run.points[0].c[leading]; };
        EXPECT_GT(moved(run.points[1]) * dc, 0);
        EXPECT_TRUE(std::any_of(run.points.begin(), run.points.end(),
                                [&](const Point& p) { return std::fabs(moved(p)) > 0.05; }));
    };
    for (const bool with_beta : {true, false}) {
        const Temporarily s(sigma, 10.0), r(rho, 470.0 / 19), b(beta, 8.0 / 3);
        const double x = std::sqrt(beta * (rho - 1));
        At lorenz(Lorenz::flow, {x, x, rho - 1}, 0, hopf, sigma, rho, beta);
        follow(lorenz, with_beta ? beta : rho, with_beta ? rho : sigma, with_beta ? -1 : 1,
               [](const auto& c) { return c[1] - c[0] * (c[0] + c[2] + 3) / (c[0] - c[2] - 1); });
        EXPECT_TRUE(with_beta ? sigma == 10 : beta == 8.0 / 3);
        const Temporarily start_A(A, 1.0), start_B(B, 2.0);
        At brusselator(Brusselator::flow, {1, 2}, 0, hopf, A, B);
        follow(brusselator, A, B, with_beta ? -0.2 : 0.3,
               [](const auto& c) { return c[1] - 1 - c[0] * c[0]; });
    }
}

// Along the straight curve of the parabola every digit is known.
TEST(EquilibriumCurve, ReportsItsPoints) {
    c1 = c2 = 3;
    At run(parabola, {0}, 0, saddle_node, c1, c2);
    run->jac = [](double, double* y, double** J) { J[0][0] = 2 * y[0]; };
    run->paramjac = [](double, double*, double** P) { P[0][0] = 1, P[0][1] = -1; };
    run->MaxContSteps = 2;
    c1 = c2 = 10;  // the start is reported as the record holds it
    ASSERT_EQ(run.curve(TXEqui2DCont, c1, c2, -std::sqrt(2)), 1);
    EXPECT_EQ(run.dc, std::sqrt(2));
    const auto report = [&](const char* step, const char* c) {
        return "   Step: " + std::string(step) + "      \n" +
               "   Parameters     State           Eigenvalue             Modulus\n" + "    " + c +
               "              0               0.000000-i0.000000    0           \n" + "    " + c +
               "             \n" + std::string(68, ':') + "\n";
    };
    EXPECT_EQ(run.text, report("0", "3") + "   Stepsize: 1.41421 .\n" + report("0", "9") +
                            "   Stepsize: 1.41421 .\n" + report("1", "8"));
}

TEST(EquilibriumCurve, StepsGrowAfterEveryPointAndHalveAfterEveryFailure) {
    AtCusp run;
    run->MaxContSteps = 25;
    run->MaxNewtSteps = 4;
    const double largest = 0.6;  // too much for the bend at the cusp
    ASSERT_EQ(run.curve(TXEqui2DCont, c1, c2, -largest), 1);
    const std::vector<double> sizes = run.step_sizes();
    std::size_t halved = 0;
    for (std::size_t i = 1; i < sizes.size(); ++i) {
        const double last = sizes[i - 1];
        const bool failed = sizes[i] < last;
        EXPECT_NEAR(sizes[i], failed ? last / 2 : std::min(1.25 * last, largest), 2e-5);
        halved += failed;
    }
    EXPECT_EQ(sizes.size(), 25 + halved);
    EXPECT_GT(halved, 0U);
}

// The curve of a square root ends; at the other end the linearisation has a double zero, and the
// bordered system is singular.
TEST(EquilibriumCurve, EndsAtItsLastPoint) {
    for (const bool at_root : {true, false}) {
        c1 = -1, c2 = at_root ? 0 : 1;
        const std::vector<double> start = at_root ? std::vector{0.0} : std::vector{-1.0, 0.0};
        At run(at_root ? ending : bogdanov_takens, start, 0, at_root ? saddle_node : hopf, c1, c2);
        EXPECT_EQ(run.curve(TXEqui2DCont, c1, c2, at_root ? 0.1 : -0.1), 0);
        EXPECT_EQ(run->ErrorCode, 29);
        EXPECT_NEAR(c2, at_root ? 1 : 0, 0.1);
        run.expect_stopped_there();
        for (const Point& p : run.points) {
            EXPECT_NEAR(p.c[0], at_root ? -std::sqrt(1 - p.c[1]) : -p.c[1] * p.c[1], 1e-5);
        }
    }
}

// In the order of what is wrong first; flags and record stay as they were.
TEST(Curve, ThatDoesNotStartChangesNothing) {
    c1 = c2 = 0;
    double stranger = 0;
    At run(parabola, {0}, 1, 0, c1, c2);
    TXSetCut(run.tx.get(), nullptr, 1e-9);
    const auto expect_code = [&](int code, CurveRun kind, double& second, double dc) {
        EXPECT_EQ(run.curve(kind, c1, second, dc), 0);
        EXPECT_EQ(run->ErrorCode, code);
        EXPECT_EQ(run->cp[0] + run->cp[1] + run->txb->cindi[0] + run->txb->cindi[2] + c1 + c2, 0);
        EXPECT_TRUE(run.points.empty());
    };
    for (const auto kind : {TXEqui2DCont, TXAuto2DCont, TXNonAuto2DCont}) {
        for (const double dc : {infinity, -infinity, not_a_number}) expect_code(29, kind, c2, dc);
        for (double* const second : {&c1, &stranger}) expect_code(26, kind, *second, 0.1);
    }
    expect_code(8, TXAuto2DCont, c2, 0.1);
    TXVarOpenTrajex(run.tx.get(), nullptr, 1e-7, 3, nullptr, 1e-7, &c1, &c1, &c2);
    expect_code(28, TXEqui2DCont, c2, 0.1);  // the record has room for two parameters only
    TXDestroyBif(run.tx.get(), run->txb);
    run.record();
    expect_code(26, TXEqui2DCont, c2, 0.1);  // one listed twice does not stand for a parameter
}

// ---- Periodic orbits ----------------------------------------------------------------------------

// From near the point of codimension two; a search for it may also find nothing.
TEST(OrbitCurve, OfToriEndsInAPointOfCodimensionTwo) {
    for (const bool found : {true, false}) {
        c2 = found ? 0.002 : 0.0005;
        c1 = -c2 * c2;
        At run(forced_bogdanov_takens, {0.5 - c2, 0}, 1, torus, c1, c2);
        run->LambdaNewtAbsTol = 1e-6;
        run->MaxContSteps = found ? 12 : 3;
        run->MaxNewtSteps = found ? 10 : 1;
        EXPECT_EQ(run.curve(TXNonAuto2DCont, c1, c2, -0.0002), 1);
        ASSERT_EQ(run.points.size(), found ? 14U : 4U);
        for (const Point& p : run.points) EXPECT_NEAR(p.c[0], -p.c[1] * p.c[1], 1e-6) << p.steps;
        run.expect_stopped_there();
        const std::size_t search = run.text.find("\nSearching for Co-dimension 2\n:");
        ASSERT_NE(search, std::string::npos);
        const char* const answer =
            found ? ":\n ---- CO-DIMENSION 2 ----\n   Step: 11       T=1   " : ":\n   Stepsize: ";
        EXPECT_NE(run.text.find(answer, search), std::string::npos) << run.text;
        EXPECT_NE(run.text.find(std::string(68, '=') + "\n"), std::string::npos);
        EXPECT_NEAR(found ? c2 : 0, 0, 1e-5);
        EXPECT_NEAR(found ? run->txb->y[0] : 0.5, 0.5, 1e-5);
    }
}

// It is looked for when it is near, and once it was found not soon again. The curve goes on in the
// direction in which it came, reflected at the one that led there: its next point lies on the plane
// across that.
TEST(OrbitCurve, GoesOnPastAPointOfCodimensionTwo) {
    c1 = 0.0125, c2 = 0.05;
    At run(forced_parabola_beside_growth, {0, 0}, 1, saddle_node, c1, c2);
    run->LambdaPert = 1e-5;
    run->LambdaNewtAbsTol = 1e-6;
    run->MaxContSteps = 14;
    EXPECT_EQ(run.curve(TXNonAuto2DCont, c1, c2, -0.01), 1);
    for (const Point& p : run.points) EXPECT_NEAR(p.c[0], 5 * p.c[1] * p.c[1], 1e-6) << p.steps;
    EXPECT_LT(c2, -0.05);
    const std::size_t box = run.text.find("\n ---- CO-DIMENSION 2 ----\n");
    EXPECT_LT(run.text.find("Searching for Co-dimension 2\n:"), box);
    EXPECT_EQ(run.text.find("Searching", box), std::string::npos);
    const auto at_zero = [](const Point& p) { return std::fabs(p.c[1]) < 1e-6; };
    const auto found = std::find_if(run.points.begin(), run.points.end(), at_zero);
    ASSERT_TRUE(found - run.points.begin() >= 2 && found + 1 < run.points.end());
    const auto secant = [&](std::ptrdiff_t i) {
        std::array<double, 2> v{found[i].c[0] - found[i - 1].c[0],
                                found[i].c[1] - found[i - 1].c[1]};
        return std::pair(v, std::hypot(v[0], v[1]));
    };
    const auto [came, came_length] = secant(-1);
    const auto [led, led_length] = secant(0);
    const auto [next, next_length] = secant(1);
    std::array<double, 2> v{};
    for (std::size_t i = 0; i < 2; ++i) v[i] = 2 * led[i] / led_length - came[i] / came_length;
    const double along = (next[0] * v[0] + next[1] * v[1]) / std::hypot(v[0], v[1]);
    EXPECT_NEAR(along, 0.01, 1e-6) << next_length;
}

TEST(OrbitCurve, FollowsAFoldInOneDimension) {
    c1 = c2 = 1;
    At run(forced_parabola, {0}, 1, saddle_node, c1, c2);
    run->LambdaPert = 1e-5;
    run->MaxContSteps = 5;
    ASSERT_EQ(run.curve(TXNonAuto2DCont, c1, c2, -std::sqrt(2)), 1);
    double at = 1;
    for (const Point& p : run.points) {
        EXPECT_NEAR(p.c[0], p.c[1], 1e-6);
        EXPECT_NEAR(p.y[0], 0, 1e-5);
        EXPECT_NEAR(p.c[1], at--, 1e-5);
    }
    run->txb->T = 0;  // no period
    EXPECT_EQ(run.curve(TXNonAuto2DCont, c1, c2, 0.1), 0);
    EXPECT_EQ(run->ErrorCode, 29);
}

/// At lambda = 2 on the curve of tori b = 3 lambda / 2 + d (1 - lambda^2 / 4), where the cycle is
/// r = z = lambda / 2. The direction is that of the parameter listed first; where the flow fails
/// the run stops at the last point.
TEST(OrbitCurve, StopsAtTheLastPointWhenTheFlowFails) {
    double &lambda = Langford::lambda, &b = Langford::b;
    const Temporarily put_back_lambda(lambda, 2.0), put_back_b(b, 3.0), turns(Langford::c, 3.5);
    const auto open_here = [&](double& first, double& second) {
        lambda = 2, b = 3;
        return At(Probe::flow<Langford::flow>, {1, 0, 1}, 2 * pi / Langford::c, torus, first,
                  second);
    };
    for (const bool lambda_first : {true, false}) {
        const At run = open_here(lambda_first ? lambda : b, lambda_first ? b : lambda);
        run->MaxContSteps = 1;
        const TextStream path;
        double dc = -0.01;
        ASSERT_EQ(TXAuto2DCont(run.tx.get(), &lambda, &b, &dc, 2, static_cast<FILE*>(path)), 1);
        EXPECT_LT(*run->c[0], lambda_first ? 2 : 3);
        EXPECT_EQ(path.text().substr(0, 10), "2 3 1 0 1 ");
    }
    int interrupted = 0;
    for (long calls = 0; calls < 800000; calls += calls / 3 + 1) {
        At run = open_here(lambda, b);
        run->MaxContSteps = 3;
        Probe::set(calls, interrupted % 2 == 0);
        try {
            if (run.curve(TXAuto2DCont, lambda, b, 0.05) == 0) {
                ++interrupted;
                EXPECT_EQ(run->ErrorCode, 29);
            }
        } catch (const Probe::Thrown&) {
            ++interrupted;
        }
        Probe::set(Probe::never);
        run.expect_stopped_there();
        EXPECT_EQ(run->nparam + run->TerminateOnFatalError, 2);
    }
    EXPECT_GT(interrupted, 20);
    At run = open_here(lambda, b);
    run->TerminateOnFatalError = 1;
    Probe::set(100000, false);
    EXPECT_EXIT(run.curve(TXAuto2DCont, lambda, b, 0.05), ExitedWithCode(1),
                "'TXAuto2DCont': Minimum stepsize reached");
    Probe::set(Probe::never);
}

}  // namespace
