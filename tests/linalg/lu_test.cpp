// LU decomposition: agreement to the last bit with a plain Crout decomposition, singular matrices,
// elements that are not finite.
#include <gtest/gtest.h>

#include <limits>
#include <vector>

#include "linalg/lu.hpp"
#include "matrix.hpp"
#include "tx.h"

namespace trajex::test {
namespace {

struct Factors {
    std::vector<int> exchanges;
    double parity = 1;
};

// Column by column, each element a sum over inner products: the method as it is usually printed.
Factors plain_crout(Matrix& a) {
    const std::size_t n = a.size();
    Factors factors;
    std::vector<double> scale;
    for (std::size_t i = 0; i < n; ++i) {
        double largest = 0;
        for (std::size_t j = 0; j < n; ++j) {
            if (std::fabs(a[i][j]) > largest) largest = std::fabs(a[i][j]);
        }
        scale.push_back(1 / largest);
    }
    for (std::size_t j = 0; j < n; ++j) {
        for (std::size_t i = 0; i < n; ++i) {
            for (std::size_t k = 0; k < std::min(i, j); ++k) a[i][j] -= a[i][k] * a[k][j];
        }
        std::size_t pivot = j;
        double best = 0;
        for (std::size_t i = j; i < n; ++i) {
            if (scale[i] * std::fabs(a[i][j]) >= best) {
                best = scale[i] * std::fabs(a[i][j]);
                pivot = i;
            }
        }
        if (pivot != j) {
            for (std::size_t k = 0; k < n; ++k) std::swap(a[j][k], a[pivot][k]);
            scale[pivot] = scale[j];
            factors.parity = -factors.parity;
        }
        factors.exchanges.push_back(static_cast<int>(pivot));
        if (a[j][j] == 0) a[j][j] = 1e-20;
        const double reciprocal = 1 / a[j][j];
        for (std::size_t i = j + 1; i < n; ++i) a[i][j] *= reciprocal;
    }
    return factors;
}

std::vector<double> plain_solve(const Matrix& lu, const Factors& factors, std::vector<double> b) {
    const std::size_t n = lu.size();
    for (std::size_t i = 0; i < n; ++i) {
        std::swap(b[i], b[static_cast<std::size_t>(factors.exchanges[i])]);
    }
    std::size_t start = 0;
    while (start < n && b[start] == 0) ++start;
    for (std::size_t i = start; i < n; ++i) {
        for (std::size_t j = start; j < i; ++j) b[i] -= lu[i][j] * b[j];
    }
    for (std::size_t i = n; i-- > 0;) {
        for (std::size_t j = i + 1; j < n; ++j) b[i] -= lu[i][j] * b[j];
        b[i] /= lu[i][i];
    }
    return b;
}

TEST(Lu, AgreesWithCroutToTheLastBit) {
    for (const std::size_t n :
         Orders{1, 2, 3, 4, 5, 7, 8, 9, 10, 16, 17, 31, 50, 65, 77, 128, 200, 300}) {
        int kind = 0;
        for (const Matrix& a : branch_takers(n)) {
            SCOPED_TRACE(testing::Message() << "n = " << n << ", kind " << kind++);
            Matrix expected = a;
            Matrix actual = a;
            const Factors factors = plain_crout(expected);
            std::vector<int> exchanges(n);
            std::vector<double> scale(n);
            double parity = 0;
            if (!lu_decompose(n, actual.rows(), exchanges.data(), parity, scale.data())) {
                EXPECT_EQ(differences(actual, a), 0) << "a singular matrix stays as it is";
                continue;
            }
            EXPECT_EQ(differences(actual, expected), 0);
            EXPECT_EQ(exchanges, factors.exchanges);
            EXPECT_EQ(parity, factors.parity);
            EXPECT_TRUE(actual.untouched_outside());

            for (const std::size_t leading_zeros : {std::size_t{0}, n / 2, n}) {
                std::vector<double> b(n);
                for (std::size_t i = leading_zeros; i < n; ++i) b[i] = 1.0 / (1.0 + double(i));
                std::vector<double> x = b;
                lu_substitute(n, actual.rows(), exchanges.data(), x.data());
                EXPECT_EQ(differences(x, plain_solve(expected, factors, b)), 0);
            }
        }
    }
}

TEST(Lu, SolvesWithSmallBackwardError) {
    for (const std::size_t n : Orders{1, 2, 3, 6, 20, 100}) {
        const Matrix a = random_matrix(n, 7);
        std::vector<double> b(n, 1.0);
        Matrix factors = a;
        std::vector<double> work(2 * n);
        Trajex tx{};
        ASSERT_EQ(TXLinZero(&tx, factors.order(), factors.rows(), b.data(), work.data()), 1);
        for (std::size_t i = 0; i < n; ++i) {
            double residual = -1;
            double size = 1;
            for (std::size_t j = 0; j < n; ++j) {
                residual += a[i][j] * b[j];
                size += std::fabs(a[i][j] * b[j]);
            }
            EXPECT_LT(std::fabs(residual), 1e-15 * double(n) * size) << "n = " << n;
        }
    }
}

TEST(Lu, ReportsOnlyARowOfZeros) {
    Trajex tx{};
    double work[6], d = 0;
    int indx[3];
    Matrix same = mapped(
        Matrix(2), [](std::size_t i, std::size_t j, double) { return double((i + 1) * (j + 1)); });
    EXPECT_EQ(LUdcmp(&tx, 2, same.rows(), indx, &d, work), 1);
    EXPECT_EQ(d, -1) << "of equal candidates the later row is the pivot";
    EXPECT_EQ(same[1][1], 1e-20) << "a zero pivot is raised";
    EXPECT_EQ(TXLinZero(&tx, 0, nullptr, nullptr, work), 1);

    const Matrix singular = mapped(
        random_matrix(3, 1), [](std::size_t i, std::size_t, double x) { return i == 1 ? 0 : x; });
    Matrix a = singular;
    std::vector<double> b{1, 2, 3};
    EXPECT_EQ(TXLinZero(&tx, 3, a.rows(), b.data(), work), 0);
    EXPECT_EQ(tx.ErrorCode, 22);
    EXPECT_EQ(differences(a, singular), 0);
    EXPECT_EQ(b, (std::vector<double>{1, 2, 3}));
    tx.TerminateOnFatalError = 1;
    const auto ended = testing::ExitedWithCode(1);
    EXPECT_EXIT(TXLinZero(&tx, 3, a.rows(), b.data(), work), ended, "'LUdcmp'");
    EXPECT_EXIT(LUdcmp(nullptr, 3, a.rows(), indx, &d, work), ended, "ERROR");
    EXPECT_EXIT(TXLinZero(nullptr, 3, a.rows(), b.data(), work), ended,
                "'TXLinZero': Trajex not opened");
    a[1][2] = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ(TXLinZero(&tx, 3, a.rows(), b.data(), work), 1) << "an unknown is not a zero";
    EXPECT_EQ(tx.ErrorCode, 0);
}

}  // namespace
}  // namespace trajex::test
