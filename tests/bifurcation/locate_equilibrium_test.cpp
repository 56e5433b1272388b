// Location of bifurcations of equilibria, where their exact place is known, and the classification
// of what was found.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "bifurcation/record.hpp"
#include "continuation/recorder.hpp"
#include "core/guards.hpp"
#include "handles.hpp"
#include "systems.hpp"
#include "tx.h"

namespace {

using testing_support::Brusselator;
using testing_support::Lorenz;
using testing_support::open_recording;
using testing_support::open_variational;
using testing_support::OpenHandle;
using testing_support::TextStream;
using trajex::Temporarily;

constexpr double not_a_number = std::numeric_limits<double>::quiet_NaN();
constexpr double tolerance = 1e-9;

double c = 0;
double unused = 5;

void fold(double, double* y, double* f) {  // at c = 0
    f[0] = c - y[0] * y[0];
}
void two_folds(double, double* y, double* f) {  // at y = +-1 / sqrt 3
    f[0] = c + y[0] - y[0] * y[0] * y[0];
}
void undefined_above_zero(double, double* y, double* f) {
    f[0] = c > 0 ? not_a_number : c - y[0];
}
void never_critical(double, double* y, double* f) {
    f[0] = c - y[0];
}

/// A handle with a record, ready to locate from a guess.
class Location {
  public:
    Location(void (*f)(double, double*, double*), int n, double* parameter,
             const std::vector<double>& guess)
        : tx(open_variational(f, n, nullptr, nullptr, tolerance, &unused, parameter)),
          parameter_(parameter) {
        tx->LambdaNewtRelTol = 1e-8;
        tx->JacPert = 1e-7;  // a bifurcation moves by about that times the curvature of f
        tx->NewtRelTol = tx->NewtAbsTol = 1e-16;  // the state is weighed with their roots
        bif = tx->txb = TXCreateBif(tx.get());
        std::copy(guess.begin(), guess.end(), bif->y);
        bif->cindi[0] = trajex::equilibrium_path;
        bif->cindi[1] = 1;
        bif->biftype = bif->indir = 4;
    }
    int run(FILE* state = nullptr) const {
        return TXLocateEquiBif(tx.get(), bif, parameter_, state);
    }
    int classify() const { return TXCheckEquiBif(tx.get(), bif, parameter_, 0.1, nullptr); }

    OpenHandle tx;
    TrajexBif* bif;

  private:
    double* parameter_;
};

TEST(LocateEquilibriumBifurcation, FindsFolds) {
    const Temporarily zero(c, 0.05);
    const Location simple(fold, 1, &c, {0.25});
    ASSERT_EQ(simple.run(), 1);
    EXPECT_NEAR(c, 0, 1e-8);
    EXPECT_NEAR(simple.bif->y[0], 0, 1e-6);
    EXPECT_EQ(simple.bif->c[0], unused);
    EXPECT_EQ(simple.bif->c[1], c);
    EXPECT_EQ(simple.bif->biftype + simple.bif->indir, 0);
    EXPECT_EQ(simple.bif->er[0], simple.bif->Phi[0][0]);
    EXPECT_NEAR(simple.bif->Phi[0][1], 1, 1e-8);  // df/dc

    const double root = 1 / std::sqrt(3.0);
    for (const double side : {1.0, -1.0}) {
        c = side * -0.3;
        const Location cubic(two_folds, 1, &c, {side * 0.6});
        ASSERT_EQ(cubic.run(), 1);
        EXPECT_NEAR(c, side * -2 * root / 3, 1e-8);
        EXPECT_NEAR(cubic.bif->y[0], side * root, 1e-6);

        ASSERT_EQ(cubic.classify(), 1);
        EXPECT_EQ(cubic.bif->biftype, trajex::saddle_node);
        EXPECT_STREQ(cubic.bif->btype, " ) or ( ");
    }
}

TEST(LocateEquilibriumBifurcation, FindsTheHopfPointOfTheBrusselator) {
    const Temporarily unit(Brusselator::A, 1.5);
    const Temporarily near(Brusselator::B, 3.1);
    const Location hopf(Brusselator::flow, 2, &Brusselator::B, {1.5, 3.1 / 1.5});
    const TextStream progress;
    ASSERT_EQ(hopf.run(progress), 1);
    EXPECT_NEAR(Brusselator::B, 1 + 1.5 * 1.5, 1e-6);
    EXPECT_NEAR(hopf.bif->y[0], 1.5, 1e-6);
    EXPECT_NEAR(hopf.bif->er[0], 0, 1e-7);
    EXPECT_NEAR(std::fabs(hopf.bif->ei[0]), 1.5, 1e-6);
    EXPECT_EQ(progress.text().find_first_not_of(".!"), std::string::npos);
    EXPECT_EQ(progress.text()[0], '.');
    EXPECT_GT(progress.text().size(), 1);

    // From the located point: at once, without a step.
    const double located = Brusselator::B;
    const TextStream again;
    ASSERT_EQ(hopf.run(again), 1);
    EXPECT_EQ(again.text(), ".");
    EXPECT_EQ(Brusselator::B, located);

    // The classification gives the application the parameters of the record.
    Brusselator::B = 17;
    hopf.bif->trans[0] = 9;
    ASSERT_EQ(hopf.classify(), 1);
    EXPECT_EQ(Brusselator::B, located);
    EXPECT_EQ(hopf.bif->biftype, trajex::hopf);
    EXPECT_STREQ(hopf.bif->btype, " -Oo- or -oO- ");
    EXPECT_NEAR(std::hypot(hopf.bif->trans[0], hopf.bif->trans[1]), 1, 1e-12);
}

TEST(LocateEquilibriumBifurcation, FindsTheHopfPointOfLorenz) {
    const Temporarily near(Lorenz::rho, 24.0);
    const double r = std::sqrt(8.0 / 3 * 23);
    const Location hopf(Lorenz::flow, 3, &Lorenz::rho, {r, r, 23});
    hopf.tx->jac = Lorenz::jacobian;
    ASSERT_EQ(hopf.run(), 1);
    EXPECT_NEAR(Lorenz::rho, 470.0 / 19, 1e-6);
    ASSERT_EQ(hopf.classify(), 1);
    EXPECT_EQ(hopf.bif->biftype, trajex::hopf);
}

TEST(LocateEquilibriumBifurcation, GivesUpWithACode) {
    for (const auto f : {undefined_above_zero, never_critical}) {
        const Temporarily start(c, 0.5);
        const Location nothing(f, 1, &c, {0.5});
        EXPECT_EQ(nothing.run(), 0);
        EXPECT_EQ(nothing.tx->ErrorCode, 30);
    }
    const Temporarily start(c, 0.05);
    const Location hurried(fold, 1, &c, {0.25});
    TXSetMaxNewtSteps(hurried.tx.get(), 1);
    EXPECT_EQ(hurried.run(), 0);
    EXPECT_EQ(hurried.tx->ErrorCode, 30);
}

TEST(LocateEquilibriumBifurcation, NeedsOneParameterOfTheHandle) {
    const Location foreign(fold, 1, &c, {0});
    double other = 0;
    for (const auto operation : {0, 1}) {
        const int result =
            operation == 0 ? TXLocateEquiBif(foreign.tx.get(), foreign.bif, &other, nullptr)
                           : TXCheckEquiBif(foreign.tx.get(), foreign.bif, &other, 0.1, nullptr);
        EXPECT_EQ(result, 0);
        EXPECT_EQ(foreign.tx->ErrorCode, 0);
        EXPECT_EQ(foreign.bif->biftype, 4);
    }
    const Location twice(fold, 1, &unused, {0});
    EXPECT_EQ(twice.run(), 0);
    EXPECT_EQ(twice.classify(), 0);
    EXPECT_EQ(twice.tx->ErrorCode, 0);
}

struct Thrown {};
double entry_c = 0;

void throwing_where_perturbed(double, double* y, double* f) {
    if (c != entry_c) throw Thrown();
    f[0] = c - y[0] * y[0];
}
void slope(double, double* y, double** J) {
    if (c != entry_c) throw Thrown();
    J[0][0] = -2 * y[0];
}
void parameter_slope(double, double*, double** J) {
    J[0][0] = 0;
    J[0][1] = 1;
}

// The first evaluation with another parameter is one for a difference quotient: with numerical
// Jacobians that of f, with analytic ones that of the criterion.
TEST(LocateEquilibriumBifurcation, RestoresAPerturbedParameterExactly) {
    for (const bool analytic : {false, true}) {
        const Temporarily start(c, 1e-9);  // c + h - h is not c
        entry_c = c;
        const Location interrupted(throwing_where_perturbed, 1, &c, {0.25});
        if (analytic) {
            interrupted.tx->jac = slope;
            interrupted.tx->paramjac = parameter_slope;
        }
        EXPECT_THROW(interrupted.run(), Thrown);
        EXPECT_EQ(c, entry_c);
        EXPECT_EQ(interrupted.bif->y[0], 0.25);
    }
}

TEST(ClassifyEquilibriumBifurcation, TakesTheFirstOfEqualEigenvalues) {
    const Location tie(Lorenz::flow, 3, &Lorenz::rho, {0, 0, 0});
    const auto classify = [&](double ei0, double ei1) {
        for (int i = 0; i < 3; ++i) {
            std::fill_n(tie.bif->Phi[i], 3, 0.0);
            tie.bif->Phi[i][i] = 1 + i;
            tie.bif->er[i] = i == 2 ? -4 : 0.5 - i;  // 0.5, -0.5, -4
        }
        std::copy_n(std::vector<double>{ei0, ei1, 0}.data(), 3, tie.bif->ei);
        tie.bif->c[0] = unused;
        tie.bif->c[1] = Lorenz::rho;
        EXPECT_EQ(tie.classify(), 1);
        return tie.bif->biftype;
    };
    EXPECT_EQ(classify(0, 1), trajex::saddle_node);
    EXPECT_EQ(classify(1, 0), trajex::hopf);
}

}  // namespace
