// Numerical Jacobians against analytic ones, and what a callback that throws leaves behind.
#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <cstring>
#include <string>
#include <vector>

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

// ---- A right-hand side that throws -------------------------------------------------------------

struct Interruption {};
int calls_left = -1;  // negative: never

void interrupted_flow(double t, double* y, double* f) {
    if (calls_left >= 0 && calls_left-- == 0) throw Interruption();
    VanDerPol::flow(t, y, f);
}
void interrupted_jacobian(double, double* y, double** J) {
    if (calls_left >= 0 && calls_left-- == 0) throw Interruption();
    VanDerPol::jacobian(0, y, J);
}
void interrupted_parameter_jacobian(double, double* y, double** P) {
    if (calls_left >= 0 && calls_left-- == 0) throw Interruption();
    VanDerPol::parameter_jacobian(0, y, P);
}
double interrupted_cut(double, double* y) {
    if (calls_left >= 0 && calls_left-- == 0) throw Interruption();
    return y[1] - 1e-3 * VanDerPol::mu;
}

struct Operation {
    const char* name;
    bool analytic;
    int (*run)(Trajex* tx, double* y, double** Phi);
};

int integrate(Trajex* tx, double* y, double** Phi) {
    double t = 0;
    return TXVarIntegrate(tx, &t, 0.5, y, Phi);
}
int cross(Trajex* tx, double* y, double** Phi) {
    double t = 0;
    for (int i = 0; i < 50; ++i) {
        if (TXVarPoincareStep(tx, &t, y, Phi) == 1) return 1;
    }
    return 0;
}
int find_orbit(Trajex* tx, double* y, double** Phi) {
    double T = 0;
    return TXAutoOrbit(tx, 0, y, Phi, 1, &T);
}
int find_forced_orbit(Trajex* tx, double* y, double** Phi) {
    y[0] = y[1] = 0.1;  // near the equilibrium, which is an orbit of any period
    return TXNonAutoOrbit(tx, 0, y, Phi, 3);
}
int all_differences(Trajex* tx, double* y, double** Phi) {
    double gradient[4];
    TXNumJac(tx, 0, y, Phi);
    TXNumParamJac(tx, 0, y, Phi);
    return TXNumCutJac(tx, 0, y, &VanDerPol::mu, &level, gradient);
}

class Interrupted : public testing::TestWithParam<Operation> {};

// Whichever call throws, the handle is as before: parameters to the last bit, nparam, flags, rows
// of the work matrix; dense output refuses the interrupted step; and the operation runs again with
// the result of an undisturbed one.
TEST_P(Interrupted, LeavesNothingPerturbed) {
    const auto open = [] {
        const bool analytic = GetParam().analytic;
        OpenHandle tx = open_variational(
            interrupted_flow, 2, analytic ? interrupted_jacobian : jac_t{},
            analytic ? interrupted_parameter_jacobian : jac_t{}, 1e-5, &VanDerPol::mu, &level);
        tx->cp[0] = 1;
        TXSetCut(tx.get(), interrupted_cut, 1e-4);
        return tx;
    };
    const auto run = [](Trajex* tx, double* y) {
        y[0] = 2;
        y[1] = 0.1;
        Matrix Phi = Matrix::identity(2, 4);
        return GetParam().run(tx, y, Phi);
    };
    const Temporarily never(calls_left, -1);
    double undisturbed[2];
    ASSERT_EQ(run(open().get(), undisturbed), 1);

    int total = 0;
    for (int nth = 0;; nth = nth < 30 ? nth + 1 : nth + nth / 7) {
        const OpenHandle tx = open();
        const std::vector<double*> rows(tx->TX->j, tx->TX->j + 5);
        const double mu = VanDerPol::mu;
        double y[2];
        calls_left = nth;
        bool thrown = false;
        try {
            run(tx.get(), y);
        } catch (const Interruption&) {
            thrown = true;
        }
        calls_left = -1;
        EXPECT_EQ(VanDerPol::mu, mu);
        EXPECT_EQ(level, 0.25);
        EXPECT_EQ(tx->nparam, 2);
        EXPECT_EQ(tx->cp[0], 1);
        EXPECT_EQ(tx->cp[1], 0);
        EXPECT_EQ(std::memcmp(rows.data(), tx->TX->j, rows.size() * sizeof(double*)), 0);
        if (!thrown) break;
        ++total;
        tx->h = tx->TX->h = 0.01;  // the step size proposed last may stay
        ASSERT_EQ(run(tx.get(), y), 1);
        EXPECT_EQ(y[0], undisturbed[0]) << "interrupted at call " << nth;
        EXPECT_EQ(y[1], undisturbed[1]);
    }
    EXPECT_GT(total, 5);
}

INSTANTIATE_TEST_SUITE_P(Operations, Interrupted,
                         testing::Values(Operation{"differences", false, all_differences},
                                         Operation{"integration", false, integrate},
                                         Operation{"integration_analytic", true, integrate},
                                         Operation{"section", false, cross},
                                         Operation{"section_analytic", true, cross},
                                         Operation{"forced_orbit", false, find_forced_orbit},
                                         Operation{"orbit", false, find_orbit},
                                         Operation{"orbit_analytic", true, find_orbit}),
                         [](const testing::TestParamInfo<Operation>& each) {
                             return std::string(each.param.name);
                         });

TEST(InterruptedStep, IsRefusedByDenseOutput) {
    const OpenHandle tx = open_variational(interrupted_flow, 2, VanDerPol::jacobian, nullptr, 1e-6);
    const Temporarily soon(calls_left, 20);
    double t = 0;
    double y[2] = {2, 0};
    Matrix Phi = Matrix::identity(2, 2);
    EXPECT_THROW(TXVarIntegrate(tx.get(), &t, 100, y, Phi), Interruption);
    EXPECT_EQ(TXVarInterpolate(tx.get(), 0.01, y, Phi), 0);
    EXPECT_EQ(TXErrorTrajex(tx->TX), 12);
}

}  // namespace
