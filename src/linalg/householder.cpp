// A = Q R by Householder reflections H = I - tau v v', v = (1, ...), where v is kept below the
// diagonal. Reference: Golub and Van Loan, Matrix Computations, 5.1 and 5.2.
#include <algorithm>
#include <cmath>

#include "core/simd.hpp"
#include "linalg/dense.hpp"

namespace trajex {

namespace {

// The reflection that takes column a (elements lda apart, n of them) to (beta, 0, ..., 0): beta
// takes the place of the first element, v those of the others. Returns tau. The column is divided
// by its largest element first, so that no square leaves the exponent range.
double make_reflection(double* a, std::size_t n, std::size_t lda) {
    double largest = 0;
    for (std::size_t i = 1; i < n; ++i) largest = std::max(largest, std::fabs(a[i * lda]));
    if (largest == 0) return 0;
    largest = std::max(largest, std::fabs(a[0]));
    const double alpha = a[0] / largest;
    double sum = alpha * alpha;
    for (std::size_t i = 1; i < n; ++i) {
        const double x = a[i * lda] / largest;
        sum += x * x;
    }
    const double beta = -std::copysign(std::sqrt(sum), alpha);
    const double head = alpha - beta;
    for (std::size_t i = 1; i < n; ++i) a[i * lda] = a[i * lda] / largest / head;
    a[0] = beta * largest;
    return (beta - alpha) / beta;
}

// A block of rows: `columns` wide, `stride` apart.
struct Block {
    double* first;
    std::size_t columns;
    std::size_t stride;
};

// A kernel: B becomes H B = B - tau v (v' B), both passes along the rows. v has n elements, lda
// apart, the first of which is 1 and not stored; `sums` holds as many numbers as B has columns.
struct Reflect {
    [[gnu::always_inline]] static inline void run(const double* v, std::size_t n, std::size_t lda,
                                                  double tau, const Block* block, double* sums) {
        const auto [b, k, ldb] = *block;
        for (std::size_t c = 0; c < k; ++c) sums[c] = b[c];
        for (std::size_t i = 1; i < n; ++i) {
            const double x = v[i * lda];
            const double* const row = b + i * ldb;
            for (std::size_t c = 0; c < k; ++c) sums[c] += x * row[c];
        }
        for (std::size_t c = 0; c < k; ++c) sums[c] *= tau;
        for (std::size_t c = 0; c < k; ++c) b[c] -= sums[c];
        for (std::size_t i = 1; i < n; ++i) {
            const double x = v[i * lda];
            double* const row = b + i * ldb;
            for (std::size_t c = 0; c < k; ++c) row[c] -= x * sums[c];
        }
    }
};

}  // namespace

void Qr::reserve(std::size_t columns_max, std::size_t block_columns_max) {
    tau_.reserve(columns_max);
    sums_.reserve(std::max(columns_max, block_columns_max));
}

void Qr::reflect(std::size_t j, double* b, std::size_t k, std::size_t ldb) {
    if (tau_[j] == 0) return;
    if (sums_.size() < k) sums_.resize(k);
    const Block below{b + j * ldb, k, ldb};
    dispatch<Reflect>(a_ + j * lda_ + j, rows_ - j, lda_, tau_[j], &below, sums_.data());
}

void Qr::factor(double* a, std::size_t rows, std::size_t columns, std::size_t lda) {
    a_ = a;
    rows_ = rows;
    lda_ = lda;
    tau_.assign(std::min(rows, columns), 0.0);
    for (std::size_t j = 0; j < tau_.size(); ++j) {
        tau_[j] = make_reflection(a + j * lda + j, rows - j, lda);
        reflect(j, a + j + 1, columns - j - 1, lda);
    }
}

void Qr::apply_transposed(double* b, std::size_t k, std::size_t ldb) {
    for (std::size_t j = 0; j < tau_.size(); ++j) reflect(j, b, k, ldb);
}

void Qr::apply(double* b, std::size_t k, std::size_t ldb) {
    for (std::size_t j = tau_.size(); j-- > 0;) reflect(j, b, k, ldb);
}

}  // namespace trajex
