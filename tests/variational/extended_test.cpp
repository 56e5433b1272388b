// The extended system: state, fundamental matrix and sensitivities against closed forms and
// invariants.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstddef>
#include <vector>

#include "core/guards.hpp"
#include "handles.hpp"
#include "integration/section.hpp"
#include "matrices.hpp"
#include "systems.hpp"
#include "tx.h"

namespace {

using namespace testing_support;
using trajex::Temporarily;

TEST(ExtendedSystem, GrowthHasItsClosedForms) {
    const Temporarily rate(Growth::c, -0.7);
    for (const double RelTol : {1e-6, 1e-10}) {
        const OpenHandle tx =
            open_variational(Growth::flow, 1, Growth::jacobian, nullptr, RelTol, &Growth::c);
        tx->cp[0] = 1;
        double t = 0;
        double y = 2;
        Matrix Phi = Matrix::identity(1, 2);
        ASSERT_EQ(TXVarIntegrate(tx.get(), &t, 1.5, &y, Phi), 1);
        const double exact = std::exp(-0.7 * 1.5);
        EXPECT_EQ(t, 1.5);
        EXPECT_NEAR(y, 2 * exact, 20 * RelTol);
        EXPECT_NEAR(Phi[0][0], exact, 20 * RelTol);
        EXPECT_NEAR(Phi[0][1], 1.5 * 2 * exact, 20 * RelTol);
    }
}

TEST(ExtendedSystem, CarriesTheActiveParametersInOrder) {
    const double t1 = 1;
    const double ea = std::exp(Uncoupled::a * t1);
    const double eb = std::exp(Uncoupled::b * t1);
    const double offset = Uncoupled::d / Uncoupled::b;  // y1 = (y1(0) + offset) e^(b t) - offset
    const double by_b = t1 * (3 + offset) * eb - offset / Uncoupled::b * (eb - 1);
    const double exact[3][2] = {{t1 * ea, 0}, {0, by_b}, {0, (eb - 1) / Uncoupled::b}};

    for (unsigned flags = 0; flags < 8; ++flags) {
        for (const jac_t paramjac : {jac_t{}, jac_t{Uncoupled::parameter_jacobian}}) {
            const OpenHandle tx =
                open_variational(Uncoupled::flow, 2, Uncoupled::jacobian, paramjac, 1e-10,
                                 &Uncoupled::a, &Uncoupled::b, &Uncoupled::d);
            std::vector<std::size_t> active;
            for (std::size_t q = 0; q < 3; ++q) {
                tx->cp[q] = (flags >> q & 1) != 0;
                if (tx->cp[q] != 0) active.push_back(q);
            }
            const std::size_t columns = 2 + active.size();
            const double untouched = 77;
            Matrix Phi(2, 6, untouched);
            for (std::size_t i = 0; i < 2; ++i) {
                for (std::size_t k = 0; k < columns; ++k) Phi[i][k] = i == k;
            }
            double t = 0;
            double y[2] = {1, 3};
            ASSERT_EQ(TXVarIntegrate(tx.get(), &t, t1, y, Phi), 1);
            EXPECT_NEAR(y[0], ea, 1e-8);
            EXPECT_NEAR(y[1], (3 + offset) * eb - offset, 1e-8);
            EXPECT_NEAR(Phi[0][0], ea, 1e-8);
            EXPECT_NEAR(Phi[1][1], eb, 1e-8);
            for (std::size_t i = 0; i < 2; ++i) {
                EXPECT_EQ(Phi[i][1 - i], 0);
                for (std::size_t m = 0; m < active.size(); ++m) {
                    EXPECT_NEAR(Phi[i][2 + m], exact[active[m]][i], 1e-8) << flags << i << m;
                }
                for (std::size_t k = columns; k < 6; ++k) EXPECT_EQ(Phi[i][k], untouched);
            }

            // The sub-record holds the same: the state, then the rows one after the other.
            t = tx->TX->tlast;
            TXVarInterpolate(tx.get(), t, y, Phi);
            for (std::size_t i = 0; i < 2; ++i) {
                EXPECT_NEAR(tx->TX->ylast[i], y[i], 1e-14);
                for (std::size_t k = 0; k < columns; ++k) {
                    EXPECT_NEAR(tx->TX->ylast[2 + i * columns + k], Phi[i][k], 1e-13);
                }
            }
        }
    }
}

// det Phi = exp of the divergence integrated along the trajectory (Liouville).
TEST(ExtendedSystem, VolumesFollowTheDivergence) {
    const OpenHandle lorenz = open_variational(Lorenz::flow, 3, Lorenz::jacobian, nullptr, 1e-12);
    double t = 0;
    double y[3] = {1, 2, 20};
    Matrix Phi = Matrix::identity(3, 3);
    ASSERT_EQ(TXVarIntegrate(lorenz.get(), &t, 0.5, y, Phi), 1);
    const double shrunk = std::exp(0.5 * Lorenz::divergence());
    EXPECT_NEAR(determinant(Phi, 3) / shrunk, 1, 1e-6);

    for (const jac_t jac : {jac_t{}, jac_t{VanDerPol::jacobian}}) {
        const OpenHandle tx = open_variational(VanDerPol::flow, 2, jac, nullptr, 1e-11);
        double z[3] = {0.5, 1.5, 0};
        Matrix M = Matrix::identity(2, 2);
        t = 0;
        ASSERT_EQ(TXVarIntegrate(tx.get(), &t, 4, z, M), 1);
        const OpenHandle plain = open_recording(VanDerPol::flow_and_divergence, 3, 1e-11);
        double q[3] = {0.5, 1.5, 0};
        t = 0;
        ASSERT_EQ(TXIntegrate(plain.get(), &t, 4, q), 1);
        EXPECT_NEAR(determinant(M, 2) / std::exp(q[2]), 1, jac != nullptr ? 1e-8 : 1e-4);
    }
}

TEST(ExtendedSystem, NumericalJacobiansGiveTheSameDerivatives) {
    const auto derivatives = [](jac_t jac, jac_t paramjac) {
        const OpenHandle tx =
            open_variational(VanDerPol::flow, 2, jac, paramjac, 1e-10, &VanDerPol::mu);
        tx->cp[0] = 1;
        double t = 0;
        double y[2] = {2, 0};
        Matrix Phi = Matrix::identity(2, 3);
        EXPECT_EQ(TXVarIntegrate(tx.get(), &t, 3, y, Phi), 1);
        std::array<double, 6> elements;
        for (std::size_t m = 0; m < 6; ++m) elements[m] = Phi[m / 3][m % 3];
        return elements;
    };
    const auto exact = derivatives(VanDerPol::jacobian, VanDerPol::parameter_jacobian);
    const auto numerical = derivatives(nullptr, nullptr);
    for (std::size_t m = 0; m < 6; ++m) EXPECT_NEAR(numerical[m], exact[m], 2e-5);
}

// With fixed steps: halving the step divides the error inside it by 2^7.
TEST(ExtendedSystem, DenseOutputIsOfOrderSix) {
    const auto errors_inside = [](double h) {
        const OpenHandle tx =
            open_variational(Growth::flow, 1, Growth::jacobian, nullptr, 0, &Growth::c);
        tx->cp[0] = 1;
        tx->TX->h = h;
        double t = 0;
        double y = 1;
        Matrix Phi = Matrix::identity(1, 2);
        EXPECT_EQ(TXVarStep(tx.get(), &t, &y, Phi), 1);
        EXPECT_EQ(t, h);
        const double inside = 0.3 * h;
        EXPECT_EQ(TXVarInterpolate(tx.get(), inside, &y, Phi), 1);
        return std::array{std::fabs(Phi[0][0] - std::exp(inside)),
                          std::fabs(Phi[0][1] - inside * std::exp(inside))};
    };
    const auto wide = errors_inside(0.5);
    const auto narrow = errors_inside(0.25);
    for (std::size_t m = 0; m < 2; ++m) {
        EXPECT_GT(wide[m] / narrow[m], 100);
        EXPECT_LT(wide[m] / narrow[m], 160);
    }
}

TEST(VariationalOutput, MeetsTheEndsOfTheStep) {
    const OpenHandle tx =
        open_variational(VanDerPol::flow, 2, nullptr, nullptr, 1e-6, &VanDerPol::mu);
    tx->cp[0] = 1;
    double t = 0;
    double y[2] = {2, 0.5};
    Matrix Phi = Matrix::identity(2, 3);
    EXPECT_EQ(TXVarInterpolate(tx.get(), 0, y, Phi), 0);
    EXPECT_EQ(TXErrorTrajex(tx.get()), 0);
    EXPECT_EQ(TXErrorTrajex(tx->TX), 12);

    ASSERT_EQ(TXVarStep(tx.get(), &t, y, Phi), 1);
    for (const bool end : {false, true}) {
        TXVarInterpolate(tx.get(), end ? tx->TX->tlast : tx->TX->tfirst, y, Phi);
        const double* ends = end ? tx->TX->ylast : tx->TX->yfirst;
        for (std::size_t i = 0; i < 2; ++i) {
            EXPECT_DOUBLE_EQ(y[i], ends[i]);
            for (std::size_t k = 0; k < 3; ++k) EXPECT_DOUBLE_EQ(Phi[i][k], ends[2 + 3 * i + k]);
        }
    }
}

TEST(VariationalSection, OscillatorCrossesAtOddMultiplesOfHalfPi) {
    const OpenHandle tx =
        open_variational(Oscillator::flow, 2, Oscillator::jacobian, nullptr, 1e-11);
    TXSetCut(tx.get(), first_component, 1e-9);
    double t = 0;
    double y[2] = {1, 0};
    Matrix Phi = Matrix::identity(2, 2);
    for (int crossing = 0; crossing < 4; ++crossing) {
        int result = 0;
        for (int step = 0; step < 100 && result == 0; ++step) {
            result = TXVarPoincareStep(tx.get(), &t, y, Phi);
        }
        ASSERT_EQ(result, 1);
        EXPECT_NEAR(t, (crossing + 0.5) * pi, 2e-9);
        EXPECT_LT(std::fabs(y[0]), 1e-9);
        EXPECT_EQ(std::signbit(y[0]), crossing % 2 == 0);  // beyond the section
        EXPECT_NEAR(Phi[0][0], std::cos(t), 1e-9);
        EXPECT_NEAR(Phi[0][1], std::sin(t), 1e-9);
        EXPECT_NEAR(Phi[1][0], -std::sin(t), 1e-9);
        EXPECT_NEAR(Phi[1][1], std::cos(t), 1e-9);
    }
}

// The two flows are stepped on different records: neither disturbs the other.
TEST(VariationalRecord, IsIndependentOfTheHandle) {
    const OpenHandle tx = open_variational(Lorenz::flow, 3, nullptr, nullptr, 1e-8);
    double t = 0;
    double y[3] = {1, 1, 1};
    ASSERT_EQ(TXStep(tx.get(), &t, y), 1);
    const double h = tx->h;
    const double tlast = tx->tlast;
    Matrix Phi = Matrix::identity(3, 3);
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
