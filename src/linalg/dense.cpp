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

    // Three rows at a time, which with what they are made of fit sixteen registers; as many in
    // narrow strips, since the order of a sum must not depend on the strip that a column is in.
    template <class Number, std::size_t count>
    [[gnu::always_inline]] static inline void substitute(double* const* a, std::size_t n, double* B,
                                                         std::size_t k) {
        constexpr std::size_t rows = 3;
        std::size_t i = 0;
        for (; i + rows <= n; i += rows) forward<Number, rows, count>(a, i, B, k);
        for (; i + 2 <= n; i += 2) forward<Number, 2, count>(a, i, B, k);
        if (i < n) forward<Number, 1, count>(a, i, B, k);
        for (i = n; i >= rows; i -= rows) backward<Number, rows, count>(a, n, i - rows, B, k);
        for (; i >= 2; i -= 2) backward<Number, 2, count>(a, n, i - 2, B, k);
        if (i == 1) backward<Number, 1, count>(a, n, 0, B, k);
    }

    // Rows i ... of L X = B, where those above are known, and of U X = B, where those below are.
    template <class Number, std::size_t rows, std::size_t count>
    [[gnu::always_inline]] static inline void forward(double* const* a, std::size_t i, double* B,
                                                      std::size_t k) {
        Number sums[rows][count];
        load_rows(sums, B + i * k, k);
        subtract_rows(sums, a + i, 0, i, B, k);
        for (std::size_t r = 0; r < rows; ++r) {
            for (std::size_t q = 0; q < r; ++q) subtract_row(sums[r], a[i + r][i + q], sums[q]);
            store_row(sums[r], B + (i + r) * k);
        }
    }
    template <class Number, std::size_t rows, std::size_t count>
    [[gnu::always_inline]] static inline void backward(double* const* a, std::size_t n,
                                                       std::size_t i, double* B, std::size_t k) {
        Number sums[rows][count];
        load_rows(sums, B + i * k, k);
        subtract_rows(sums, a + i, i + rows, n, B, k);
        for (std::size_t r = rows; r-- > 0;) {
            for (std::size_t q = r + 1; q < rows; ++q)
                subtract_row(sums[r], a[i + r][i + q], sums[q]);
            divide_row(sums[r], a[i + r][i + r]);
            store_row(sums[r], B + (i + r) * k);
        }
    }

    // Rows r of the sums lose sum over j in [first, last) of a_rj times row j of B. Several
    // use what is loaded once, and keep the processor busy while a sum waits for its last term.
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

// A kernel: the same for one column, where the sums run along the rows of the factors.
template <class Vector>
struct SubstituteOne {
    [[gnu::always_inline]] static inline void run(double* const* a, std::size_t n, double* b) {
        std::size_t i = 0;
        for (; i + most_rows <= n; i += most_rows) forward<most_rows>(a, i, b);
        for (; i < n; ++i) forward<1>(a, i, b);
        for (i = n; i >= most_rows; i -= most_rows) backward<most_rows>(a, n, i - most_rows, b);
        for (; i > 0; --i) backward<1>(a, n, i - 1, b);
    }

  private:
    static constexpr std::size_t most_rows = 4;

    template <std::size_t rows>
    [[gnu::always_inline]] static inline void forward(double* const* a, std::size_t i, double* b) {
        subtract_products<rows>(a + i, 0, i, b, b + i);
        for (std::size_t r = 1; r < rows; ++r) {
            for (std::size_t q = 0; q < r; ++q) b[i + r] -= a[i + r][i + q] * b[i + q];
        }
    }
    template <std::size_t rows>
    [[gnu::always_inline]] static inline void backward(double* const* a, std::size_t n,
                                                       std::size_t i, double* b) {
        subtract_products<rows>(a + i, i + rows, n, b, b + i);
        for (std::size_t r = rows; r-- > 0;) {
            for (std::size_t q = r + 1; q < rows; ++q) b[i + r] -= a[i + r][i + q] * b[i + q];
            b[i + r] /= a[i + r][i + r];
        }
    }

    // y_r -= sum over j in [first, last) of a_rj b_j, in four partial sums whatever the width of
    // the vectors: the order of the operations is that of every processor.
    template <std::size_t rows>
    [[gnu::always_inline]] static inline void subtract_products(double* const* a, std::size_t first,
                                                                std::size_t last, const double* b,
                                                                double* y) {
        constexpr std::size_t step = 4;
        constexpr std::size_t parts = step / width<Vector>;
        Vector sums[rows][parts]{};
        std::size_t j = first;
        for (; j + step <= last; j += step) {
            for (std::size_t p = 0; p < parts; ++p) {
                Vector x, row;
                load(x, b + j + p * width<Vector>);
                for (std::size_t r = 0; r < rows; ++r) {
                    load(row, a[r] + j + p * width<Vector>);
                    sums[r][p] += row * x;
                }
            }
        }
        for (std::size_t r = 0; r < rows; ++r) {
            double sum = 0;
            for (std::size_t p = 0; p < parts; ++p) add_in_order(sum, sums[r][p]);
            for (std::size_t rest = j; rest < last; ++rest) sum += a[r][rest] * b[rest];
            y[r] -= sum;
        }
    }
};

// From this order on the sums along a row are long enough for vectors.
constexpr std::size_t least_for_vectors = 24;

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
    if (k == 1 && n_ >= least_for_vectors) return dispatch<SubstituteOne>(rows_.data(), n_, B);
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
