// Eigenvalues: agreement to the last bit with a plain writing of the three algorithms, known
// spectra, and matrices that could keep an iteration from ending.
#include <gtest/gtest.h>

#include <algorithm>
#include <complex>
#include <limits>
#include <numbers>
#include <vector>

#include "linalg/eigen.hpp"
#include "matrix.hpp"
#include "tx.h"

namespace trajex::test {
namespace {

using Complex = std::complex<double>;

struct Spectrum {
    std::vector<double> re, im;
    bool found = true;
};

void plain_balance(Matrix& a) {
    const std::size_t n = a.size();
    for (bool again = true; again;) {
        again = false;
        for (std::size_t i = 0; i < n; ++i) {
            double c = 0, r = 0;
            for (std::size_t j = 0; j < n; ++j) {
                if (j != i) c += std::fabs(a[j][i]), r += std::fabs(a[i][j]);
            }
            if (!(c > 0 && r > 0 && std::isfinite(c + r))) continue;
            const double s = c + r;
            double f = 1;
            while (c < r / 2) f *= 2, c *= 4;
            while (c > r * 2) f /= 2, c /= 4;
            if (!((c + r) / f < 0.95 * s)) continue;
            again = true;
            for (std::size_t j = 0; j < n; ++j) a[i][j] *= 1 / f;
            for (std::size_t j = 0; j < n; ++j) a[j][i] *= f;
        }
    }
}

void plain_elimination(Matrix& a) {
    const std::size_t n = a.size();
    for (std::size_t m = 1; m + 1 < n; ++m) {
        std::size_t pivot = m;
        double x = 0;
        for (std::size_t i = m; i < n; ++i) {
            if (std::fabs(a[i][m - 1]) > std::fabs(x)) x = a[i][m - 1], pivot = i;
        }
        for (std::size_t j = m - 1; j < n && pivot != m; ++j) std::swap(a[pivot][j], a[m][j]);
        for (std::size_t i = 0; i < n && pivot != m; ++i) std::swap(a[i][pivot], a[i][m]);
        for (std::size_t i = m + 1; i < n && x != 0; ++i) {
            if (a[i][m - 1] == 0) continue;
            const double y = a[i][m - 1] / x;
            a[i][m - 1] = y;
            for (std::size_t j = m; j < n; ++j) a[i][j] -= y * a[m][j];
            for (std::size_t j = 0; j < n; ++j) a[j][m] += y * a[j][i];
        }
    }
}

double signed_as(double size, double reference) {
    return reference > 0 ? std::fabs(size) : -std::fabs(size);
}

// The double-shift iteration, each reflection applied to the whole active block at once.
Spectrum plain_qr(Matrix& a) {
    const int n = a.order();
    Spectrum found{std::vector<double>(a.size(), -1.0), std::vector<double>(a.size(), -1.0)};
    const auto at = [&a](int i, int j) -> double& { return a[std::size_t(i)][std::size_t(j)]; };
    const auto set = [&found](int i, double re, double im) {
        found.re[std::size_t(i)] = re;
        found.im[std::size_t(i)] = im;
    };
    double norm = n > 0 ? std::fabs(at(0, 0)) : 0;
    for (int i = 1; i < n; ++i) {
        for (int j = i - 1; j < n; ++j) norm += std::fabs(at(i, j));
    }
    double shifted = 0;
    for (int e = n - 1, its = 0; e >= 0;) {
        int top = e;
        for (; top > 0; --top) {
            double s = std::fabs(at(top - 1, top - 1)) + std::fabs(at(top, top));
            if (s == 0) s = norm;
            if (std::fabs(at(top, top - 1)) + s == s) break;
        }
        double x = at(e, e);
        if (top == e) {
            set(e--, x + shifted, 0);
            its = 0;
            continue;
        }
        double y = at(e - 1, e - 1), w = at(e, e - 1) * at(e - 1, e);
        if (top == e - 1) {
            const double p = (y - x) / 2, q = p * p + w;
            double z = std::sqrt(std::fabs(q));
            x += shifted;
            if (q >= 0) {
                z = p + signed_as(z, p);
                set(e - 1, x + z, 0);
                set(e, z != 0 ? x - w / z : x + z, 0);
            } else {
                set(e - 1, x + p, -z);
                set(e, x + p, z);
            }
            e -= 2;
            its = 0;
            continue;
        }
        if (its == 30) {
            found.found = false;
            return found;
        }
        if (its == 10 || its == 20) {
            shifted += x;
            for (int i = 0; i <= e; ++i) at(i, i) -= x;
            const double s = std::fabs(at(e, e - 1)) + std::fabs(at(e - 1, e - 2));
            x = y = 0.75 * s;
            w = -0.4375 * s * s;
        }
        ++its;
        int m = e - 2;
        double p, q, r, size;
        for (;; --m) {
            const double z = at(m, m), u = x - z, v = y - z;
            p = (u * v - w) / at(m + 1, m) + at(m, m + 1);
            q = at(m + 1, m + 1) - z - u - v;
            r = at(m + 2, m + 1);
            size = std::fabs(p) + std::fabs(q) + std::fabs(r);
            p /= size, q /= size, r /= size;
            if (m == top) break;
            const double left = std::fabs(at(m, m - 1)) * (std::fabs(q) + std::fabs(r));
            const double right = std::fabs(p) * (std::fabs(at(m - 1, m - 1)) + std::fabs(z) +
                                                 std::fabs(at(m + 1, m + 1)));
            if (left + right == right) break;
        }
        for (int i = m + 2; i <= e; ++i) at(i, i - 2) = 0;
        for (int i = m + 3; i <= e; ++i) at(i, i - 3) = 0;
        for (int k = m; k < e; ++k) {
            const bool three = k + 2 <= e;
            if (k != m) {
                p = at(k, k - 1), q = at(k + 1, k - 1), r = three ? at(k + 2, k - 1) : 0;
                size = std::fabs(p) + std::fabs(q) + std::fabs(r);
                if (size != 0) p /= size, q /= size, r /= size;
            }
            const double s = signed_as(std::sqrt(p * p + q * q + r * r), p);
            if (s == 0) continue;
            if (k == m && m != top) at(k, k - 1) = -at(k, k - 1);
            if (k != m) at(k, k - 1) = -s * size;
            p += s;
            const double hx = p / s, hy = q / s, hz = r / s, hq = q / p, hr = r / p;
            for (int j = k; j <= e; ++j) {
                double sum = at(k, j) + hq * at(k + 1, j);
                if (three) sum += hr * at(k + 2, j), at(k + 2, j) -= sum * hz;
                at(k + 1, j) -= sum * hy;
                at(k, j) -= sum * hx;
            }
            for (int i = top; i <= std::min(e, k + 3); ++i) {
                double sum = hx * at(i, k) + hy * at(i, k + 1);
                if (three) sum += hz * at(i, k + 2), at(i, k + 2) -= sum * hr;
                at(i, k + 1) -= sum * hq;
                at(i, k) -= sum;
            }
        }
    }
    return found;
}

Spectrum spectrum(Matrix a) {
    Trajex tx{};
    Spectrum result{std::vector<double>(a.size(), -1.0), std::vector<double>(a.size(), -1.0)};
    result.found = TXEigen(&tx, a.order(), a.rows(), result.re.data(), result.im.data()) == 1;
    EXPECT_EQ(tx.ErrorCode, result.found ? 0 : 21);
    EXPECT_TRUE(a.untouched_outside());
    return result;
}

// Largest distance between the computed and the true eigenvalues, each matched to its nearest.
double distance(const Spectrum& computed, std::vector<Complex> exact) {
    double worst = 0;
    for (std::size_t i = 0; i < computed.re.size(); ++i) {
        const Complex value(computed.re[i], computed.im[i]);
        const auto nearest = std::min_element(
            exact.begin(), exact.end(),
            [&](Complex a, Complex b) { return std::abs(a - value) < std::abs(b - value); });
        worst = std::max(worst, std::abs(*nearest - value));
        exact.erase(nearest);
    }
    return worst;
}

// (I - 2 v v' / v'v) A (the same): a similar matrix with all elements filled.
Matrix reflected(const Matrix& a, unsigned seed) {
    const std::size_t n = a.size();
    const Matrix v = random_matrix(n, seed);
    double vv = 0;
    for (std::size_t i = 0; i < n; ++i) vv += v[0][i] * v[0][i];
    const Matrix h = mapped(Matrix(n), [&](std::size_t i, std::size_t j, double) {
        return (i == j) - 2 * v[0][i] * v[0][j] / vv;
    });
    const auto product = [n](const Matrix& p, const Matrix& q) {
        return mapped(Matrix(n), [&](std::size_t i, std::size_t j, double sum) {
            for (std::size_t k = 0; k < n; ++k) sum += p[i][k] * q[k][j];
            return sum;
        });
    };
    return product(product(h, a), h);
}

TEST(Eigen, AgreesWithPlainAlgorithmsToTheLastBit) {
    for (const std::size_t n : Orders{1, 2, 3, 4, 5, 6, 7, 9, 10, 13, 20, 33, 50, 71, 130, 200}) {
        int kind = 0;
        for (const Matrix& a : branch_takers(n)) {
            SCOPED_TRACE(testing::Message() << "n = " << n << ", kind " << kind++);
            Matrix expected = a;
            Matrix actual = a;
            plain_balance(expected);
            balance(actual.rows(), n);
            ASSERT_EQ(differences(actual, expected), 0);
            plain_elimination(expected);
            reduce_to_hessenberg(actual.rows(), n);
            ASSERT_EQ(differences(actual, expected), 0);
            const Spectrum roots = plain_qr(expected);
            std::vector<double> re(n, -1.0);
            std::vector<double> im(n, -1.0);
            EXPECT_EQ(hessenberg_eigenvalues(actual.rows(), n, re.data(), im.data()), roots.found);
            EXPECT_EQ(differences(re, roots.re), 0);
            EXPECT_EQ(differences(im, roots.im), 0);
            EXPECT_TRUE(actual.untouched_outside());
        }
    }
}

// Real eigenvalues and pairs on the diagonal, hidden by orthogonal and by bad diagonal similarity.
TEST(Eigen, KnownSpectraOfEveryOrder) {
    for (std::size_t n = 1; n <= 30; ++n) {
        Matrix blocks(n);
        std::vector<Complex> exact(n);
        for (std::size_t i = 0; i < n; ++i) exact[i] = blocks[i][i] = double(i) - 5.5;
        for (std::size_t i = 1; i + 1 < n; i += 4) {
            const double im = 0.5 * double(i);
            blocks[i + 1][i + 1] = blocks[i][i];
            blocks[i][i + 1] = im;
            blocks[i + 1][i] = -im;
            exact[i] = {blocks[i][i], im};
            exact[i + 1] = std::conj(exact[i]);
        }
        const Matrix full = reflected(reflected(blocks, 3), 4);
        EXPECT_LT(distance(spectrum(full), exact), 1e-12) << "n = " << n;
        const Matrix badly_scaled = mapped(full, [](std::size_t i, std::size_t j, double x) {
            return x * std::pow(10.0, 3 * (double(i % 5) - double(j % 5)));
        });
        EXPECT_LT(distance(spectrum(badly_scaled), exact), 1e-11) << "n = " << n;
    }
}

// The cyclic matrix is one that only the exceptional shifts move. A multiple eigenvalue is good to
// the root of the precision only: an element that was negligible when a block was split there is
// kept, and may count again when its neighbours have changed.
TEST(Eigen, StubbornMatrices) {
    constexpr std::size_t n = 12;
    Matrix cyclic(n), repeated(n);
    std::vector<Complex> unit_roots, twice;
    for (std::size_t i = 0; i < n; ++i) {
        cyclic[i][(i + 1) % n] = 1;
        repeated[i][i] = i < 5 ? 2 : 3;
        unit_roots.push_back(std::polar(1.0, 2 * std::numbers::pi * double(i) / n));
        twice.emplace_back(repeated[i][i]);
    }
    EXPECT_LT(distance(spectrum(cyclic), unit_roots), 1e-13);
    EXPECT_LT(distance(spectrum(reflected(repeated, 5)), twice), 1e-7);
    EXPECT_EQ(distance(spectrum(repeated), twice), 0);
    EXPECT_TRUE(spectrum(Matrix(0)).found);
}

// Must end, and must not call anything found that is not a number in disguise.
TEST(Eigen, EndsOnElementsThatAreNotFinite) {
    const double infinite = std::numeric_limits<double>::infinity();
    for (const double bad : {std::nan(""), infinite, -infinite, 1e308, 5e-324}) {
        for (const std::size_t n : Orders{1, 2, 3, 10, 60}) {
            for (const std::size_t row : {std::size_t{0}, n / 2, n - 1}) {
                Matrix a = random_matrix(n, 11);
                a[row][n / 3] = bad;
                const Spectrum s = spectrum(a);
                bool finite = true;
                for (std::size_t i = 0; i < n; ++i) finite &= std::isfinite(s.re[i] + s.im[i]);
                EXPECT_TRUE(std::isfinite(bad) || !s.found || !finite) << bad << ' ' << n;
                Matrix everywhere = mapped(a, [bad](auto, auto, double x) { return x * bad; });
                balance(everywhere.rows(), n);
            }
        }
    }
}

TEST(Eigenvector, SatisfiesItsEquation) {
    for (const std::size_t n : Orders{1, 2, 9}) {
        const Matrix diagonal = mapped(Matrix(n), [](std::size_t i, std::size_t j, double) {
            return i == j ? double(i) + 1 : 0.0;
        });
        const Matrix a = reflected(diagonal, 8);
        for (std::size_t r = 1; r <= n; ++r) {
            Matrix work_matrix = a;
            std::vector<double> ev(n), ws(2 * n);
            Trajex tx{};
            EXPECT_EQ(
                TXEigenVector(&tx, int(n), work_matrix.rows(), double(r), ev.data(), ws.data()), 1);
            double squares = 0;
            for (std::size_t i = 0; i < n; ++i) {
                double residual = -double(r) * ev[i];
                for (std::size_t j = 0; j < n; ++j) residual += a[i][j] * ev[j];
                EXPECT_NEAR(residual, 0, 1e-12);
                squares += ev[i] * ev[i];
            }
            EXPECT_NEAR(squares, 1, 1e-14);
            EXPECT_GT(ev[n - 1], 0);
        }
    }
}

TEST(Eigen, ErrorPolicy) {
    double er[3], ei[3];
    Trajex tx{};
    Matrix singular(2);  // the error is recorded, a vector of length 1 is left
    singular[0][1] = 1;
    EXPECT_EQ(TXEigenVector(&tx, 2, singular.rows(), 0, er, ei), 1);
    EXPECT_EQ(tx.ErrorCode, 22);
    EXPECT_DOUBLE_EQ(er[0] * er[0] + er[1] * er[1], 1);

    Matrix a = mapped(Matrix(3), [](auto, auto, double) { return std::nan(""); });
    EXPECT_EQ(Hqr(&tx, a.rows(), 3, er, ei), 0);
    EXPECT_EQ(tx.ErrorCode, 21);
    tx.TerminateOnFatalError = 1;
    EXPECT_EXIT(TXEigen(&tx, 3, a.rows(), er, ei), testing::ExitedWithCode(1), "'Hqr': Too many");
    EXPECT_EXIT(TXEigen(nullptr, 3, a.rows(), er, ei), testing::ExitedWithCode(1), "'TXEigen'");
}

}  // namespace
}  // namespace trajex::test
