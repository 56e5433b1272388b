// Curves of bifurcations of equilibria and of periodic orbits in two parameters, against exact
// ones.
#include <complex>

#include "continuation/recorder.hpp"

namespace {

using trajex::hopf, trajex::saddle_node, trajex::torus;

double c1, c2;

/// Folds where x^2 = c2 / 3, c1 = -2 x^3.
constexpr Flow cusp = [](auto, auto y, auto f) { f[0] = c1 + c2 * y[0] - y[0] * y[0] * y[0]; };
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

using Distance = double (*)(double first, double second, double y);
double unused = 7;
constexpr int until_it_ends = 1000;

/// Steps grow after every point, and halve after every failure. Returns the number of those.
std::size_t expect_steps(const std::vector<double>& sizes, double largest) {
    std::size_t halved = 0;
    for (std::size_t i = 1; i < sizes.size(); ++i) {
        const double last = sizes[i - 1];
        const bool failed = sizes[i] < last;
        EXPECT_NEAR(sizes[i], failed ? last / 2 : std::min(1.25 * last, largest), 2e-5);
        halved += failed;
    }
    return halved;
}

/// From a point of the curve, until the first parameter has passed a value. Steps are in the
/// direction of the parameter listed last, whichever is named first. The start is reported as the
/// record holds it.
void expect_exact(CurveRun kind, Flow flow, const std::vector<double>& y, double period, int type,
                  double& first, double& second, double step, int steps, double passed,
                  Distance distance) {
    const double start = first;
    for (const bool swapped : {false, true}) {
        const Temporarily put_back_first(first, first), put_back_second(second, second);
        Study run(flow, y, first, first, unused, second);
        run.record(period, type).c[1] = 77;
        const auto follow = [&] {
            return run.curve(kind, swapped ? second : first, swapped ? first : second, step);
        };
        run->MaxContSteps = steps;
        if (flow == cusp) run->MaxNewtSteps = 4;  // too few for long steps round the bend
        if (steps == until_it_ends) {
            run->TerminateOnFatalError = 1;
            EXPECT_EXIT(follow(), ExitedWithCode(1), "'TXEqui2DCont': Minimum stepsize reached");
            run->TerminateOnFatalError = 0;
        }
        ASSERT_EQ(follow(), steps != until_it_ends);
        EXPECT_EQ(run->ErrorCode, steps != until_it_ends ? 0 : 29);
        EXPECT_TRUE(steps == until_it_ends || int(run.points.size()) == steps + 1);
        EXPECT_EQ(run.points[0].c[1], 77);
        EXPECT_GT((run.points[1].c[2] - run.points[0].c[2]) * step, 0);
        for (std::size_t i = 1; i < run.points.size(); ++i) {
            const Point& p = run.points[i];
            EXPECT_NEAR(distance(p.c[0], p.c[2], p.y[0]), 0, 1e-5);
            EXPECT_EQ(p.steps, int(i) - 1);
        }
        EXPECT_GT((first - passed) * (passed - start), 0);
        run.expect_stopped_there();
        const std::size_t halved = expect_steps(run.step_sizes(), std::fabs(step));
        EXPECT_EQ(run.step_sizes().size(), run.points.size() - (steps != until_it_ends) + halved);
        EXPECT_TRUE(halved > 0 || flow != cusp);
    }
}

TEST(Curve, IsExact) {
    c1 = 2 / (3 * std::sqrt(3)), c2 = 1;  // through the cusp
    expect_exact(TXEqui2DCont, cusp, {-1 / std::sqrt(3)}, 0, saddle_node, c1, c2, -0.6, 25, -0.3,
                 [](double first, double second, double x) {
                     return std::hypot(first + 2 * x * x * x, second - 3 * x * x);
                 });
    c1 = c2 = 1;
    expect_exact(
        TXNonAuto2DCont, forced_parabola, {0}, 1, saddle_node, c1, c2, -1.5, 5, -4,
        [](double first, double second, double x) { return std::hypot(first - second, x); });
    c1 = -1, c2 = 0;
    expect_exact(TXEqui2DCont, ending, {0}, 0, saddle_node, c1, c2, 0.1, until_it_ends, -0.1,
                 [](double first, double second, double) { return first + std::sqrt(1 - second); });
    // To where the linearisation has a double zero: there the bordered system is singular.
    c1 = -1, c2 = 1;
    expect_exact(TXEqui2DCont, bogdanov_takens, {-1, 0}, 0, hopf, c1, c2, -0.1, until_it_ends, -0.1,
                 [](double first, double second, double) { return first + second * second; });
    double &sigma = Lorenz::sigma, &rho = Lorenz::rho, &beta = Lorenz::beta;
    const Temporarily critical(rho, 470.0 / 19);
    const double x = std::sqrt(beta * (rho - 1));
    expect_exact(TXEqui2DCont, Lorenz::flow, {x, x, rho - 1}, 0, hopf, beta, rho, -1, 30, 2.4,
                 [](double b, double r, double) { return 1 - 10 * (13 + b) / (9 - b) / r; });
    expect_exact(
        TXEqui2DCont, Lorenz::flow, {x, x, rho - 1}, 0, hopf, rho, sigma, 1, 30, 24.74,
        [](double r, double s, double) { return 1 - s * (s + 17.0 / 3) / (s - 11.0 / 3) / r; });
}

// In the order of what is wrong first; flags and record stay as they were.
TEST(Curve, ThatDoesNotStartChangesNothing) {
    c1 = c2 = 0;
    Study run(cusp, {0}, c1, 0, c2);
    run.record();
    TXSetCut(run.tx.get(), nullptr, 1e-9);
    const auto expect_code = [&](int code, CurveRun kind, double& second, double dc) {
        EXPECT_EQ(run.curve(kind, c1, second, dc), 0);
        EXPECT_EQ(run->ErrorCode, code);
        EXPECT_EQ(run->cp[0] + run->cp[1] + run->txb->cindi[0] + run->txb->cindi[2] + c1 + c2, 0);
        EXPECT_TRUE(run.points.empty());
    };
    for (const auto kind : {TXEqui2DCont, TXAuto2DCont, TXNonAuto2DCont}) {
        for (const double dc : {infinity, -infinity, not_a_number}) expect_code(29, kind, c2, dc);
        expect_code(26, kind, c1, 0.1);
    }
    expect_code(8, TXAuto2DCont, c2, 0.1);
    TXVarOpenTrajex(run.tx.get(), nullptr, 1e-7, 3, nullptr, 1e-7, &c1, &c1, &c2);
    expect_code(28, TXEqui2DCont, c2, 0.1);  // the record has room for two parameters only
    TXDestroyBif(run.tx.get(), run->txb);
    run.record();
    expect_code(26, TXEqui2DCont, c2, 0.1);  // one listed twice does not stand for a parameter
    TXVarOpenTrajex(run.tx.get(), nullptr, 1e-7, 2, nullptr, 1e-7, &c1, &c2);
    EXPECT_EQ(run.curve(TXNonAuto2DCont, c1, c2, 0.1), 0);
    EXPECT_EQ(run->ErrorCode, 29) << "no period";
}

// ---- Periodic orbits ----------------------------------------------------------------------------

// From near the point of codimension two; a search for it may also find nothing.
TEST(OrbitCurve, OfToriEndsInAPointOfCodimensionTwo) {
    for (const bool found : {true, false}) {
        c2 = found ? 0.002 : 0.0005;
        Study run(forced_bogdanov_takens, {0.5 - c2, 0}, c1, -c2 * c2, c2);
        run.record(1, torus);
        run->MaxContSteps = found ? 12 : 3;
        run->MaxNewtSteps = found ? 10 : 1;
        EXPECT_EQ(run.curve(TXNonAuto2DCont, c1, c2, -0.0002), 1);
        EXPECT_EQ(run.points.size(), found ? 14U : 4U);
        for (const Point& p : run.points) EXPECT_NEAR(p.c[0], -p.c[1] * p.c[1], 1e-6) << p.steps;
        run.expect_stopped_there();
        const std::size_t search = run.text.find("\nSearching for Co-dimension 2\n:");
        const char* const answer =
            found ? ":\n ---- CO-DIMENSION 2 ----\n   Step: 11       T=1   " : ":\n   Stepsize: ";
        EXPECT_NE(run.text.find(answer, search), std::string::npos) << run.text;
        EXPECT_NEAR(found ? std::hypot(c2, run->txb->y[0] - 0.5) : 0, 0, 1e-5);
    }
}

// It is looked for when it is near, and once it was found not soon again. The curve goes on in the
// direction in which it came, reflected at the one that led there: its next point lies on the plane
// across that.
TEST(OrbitCurve, GoesOnPastAPointOfCodimensionTwo) {
    c2 = 0.05;
    Study run(forced_parabola_beside_growth, {0, 0}, c1, 0.0125, c2);
    run.record(1, saddle_node);
    run->LambdaPert = 1e-5;
    run->MaxContSteps = 14;
    EXPECT_EQ(run.curve(TXNonAuto2DCont, c1, c2, -0.01), 1);
    for (const Point& p : run.points) EXPECT_NEAR(p.c[0], 5 * p.c[1] * p.c[1], 1e-6) << p.steps;
    EXPECT_LT(c2, -0.05);
    const std::size_t box = run.text.find("\n ---- CO-DIMENSION 2 ----\n");
    EXPECT_LT(run.text.find("Searching for Co-dimension 2\n:"), box);
    EXPECT_EQ(run.text.find("Searching", box), std::string::npos);
    const auto found = std::find_if(run.points.begin(), run.points.end(),
                                    [](const Point& p) { return std::fabs(p.c[1]) < 1e-6; });
    ASSERT_TRUE(found - run.points.begin() >= 2 && found + 1 < run.points.end());
    const auto secant = [&](std::ptrdiff_t i) {
        return std::complex(found[i].c[0] - found[i - 1].c[0], found[i].c[1] - found[i - 1].c[1]);
    };
    const std::complex came = secant(-1), led = secant(0), next = secant(1);
    const std::complex reflected = 2.0 * led / std::abs(led) - came / std::abs(came);
    EXPECT_NEAR(std::real(next * std::conj(reflected)) / std::abs(reflected), 0.01, 1e-6);
}

TEST(OrbitCurve, StopsAtTheLastPointWhenTheFlowFails) {
    const Temporarily b(Langford::b, 3.0), turns(Langford::c, 3.5);
    int interrupted = 0;
    for (long calls = 0; calls < 800000; calls += calls / 3 + 1) {
        Langford::b = 3;
        Study run(Probe::flow<Langford::flow>, {1, 0, 1}, Langford::lambda, 2, Langford::b);
        run.record(2 * pi / 3.5, torus);
        run->MaxContSteps = 3;
        Probe::set(calls, interrupted % 2 == 0);
        try {
            if (run.curve(TXAuto2DCont, Langford::lambda, Langford::b, 0.05) == 0) {
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
}

}  // namespace
