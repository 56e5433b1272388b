// Numerical Jacobians against analytic ones.
#include <gtest/gtest.h>

#include <cstddef>

#include "core/guards.hpp"
#include "handles.hpp"
#include "matrices.hpp"
#include "systems.hpp"
#include "tx.h"

namespace {

using namespace testing_support;
using trajex::Temporarily;

// A forward difference of f errs by eps f'' / 2.
TEST(NumericalJacobian, ErrsByThePerturbation) {
    for (const double eps : {1e-3, 1e-5}) {
        const OpenHandle tx =
            open_variational(VanDerPol::flow, 2, nullptr, nullptr, 1e-6, &VanDerPol::mu);
        tx->JacPert = tx->ParamJacPert = eps;
        double y[2] = {0.7, -1.3};
        Matrix J(2, 2), exact(2, 2), P(2, 1), exact_P(2, 1);
        ASSERT_EQ(TXNumJac(tx.get(), 0, y, J), 1);
        ASSERT_EQ(TXNumParamJac(tx.get(), 0, y, P), 1);
        VanDerPol::jacobian(0, y, exact);
        VanDerPol::parameter_jacobian(0, y, exact_P);
        const double rounding = 1e-15 / eps;
        const double second_derivative = -2 * VanDerPol::mu * y[1];
        EXPECT_NEAR(J[1][0] - exact[1][0], eps * second_derivative / 2, rounding);
        EXPECT_NEAR(J[0][0], exact[0][0], rounding);
        EXPECT_NEAR(J[0][1], exact[0][1], rounding);
        EXPECT_NEAR(J[1][1], exact[1][1], rounding);
        EXPECT_NEAR(P[0][0], exact_P[0][0], rounding);
        EXPECT_NEAR(P[1][0], exact_P[1][0], rounding);  // linear in mu
    }
}

double level = 0.25;
double first_component_at_level(double, double* y) {
    return y[0] - level;
}

TEST(NumericalJacobian, OfTheCutFunction) {
    const OpenHandle tx =
        open_variational(VanDerPol::flow, 2, nullptr, nullptr, 1e-6, &level, &VanDerPol::mu);
    TXSetCut(tx.get(), first_component_at_level, 1e-8);
    double y[2] = {0.7, -1.3};
    double gradient[4];
    ASSERT_EQ(TXNumCutJac(tx.get(), 0, y, &level, &VanDerPol::mu, gradient), 1);
    const double exact[4] = {1, 0, -1, 0};
    for (std::size_t i = 0; i < 4; ++i) EXPECT_NEAR(gradient[i], exact[i], 1e-9);
}

// On the hyperplane the gradient is the normal; the parameters play no part.
TEST(NumericalJacobian, OfTheHyperplane) {
    const OpenHandle tx =
        open_variational(VanDerPol::flow, 2, nullptr, nullptr, 1e-6, &VanDerPol::mu);
    double y[2] = {0.7, -1.3};
    double gradient[4];
    ASSERT_EQ(TXSetAutoCut(tx.get(), 0, y), 1);
    ASSERT_EQ(TXNumCutJac(tx.get(), 0, y, &level, &VanDerPol::mu, gradient), 1);
    const double exact[4] = {tx->ivector[0], tx->ivector[1], 0, 0};
    for (std::size_t i = 0; i < 4; ++i) EXPECT_NEAR(gradient[i], exact[i], 1e-9);
}

int evaluations = 0;
void counted_flow(double t, double* y, double* f) {
    ++evaluations;
    VanDerPol::flow(t, y, f);
}

// At values where x + h - h is not x: only a saved value comes back exactly.
TEST(NumericalJacobian, RestoresEveryBitAndEvaluatesOnce) {
    double other = 1e-9;
    const Temporarily stiff(VanDerPol::mu, 1.1);
    const OpenHandle tx =
        open_variational(counted_flow, 2, nullptr, nullptr, 1e-6, &VanDerPol::mu, &other);
    double y[2] = {1.0 / 3, 1e-10};
    double gradient[4];
    Matrix J(2, 2), P(2, 2, 9);
    TXSetCut(tx.get(), first_component_at_level, 1e-8);
    evaluations = 0;
    ASSERT_EQ(TXNumJac(tx.get(), 0, y, J), 1);
    EXPECT_EQ(evaluations, 3);
    ASSERT_EQ(TXNumParamJac(tx.get(), 0, y, P), 1);
    EXPECT_EQ(evaluations, 6);
    EXPECT_EQ(P[1][1], 0);
    ASSERT_EQ(TXNumCutJac(tx.get(), 0, y, &other, &VanDerPol::mu, gradient), 1);
    EXPECT_EQ(y[0], 1.0 / 3);
    EXPECT_EQ(y[1], 1e-10);
    EXPECT_EQ(VanDerPol::mu, 1.1);
    EXPECT_EQ(other, 1e-9);
}

}  // namespace
