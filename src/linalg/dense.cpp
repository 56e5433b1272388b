// Linear systems and eigenvalues of contiguous real matrices, by the kernels for matrices given by
// their rows. Reference: Golub and Van Loan, Matrix Computations, 3.1, 3.4 and 7.5.
#include "linalg/dense.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "core/finite.hpp"
#include "core/simd.hpp"
#include "linalg/eigen.hpp"
#include "linalg/range.hpp"

namespace trajex {

namespace {

void point_to_rows(std::vector<double*>& rows, double* a, std::size_t n) {
    rows.resize(n);
    for (std::size_t i = 0; i < n; ++i) rows[i] = a + i * n;
}

// A kernel: B becomes U^-1 L^-1 B, the rows of B already exchanged. A strip of columns a few
// vectors wide goes through both substitutions, so that what they need of B stays in the cache;
// each element is summed in index order.
template <class Vector>
struct SubstituteMany {
    [[gnu::always_inline]] static inline void run(double* const* a, std::size_t n, double* B,
                                                  std::size_t k) {
        constexpr std::size_t strip = strip_vectors * width<Vector>;
        std::size_t c = 0;
        for (; c + strip <= k; c += strip) substitute<Vector, strip_vectors>(a, n, B + c, k);
        const std::size_t vectors = (k - c) / width<Vector>;
        substitute_few<Vector>(vectors, a, n, B + c, k);
        c += vectors * width<Vector>;
        substitute_few<double>(k - c, a, n, B + c, k);
    }

  private:
    static constexpr std::size_t strip_vectors = 4;

    // What is left of a strip in one go: each sum waits for its own last term only.
    template <class Number>
    [[gnu::always_inline]] static inline void substitute_few(std::size_t count, double* const* a,
                                                             std::size_t n, double* B,
                                                             std::size_t k) {
        if (count == 3) substitute<Number, 3>(a, n, B, k);
        if (count == 2) substitute<Number, 2>(a, n, B, k);
        if (count == 1) substitute<Number, 1>(a, n, B, k);
    }

    template <class Number, std::size_t count>
    [[gnu::always_inline]] static inline void substitute(double* const* a, std::size_t n, double* B,
                                                         std::size_t k) {
        for (std::size_t i = 1; i < n; ++i) subtract<Number, count>(a[i], 0, i, B, k, i, 1);
        for (std::size_t i = n; i-- > 0;) {
            subtract<Number, count>(a[i], i + 1, n, B, k, i, a[i][i]);
        }
    }

    // Row i of B becomes (row i - sum over j in [first, last) of a_ij row j) / divisor.
    template <class Number, std::size_t count>
    [[gnu::always_inline]] static inline void subtract(const double* row, std::size_t first,
                                                       std::size_t last, double* B, std::size_t k,
                                                       std::size_t i, double divisor) {
        Number sums[count], other;
        for (std::size_t v = 0; v < count; ++v) load(sums[v], B + i * k + v * width<Number>);
        for (std::size_t j = first; j < last; ++j) {
            for (std::size_t v = 0; v < count; ++v) {
                load(other, B + j * k + v * width<Number>);
                sums[v] -= row[j] * other;
            }
        }
        for (std::size_t v = 0; v < count; ++v) {
            store(sums[v] / divisor, B + i * k + v * width<Number>);
        }
    }
};

}  // namespace

void DenseLu::reserve(std::size_t n_max) {
    if (elements_.size() < n_max * n_max) elements_.resize(n_max * n_max);
    rows_.reserve(n_max);
    scale_.reserve(n_max);
    exchanges_.reserve(n_max);
    exponents_.reserve(n_max);
}

double* DenseLu::matrix(std::size_t n) {
    reserve(n);
    n_ = n;
    scale_.resize(n);
    exchanges_.resize(n);
    point_to_rows(rows_, elements_.data(), n);
    return elements_.data();
}

bool DenseLu::decompose_in_place() {
    if (!all_finite(elements_.data(), n_ * n_)) return false;
    outcome_ = lu_decompose_any(n_, rows_.data(), exchanges_.data(), scale_.data(), exponents_);
    return true;
}

bool DenseLu::decompose(const double* a, std::size_t n) {
    std::copy_n(a, n * n, matrix(n));
    return decompose_in_place();
}

void DenseLu::solve(double* b) const {
    exponents_.apply(b, 1);
    lu_substitute(n_, rows_.data(), exchanges_.data(), b);
}

void DenseLu::solve_many(double* B, std::size_t k) const {
    exponents_.apply(B, k);
    for (std::size_t i = 0; i < n_; ++i) {
        const auto other = static_cast<std::size_t>(exchanges_[i]);
        if (other != i) std::swap_ranges(B + i * k, B + (i + 1) * k, B + other * k);
    }
    dispatch<SubstituteMany>(rows_.data(), n_, B, k);
}

// A' = U' L' P: the columns of both factors are rows of memory here, so that each unknown, once
// known, is taken out of the equations that follow.
void DenseLu::solve_transposed(double* b) const {
    for (std::size_t i = 0; i < n_; ++i) {
        b[i] /= row(i)[i];
        for (std::size_t j = i + 1; j < n_; ++j) b[j] -= row(i)[j] * b[i];
    }
    for (std::size_t i = n_; i-- > 0;) {
        for (std::size_t j = 0; j < i; ++j) b[j] -= row(i)[j] * b[i];
    }
    for (std::size_t i = n_; i-- > 0;) std::swap(b[i], b[exchanges_[i]]);
    exponents_.apply(b, 1);
}

double DenseLu::log_abs_det() const {
    if (singular()) return -std::numeric_limits<double>::infinity();
    double sum = exponents_.log_abs_det();
    for (std::size_t i = 0; i < n_; ++i) sum += std::log(std::fabs(row(i)[i]));
    return sum;
}

int DenseLu::sign_det() const {
    if (singular()) return 0;
    int sign = outcome_.parity > 0 ? 1 : -1;
    for (std::size_t i = 0; i < n_; ++i) sign = row(i)[i] < 0 ? -sign : sign;
    return sign;
}

double DenseLu::pivot_ratio() const {
    if (singular() || n_ == 0) return singular() ? 0 : 1;
    double smallest = std::numeric_limits<double>::infinity();
    double largest = 0;
    for (std::size_t i = 0; i < n_; ++i) {
        smallest = std::min(smallest, std::fabs(row(i)[i]));
        largest = std::max(largest, std::fabs(row(i)[i]));
    }
    return smallest / largest;
}

bool DenseEigen::eigenvalues(std::size_t n, double* a, double* re, double* im) {
    if (!all_finite(a, n * n)) return false;
    point_to_rows(rows_, a, n);
    return matrix_eigenvalues(rows_.data(), n, re, im);
}

}  // namespace trajex
