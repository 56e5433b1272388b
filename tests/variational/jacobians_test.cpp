// Numerical Jacobians against analytic ones.
#include "support.hpp"

namespace {

double level = 1e-9;
constexpr Cut first_component_at_level = [](double, double* y) { return y[0] - level; };

// A forward difference of f errs by eps f'' / 2. The values are such that x + eps - eps is not x:
// only a saved value comes back exactly.
TEST(NumericalJacobian, ErrsByThePerturbationAndRestoresEveryBit) {
    const trajex::Temporarily mu(VanDerPol::mu, 1.1);
    for (const double eps : {1e-3, 1e-5}) {
        const OpenHandle tx = open_variational(Probe::flow<VanDerPol::flow>, 2, nullptr, nullptr,
                                               1e-6, &VanDerPol::mu, &level);
        TXSetCut(tx.get(), first_component_at_level, 1e-8);
        tx->JacPert = tx->ParamJacPert = eps;
        double y[2] = {1e-10, -1.3};
        double gradient[4];
        Matrix J(2, 2), exact(2, 2), P(2, 2), exact_P(2, 2);
        Probe::set(Probe::never);
        ASSERT_EQ(TXNumJac(tx.get(), 0, y, J), 1);
        ASSERT_EQ(TXNumParamJac(tx.get(), 0, y, P), 1);
        ASSERT_EQ(TXNumCutJac(tx.get(), 0, y, &level, &VanDerPol::mu, gradient), 1);
        EXPECT_EQ(Probe::calls, 3 + 3);
        EXPECT_TRUE(y[0] == 1e-10 && y[1] == -1.3 && VanDerPol::mu == 1.1 && level == 1e-9);

        VanDerPol::jacobian(0, y, exact);
        VanDerPol::parameter_jacobian(0, y, exact_P);
        exact[1][0] -= eps * VanDerPol::mu * y[1];
        const double rounding = 1e-15 / eps, exact_gradient[4] = {1, 0, -1, 0};
        for (std::size_t m = 0; m < 4; ++m) {
            EXPECT_NEAR(J[m / 2][m % 2], exact[m / 2][m % 2], rounding);
            EXPECT_NEAR(P[m / 2][m % 2], exact_P[m / 2][m % 2], rounding);
            EXPECT_NEAR(gradient[m], exact_gradient[m], rounding);
        }
    }
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
    for (std::size_t m = 0; m < 4; ++m) EXPECT_NEAR(gradient[m], exact[m], 1e-9);
}

}  // namespace
