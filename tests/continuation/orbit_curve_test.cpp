// Curves of bifurcations of periodic orbits in two parameters, against exact ones and against
// Liouville's formula: the product of the multipliers is the exponential of the integrated
// divergence.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <string>
#include <vector>

#include "continuation/recorder.hpp"
#include "handles.hpp"
#include "systems.hpp"
#include "tx.h"

namespace {

using namespace testing_support;

enum Type { unknown = 0, torus = 1, fold = 3, period_doubling = 4 };

// The systems fail when their calls are used up, in one of two ways.
constexpr int unlimited = std::numeric_limits<int>::max();
int calls_left = unlimited;
bool throws = true;
struct Interrupted {};
void count_call(double* f) {
    if (--calls_left >= 0) return;
    if (throws) throw Interrupted();
    f[0] = std::numeric_limits<double>::quiet_NaN();
}

/// x'' + damping x' + stiffness x + x^3 = force cos(omega t), the time scaled by omega.
double damping, stiffness, force, omega;
void duffing(double t, double* y, double* f) {
    f[0] = y[1] / omega;
    f[1] = (force * std::cos(t) - damping * y[1] - stiffness * y[0] - y[0] * y[0] * y[0]) / omega;
}

/// Systems with an equilibrium u of u' = g(u; c1, c2) that a forcing carries round: y = u + p(t),
/// y' = g(y - p) + p', so that p(t) + u is an orbit and exp(T times the eigenvalues of dg/du) are
/// its multipliers.
constexpr double forcing_period = 1;
constexpr double forcing_rate = 2 * pi / forcing_period;
double c1, c2;

/// u' = c1 - c2 + u^2: folds at u = 0 where c1 = c2.
void forced_fold(double t, double* y, double* f) {
    const double u = y[0] - std::sin(forcing_rate * t);
    f[0] = c1 - c2 + u * u + forcing_rate * std::cos(forcing_rate * t);
    count_call(f);
}

/// u' = v, v' = c1 + c2 v + u^2 + u v: tori where c1 = -c2^2, u = -c2, up to c2 = 0, where both
/// multipliers are 1.
void forced_bogdanov_takens(double t, double* y, double* f) {
    const double u = y[0] - 0.5 * std::cos(forcing_rate * t);
    const double v = y[1] - 0.3 * std::sin(forcing_rate * t);
    f[0] = v - 0.5 * forcing_rate * std::sin(forcing_rate * t);
    f[1] = c1 + c2 * v + u * u + u * v + 0.3 * forcing_rate * std::cos(forcing_rate * t);
}

double a, b, c;
void roessler(double, double* y, double* f) {
    f[0] = -y[1] - y[2];
    f[1] = y[0] + a * y[1];
    f[2] = b + y[2] * (y[0] - c);
}

/// A cycle r = z = lambda / 2 of the period 2 pi / turn, where
/// mu = 3 lambda / 2 + d (1 - lambda^2 / 4) the multipliers exp(+-i T sqrt(2 r^2 (1 - 2 d z))).
constexpr double turn = 3.5;
constexpr double d = 0.2;
double lambda, mu;
void langford(double, double* y, double* f) {
    const double growth = lambda - mu + y[2] + d * (1 - y[2] * y[2]);
    f[0] = growth * y[0] - turn * y[1];
    f[1] = turn * y[0] + growth * y[1];
    f[2] = lambda * y[2] - (y[0] * y[0] + y[1] * y[1] + y[2] * y[2]);
    count_call(f);
}
double torus_curve(double at) {
    return 1.5 * at + d * (1 - at * at / 4);
}

OpenHandle open(void (*fcn)(double, double*, double*), int order, double* first, double* second) {
    OpenHandle tx = open_recording(fcn, order, 1e-10);
    TXSetAbsTol(tx.get(), 1e-10);
    TXVarOpenTrajex(tx.get(), nullptr, 1e-6, 2, nullptr, 1e-6, first, second);
    tx->NewtAbsTol = tx->NewtRelTol = 1e-7;
    tx->LambdaNewtRelTol = 1e-6;
    tx->LambdaNewtAbsTol = 1e-7;
    tx->LambdaPert = 1e-6;
    return tx;
}

/// Gives the handle a record and locates the bifurcation near its orbit.
void locate(Trajex& tx, const std::vector<double>& y, double T, double& parameter, int turns,
            Type type) {
    start_at(tx, y, T);
    ASSERT_EQ(TXLocateBif(&tx, tx.txb, &parameter, turns, nullptr), 1);
    tx.txb->biftype = type;
}

template <class Run>
Points follow(Run run, Trajex& tx, double& first, double& second, double dc) {
    Points points;
    EXPECT_EQ(run(&tx, &first, &second, &dc, 4, record_point, as_stream(points)), 1)
        << TXStrErrorTrajex(&tx);
    EXPECT_EQ(points.size(), static_cast<std::size_t>(tx.MaxContSteps) + 1);
    return points;
}

/// One multiplier is `critical`, and the others make up the product.
void expect_multipliers(const Point& p, double critical, double product) {
    double nearest = INFINITY;
    double all = 1;
    for (const double mu_i : p.er) {
        nearest = std::min(nearest, std::fabs(mu_i - critical));
        all *= mu_i;
    }
    EXPECT_LT(nearest, 1e-5) << p.steps;
    EXPECT_NEAR(all, product, 1e-6) << p.steps;
    for (const double imaginary : p.ei) EXPECT_EQ(imaginary, 0) << p.steps;
}

TEST(ForcedOrbitCurve, FollowsTheFoldsOfTheDuffingOscillator) {
    damping = 0.2;
    stiffness = 1;
    force = 0.5;
    omega = 1.6577;
    const OpenHandle tx = open(duffing, 2, &omega, &force);
    locate(*tx, {-0.136, 2.271}, 2 * pi, omega, 0, fold);
    EXPECT_NEAR(omega, 1.65767, 1e-5);
    tx->MaxContSteps = 30;
    const Points points = follow(TXNonAuto2DCont, *tx, omega, force, -0.1);
    for (const Point& p : points) {
        expect_multipliers(p, 1, std::exp(-damping * 2 * pi / p.c[0]));
        EXPECT_EQ(p.T, 2 * pi);
    }
    // Round the cusp, and up on the other side of the tongue.
    std::size_t k = points.size() - 1;
    ASSERT_GT(points[k].c[1], 0.5);
    while (points[k].c[1] > 0.5) --k;
    EXPECT_LT(points[k - 5].c[1], 0.3);
    const double share = (0.5 - points[k].c[1]) / (points[k + 1].c[1] - points[k].c[1]);
    EXPECT_NEAR(points[k].c[0] + share * (points[k + 1].c[0] - points[k].c[0]), 1.42306, 1e-3);
}

TEST(ForcedOrbitCurve, FollowsThePeriodDoublingsOfTheDuffingOscillator) {
    damping = 0.3;
    stiffness = -1;
    force = 0.2656;
    omega = 1.2;
    const OpenHandle tx = open(duffing, 2, &force, &omega);
    locate(*tx, {0.4076, 0.3226}, 2 * pi, force, 0, period_doubling);
    EXPECT_NEAR(force, 0.265583, 1e-6);
    tx->MaxContSteps = 15;
    for (const Point& p : follow(TXNonAuto2DCont, *tx, force, omega, 0.05)) {
        expect_multipliers(p, -1, std::exp(-damping * 2 * pi / p.c[1]));
    }
}

class TorusCurve : public ::testing::Test {
  protected:
    /// At the bifurcation with the given c2, following the curve towards c2 = 0.
    void run(double at, int steps, int newton_steps) {
        c2 = at;
        c1 = -c2 * c2;
        tx = open(forced_bogdanov_takens, 2, &c1, &c2);
        start_at(*tx, {0.5 - c2, 0}, forcing_period);
        tx->txb->biftype = torus;
        tx->LambdaNewtRelTol = tx->LambdaNewtAbsTol = 1e-6;
        tx->MaxContSteps = steps;
        tx->MaxNewtSteps = newton_steps;
        double dc = -0.0002;
        EXPECT_EQ(TXNonAuto2DCont(tx.get(), &c1, &c2, &dc, 5, static_cast<FILE*>(state),
                                  record_point, as_stream(points)),
                  1);
        for (const Point& p : points) EXPECT_NEAR(p.c[0], -p.c[1] * p.c[1], 1e-6) << p.steps;
        ASSERT_GT(points.size(), static_cast<std::size_t>(steps));
        expect_stopped_at(*tx, points.back());
    }
    OpenHandle tx;
    Points points;
    TextStream state;
};

TEST_F(TorusCurve, EndsInAPointOfCodimensionTwo) {
    run(0.002, 12, 10);
    ASSERT_EQ(points.size(), 14U);
    const Point& end = points.back();
    EXPECT_NEAR(end.c[0], 0, 1e-5);
    EXPECT_NEAR(end.c[1], 0, 1e-5);
    EXPECT_NEAR(end.y[0], 0.5, 1e-5);
    EXPECT_EQ(end.steps, 11);
    EXPECT_EQ(points[12].steps, 11);
    const std::string text = state.text();
    const std::size_t search = text.find("\nSearching for Co-dimension 2\n::");
    ASSERT_NE(search, std::string::npos);
    EXPECT_NE(text.find("\n ---- CO-DIMENSION 2 ----\n   Step: 11       T=1            \n", search),
              std::string::npos);
}

TEST_F(TorusCurve, GoesOnAfterASearchThatFindsNothing) {
    run(0.0005, 3, 1);
    EXPECT_EQ(points.size(), 4U);
    const std::string text = state.text();
    EXPECT_NE(text.find("Searching for Co-dimension 2\n:\n   Stepsize: "), std::string::npos)
        << text;
    EXPECT_EQ(text.find(" ---- "), std::string::npos);
}

TEST(ForcedOrbitCurve, FollowsAFoldInOneDimension) {
    c1 = c2 = 1;
    const OpenHandle tx = open(forced_fold, 1, &c1, &c2);
    start_at(*tx, {0}, forcing_period);
    tx->MaxContSteps = 5;
    double at = 1;
    for (const Point& p : follow(TXNonAuto2DCont, *tx, c1, c2, -std::sqrt(2))) {
        EXPECT_NEAR(p.c[0], p.c[1], 1e-6);
        EXPECT_NEAR(p.y[0], 0, 1e-5);
        EXPECT_NEAR(p.c[1], at, 1e-5);
        at -= 1;
    }
}

TEST(ForcedOrbitCurve, RefusesARecordWithoutAPeriod) {
    c1 = c2 = 1;
    const OpenHandle tx = open(forced_fold, 1, &c1, &c2);
    double dc = 0.1;
    EXPECT_EQ(TXNonAuto2DCont(tx.get(), &c1, &c2, &dc, 0), 0);
    EXPECT_EQ(tx->ErrorCode, 28);
    start_at(*tx, {0}, 0);
    EXPECT_EQ(TXNonAuto2DCont(tx.get(), &c1, &c2, &dc, 0), 0);
    EXPECT_EQ(tx->ErrorCode, 29);
    EXPECT_EQ(TXNonAuto2DCont(tx.get(), &c1, &c1, &dc, 0), 0);
    EXPECT_EQ(tx->ErrorCode, 26);
}

TEST(OrbitCurve, FollowsThePeriodDoublingsOfTheRoesslerEquations) {
    a = b = 0.2;
    c = 2.83;
    const OpenHandle tx = open(roessler, 3, &c, &a);
    TXSetCut(tx.get(), first_component, 1e-9);
    std::vector<double> y{0, 3.4, 1.9};
    std::vector<double> rows(3 * 5);
    double* Phi[] = {&rows[0], &rows[5], &rows[10]};
    double T = 5.77;
    ASSERT_EQ(TXAutoOrbit(tx.get(), 0, y.data(), Phi, 1, &T), 1);
    locate(*tx, y, T, c, 1, period_doubling);
    EXPECT_NEAR(c, 2.83245, 1e-5);
    tx->MaxContSteps = 20;
    const Points points = follow(TXAuto2DCont, *tx, c, a, 0.1);
    for (const Point& p : points) {
        EXPECT_NEAR(std::min(p.er[0], p.er[1]), -1, 1e-5) << p.steps;
        EXPECT_NEAR(p.er[2], 1, 1e-5) << p.steps;
        EXPECT_NEAR(p.y[0], 0, 1e-9) << p.steps;
    }
    const Point& end = points.back();
    EXPECT_GT(end.c[0], 3.5);
    EXPECT_LT(end.c[1], 0.18);
    y = end.y;
    T = end.T;
    ASSERT_EQ(TXAutoOrbit(tx.get(), 0, y.data(), Phi, 1, &T), 1);
    EXPECT_NEAR(T, end.T, 1e-6);
    EXPECT_GT(T, points.front().T + 0.05);
}

class LangfordCycle : public ::testing::Test {
  protected:
    /// The record at the torus bifurcation at lambda = 2.
    OpenHandle open_at_torus(double* first, double* second) {
        lambda = 2;
        mu = torus_curve(lambda);
        OpenHandle tx = open(langford, 3, first, second);
        TXSetCut(tx.get(), second_component, 1e-10);
        start_at(*tx, {1, 0, 1}, 2 * pi / turn);
        tx->txb->biftype = torus;
        return tx;
    }
};

TEST_F(LangfordCycle, TorusCurveIsExact) {
    const OpenHandle tx = open_at_torus(&lambda, &mu);
    tx->MaxContSteps = 20;
    for (const Point& p : follow(TXAuto2DCont, *tx, mu, lambda, -0.05)) {
        const double r = p.c[0] / 2;
        EXPECT_NEAR(p.c[1], torus_curve(p.c[0]), 1e-5) << p.steps;
        EXPECT_NEAR(p.y[0], r, 1e-5) << p.steps;
        EXPECT_NEAR(p.y[2], r, 1e-5) << p.steps;
        EXPECT_NEAR(p.T, 2 * pi / turn, 1e-6) << p.steps;
    }
    EXPECT_LT(lambda, 1.5);
}

TEST_F(LangfordCycle, DirectionIsThatOfTheParameterListedFirst) {
    for (const bool lambda_first : {true, false}) {
        const OpenHandle tx =
            lambda_first ? open_at_torus(&lambda, &mu) : open_at_torus(&mu, &lambda);
        tx->MaxContSteps = 1;
        const TextStream path;
        double dc = -0.01;
        ASSERT_EQ(TXAuto2DCont(tx.get(), &lambda, &mu, &dc, 2, static_cast<FILE*>(path)), 1);
        EXPECT_LT(*tx->c[0], 3);
        EXPECT_EQ(path.text().substr(0, 10), "2 3 1 0 1 ");
    }
}

TEST_F(LangfordCycle, NeedsASection) {
    const OpenHandle tx = open_at_torus(&lambda, &mu);
    TXSetCut(tx.get(), nullptr, 1e-10);
    double dc = 0.1;
    EXPECT_EQ(TXAuto2DCont(tx.get(), &lambda, &mu, &dc, 0), 0);
    EXPECT_EQ(tx->ErrorCode, 8);
}

class OrbitInterruption : public LangfordCycle, public ::testing::WithParamInterface<bool> {};

TEST_P(OrbitInterruption, StopsAtTheLastPoint) {
    throws = GetParam();
    int interrupted = 0;
    for (int calls = 0; calls < 400000; calls += calls / 3 + 1) {
        const OpenHandle tx = open_at_torus(&lambda, &mu);
        tx->MaxContSteps = 3;
        Points points;
        double dc = 0.05;
        calls_left = calls;
        try {
            if (TXAuto2DCont(tx.get(), &lambda, &mu, &dc, 4, record_point, as_stream(points)) ==
                0) {
                ++interrupted;
                EXPECT_EQ(tx->ErrorCode, 29);
            }
        } catch (const Interrupted&) {
            ++interrupted;
        }
        calls_left = unlimited;
        ASSERT_FALSE(points.empty());
        expect_stopped_at(*tx, points.back());
        EXPECT_EQ(tx->nparam, 2);
        EXPECT_EQ(tx->TerminateOnFatalError, 0);
    }
    EXPECT_GT(interrupted, 20);
}

INSTANTIATE_TEST_SUITE_P(ByException, OrbitInterruption, ::testing::Values(true));
INSTANTIATE_TEST_SUITE_P(ByNaN, OrbitInterruption, ::testing::Values(false));

}  // namespace
