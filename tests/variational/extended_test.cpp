// The extended system: state, fundamental matrix and sensitivities against closed forms and
// invariants.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstddef>
#include <vector>

#include "handles.hpp"
#include "integration/section.hpp"
#include "matrices.hpp"
#include "systems.hpp"
#include "tx.h"

namespace {

using namespace testing_support;

void expect_sensitivities(unsigned flags, jac_t paramjac, double RelTol) {
    constexpr double t1 = 1.5, error = 50;
    const double a = Uncoupled::a, b = Uncoupled::b, offset = Uncoupled::d / b;
    const double ea = std::exp(a * t1), eb = std::exp(b * t1);
    const double state[2] = {ea, (3 + offset) * eb - offset};
    const double by_parameter[3][2] = {
        {t1 * ea, 0}, {0, t1 * (3 + offset) * eb - offset / b * (eb - 1)}, {0, (eb - 1) / b}};

    const OpenHandle tx = open_variational(Uncoupled::flow, 2, Uncoupled::jacobian, paramjac,
                                           RelTol, &Uncoupled::a, &Uncoupled::b, &Uncoupled::d);
    std::vector<std::size_t> active;
    for (std::size_t q = 0; q < 3; ++q) {
        tx->cp[q] = (flags >> q & 1) != 0;
        if (tx->cp[q] != 0) active.push_back(q);
    }
    const std::size_t columns = 2 + active.size();
    Matrix Phi(2, 6, 77);
    for (std::size_t m = 0; m < 2 * columns; ++m)
        Phi[m / columns][m % columns] = m == 0 || m == columns + 1;
    double t = 0;
    double y[2] = {1, 3};
    ASSERT_EQ(TXVarIntegrate(tx.get(), &t, t1, y, Phi), 1);
    EXPECT_EQ(t, t1);
    for (std::size_t i = 0; i < 2; ++i) {
        EXPECT_NEAR(y[i], state[i], error * RelTol);
        EXPECT_NEAR(Phi[i][i], i == 0 ? ea : eb, error * RelTol);
        EXPECT_EQ(Phi[i][1 - i], 0);
        for (std::size_t m = 0; m < active.size(); ++m) {
            EXPECT_NEAR(Phi[i][2 + m], by_parameter[active[m]][i], error * RelTol);
        }
        for (std::size_t k = columns; k < 6; ++k) EXPECT_EQ(Phi[i][k], 77);
    }
    // The sub-record holds the same: the state, then the rows one after the other.
    const double* const last = tx->TX->ylast;
    TXVarInterpolate(tx.get(), tx->TX->tlast, y, Phi);
    for (std::size_t i = 0; i < 2; ++i) {
        EXPECT_DOUBLE_EQ(last[i], y[i]);
        for (std::size_t k = 0; k < columns; ++k) {
            EXPECT_DOUBLE_EQ(last[2 + i * columns + k], Phi[i][k]);
        }
    }
    // With other parameters there is no such step.
    tx->cp[0] = tx->cp[0] == 0;
    tx->TX->TerminateOnFatalError = 0;
    EXPECT_EQ(TXVarInterpolate(tx.get(), t, y, Phi), 0);
    EXPECT_EQ(tx->TX->ErrorCode, 12);
}

TEST(ExtendedSystem, CarriesTheActiveParametersInOrder) {
    for (unsigned flags = 0; flags < 8; ++flags) {
        for (const double RelTol : {1e-7, 1e-10}) {
            SCOPED_TRACE(testing::Message() << "active " << flags << ", tolerance " << RelTol);
            expect_sensitivities(flags, Uncoupled::parameter_jacobian, RelTol);
            expect_sensitivities(flags, nullptr, RelTol);
        }
    }
}

// det Phi = exp of the divergence integrated along the trajectory (Liouville).
TEST(ExtendedSystem, VolumesFollowTheDivergence) {
    double t = 0;
    double x[3] = {1, 2, 20};
    Matrix Phi = Matrix::identity(3, 3);
    const OpenHandle lorenz = open_variational(Lorenz::flow, 3, Lorenz::jacobian, nullptr, 1e-12);
    ASSERT_EQ(TXVarIntegrate(lorenz.get(), &t, 0.5, x, Phi), 1);
    EXPECT_NEAR(determinant(Phi, 3) / std::exp(0.5 * Lorenz::divergence()), 1, 1e-6);

    for (const jac_t jac : {jac_t{}, jac_t{VanDerPol::jacobian}}) {
        const OpenHandle tx = open_variational(VanDerPol::flow, 2, jac, nullptr, 1e-11);
        const OpenHandle plain = open_recording(VanDerPol::flow_and_divergence, 3, 1e-11);
        double y[2] = {0.5, 1.5}, q[3] = {0.5, 1.5, 0};
        Matrix M = Matrix::identity(2, 2);
        t = 0;
        ASSERT_EQ(TXVarIntegrate(tx.get(), &t, 4, y, M), 1);
        t = 0;
        ASSERT_EQ(TXIntegrate(plain.get(), &t, 4, q), 1);
        EXPECT_NEAR(determinant(M, 2) / std::exp(q[2]), 1, jac != nullptr ? 1e-8 : 1e-4);
    }
}

// With fixed steps: halving the step divides the error inside it by 2^7.
TEST(ExtendedSystem, DenseOutputIsOfOrderSix) {
    const auto errors_inside = [](double h) {
        const OpenHandle tx =
            open_variational(Growth::flow, 1, Growth::jacobian, nullptr, 0, &Growth::c);
        tx->cp[0] = 1;
        tx->TX->h = h;
        double t = 0, y = 1;
        const double inside = 0.3 * h;
        Matrix Phi = Matrix::identity(1, 2);
        EXPECT_EQ(TXVarStep(tx.get(), &t, &y, Phi), 1);
        EXPECT_EQ(TXVarInterpolate(tx.get(), inside, &y, Phi), 1);
        return std::array{std::fabs(Phi[0][0] - std::exp(inside)),
                          std::fabs(Phi[0][1] - inside * std::exp(inside))};
    };
    const auto wide = errors_inside(0.5), narrow = errors_inside(0.25);
    for (std::size_t m = 0; m < 2; ++m) EXPECT_NEAR(std::log2(wide[m] / narrow[m]), 7, 0.35);
}

TEST(VariationalSection, OscillatorCrossesAtOddMultiplesOfHalfPi) {
    const OpenHandle tx =
        open_variational(Oscillator::flow, 2, Oscillator::jacobian, nullptr, 1e-11);
    TXSetCut(tx.get(), first_component, 1e-9);
    double t = 0;
    double y[2] = {1, 0};
    Matrix Phi = Matrix::identity(2, 2);
    for (int crossing = 0; crossing < 4; ++crossing) {
        while (TXVarPoincareStep(tx.get(), &t, y, Phi) == 0) ASSERT_LT(t, 15);
        EXPECT_NEAR(t, (crossing + 0.5) * pi, 2e-9);
        EXPECT_LT(std::fabs(y[0]), 1e-9);
        EXPECT_EQ(std::signbit(y[0]), crossing % 2 == 0);  // beyond the section
        const double exact[] = {std::cos(t), std::sin(t), -std::sin(t), std::cos(t)};
        for (std::size_t m = 0; m < 4; ++m) EXPECT_NEAR(Phi[m / 2][m % 2], exact[m], 1e-9);
    }
}

thread_local long evaluations = 0;
void counted(double t, double* y, double* f) {
    ++evaluations;
    Lorenz::flow(t, y, f);
}

// Differences start from the value that the stage has computed already.
TEST(ExtendedSystem, TakesOneEvaluationPerDifference) {
    const OpenHandle tx = open_variational(counted, 3, nullptr, nullptr, 1e-6, &Lorenz::rho);
    tx->cp[0] = 1;
    tx->TX->hmax = 1e-4;  // no attempt is rejected
    Matrix Phi(3, 4);
    double t = 0;
    double y[3] = {1, 1, 1};
    evaluations = 0;
    ASSERT_EQ(TXVarStep(tx.get(), &t, y, Phi), 1);
    EXPECT_EQ(evaluations, 8 * (1 + 3 + 1));
}

// The two flows are stepped on different records: neither disturbs the other.
TEST(VariationalRecord, IsIndependentOfTheHandle) {
    const OpenHandle tx = open_variational(Lorenz::flow, 3, nullptr, nullptr, 1e-8);
    double t = 0;
    double y[3] = {1, 1, 1};
    Matrix Phi = Matrix::identity(3, 3);
    ASSERT_EQ(TXStep(tx.get(), &t, y), 1);
    EXPECT_EQ(TXVarInterpolate(tx.get(), 0, y, Phi), 0);
    EXPECT_EQ(TXErrorTrajex(tx.get()), 0);
    EXPECT_EQ(TXErrorTrajex(tx->TX), 12);
    const double h = tx->h, tlast = tx->tlast;
    ASSERT_EQ(TXVarIntegrate(tx.get(), &t, 1, y, Phi), 1);
    EXPECT_EQ(tx->h, h);
    EXPECT_EQ(tx->tlast, tlast);
    const double sub_h = tx->TX->h;
    ASSERT_EQ(TXIntegrate(tx.get(), &t, 2, y), 1);
    EXPECT_EQ(tx->TX->h, sub_h);
    EXPECT_EQ(TXVarIntegrate(tx.get(), &t, 1, y, Phi), 0);
    EXPECT_EQ(TXErrorTrajex(tx.get()), 7);
}

}  // namespace
