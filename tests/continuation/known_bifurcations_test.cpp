// Bifurcations of well-known systems: located on a branch, named, and passed.
#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <string>

#include "continuation/recorder.hpp"
#include "core/guards.hpp"
#include "handles.hpp"
#include "systems.hpp"
#include "tx.h"

namespace {

using namespace testing_support;
using trajex::Temporarily;

enum Type { torus = 1, saddle_node = 3, period_doubling = 4 };

OpenHandle open_study(void (*fcn)(double, double*, double*), int order, double& parameter) {
    OpenHandle tx = open_variational(fcn, order, nullptr, nullptr, 1e-9, &parameter);
    tx->NewtRelTol = 1e-5;
    tx->LambdaNewtRelTol = 1e-6;
    return tx;
}

struct Roessler {
    static inline double c = 2.5;
    static void flow(double, double* y, double* f) {
        f[0] = -y[1] - y[2];
        f[1] = y[0] + 0.2 * y[1];
        f[2] = 0.2 + y[2] * (y[0] - c);
    }
};

/// Follows the attractor from `c` to its first bifurcation; the text of the run.
std::string follow_roessler(Trajex* tx, int p, double c, double dc) {
    TXSetCut(tx, first_component, 1e-8);
    tx->MaxContSteps = 200;
    Roessler::c = c;
    double y[3] = {0, 3, 1};  // the crossing with x' < 0
    double t = 0;
    double T = 0;
    TXIntegrate(tx, &t, 500, y);
    while (!(TXPoincareStep(tx, &t, y) == 1 && y[1] > 0)) {
    }
    const TextStream text;
    EXPECT_EQ(TXAutoCont(tx, 0, y, p, &T, &Roessler::c, &dc, 1, 1, static_cast<FILE*>(text)), 1);
    return text.text();
}

TEST(KnownBifurcations, CascadeOfRoessler) {
    const Temporarily restored(Roessler::c, 2.5);
    const OpenHandle tx = open_study(Roessler::flow, 3, Roessler::c);
    const std::string first = follow_roessler(tx.get(), 1, 2.5, 0.05);
    EXPECT_NEAR(Roessler::c, 2.83245, 1e-5);
    EXPECT_NEAR(tx->txb->T, 5.7698, 1e-4);
    EXPECT_NE(first.find("PERIOD DOUBLING 2 -(- 1"), std::string::npos);

    follow_roessler(tx.get(), 2, 3.2, 0.05);
    EXPECT_NEAR(Roessler::c, 3.83736, 1e-5);
    EXPECT_EQ(tx->txb->biftype, period_doubling);

    // Down to where the orbit was born: it is there an orbit of half its period.
    const std::string back = follow_roessler(tx.get(), 2, 3.2, -0.05);
    EXPECT_NEAR(Roessler::c, 2.83245, 1e-5);
    EXPECT_NEAR(tx->txb->T, 5.7698, 1e-4);
    EXPECT_NE(back.find("Searching for bifurcation %"), std::string::npos);
    EXPECT_EQ(tx->txb->biftype, period_doubling);
}

/// x'' + damping x' + linear x + x^3 = amplitude cos(w t), in units of time in which the period is
/// 2 pi.
struct Duffing {
    static inline double damping, linear, amplitude, w;
    static void flow(double t, double* y, double* f) {
        f[0] = y[1] / w;
        f[1] = (amplitude * std::cos(t) - damping * y[1] - linear * y[0] - y[0] * y[0] * y[0]) / w;
    }
    static void set(double new_damping, double new_linear, double new_amplitude, double new_w) {
        damping = new_damping;
        linear = new_linear;
        amplitude = new_amplitude;
        w = new_w;
    }
};

TEST(KnownBifurcations, ResonanceOfDuffing) {
    const OpenHandle tx = open_study(Duffing::flow, 2, Duffing::w);
    const double folds[] = {1.65767, 1.42306};
    for (const int count : {1, 2}) {
        Duffing::set(0.2, 1, 0.5, 0.9);
        double y[2] = {0, 0};
        double t = 0;
        TXIntegrate(tx.get(), &t, 200 * pi, y);
        double dc = 0.05;
        Points points;
        ASSERT_EQ(TXNonAutoCont(tx.get(), 0, y, 2 * pi, &Duffing::w, &dc, count, 4, record_point,
                                as_stream(points)),
                  1);
        EXPECT_NEAR(Duffing::w, folds[count - 1], 1e-5);
        EXPECT_EQ(tx->txb->biftype, saddle_node);
        if (count == 2) {  // between the folds the run goes back
            EXPECT_LT(dc, 0);
        }
    }
}

TEST(KnownBifurcations, PeriodDoublingOfDuffing) {
    const OpenHandle tx = open_study(Duffing::flow, 2, Duffing::amplitude);
    Duffing::set(0.3, -1, 0.2, 1.2);
    double y[2] = {1, 0};
    double t = 0;
    TXIntegrate(tx.get(), &t, 400 * pi, y);
    double dc = 0.02;
    ASSERT_EQ(TXNonAutoCont(tx.get(), 0, y, 2 * pi, &Duffing::amplitude, &dc, 1, 0), 1);
    EXPECT_NEAR(Duffing::amplitude, 0.265583, 1e-6);
    EXPECT_EQ(tx->txb->biftype, period_doubling);
}

/// A cycle round the z axis, of radius r with z = b,
///
///     r' = (z - b) r,    z' = c + a z - z^3 / 3 - r^2 (1 + e z),
///
/// loses its stability to a torus where the trace a - b^2 - e r^2 vanishes.
struct Langford {
    static constexpr double b = 0.7, c = 0.6, d = 3.5, e = 0.25;
    static inline double a = 0.5;
    static void flow(double, double* y, double* f) {
        f[0] = (y[2] - b) * y[0] - d * y[1];
        f[1] = d * y[0] + (y[2] - b) * y[1];
        f[2] = c + a * y[2] - y[2] * y[2] * y[2] / 3 - (y[0] * y[0] + y[1] * y[1]) * (1 + e * y[2]);
    }
    static constexpr double torus_at = b * b * (1 + e * b) + e * (c - b * b * b / 3);
};

TEST(KnownBifurcations, TorusOfLangford) {
    const Temporarily restored(Langford::a, 0.5);
    const OpenHandle tx = open_study(Langford::flow, 3, Langford::a);
    TXSetCut(tx.get(), second_component, 1e-8);
    tx->MaxContSteps = 100;
    double y[3] = {0.9, 0.1, 0.7};
    double t = 0;
    double T = 0;
    double dc = 0.02;
    TXIntegrate(tx.get(), &t, 200, y);
    ASSERT_EQ(TXAutoCont(tx.get(), 0, y, 1, &T, &Langford::a, &dc, 1, 0), 1);
    EXPECT_NEAR(Langford::a, Langford::torus_at, 1e-6);
    EXPECT_NEAR(T, 2 * pi / Langford::d, 1e-6);
    EXPECT_EQ(tx->txb->biftype, torus);
}

}  // namespace
