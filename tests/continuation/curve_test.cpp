// Curves of bifurcations of equilibria and of periodic orbits in two parameters, against exact
// ones.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include "bifurcation/record.hpp"
#include "continuation/recorder.hpp"
#include "core/guards.hpp"
#include "handles.hpp"
#include "systems.hpp"
#include "tx.h"

namespace {

using namespace testing_support;
using trajex::Temporarily;

double c1, c2;

/// Folds where x^2 = c2 / 3, c1 = -2 x^3.
void cusp(double, double* y, double* f) {
    f[0] = c1 + c2 * y[0] - y[0] * y[0] * y[0];
}
/// Folds at x = 0 where c1 = c2.
void parabola(double, double* y, double* f) {
    f[0] = c1 - c2 + y[0] * y[0];
}
/// Folds where c1 = -sqrt(1 - c2); nothing beyond c2 = 1. Is not asked where there is no point.
void ending(double, double* y, double* f) {
    EXPECT_TRUE(std::isfinite(c1 + c2 + y[0]));
    f[0] = c1 + std::sqrt(1 - c2) + y[0] * y[0];
}

/// Folds at the orbit sin(2 pi t) where c1 = c2.
void forced_parabola(double t, double* y, double* f) {
    const double u = y[0] - std::sin(2 * pi * t);
    f[0] = c1 - c2 + u * u + 2 * pi * std::cos(2 * pi * t);
}

/// Beside it v' = c2 v: both multipliers are 1 at c2 = 0, and the curve goes on.
void forced_parabola_beside_growth(double t, double* y, double* f) {
    forced_parabola(t, y, f);
    f[1] = c2 * y[1];
}

/// u' = v, v' = c1 + c2 v + u^2 + u v has Hopf points where c1 = -c2^2, u = -c2, up to c2 = 0. A
/// forcing of the period 1 carries the equilibrium round: they become tori, with both multipliers 1
/// at the end.
void bogdanov_takens(double, double* y, double* f) {
    f[0] = y[1];
    f[1] = c1 + c2 * y[1] + y[0] * y[0] + y[0] * y[1];
}
void forced_bogdanov_takens(double t, double* y, double* f) {
    const double u = y[0] - 0.5 * std::cos(2 * pi * t);
    const double v = y[1] - 0.3 * std::sin(2 * pi * t);
    f[0] = v - pi * std::sin(2 * pi * t);
    f[1] = c1 + c2 * v + u * u + u * v + 0.6 * pi * std::cos(2 * pi * t);
}

/// A handle with a record at the parameters' present values.
template <class... Parameter>
OpenHandle open_at(void (*fcn)(double, double*, double*), const std::vector<double>& y, double T,
                   trajex::BifType type, Parameter&... parameters) {
    OpenHandle tx = open_study(fcn, static_cast<int>(y.size()), parameters...);
    tx->JacPert = tx->ParamJacPert = 1e-7;
    tx->LambdaNewtAbsTol = 1e-7;
    start_at(*tx, y, T, type);
    return tx;
}
OpenHandle open_at_cusp() {
    c1 = 2 / (3 * std::sqrt(3));
    c2 = 1;
    return open_at(cusp, {-1 / std::sqrt(3)}, 0, trajex::saddle_node, c1, c2);
}

// ---- Equilibria ---------------------------------------------------------------------------------

TEST(EquilibriumCurve, PassesThroughACusp) {
    const OpenHandle tx = open_at_cusp();
    tx->NewtRelTol = tx->NewtAbsTol = 0;  // curves are measured with other tolerances
    tx->MaxContSteps = 60;
    Recording run;
    ASSERT_EQ(run.curve(TXEqui2DCont, tx, c1, c2, -0.05), 1);  // towards smaller c2
    ASSERT_EQ(run.points.size(), 61U);
    double nearest = 1;
    for (const Point& p : run.points) {
        const double x = p.y[0];
        EXPECT_NEAR(p.c[1], 3 * x * x, 1e-5) << p.steps;
        EXPECT_NEAR(p.c[0], -2 * x * x * x, 1e-5) << p.steps;
        nearest = std::min(nearest, std::fabs(x));
    }
    EXPECT_LT(nearest, 0.05);
    EXPECT_GT(tx->txb->y[0], 0.5);
}

TEST(EquilibriumCurve, OfHopfPointsIsExactInBothDirections) {
    double &sigma = Lorenz::sigma, &rho = Lorenz::rho, &beta = Lorenz::beta;
    double &A = Brusselator::A, &B = Brusselator::B;
    const auto follow = [](const OpenHandle& tx, double& first, double& second, double dc,
                           double (*distance)(const std::vector<double>&)) {
        tx->MaxContSteps = 30;
        Recording run;
        ASSERT_EQ(run.curve(TXEqui2DCont, tx, first, second, dc), 1);
        for (const Point& p : run.points) EXPECT_NEAR(distance(p.c), 0, 1e-4) << p.steps;
        const auto leading = std::size_t(std::max(tx->txb->cindi[1], tx->txb->cindi[2]));
        EXPECT_GT((run.points[1].c[leading] - run.points[0].c[leading]) * dc, 0);
        const auto far = [&](const Point& p) {
            return std::fabs(p.c[leading] - run.points[0].c[leading]) > 0.05;
        };
        EXPECT_TRUE(std::any_of(run.points.begin(), run.points.end(), far));
    };
    for (const bool with_beta : {true, false}) {
        const Temporarily s(sigma, 10.0), r(rho, 470.0 / 19), b(beta, 8.0 / 3);
        const double x = std::sqrt(beta * (rho - 1));
        const OpenHandle tx =
            open_at(Lorenz::flow, {x, x, rho - 1}, 0, trajex::hopf, sigma, rho, beta);
        follow(tx, with_beta ? beta : rho, with_beta ? rho : sigma, with_beta ? -1 : 1,
               [](const auto& c) { return c[1] - c[0] * (c[0] + c[2] + 3) / (c[0] - c[2] - 1); });
        EXPECT_TRUE(with_beta ? sigma == 10 : beta == 8.0 / 3);
        const Temporarily start_A(A, 1.0), start_B(B, 2.0);
        follow(open_at(Brusselator::flow, {1, 2}, 0, trajex::hopf, A, B), A, B,
               with_beta ? -0.2 : 0.3, [](const auto& c) { return c[1] - 1 - c[0] * c[0]; });
    }
}

// Along the straight curve of the parabola every digit is known.
TEST(EquilibriumCurve, ReportsItsPoints) {
    c1 = c2 = 3;
    const OpenHandle tx = open_at(parabola, {0}, 0, trajex::saddle_node, c1, c2);
    tx->jac = [](double, double* y, double** J) { J[0][0] = 2 * y[0]; };
    tx->paramjac = [](double, double*, double** P) { P[0][0] = 1, P[0][1] = -1; };
    tx->MaxContSteps = 2;
    c1 = c2 = 10;  // the start is reported as the record holds it
    Recording run;
    ASSERT_EQ(run.curve(TXEqui2DCont, tx, c1, c2, -std::sqrt(2)), 1);
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
    const OpenHandle tx = open_at_cusp();
    tx->MaxContSteps = 25;
    tx->MaxNewtSteps = 4;
    const double largest = 0.6;  // too much for the bend at the cusp
    Recording run;
    ASSERT_EQ(run.curve(TXEqui2DCont, tx, c1, c2, -largest), 1);
    const std::vector<double> sizes = run.step_sizes();
    std::size_t halved = 0;
    for (std::size_t k = 1; k < sizes.size(); ++k) {
        const double last = sizes[k - 1];
        const bool failed = sizes[k] < last;
        EXPECT_NEAR(sizes[k], failed ? last / 2 : std::min(1.25 * last, largest), 2e-5);
        halved += failed;
    }
    EXPECT_EQ(sizes.size(), 25 + halved);
    EXPECT_GT(halved, 0U);
}

TEST(EquilibriumCurve, EndsWithACode) {
    c1 = -1;
    c2 = 0;
    const OpenHandle tx = open_at(ending, {0}, 0, trajex::saddle_node, c1, c2);
    Recording run;
    const auto expect_code = [&](int code, double dc = 0.1) {
        EXPECT_EQ(run.curve(TXEqui2DCont, tx, c1, c2, dc), 0);
        EXPECT_EQ(tx->ErrorCode, code);
    };
    for (const double dc : {infinity, not_a_number}) expect_code(29, dc);
    EXPECT_EQ(c2, 0);
    expect_code(29);
    EXPECT_GT(c2, 0.9);
    expect_stopped_at(*tx, run.points.back());
    for (const Point& p : run.points) EXPECT_NEAR(p.c[0], -std::sqrt(1 - p.c[1]), 1e-5);
    TXVarOpenTrajex(tx.get(), nullptr, 1e-7, 3, nullptr, 1e-7, &c1, &c1, &c2);
    expect_code(28);  // the record has room for two parameters only
    TXDestroyBif(tx.get(), tx->txb);
    start_at(*tx, {0});
    expect_code(26);  // a parameter listed twice does not stand for one
}

// The linearisation has a double zero there, and the bordered system is singular.
TEST(EquilibriumCurve, StopsBeforeABogdanovTakensPoint) {
    c1 = -1;
    c2 = 1;
    const OpenHandle tx = open_at(bogdanov_takens, {-1, 0}, 0, trajex::hopf, c1, c2);
    Recording run;
    EXPECT_EQ(run.curve(TXEqui2DCont, tx, c1, c2, -0.1), 0);
    EXPECT_EQ(tx->ErrorCode, 29);
    for (const Point& p : run.points) EXPECT_NEAR(p.c[0], -p.c[1] * p.c[1], 1e-5) << p.steps;
    EXPECT_NEAR(c2, 0, 0.1);
    expect_stopped_at(*tx, run.points.back());
}

// ---- Periodic orbits ----------------------------------------------------------------------------

// From near the point of codimension two; a search for it may also find nothing.
TEST(OrbitCurve, OfToriEndsInAPointOfCodimensionTwo) {
    for (const bool found : {true, false}) {
        c2 = found ? 0.002 : 0.0005;
        c1 = -c2 * c2;
        const OpenHandle tx =
            open_at(forced_bogdanov_takens, {0.5 - c2, 0}, 1, trajex::torus, c1, c2);
        tx->LambdaNewtAbsTol = 1e-6;
        tx->MaxContSteps = found ? 12 : 3;
        tx->MaxNewtSteps = found ? 10 : 1;
        Recording run;
        EXPECT_EQ(run.curve(TXNonAuto2DCont, tx, c1, c2, -0.0002), 1);
        ASSERT_EQ(run.points.size(), found ? 14U : 4U);
        for (const Point& p : run.points) EXPECT_NEAR(p.c[0], -p.c[1] * p.c[1], 1e-6) << p.steps;
        expect_stopped_at(*tx, run.points.back());
        const std::size_t search = run.text.find("\nSearching for Co-dimension 2\n:");
        ASSERT_NE(search, std::string::npos);
        const char* const answer =
            found ? ":\n ---- CO-DIMENSION 2 ----\n   Step: 11       T=1   " : ":\n   Stepsize: ";
        EXPECT_NE(run.text.find(answer, search), std::string::npos) << run.text;
        EXPECT_NE(run.text.find(std::string(68, '=') + "\n"), std::string::npos);
        EXPECT_NEAR(found ? c2 : 0, 0, 1e-5);
        EXPECT_NEAR(found ? tx->txb->y[0] : 0.5, 0.5, 1e-5);
    }
}

// It is looked for when it is near, and once it was found not soon again.
TEST(OrbitCurve, GoesOnPastAPointOfCodimensionTwo) {
    c1 = c2 = 0.05;
    const OpenHandle tx =
        open_at(forced_parabola_beside_growth, {0, 0}, 1, trajex::saddle_node, c1, c2);
    tx->LambdaPert = 1e-5;
    tx->LambdaNewtAbsTol = 1e-6;
    tx->MaxContSteps = 14;
    Recording run;
    EXPECT_EQ(run.curve(TXNonAuto2DCont, tx, c1, c2, -0.01), 1);
    for (const Point& p : run.points) EXPECT_NEAR(p.c[0], p.c[1], 1e-6) << p.steps;
    EXPECT_LT(c2, -0.05);
    const std::size_t search = run.text.find("Searching for Co-dimension 2\n:");
    EXPECT_NE(run.text.find("\n ---- CO-DIMENSION 2 ----\n", search), std::string::npos);
    EXPECT_EQ(search, run.text.rfind("Searching"));
    const auto at_zero = [](const Point& p) { return std::fabs(p.c[1]) < 1e-6; };
    EXPECT_TRUE(std::any_of(run.points.begin(), run.points.end(), at_zero));
}

TEST(OrbitCurve, FollowsAFoldInOneDimension) {
    c1 = c2 = 1;
    const OpenHandle tx = open_at(forced_parabola, {0}, 1, trajex::saddle_node, c1, c2);
    tx->LambdaPert = 1e-5;
    tx->MaxContSteps = 5;
    Recording run;
    ASSERT_EQ(run.curve(TXNonAuto2DCont, tx, c1, c2, -std::sqrt(2)), 1);
    double at = 1;
    for (const Point& p : run.points) {
        EXPECT_NEAR(p.c[0], p.c[1], 1e-6);
        EXPECT_NEAR(p.y[0], 0, 1e-5);
        EXPECT_NEAR(p.c[1], at--, 1e-5);
    }
    tx->txb->T = 0;  // no period
    EXPECT_EQ(run.curve(TXNonAuto2DCont, tx, c1, c2, 0.1), 0);
    EXPECT_EQ(tx->ErrorCode, 29);
}

/// At lambda = 2 on the curve of tori b = 3 lambda / 2 + d (1 - lambda^2 / 4), where the cycle is
/// r = z = lambda / 2.
class LangfordCycle : public testing::Test {
  protected:
    OpenHandle open_here(double& first, double& second) const {
        lambda = 2;
        b = 3;
        return open_at(Probe::flow<Langford::flow>, {1, 0, 1}, 2 * pi / Langford::c, trajex::torus,
                       first, second);
    }
    double &lambda = Langford::lambda, &b = Langford::b;
    const Temporarily<double> lambda_{lambda, 2}, b_{b, 3}, c_{Langford::c, 3.5};
    Recording run;
};

TEST_F(LangfordCycle, DirectionIsThatOfTheParameterListedFirst) {
    for (const bool lambda_first : {true, false}) {
        const OpenHandle tx = lambda_first ? open_here(lambda, b) : open_here(b, lambda);
        tx->MaxContSteps = 1;
        const TextStream path;
        double dc = -0.01;
        ASSERT_EQ(TXAuto2DCont(tx.get(), &lambda, &b, &dc, 2, static_cast<FILE*>(path)), 1);
        EXPECT_LT(*tx->c[0], lambda_first ? 2 : 3);
        EXPECT_EQ(path.text().substr(0, 10), "2 3 1 0 1 ");
    }
}

TEST_F(LangfordCycle, StopsAtTheLastPointWhenTheFlowFails) {
    int interrupted = 0;
    for (long calls = 0; calls < 800000; calls += calls / 3 + 1) {
        const OpenHandle tx = open_here(lambda, b);
        tx->MaxContSteps = 3;
        Probe::set(calls, interrupted % 2 == 0);
        try {
            if (run.curve(TXAuto2DCont, tx, lambda, b, 0.05) == 0) {
                ++interrupted;
                EXPECT_EQ(tx->ErrorCode, 29);
            }
        } catch (const Probe::Thrown&) {
            ++interrupted;
        }
        Probe::set(Probe::never);
        ASSERT_FALSE(run.points.empty());
        expect_stopped_at(*tx, run.points.back());
        EXPECT_EQ(tx->nparam + tx->TerminateOnFatalError, 2);
    }
    EXPECT_GT(interrupted, 20);
    const OpenHandle tx = open_here(lambda, b);
    tx->TerminateOnFatalError = 1;
    Probe::set(100000, false);
    EXPECT_EXIT(run.curve(TXAuto2DCont, tx, lambda, b, 0.05), testing::ExitedWithCode(1),
                "'TXAuto2DCont': Minimum stepsize reached");
    Probe::set(Probe::never);
}

}  // namespace
