// Contiguous matrices: solutions put back into their systems, determinants, what is singular or not
// a number, and the ends of the exponent range.
#include "linalg/dense.hpp"

#include <complex>

#include "checksums.hpp"
#include "support.hpp"

#include "linalg/lane_lu.hpp"

using namespace trajex;

namespace {

using Complex = std::complex<double>;

template <class Number>
std::vector<Number> random_numbers(std::size_t count, unsigned seed) {
    Numbers numbers(seed);
    std::vector<Number> x(count);
    for (Number& value : x) {
        value = numbers.next();
        if constexpr (!std::is_same_v<Number, double>) value += Complex(0, numbers.next());
    }
    return x;
}

// C = A B, A rows x n, B n x k; the plain sums.
template <class Number>
std::vector<Number> product(const std::vector<Number>& A, const std::vector<Number>& B,
                            std::size_t n, std::size_t k) {
    const std::size_t rows = A.size() / n;
    std::vector<Number> C(rows * k);
    for (std::size_t i = 0; i < rows; ++i) {
        for (std::size_t j = 0; j < n; ++j) {
            for (std::size_t c = 0; c < k; ++c) C[i * k + c] += A[i * n + j] * B[j * k + c];
        }
    }
    return C;
}

template <class Number>
std::vector<Number> transposed(const std::vector<Number>& A, std::size_t columns) {
    std::vector<Number> T(A.size());
    const std::size_t rows = A.size() / columns;
    for (std::size_t i = 0; i < A.size(); ++i) T[i % columns * rows + i / columns] = A[i];
    return T;
}

template <class Number>
double distance(const std::vector<Number>& x, const std::vector<Number>& y) {
    double largest = x.size() == y.size() ? 0 : infinity;
    for (std::size_t i = 0; i < x.size(); ++i) largest = std::max(largest, std::abs(x[i] - y[i]));
    return largest;
}

// All three solutions come back to B where every other row of both sides is multiplied by a size.
template <class Lu, class Number>
void check_solutions(Lu& lu, std::size_t n, std::size_t k, double size) {
    SCOPED_TRACE(testing::Message() << "n = " << n << ", k = " << k << ", size " << size);
    const auto sized = [size](std::vector<Number> a, std::size_t columns) {
        for (std::size_t m = 0; m < a.size(); ++m) a[m] *= m / columns % 2 == 0 ? size : 1;
        return a;
    };
    auto A = random_numbers<Number>(n * n, static_cast<unsigned>(n));
    for (std::size_t i = 0; i < n; ++i) A[i * n + (i + 1) % n] += 4.0;  // well off the diagonal
    const auto B = random_numbers<Number>(n * k, 7);
    const std::vector<Number> b(B.begin(), B.begin() + static_cast<std::ptrdiff_t>(n));
    const double tolerance = 1e-14 * static_cast<double>(n);
    ASSERT_TRUE(lu.decompose(sized(A, n).data(), n) && !lu.singular());
    auto X = sized(B, k), x = sized(b, 1), y = b;
    lu.solve_many(X.data(), k);
    EXPECT_LT(distance(product(A, X, n, k), B), tolerance);
    lu.solve(x.data());
    EXPECT_LT(distance(product(A, x, n, 1), b), tolerance);
    lu.solve_transposed(y.data());
    EXPECT_LT(distance(product(transposed(A, n), sized(y, 1), n, 1), b), tolerance);
}

TEST(Dense, SolutionsSatisfyTheirSystems) {
    DenseLu real(4);
    ComplexLu complex(4);
    for (const std::size_t n : {1, 2, 3, 5, 8, 9, 23, 26, 67}) {
        for (const std::size_t k : {1, 3, 21, 27}) {
            for (const double size : {1.0, 0x1p-1000, 0x1p1000}) {
                check_solutions<DenseLu, double>(real, n, k, size);
                check_solutions<ComplexLu, Complex>(complex, n, k, size);
            }
        }
    }
    std::vector<double> b(67, 1.0), x = b;
    real.solve(b.data());
    const DenseLu moved = std::move(real);
    moved.solve(x.data());
    EXPECT_EQ(x, b);
}

TEST(Dense, Determinants) {
    const std::vector<double> A{0, 2, 1, 3, 0, 0, 0, 1, 5};  // -27
    const Complex i(0, 1);
    const std::vector<Complex> Z{0.0, 2.0, i, 3.0, 0.0, 0.0, 0.0, i, 5.0};  // -30 - 3
    DenseLu real;
    ComplexLu complex;
    for (const double size : {1.0, 1e-200, 1e200}) {
        auto scaled = A;
        auto scaled_z = Z;
        for (double& x : scaled) x *= size;
        for (Complex& z : scaled_z) z *= size * i;
        ASSERT_TRUE(real.decompose(scaled.data(), 3) && complex.decompose(scaled_z.data(), 3));
        EXPECT_NEAR(real.log_abs_det(), std::log(27.0) + 3 * std::log(size), 1e-12 * 1400);
        EXPECT_EQ(real.sign_det(), -1);
        EXPECT_NEAR(complex.log_abs_det(), std::log(33.0) + 3 * std::log(size), 1e-12 * 1400);
        EXPECT_NEAR(std::abs(complex.sign_det() - i), 0, 1e-15);  // -(i^3)
        EXPECT_GT(real.pivot_ratio(), 0.1);
    }
}

TEST(Dense, SingularMatricesGiveHugeSolutionsAndSaySo) {
    const std::vector<std::vector<double>> matrices{{1, 2, 2, 4},
                                                    {0, 0, 1, 1},
                                                    {0, 1, 0, 1},
                                                    {0, 0, 0, 0},
                                                    {0x1p-1000, 0x1p-999, 0x1p-999, 0x1p-998}};
    const auto expect_singular = [](auto lu, const auto& A) {
        ASSERT_TRUE(lu.decompose(A.data(), 2) && lu.singular());
        EXPECT_EQ(std::abs(lu.sign_det()) + lu.pivot_ratio(), 0);
        EXPECT_EQ(lu.log_abs_det(), -infinity);
        std::decay_t<decltype(A[0])> b[] = {1, -1};
        lu.solve(b);
        EXPECT_GT(std::max(std::abs(b[0]), std::abs(b[1])), 1e15);
    };
    for (const auto& A : matrices) {
        expect_singular(DenseLu(), A);
        expect_singular(ComplexLu(), std::vector<Complex>(A.begin(), A.end()));
    }
    for (const double bad : {infinity, -infinity, not_a_number}) {
        const double A[] = {1, 0, bad, 1};
        const Complex Z[] = {1, 0, Complex(0, bad), 1};
        EXPECT_FALSE(DenseLu().decompose(A, 2) || ComplexLu().decompose(Z, 2));
    }
}

// Small integers times powers of two, of which one matrix in a thousand takes more than the
// published limit of iterations: their eigenvalues have the sums of powers that the traces say.
TEST(Dense, EigenvaluesOfRandomMatricesAreFound) {
    DenseEigen eigen(8);
    for (unsigned seed = 0; seed < 24000; ++seed) {
        const std::size_t n = 3 + seed % 6;
        const double size = std::ldexp(1.0, 510 * int(seed % 5) - 1030);
        auto A = random_numbers<double>(n * n, seed);
        for (double& x : A) x = std::round(1.5 * x);
        const auto square = product(A, A, n, n);
        auto scaled = A;
        for (double& x : scaled) x *= size;
        std::vector<double> re(n), im(n);
        ASSERT_TRUE(eigen.eigenvalues(n, scaled.data(), re.data(), im.data())) << seed;
        Complex sum = 0, sum_of_squares = 0;
        for (std::size_t i = 0; i < n; ++i) {
            const Complex value(re[i] / size, im[i] / size);
            sum += value - A[i * (n + 1)];
            sum_of_squares += value * value - square[i * (n + 1)];
        }
        EXPECT_LT(std::abs(sum) + std::abs(sum_of_squares), 1e-11) << seed;
    }
    for (const double bad : {infinity, not_a_number}) {
        double a[] = {1, bad, 0, 1}, re[2], im[2];
        EXPECT_FALSE(eigen.eigenvalues(2, a, re, im));
    }
}

// Four systems at once: each is solved, or told to need its pivots searched for.
TEST(Dense, FourMatricesInLanes) {
    constexpr std::size_t lanes = LaneLu::lanes;
    for (const std::size_t n : {1, 2, 3, 4, 7, 12, 17}) {
        auto matrices = random_numbers<double>(n * n * lanes, 1);
        for (std::size_t i = 0; i < n * lanes; ++i) {
            matrices[i / lanes * (n + 1) * lanes + i % lanes] += static_cast<double>(n);
        }
        if (n > 1) matrices[1] = 1e-9;
        matrices[(n * n - 1) * lanes + 2] = not_a_number;
        LaneLu lu;
        std::copy(matrices.begin(), matrices.end(), lu.matrix(n));
        const std::array<bool, lanes> good = lu.decompose();
        EXPECT_EQ(good, (std::array<bool, lanes>{true, n == 1, false, true})) << n;
        const auto B = random_numbers<double>(n * n * lanes, 10);
        auto X = B, Y = B;
        lu.solve(X.data(), n);
        lu.solve_transposed(Y.data(), n);
        for (std::size_t l = 0; l < lanes; ++l) {
            if (!good[l]) continue;
            const auto lane = [l](const std::vector<double>& all) {
                std::vector<double> one;
                for (std::size_t i = l; i < all.size(); i += lanes) one.push_back(all[i]);
                return one;
            };
            const auto A = lane(matrices);
            EXPECT_LT(distance(product(A, lane(X), n, n), lane(B)), 1e-13) << n;
            EXPECT_LT(distance(product(transposed(A, n), lane(Y), n, n), lane(B)), 1e-13) << n;
        }
    }
}

TEST(Dense, OrthogonalFactors) {
    struct {
        std::size_t rows, columns, lda;
        double size;
    } const cases[] = {{1, 1, 1, 1}, {4, 4, 4, 1},      {12, 4, 9, 1},
                       {3, 7, 7, 1}, {6, 3, 3, 1e-300}, {6, 3, 3, 1e300}};
    for (const auto& [rows, columns, lda, size] : cases) {
        SCOPED_TRACE(testing::Message() << rows << " x " << columns);
        auto a = random_numbers<double>(rows * lda, 3);
        std::fill_n(a.begin(), columns, 0.0);
        for (double& x : a) x *= size;
        const auto original = a;
        Qr qr(columns);
        qr.factor(a.data(), rows, columns, lda);
        auto R = original;
        qr.apply_transposed(R.data(), columns, lda);
        auto back = R;
        qr.apply(back.data(), columns, lda);
        EXPECT_LT(distance(back, original), 1e-14 * size);
        for (std::size_t i = 0; i < rows; ++i) {
            for (std::size_t j = 0; j < columns; ++j) {
                const double expected = j >= i ? a[i * lda + j] : 0;
                EXPECT_NEAR(R[i * lda + j] / size, expected / size, 1e-14);
            }
        }
    }
}

}  // namespace
