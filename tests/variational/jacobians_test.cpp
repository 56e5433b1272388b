// Numerical Jacobians.
#include "variational/jacobians.hpp"

#include <gtest/gtest.h>

#include "handles.hpp"
#include "systems.hpp"
#include "tx.h"

namespace {

using testing_support::brusselator_A;
using testing_support::brusselator_B;
using testing_support::open_recording;
using testing_support::OpenHandle;

thread_local int evaluations = 0;

void counted_brusselator(double t, double* y, double* f) {
    ++evaluations;
    testing_support::brusselator(t, y, f);
}

double moving_cut(double, double* y) {
    return y[0] - 2 * brusselator_B + 0.5 * brusselator_A;
}

class NumericalJacobians : public testing::Test {
  protected:
    // Values at which x + h - h is not x: nothing but a saved value restores them exactly.
    NumericalJacobians() {
        brusselator_A = 1.1;
        brusselator_B = 1e-9;
        TXVarOpenTrajex(tx_.get(), nullptr, 1e-7, 2, nullptr, 1e-6, &brusselator_A, &brusselator_B);
    }
    void expect_untouched() const {
        EXPECT_EQ(y_[0], 1.0 / 3);
        EXPECT_EQ(y_[1], 1e-10);
        EXPECT_EQ(brusselator_A, 1.1);
        EXPECT_EQ(brusselator_B, 1e-9);
    }

    const OpenHandle tx_ = open_recording(counted_brusselator, 2);
    double y_[2] = {1.0 / 3, 1e-10};
    double rows_[2][2] = {{9, 9}, {9, 9}};
    double* J_[2] = {rows_[0], rows_[1]};
    double exact_rows_[2][2] = {};
    double* exact_[2] = {exact_rows_[0], exact_rows_[1]};

    void expect_exact(double tolerance) const {
        for (int i = 0; i < 2; ++i) {
            for (int k = 0; k < 2; ++k) EXPECT_NEAR(J_[i][k], exact_[i][k], tolerance);
        }
    }
};

TEST_F(NumericalJacobians, OfTheState) {
    testing_support::brusselator_jacobian(0, y_, exact_);
    evaluations = 0;
    EXPECT_EQ(TXNumJac(tx_.get(), 0, y_, J_), 1);
    EXPECT_EQ(evaluations, 3);
    expect_exact(1e-6);
    expect_untouched();
}

TEST_F(NumericalJacobians, OfTheParametersWhetherActiveOrNot) {
    testing_support::brusselator_parameter_jacobian(0, y_, exact_);
    evaluations = 0;
    EXPECT_EQ(TXNumParamJac(tx_.get(), 0, y_, J_), 1);
    EXPECT_EQ(evaluations, 3);
    expect_exact(1e-8);
    expect_untouched();

    tx_->nparam = 0;
    rows_[0][0] = 9;
    EXPECT_EQ(TXNumParamJac(tx_.get(), 0, y_, J_), 1);
    EXPECT_EQ(evaluations, 4);
    EXPECT_EQ(rows_[0][0], 9);
    tx_->nparam = 2;
}

TEST_F(NumericalJacobians, OfTheSection) {
    TXSetCut(tx_.get(), moving_cut, 1e-8);
    double gradient[4];
    EXPECT_EQ(TXNumCutJac(tx_.get(), 0, y_, &brusselator_B, &brusselator_A, gradient), 1);
    const double exact[] = {1, 0, -2, 0.5};
    for (int i = 0; i < 4; ++i) EXPECT_NEAR(gradient[i], exact[i], 1e-8);
    expect_untouched();

    // Without a cut function, the hyperplane: its gradient is its normal.
    TXSetCut(tx_.get(), nullptr, 1e-8);
    ASSERT_EQ(TXSetAutoCut(tx_.get(), 0, y_), 1);
    EXPECT_EQ(TXNumCutJac(tx_.get(), 0, y_, &brusselator_B, &brusselator_A, gradient), 1);
    EXPECT_NEAR(gradient[0], tx_->ivector[0], 1e-8);
    EXPECT_NEAR(gradient[1], tx_->ivector[1], 1e-8);
    EXPECT_EQ(gradient[2], 0);
    EXPECT_EQ(gradient[3], 0);
}

}  // namespace
