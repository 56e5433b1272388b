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
// vectors wide goes through both substitutions, so that what they need of B stays in the cache.
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
    static constexpr std::size_t strip_vectors = 3;

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
        std::size_t i = 0;
        for (; i + 2 <= n; i += 2) {
            Number sums[2][count];
            load_rows(sums, B + i * k, k);
            subtract_rows(sums, a + i, 0, i, B, k);
            subtract_row(sums[1], a[i + 1][i], sums[0]);
            store_row(sums[0], B + i * k);
            store_row(sums[1], B + (i + 1) * k);
        }
        if (i < n) {
            Number sums[1][count];
            load_rows(sums, B + i * k, k);
            subtract_rows(sums, a + i, 0, i, B, k);
            store_row(sums[0], B + i * k);
        }
        for (i = n; i >= 2; i -= 2) {
            Number sums[2][count];
            load_rows(sums, B + (i - 2) * k, k);
            subtract_rows(sums, a + i - 2, i, n, B, k);
            divide_row(sums[1], a[i - 1][i - 1]);
            subtract_row(sums[0], a[i - 2][i - 1], sums[1]);
            divide_row(sums[0], a[i - 2][i - 2]);
            store_row(sums[0], B + (i - 2) * k);
            store_row(sums[1], B + (i - 1) * k);
        }
        if (i == 1) {
            Number sums[1][count];
            load_rows(sums, B, k);
            subtract_rows(sums, a, 1, n, B, k);
            divide_row(sums[0], a[0][0]);
            store_row(sums[0], B);
        }
    }

    // Rows r of the sums lose sum over j in [first, last) of a_rj times row j of B. Two at a time
    // use what is loaded twice, and keep the processor busy while a sum waits for its last term.
    template <class Number, std::size_t rows, std::size_t count>
    [[gnu::always_inline]] static inline void subtract_rows(Number (&sums)[rows][count],
                                                            double* const* a, std::size_t first,
                                                            std::size_t last, const double* B,
                                                            std::size_t k) {
        for (std::size_t j = first; j < last; ++j) {
            Number other[count];
            for (std::size_t v = 0; v < count; ++v) load(other[v], B + j * k + v * width<Number>);
            for (std::size_t r = 0; r < rows; ++r) subtract_row(sums[r], a[r][j], other);
        }
    }
    template <class Number, std::size_t count>
    [[gnu::always_inline]] static inline void subtract_row(Number (&row)[count], double factor,
                                                           const Number (&other)[count]) {
        for (std::size_t v = 0; v < count; ++v) row[v] -= factor * other[v];
    }
    template <class Number, std::size_t count>
    [[gnu::always_inline]] static inline void divide_row(Number (&row)[count], double divisor) {
        for (std::size_t v = 0; v < count; ++v) row[v] = row[v] / divisor;
    }
    template <class Number, std::size_t rows, std::size_t count>
    [[gnu::always_inline]] static inline void load_rows(Number (&sums)[rows][count],
                                                        const double* from, std::size_t k) {
        for (std::size_t r = 0; r < rows; ++r) {
            for (std::size_t v = 0; v < count; ++v)
                load(sums[r][v], from + r * k + v * width<Number>);
        }
    }
    template <class Number, std::size_t count>
    [[gnu::always_inline]] static inline void store_row(const Number (&row)[count], double* to) {
        for (std::size_t v = 0; v < count; ++v) store(row[v], to + v * width<Number>);
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
    return matrix_eigenvalues(rows_.data(), n, re, im, patient_limit);
}

}  // namespace trajex
