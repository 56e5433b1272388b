// State and fundamental matrix against the method and the product of matrices as they are written
// down, to the last bit.
#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <vector>

#include "core/simd.hpp"
#include "handles.hpp"
#include "integration/textbook.hpp"
#include "matrices.hpp"
#include "tx.h"
#include "variational/matrix_product.hpp"

namespace {

using testing_support::Matrix;
using testing_support::open_variational;
using testing_support::OpenHandle;

/// product[i][k] = sum over l of J[i][l] M[l][k].
void plain_product(double** J, std::size_t n, const double* M, std::size_t columns,
                   double* product) {
    for (std::size_t i = 0; i < n; ++i) {
        for (std::size_t k = 0; k < columns; ++k) {
            double sum = M[k] * J[i][0];
            for (std::size_t l = 1; l < n; ++l) sum += M[l * columns + k] * J[i][l];
            product[i * columns + k] = sum;
        }
    }
}

TEST(MatrixProduct, EveryInstructionSetGivesTheBitsOfThePlainSum) {
    for (std::size_t n = 1; n <= 14; ++n) {
        for (std::size_t columns = n; columns <= n + 9; ++columns) {
            Matrix J(n, n + 3);
            std::vector<double> M(n * columns);
            for (std::size_t i = 0; i < n; ++i) {
                for (std::size_t l = 0; l < n; ++l)
                    J[i][l] = std::sin(1.0 + 7.0 * static_cast<double>(i * n + l));
            }
            for (std::size_t m = 0; m < M.size(); ++m)
                M[m] = std::cos(3.0 * static_cast<double>(m));
            std::vector<double> expected(M.size()), baseline(M.size()), best(M.size());
            plain_product(J, n, M.data(), columns, expected.data());
            double* const* const rows = J;
            trajex::run_for_baseline<trajex::MatrixProduct<trajex::Pair>>(rows, n, M.data(),
                                                                          columns, baseline.data());
            trajex::dispatch<trajex::MatrixProduct>(rows, n, M.data(), columns, best.data());
            ASSERT_EQ(baseline, expected) << n << " x " << columns;
            ASSERT_EQ(best, expected) << n << " x " << columns;
        }
    }
}

thread_local std::size_t n = 0;
double strength = 0.8;

/// A ring with a coupling of every unit to the mean of all, so that no element of J is zero.
void coupled(double t, double* y, double* f) {
    double mean = 0;
    for (std::size_t i = 0; i < n; ++i) mean += y[i];
    mean /= static_cast<double>(n);
    for (std::size_t i = 0; i < n; ++i) {
        f[i] = strength * std::sin(y[(i + 1) % n]) - y[i] * y[i] * y[i] + mean + std::cos(t);
    }
}

void coupled_jacobian(double, double* y, double** J) {
    for (std::size_t i = 0; i < n; ++i) {
        for (std::size_t k = 0; k < n; ++k) J[i][k] = 1 / static_cast<double>(n);
        J[i][i] -= 3 * y[i] * y[i];
        J[i][(i + 1) % n] += strength * std::cos(y[(i + 1) % n]);
    }
}

void by_strength(double, double* y, double** P) {
    for (std::size_t i = 0; i < n; ++i) P[i][0] = std::sin(y[(i + 1) % n]);
}

/// The right-hand side of [y | Phi | S], row by row.
void extended(double t, double* Y, double* F) {
    Matrix J(n, n), P(n, 1);
    coupled(t, Y, F);
    coupled_jacobian(t, Y, J);
    plain_product(J, n, Y + n, n + 1, F + n);
    by_strength(t, Y, P);
    for (std::size_t i = 0; i < n; ++i) F[n + i * (n + 1) + n] += P[i][0];
}

textbook::Vector packed(const std::vector<double>& y, Matrix& Phi) {
    textbook::Vector Y(y);
    for (std::size_t i = 0; i < n; ++i) Y.insert(Y.end(), Phi[i], Phi[i] + n + 1);
    return Y;
}

TEST(ExtendedSystem, DerivativesAreThoseOfThePlainMethodToTheLastBit) {
    for (const std::size_t order : {1u, 2u, 3u, 5u, 10u, 50u, 200u}) {
        n = order;
        for (const double tolerance : {1e-3, 1e-6, 1e-9}) {
            SCOPED_TRACE(testing::Message() << "n = " << n << ", tolerance " << tolerance);
            const OpenHandle tx = open_variational(coupled, static_cast<int>(n), coupled_jacobian,
                                                   by_strength, tolerance, &strength);
            tx->cp[0] = 1;
            textbook::Integrator plain{extended,       n * (n + 2), tx->TX->RelTol,
                                       tx->TX->AbsTol, tx->TX->h,   true};
            std::vector<double> y(n);
            for (std::size_t i = 0; i < n; ++i) y[i] = std::cos(2.0 * static_cast<double>(i));
            Matrix Phi = Matrix::identity(n, n + 1);
            textbook::Vector expected = packed(y, Phi);
            double t = 0;
            for (int step = 0; step < (n < 200 ? 8 : 2); ++step) {
                ASSERT_EQ(TXVarStep(tx.get(), &t, y.data(), Phi), 1);
                plain.step(plain.t_end, expected);
                expected = plain.end;
                ASSERT_EQ(t, plain.t_end);
                ASSERT_EQ(tx->TX->h, plain.h);
                ASSERT_EQ(packed(y, Phi), expected);
            }
            const double inside = 0.7 * plain.t_start + 0.3 * t;
            ASSERT_EQ(TXVarInterpolate(tx.get(), inside, y.data(), Phi), 1);
            EXPECT_EQ(packed(y, Phi), plain.dense_output(inside));
        }
    }
}

}  // namespace
