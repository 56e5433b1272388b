// Curves of folds and Hopf bifurcations in two parameters, against exact ones.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <string>
#include <vector>

#include "allocation.hpp"
#include "continuation/recorder.hpp"
#include "core/guards.hpp"
#include "handles.hpp"
#include "systems.hpp"
#include "tx.h"

namespace {

using namespace testing_support;

double c1, c2;

// The cusp fails when its calls are used up, in one of two ways.
constexpr int unlimited = std::numeric_limits<int>::max();
int calls_left = unlimited;
bool throws = true;
struct Interrupted {};

/// x' = c1 + c2 x - x^3: folds where 27 c1^2 = 4 c2^3, x^2 = c2/3.
void cusp(double, double* y, double* f) {
    f[0] = c1 + c2 * y[0] - y[0] * y[0] * y[0];
    if (--calls_left >= 0) return;
    if (throws) throw Interrupted();
    f[0] = std::numeric_limits<double>::quiet_NaN();
}

/// x' = c1 - c2 + x^2: folds at x = 0 where c1 = c2.
void parabola(double, double* y, double* f) {
    f[0] = c1 - c2 + y[0] * y[0];
}
void parabola_jacobian(double, double* y, double** J) {
    J[0][0] = 2 * y[0];
}
void parabola_parameters(double, double*, double** P) {
    P[0][0] = 1;
    P[0][1] = -1;
}

/// x' = c1 + sqrt(1 - c2) + x^2: folds where c1 = -sqrt(1 - c2); nothing beyond c2 = 1.
void ending(double, double* y, double* f) {
    f[0] = c1 + std::sqrt(1 - c2) + y[0] * y[0];
}

/// x' = y, y' = c1 + c2 y + x^2 + x y: Hopf curve c1 = -c2^2 up to c2 = 0 on its stable side, where
/// the linearisation has a double zero and the bordered system is singular.
void bogdanov_takens(double, double* y, double* f) {
    f[0] = y[1];
    f[1] = c1 + c2 * y[1] + y[0] * y[0] + y[0] * y[1];
}

void set_tolerances(Trajex& tx) {
    tx.NewtAbsTol = 1e-9;
    tx.NewtRelTol = 1e-7;
    tx.LambdaNewtRelTol = 1e-7;
    tx.LambdaNewtAbsTol = 1e-9;
    tx.LambdaPert = 1e-6;
}

template <class... Parameter>
OpenHandle open(void (*fcn)(double, double*, double*), int order, Parameter*... parameters) {
    OpenHandle tx = open_recording(fcn, order, 1e-9);
    TXVarOpenTrajex(tx.get(), nullptr, 1e-7, static_cast<int>(sizeof...(parameters)), nullptr, 1e-7,
                    parameters...);
    set_tolerances(*tx);
    return tx;
}

/// Continues an equilibrium to its first bifurcation.
void locate_first(Trajex& tx, std::vector<double> y, double& c, double dc) {
    ASSERT_EQ(TXEquiCont(&tx, y.data(), &c, &dc, 1, 0), 1) << TXStrErrorTrajex(&tx);
    ASSERT_LT(tx.txb->steps, tx.MaxContSteps - 1);
}

Points follow(Trajex& tx, double& first, double& second, double dc) {
    Points points;
    EXPECT_EQ(TXEqui2DCont(&tx, &first, &second, &dc, 4, record_point, as_stream(points)), 1)
        << TXStrErrorTrajex(&tx);
    EXPECT_EQ(points.size(), static_cast<std::size_t>(tx.MaxContSteps) + 1);
    return points;
}

TEST(EquilibriumCurve, PassesThroughACusp) {
    c1 = -1;
    c2 = 1;
    const OpenHandle tx = open(cusp, 1, &c1, &c2);
    locate_first(*tx, {-1.3}, c1, 0.1);
    EXPECT_NEAR(c1, 2 / (3 * std::sqrt(3)), 1e-6);
    tx->MaxContSteps = 60;
    const Points points = follow(*tx, c1, c2, -0.05);  // towards smaller c2

    double nearest = 1;
    for (const Point& p : points) {
        const double x = p.y[0];
        EXPECT_NEAR(27 * p.c[0] * p.c[0], 4 * std::pow(p.c[1], 3), 1e-5) << p.steps;
        EXPECT_NEAR(p.c[1], 3 * x * x, 1e-5) << p.steps;
        EXPECT_NEAR(p.c[0], -2 * x * x * x, 1e-5) << p.steps;
        nearest = std::min(nearest, std::fabs(x));
    }
    EXPECT_LT(nearest, 0.05);
    EXPECT_LT(points.front().y[0], -0.5);
    EXPECT_GT(points.back().y[0], 0.5);
    EXPECT_LT(points.back().c[0], -0.3);
}

TEST(EquilibriumCurve, FollowsTheHopfCurveOfTheBrusselator) {
    double& A = Brusselator::A;
    double& B = Brusselator::B;
    const trajex::Temporarily start_A(A, 1.0);
    const trajex::Temporarily start_B(B, 1.2);
    const OpenHandle tx = open(Brusselator::flow, 2, &A, &B);
    locate_first(*tx, {1, 1.2}, B, 0.1);
    tx->MaxContSteps = 20;
    for (const double dc : {-0.2, 0.3}) {
        const Points points = follow(*tx, A, B, dc);
        for (const Point& p : points) EXPECT_NEAR(p.c[1], 1 + p.c[0] * p.c[0], 1e-5);
        EXPECT_GT(std::fabs(points.back().c[0] - points.front().c[0]), 0.5);
        EXPECT_EQ(points.back().c[1] > points.front().c[1], dc > 0);
    }
}

TEST(EquilibriumCurve, FollowsTheHopfCurveOfTheLorenzEquations) {
    double& sigma = Lorenz::sigma;
    double& rho = Lorenz::rho;
    double& beta = Lorenz::beta;
    const trajex::Temporarily start_sigma(sigma, 10.0);
    const trajex::Temporarily start_rho(rho, 20.0);
    const trajex::Temporarily start_beta(beta, 8.0 / 3);
    const OpenHandle tx = open(Lorenz::flow, 3, &sigma, &rho, &beta);
    const double x = std::sqrt(beta * (rho - 1));
    locate_first(*tx, {x, x, rho - 1}, rho, 1);
    EXPECT_NEAR(rho, 470.0 / 19, 1e-5);
    tx->MaxContSteps = 30;
    const auto exact = [](double s, double b) { return s * (s + b + 3) / (s - b - 1); };
    for (const Point& p : follow(*tx, rho, sigma, 1)) {
        EXPECT_NEAR(p.c[1], exact(p.c[0], p.c[2]), 1e-4) << p.steps;
        EXPECT_EQ(p.c[2], 8.0 / 3);
    }
    const Points points = follow(*tx, beta, rho, -1);
    for (const Point& p : points) EXPECT_NEAR(p.c[1], exact(p.c[0], p.c[2]), 1e-4) << p.steps;
    EXPECT_GT(std::fabs(points.back().c[2] - points.front().c[2]), 0.1);
}

/// Along the straight curve of the parabola every digit is known.
class Reports : public ::testing::Test {
  protected:
    void SetUp() override {
        c1 = c2 = 3;
        tx = open_recording(parabola, 1, 1e-9);
    }
    OpenHandle tx;
};

TEST_F(Reports, NumberThePointsAndShowTheParametersAsTheCallerNamesThem) {
    TXVarOpenTrajex(tx.get(), parabola_jacobian, 2, parabola_parameters, &c1, &c2);
    set_tolerances(*tx);
    start_at(*tx, {0});
    tx->MaxContSteps = 2;
    double dc = std::sqrt(2);
    const TextStream state;
    const TextStream path;
    ASSERT_EQ(TXEqui2DCont(tx.get(), &c1, &c2, &dc, 3, static_cast<FILE*>(state),
                           static_cast<FILE*>(path)),
              1);
    EXPECT_EQ(path.text(), "3 3 0 \n4 4 0 \n5 5 0 \n");
    const std::string separator(68, ':');
    const auto report = [&](const char* step, const char* c) {
        return "   Step: " + std::string(step) + "      \n" +
               "   Parameters     State           Eigenvalue             Modulus\n" + "    " + c +
               "              0               0.000000-i0.000000    0           \n" +
               std::string(3, ' ') + " " + c + "             \n" + separator + "\n";
    };
    EXPECT_EQ(state.text(), report("0", "3") + "   Stepsize: 1.41421 .\n" + report("0", "4") +
                                "   Stepsize: 1.41421 .\n" + report("1", "5"));
}

TEST_F(Reports, AreTheSameWhereTheSecondParameterIsListedFirst) {
    TXVarOpenTrajex(tx.get(), nullptr, 1e-7, 2, nullptr, 1e-7, &c2, &c1);
    set_tolerances(*tx);
    start_at(*tx, {0});
    c1 = 10;  // the start is reported as the record holds it
    c2 = 10;
    tx->MaxContSteps = 1;
    double dc = -std::sqrt(2);
    const TextStream path;
    ASSERT_EQ(TXEqui2DCont(tx.get(), &c1, &c2, &dc, 2, static_cast<FILE*>(path)), 1);
    const std::string text = path.text();
    EXPECT_EQ(text.substr(0, 11), "3 3 0 \n9 9 ");
    EXPECT_EQ(tx->txb->cindi[1], 1);
    EXPECT_EQ(tx->txb->cindi[2], 0);
    EXPECT_EQ(dc, std::sqrt(2));
}

TEST(EquilibriumCurve, StepsGrowAfterEveryPointAndHalveAfterEveryFailure) {
    c1 = 2 / (3 * std::sqrt(3));
    c2 = 1;
    const OpenHandle tx = open(cusp, 1, &c1, &c2);
    start_at(*tx, {-1 / std::sqrt(3)});
    tx->MaxContSteps = 25;
    tx->MaxNewtSteps = 4;
    const double largest = 0.6;  // too much for the bend at the cusp
    double dc = -largest;
    const TextStream state;
    ASSERT_EQ(TXEqui2DCont(tx.get(), &c1, &c2, &dc, 1, static_cast<FILE*>(state)), 1);
    const std::vector<double> sizes = reported_step_sizes(state.text());
    std::size_t halved = 0;
    for (std::size_t k = 0; k + 1 < sizes.size(); ++k) {
        const bool failed = sizes[k + 1] < sizes[k];
        const double expected = failed ? sizes[k] / 2 : std::min(1.25 * sizes[k], largest);
        EXPECT_NEAR(sizes[k + 1], expected, 2e-5);
        halved += failed;
    }
    EXPECT_EQ(sizes.size(), 25 + halved);
    EXPECT_GT(halved, 0U);
}

TEST(EquilibriumCurve, RefusesWhatItCannotStartFrom) {
    double stranger = 0;
    double dc = 0.1;
    c1 = c2 = 0;
    OpenHandle tx = open(parabola, 1, &c1, &c2);
    const auto code = [&](double* first, double* second) {
        EXPECT_EQ(TXEqui2DCont(tx.get(), first, second, &dc, 0), 0);
        return tx->ErrorCode;
    };
    EXPECT_EQ(code(&c1, &c2), 28);
    start_at(*tx, {0});
    EXPECT_EQ(code(&c1, &c1), 26);
    EXPECT_EQ(code(&c1, &stranger), 26);
    EXPECT_EQ(code(&stranger, &c2), 26);
    TXVarOpenTrajex(tx.get(), nullptr, 1e-7, 3, nullptr, 1e-7, &c1, &c2, &stranger);
    EXPECT_EQ(code(&c1, &c2), 28) << "the record has room for two parameters only";
    tx = open(parabola, 1, &c1, &c1, &c2);
    start_at(*tx, {0});
    EXPECT_EQ(code(&c1, &stranger), 26) << "a parameter listed twice does not stand for two";
    EXPECT_EQ(code(&c1, &c2), 26);
    EXPECT_EQ(c1, 0);
    EXPECT_EQ(c2, 0);
}

TEST(EquilibriumCurve, WithoutMemoryIsRefused) {
    int refused = 0;
    for (bool enough = false; !enough;) {
        c1 = c2 = 0;
        const OpenHandle tx = open(parabola, 1, &c1, &c2);
        start_at(*tx, {0});
        tx->MaxContSteps = 1;
        double dc = 0.1;
        const FailingAllocation failing(refused + 1);
        const int result = TXEqui2DCont(tx.get(), &c1, &c2, &dc, 0);
        enough = !failing.failed();
        EXPECT_EQ(result, enough);
        EXPECT_EQ(tx->ErrorCode, enough ? 0 : 3);
        EXPECT_EQ(c2 != 0, enough);
        refused += !enough;
    }
    EXPECT_GT(refused, 0);
}

/// The run goes on to the end of what can be followed and stops at its last point.
void expect_minimum_step(Trajex& tx, double dc, double curve(double)) {
    Points points;
    EXPECT_EQ(TXEqui2DCont(&tx, &c1, &c2, &dc, 4, record_point, as_stream(points)), 0);
    EXPECT_EQ(tx.ErrorCode, 29);
    ASSERT_GT(points.size(), 3U);
    expect_stopped_at(tx, points.back());
    for (const Point& p : points) EXPECT_NEAR(p.c[0], curve(p.c[1]), 1e-5) << p.steps;
}

TEST(EquilibriumCurve, StopsAtItsLastPointWhereTheCurveEnds) {
    c1 = -1;
    c2 = 0;
    const OpenHandle tx = open(ending, 1, &c1, &c2);
    start_at(*tx, {0});
    expect_minimum_step(*tx, 0.1, [](double b) { return -std::sqrt(1 - b); });
    EXPECT_GT(c2, 0.9);
    EXPECT_LE(c2, 1);
    tx->TerminateOnFatalError = 1;
    double dc = 0.1;
    EXPECT_EXIT(TXEqui2DCont(tx.get(), &c1, &c2, &dc, 0), testing::ExitedWithCode(1),
                "'TXEqui2DCont': Minimum stepsize reached");
}

TEST(EquilibriumCurve, StopsAtItsLastPointWhereTheSystemIsSingular) {
    c1 = -1;
    c2 = 1;
    const OpenHandle tx = open(bogdanov_takens, 2, &c1, &c2);
    start_at(*tx, {-1, 0});
    expect_minimum_step(*tx, -0.1, [](double b) { return -b * b; });
    EXPECT_NEAR(c2, 0, 0.1);
}

class Interruption : public ::testing::TestWithParam<bool> {};

TEST_P(Interruption, StopsAtTheLastPoint) {
    int interrupted = 0;
    for (int calls = 0; calls < 60; ++calls) {
        c1 = 2 / (3 * std::sqrt(3));
        c2 = 1;
        const OpenHandle tx = open(cusp, 1, &c1, &c2);
        start_at(*tx, {-1 / std::sqrt(3)});
        tx->MaxContSteps = 3;
        tx->NewtRelTol = tx->NewtAbsTol = 0;  // no smallest step
        throws = GetParam();
        Points points;
        double dc = -0.3;
        calls_left = calls;
        try {
            if (TXEqui2DCont(tx.get(), &c1, &c2, &dc, 4, record_point, as_stream(points)) == 0) {
                ++interrupted;
                EXPECT_EQ(tx->ErrorCode, 29);
            }
        } catch (const Interrupted&) {
            ++interrupted;
            EXPECT_EQ(tx->TerminateOnFatalError, 0);
        }
        calls_left = unlimited;
        ASSERT_FALSE(points.empty());
        expect_stopped_at(*tx, points.back());
    }
    EXPECT_GT(interrupted, 20);
}

INSTANTIATE_TEST_SUITE_P(ByException, Interruption, ::testing::Values(true));
INSTANTIATE_TEST_SUITE_P(ByNaN, Interruption, ::testing::Values(false));

}  // namespace
