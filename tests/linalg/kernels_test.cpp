// The kernels of linear algebra: every bit as recorded, known spectra and solutions at every scale,
// matrices that are singular, not finite, or could keep an iteration from ending.
#include <complex>

#include "checksums.hpp"
#include "support.hpp"

#include "linalg/dense.hpp"

namespace {

using Complex = std::complex<double>;
using Vector = std::vector<double>;

Matrix random_matrix(std::size_t n, std::uint64_t seed) {
    Numbers numbers(seed);
    return Matrix::made(n, n, [&](std::size_t, std::size_t) { return numbers.next(); });
}

/// Matrices that take the branches: random, badly scaled, and with many equal pivots and zeros of
/// both signs.
std::vector<Matrix> branch_takers(std::size_t n) {
    const Matrix random = random_matrix(n, n);
    const auto made = [&](auto f) { return Matrix::made(n, n, f); };
    return {random, made([&](std::size_t i, std::size_t j) {
                return std::ldexp(random[i][j], 3 * int(i % 7) - 7 * int(j % 5));
            }),
            made([&](std::size_t i, std::size_t j) {
                return std::copysign(std::fabs(random[i][j]) > 0.6 ? 1 : 0, random[i][j]);
            })};
}

// The sum was recorded when plain writings of the same algorithms gave the same bits.
TEST(Kernels, GiveTheRecordedBits) {
    Checksum sum;
    for (const std::size_t n : {1u, 2u, 3u, 4u, 5u, 7u, 8u, 9u, 13u, 20u, 33u, 71u, 130u, 200u}) {
        const int order = int(n);
        const auto add = [&sum, n](const Matrix& a) {
            for (std::size_t i = 0; i < n; ++i) sum.add(a[i], n);
        };
        for (const Matrix& given : branch_takers(n)) {
            Matrix a = given, lu = given;
            Vector re(n), im(n), work(2 * n), b(n);
            Balanc(a, order);
            add(a);
            Elmhes(a, order);
            add(a);
            Trajex tx{};
            Hqr(&tx, a, order, re.data(), im.data());  // one is too much for it
            sum.add(re.data(), n), sum.add(im.data(), n);

            std::vector<int> exchanges(n);
            double parity = 0;
            if (LUdcmp(&tx, order, lu, exchanges.data(), &parity, work.data()) != 1) continue;
            add(lu), sum.add(parity);
            for (const std::size_t zeros : {std::size_t{0}, n / 2}) {
                for (std::size_t i = 0; i < n; ++i) b[i] = i < zeros ? 0 : 1 / (1. + double(i));
                LUbksb(order, lu, exchanges.data(), b.data());
                sum.add(b.data(), n);
            }
            EXPECT_TRUE(a.untouched_outside() && lu.untouched_outside());
        }
    }
    EXPECT_EQ(sum.value(), 1825275755462118850u);
}

struct Spectrum {
    Vector re, im;
    bool found;
};
Spectrum spectrum(Matrix a, std::size_t n) {
    Trajex tx{};
    Spectrum result{Vector(n, -1.0), Vector(n, -1.0), false};
    result.found = TXEigen(&tx, int(n), a, result.re.data(), result.im.data()) == 1;
    EXPECT_EQ(tx.ErrorCode, result.found ? 0 : 21);
    return result;
}

/// Largest distance between the computed and the true eigenvalues, each matched to its nearest, of
/// a matrix whose elements were multiplied by a size.
double distance(const Matrix& a, std::vector<Complex> exact, double size = 1) {
    const Spectrum computed = spectrum(a, exact.size());
    double worst = 0;
    for (std::size_t i = 0; i < computed.re.size(); ++i) {
        const Complex value(computed.re[i] / size, computed.im[i] / size);
        const auto nearest = std::min_element(
            exact.begin(), exact.end(),
            [value](Complex p, Complex q) { return std::abs(p - value) < std::abs(q - value); });
        worst = std::max(worst, std::abs(*nearest - value));
        exact.erase(nearest);
    }
    return worst;
}

/// (I - 2 v v' / v'v) A (the same): a similar matrix with all elements filled.
Matrix reflected(const Matrix& a, std::size_t n, std::uint64_t seed) {
    const Matrix v = random_matrix(n, seed);
    double vv = 0;
    for (std::size_t i = 0; i < n; ++i) vv += v[0][i] * v[0][i];
    const Matrix h = Matrix::made(n, n, [&](std::size_t i, std::size_t j) {
        return (i == j ? 1 : 0) - 2 * v[0][i] * v[0][j] / vv;
    });
    return h * a * h;
}

// The roots of unity: of the cyclic matrix, which only the exceptional shifts move, hidden by
// orthogonal and by bad diagonal similarity.
TEST(Eigen, KnownSpectraOfEveryOrderAndScale) {
    for (std::size_t n = 0; n <= 30; ++n) {
        const Matrix cyclic = Matrix::made(n, n, [n](auto i, auto j) { return j == (i + 1) % n; });
        std::vector<Complex> roots;
        for (std::size_t i = 0; i < n; ++i) {
            roots.push_back(std::polar(1.0, 2 * pi * double(i) / double(n)));
        }
        EXPECT_LT(distance(cyclic, roots), 1e-13) << "n = " << n;
        const Matrix full = reflected(reflected(cyclic, n, 3), n, 4);
        EXPECT_LT(distance(full, roots), 1e-12) << "n = " << n;
        const Matrix badly_scaled = Matrix::made(n, n, [&](std::size_t i, std::size_t j) {
            return full[i][j] * std::pow(10.0, 3 * (double(i % 5) - double(j % 5)));
        });
        EXPECT_LT(distance(badly_scaled, roots), 1e-11) << "n = " << n;
    }
    for (const double size : {1e-310, 1e-200, 1e-101, 1.0, 1e101, 1e200, 1e307}) {
        Matrix rotation(2, 2);
        rotation[0][1] = size, rotation[1][0] = -size;
        EXPECT_LT(distance(rotation, {{0, 1}, {0, -1}}, size), 1e-12) << size;
        double re[2], im[2];
        Trajex tx{};
        EXPECT_EQ(Hqr(&tx, rotation, 2, re, im), 1);
        EXPECT_TRUE(re[0] == 0 && re[1] == 0 && im[0] == -im[1]);
        EXPECT_NEAR(std::fabs(im[0] / size), 1, 1e-12) << size;
    }
}

// A multiple eigenvalue is good to the root of the precision only. What is not finite must end, and
// not be called a spectrum.
TEST(Eigen, StubbornMatrices) {
    constexpr std::size_t n = 12;
    const Matrix repeated = Matrix::made(n, n, [](auto i, auto j) {
        return i != j ? 0 : i < 5 ? 2 : 3;
    });
    const std::vector<Complex> twice{2, 2, 2, 2, 2, 3, 3, 3, 3, 3, 3, 3};
    EXPECT_LT(distance(reflected(repeated, n, 5), twice), 1e-7);
    EXPECT_EQ(distance(repeated, twice), 0);
    for (const double bad : {not_a_number, infinity, -infinity}) {
        for (const std::size_t order : {1u, 2u, 3u, 10u, 60u}) {
            for (const std::size_t row : {std::size_t{0}, order / 2, order - 1}) {
                Matrix a = random_matrix(order, 11);
                a[row][order / 3] = bad;
                const Spectrum s = spectrum(a, order);
                double sum = 0;
                for (std::size_t i = 0; i < order; ++i) sum += s.re[i] + s.im[i];
                EXPECT_FALSE(s.found && std::isfinite(sum)) << bad << ' ' << order;
                EXPECT_TRUE(s.found == (order < 3) || (std::isinf(bad) && order == 3));
            }
        }
    }
}

TEST(Eigenvector, SatisfiesItsEquation) {
    for (const std::size_t n : {1u, 2u, 9u}) {
        const auto diagonal = [](std::size_t i, std::size_t j) {
            return i == j ? 1. + double(i) : 0;
        };
        const Matrix a = reflected(Matrix::made(n, n, diagonal), n, 8);
        for (std::size_t r = 1; r <= n; ++r) {
            Matrix shifted = a, v(n, 1);
            Vector ev(n), ws(2 * n);
            Trajex tx{};
            EXPECT_EQ(TXEigenVector(&tx, int(n), shifted, double(r), ev.data(), ws.data()), 1);
            for (std::size_t i = 0; i < n; ++i) v[i][0] = ev[i];
            const Matrix image = a * v;
            for (std::size_t i = 0; i < n; ++i) EXPECT_NEAR(image[i][0], double(r) * ev[i], 1e-12);
            EXPECT_NEAR(dot(ev.data(), ev.data(), int(n)), 1, 1e-14);
            EXPECT_GT(ev[n - 1], 0);
        }
    }
}

// A row of zeros is singular and stays; an unknown is not a zero. A zero pivot is raised, and of
// equal candidates the later row is taken. An eigenvector of a singular pencil has length 1 anyway.
TEST(SingularDeathTest, ReportsOnlyARowOfZeros) {
    Trajex tx{};
    double work[6], d = 0, er[3], ei[3], b[] = {1, 2, 3};
    int indx[3];
    Matrix same = Matrix::made(2, 2, [](auto i, auto j) { return double((i + 1) * (j + 1)); });
    EXPECT_EQ(LUdcmp(&tx, 2, same, indx, &d, work), 1);
    EXPECT_TRUE(d == -1 && same[1][1] == 1e-20);

    Matrix a =
        Matrix::made(3, 3, [](auto i, auto j) { return i == 1 ? 0 : double(i + 2 * j * j); });
    EXPECT_EQ(TXLinZero(&tx, 3, a, b, work), 0);
    EXPECT_EQ(tx.ErrorCode, 22);
    EXPECT_TRUE(a[0][2] == 8 && a[2][1] == 4 && b[0] == 1 && b[1] == 2 && b[2] == 3);
    tx.TerminateOnFatalError = 1;
    EXPECT_EXIT(TXLinZero(&tx, 3, a, b, work), ExitedWithCode(1), "'LUdcmp'");
    EXPECT_EXIT(LUdcmp(nullptr, 3, a, indx, &d, work), ExitedWithCode(1), "ERROR");
    a[1][2] = not_a_number;
    EXPECT_EQ(TXLinZero(&tx, 3, a, b, work), 1);
    a = Matrix(3, 3, not_a_number);
    EXPECT_EXIT(TXEigen(&tx, 3, a, er, ei), ExitedWithCode(1), "'Hqr': Too many");

    tx.TerminateOnFatalError = 0;
    Matrix nilpotent(2, 2);
    nilpotent[0][1] = 1;
    EXPECT_EQ(TXEigenVector(&tx, 2, nilpotent, 0, er, ei), 1);
    EXPECT_EQ(tx.ErrorCode, 22);
    EXPECT_DOUBLE_EQ(er[0] * er[0] + er[1] * er[1], 1);
}

// Rows of the given sizes, and right-hand sides whose solution is a vector of ones. In the last
// system two columns are so small that 1 over a pivot is infinite.
TEST(Lu, LinearSystemsOfEveryScale) {
    using Rows = double[3][3];
    struct {
        double p, q, r;
        Rows a = {{2, 1, 0}, {1, 3, 1}, {0, 1, 4}};
    } const cases[] = {{1e-310, 1e-310, 1e-310},
                       {1e-300, 1e-300, 3e-300},
                       {1e300, 1e300, 1e300},
                       {1e-310, 1, 1},
                       {1, 1e-5, 1e-310},
                       {1e150, 1e300, 1},
                       {1, 1, 1, {{1, 0, 0}, {0, 2e-310, 1e-310}, {1, 1e-310, 3e-310}}}};
    for (const auto& [p, q, r, rows] : cases) {
        SCOPED_TRACE(testing::Message() << p << ' ' << q << ' ' << r);
        const double sizes[] = {p, q, r};
        double elements[9], b[3] = {}, x[3], work[6];
        for (std::size_t m = 0; m < 9; ++m) {
            elements[m] = sizes[m / 3] * rows[m / 3][m % 3];
            b[m / 3] += elements[m];
        }
        Matrix a = Matrix::made(3, 3, [&](auto i, auto j) { return elements[3 * i + j]; });
        std::copy_n(b, 3, x);
        Trajex tx{};
        trajex::DenseLu lu;
        ASSERT_TRUE(TXLinZero(&tx, 3, a, b, work) == 1 && lu.decompose(elements, 3));
        EXPECT_FALSE(lu.singular());
        lu.solve(x);
        for (std::size_t i = 0; i < 3; ++i) {
            EXPECT_NEAR(b[i], 1, 1e-12);
            EXPECT_NEAR(x[i], 1, 1e-12);
            if (rows[1][1] < 1) break;  // the others have lost digits
        }
    }
}

// Balancing is a similarity by powers of two: what it cannot do exactly it leaves.
TEST(Eigen, BalancingStaysInRange) {
    const double matrices[4][3][3] = {{{1e300, 1e300}, {1e-300, 1e300}},
                                      {{1e-300, 1e200}, {1e-250, 1e-300}},
                                      {{3e-308, 1e308}, {1e-308, 1e308}},
                                      {{1, 1e300, 1e-300}, {1e-310, 1, 1e-20}, {1e-300, 1e300, 1}}};
    for (const auto& a : matrices) {
        const std::size_t n = a[2][2] == 0 ? 2 : 3;
        Matrix m = Matrix::made(n, n, [&](auto i, auto j) { return a[i][j]; });
        Balanc(m, int(n));
        for (std::size_t i = 0; i < n; ++i) {
            EXPECT_EQ(m[i][i], a[i][i]);
            for (std::size_t j = 0; j < n; ++j) {
                int exponent = 0;
                ASSERT_TRUE(std::isfinite(m[i][j]));
                EXPECT_EQ(std::frexp(m[i][j], &exponent), std::frexp(a[i][j], &exponent));
            }
        }
    }
}

}  // namespace
