// A = Q R by Householder reflections H = I - tau v v', v = (1, ...), where v is kept below the
// diagonal. Reference: Golub and Van Loan, Matrix Computations, 5.1 and 5.2.
#include <algorithm>
#include <cmath>
#include <type_traits>

#include "core/simd.hpp"
#include "linalg/dense.hpp"

namespace trajex {

namespace {

// The reflection that takes column a (elements lda apart, n of them) to (beta, 0, ..., 0): beta
// takes the place of the first element, v those of the others. Returns tau.
double reflection_in_range(double* a, std::size_t n, std::size_t lda, double squares) {
    const double beta = -std::copysign(std::sqrt(a[0] * a[0] + squares), a[0]);
    const double head = a[0] - beta;
    const double inverted = 1 / head;
    for (std::size_t i = 1; i < n; ++i) a[i * lda] *= inverted;
    a[0] = beta;
    return -head / beta;
}

// The column is multiplied by a power of two where squares would leave the exponent range.
double make_reflection(double* a, std::size_t n, std::size_t lda) {
    constexpr double least = 1e-200;
    constexpr double most = 1e200;
    const auto sum_of_squares = [&] {
        double sum = 0;
        for (std::size_t i = 1; i < n; ++i) sum += a[i * lda] * a[i * lda];
        return sum;
    };
    const double squares = sum_of_squares();
    if (squares > least && squares + a[0] * a[0] < most)
        return reflection_in_range(a, n, lda, squares);
    double largest = 0;
    for (std::size_t i = 1; i < n; ++i) largest = std::max(largest, std::fabs(a[i * lda]));
    if (largest == 0) return 0;
    const int e = std::ilogb(std::max(largest, std::fabs(a[0])));
    for (std::size_t i = 0; i < n; ++i) a[i * lda] = std::ldexp(a[i * lda], -e);
    const double tau = reflection_in_range(a, n, lda, sum_of_squares());
    a[0] = std::ldexp(a[0], e);
    return tau;
}

// Reflections [first, last), each of which has tau and, below the diagonal of its column of `a`, v;
// in descending order where `backwards`.
struct Reflections {
    const double* a;
    std::size_t lda, rows;
    const double* tau;
    std::size_t first, last;
    bool backwards;
};

// A kernel: B, of k columns and as many rows as v belongs to, ldb apart, becomes H B = B - tau v
// (v' B) for one reflection after the other. A strip of columns a few vectors wide goes through all
// of them: its sums are in registers, and its rows stay in the cache.
template <class Vector>
struct ReflectColumns {
    [[gnu::always_inline]] static inline void run(const Reflections* q, double* b, std::size_t k,
                                                  std::size_t ldb) {
        constexpr std::size_t strip = strip_vectors * width<Vector>;
        for (; k >= strip; k -= strip, b += strip) reflect_all<Vector, strip_vectors>(*q, b, ldb);
        if (k >= 2 * width<Vector>) {
            reflect_all<Vector, 2>(*q, b, ldb);
            k -= 2 * width<Vector>, b += 2 * width<Vector>;
        }
        if (k >= width<Vector>) {
            reflect_all<Vector, 1>(*q, b, ldb);
            k -= width<Vector>, b += width<Vector>;
        }
        if (k == 3) reflect_all<double, 3>(*q, b, ldb);
        if (k == 2) reflect_all<double, 2>(*q, b, ldb);
        if (k == 1) reflect_all<double, 1>(*q, b, ldb);
    }

  private:
    static constexpr std::size_t strip_vectors = 4;

    template <class Number, std::size_t count>
    [[gnu::always_inline]] static inline void reflect_all(const Reflections& q, double* b,
                                                          std::size_t ldb) {
        for (std::size_t step = q.first; step < q.last; ++step) {
            const std::size_t j = q.backwards ? q.first + q.last - 1 - step : step;
            if (q.tau[j] != 0) reflect<Number, count>(q, j, b, ldb);
        }
    }

    template <class Number, std::size_t count>
    [[gnu::always_inline]] static inline void reflect(const Reflections& q, std::size_t j,
                                                      double* b, std::size_t ldb) {
        Number sums[count], row[count];
        load_row(sums, b + j * ldb);
        for (std::size_t i = j + 1; i < q.rows; ++i) {
            const double x = q.a[i * q.lda + j];
            load_row(row, b + i * ldb);
            for (std::size_t c = 0; c < count; ++c) sums[c] += x * row[c];
        }
        load_row(row, b + j * ldb);
        for (std::size_t c = 0; c < count; ++c) {
            sums[c] = q.tau[j] * sums[c];
            store(row[c] - sums[c], b + j * ldb + c * width<Number>);
        }
        for (std::size_t i = j + 1; i < q.rows; ++i) {
            const double x = q.a[i * q.lda + j];
            load_row(row, b + i * ldb);
            for (std::size_t c = 0; c < count; ++c) {
                store(row[c] - x * sums[c], b + i * ldb + c * width<Number>);
            }
        }
    }

    template <class Number, std::size_t count>
    [[gnu::always_inline]] static inline void load_row(Number (&row)[count], const double* from) {
        for (std::size_t c = 0; c < count; ++c) load(row[c], from + c * width<Number>);
    }
};

// A kernel: the whole of `Qr::factor_pair` for an n that is a constant.
template <class Vector>
struct ReflectPair {
    [[gnu::always_inline]] static inline void run(std::size_t, double*, double*, double*) {}

    template <std::size_t n>
    [[gnu::always_inline]] static inline void run(std::integral_constant<std::size_t, n>, double* a,
                                                  double* b, double* tau) {
        for (std::size_t j = 0; j < n; ++j) {
            tau[j] = make_reflection(a + j * n + j, 2 * n - j, n);
            if (tau[j] == 0) continue;
            reflect<n>(a, n, j, tau[j], a, j + 1);
            reflect<2 * n>(a, n, j, tau[j], b, 0);
        }
    }

  private:
    // The columns first ... of a block with rows of `columns`.
    template <std::size_t columns>
    [[gnu::always_inline]] static inline void reflect(const double* a, std::size_t n, std::size_t j,
                                                      double tau, double* b, std::size_t first) {
        double sums[columns];
        for (std::size_t c = first; c < columns; ++c) sums[c] = b[j * columns + c];
        for (std::size_t i = j + 1; i < 2 * n; ++i) {
            const double v = a[i * n + j];
            for (std::size_t c = first; c < columns; ++c) sums[c] += v * b[i * columns + c];
        }
        for (std::size_t c = first; c < columns; ++c) {
            sums[c] *= tau;
            b[j * columns + c] -= sums[c];
        }
        for (std::size_t i = j + 1; i < 2 * n; ++i) {
            const double v = a[i * n + j];
            for (std::size_t c = first; c < columns; ++c) b[i * columns + c] -= v * sums[c];
        }
    }
};

}  // namespace

void Qr::factor_pair(double* a, double* b, std::size_t n) {
    if (n > largest_unrolled) {
        factor(a, 2 * n, n, n);
        return apply_transposed(b, 2 * n, 2 * n);
    }
    a_ = a;
    rows_ = 2 * n;
    lda_ = n;
    tau_.resize(n);
    dispatch_sized<ReflectPair>(n, a, b, tau_.data());
}

void Qr::factor(double* a, std::size_t rows, std::size_t columns, std::size_t lda) {
    a_ = a;
    rows_ = rows;
    lda_ = lda;
    tau_.assign(std::min(rows, columns), 0.0);
    for (std::size_t j = 0; j < tau_.size(); ++j) {
        tau_[j] = make_reflection(a + j * lda + j, rows - j, lda);
        const Reflections one{a, lda, rows, tau_.data(), j, j + 1, false};
        dispatch<ReflectColumns>(&one, a + j + 1, columns - j - 1, lda);
    }
}

void Qr::apply_transposed(double* b, std::size_t k, std::size_t ldb) const {
    const Reflections all{a_, lda_, rows_, tau_.data(), 0, tau_.size(), false};
    dispatch<ReflectColumns>(&all, b, k, ldb);
}

void Qr::apply(double* b, std::size_t k, std::size_t ldb) const {
    const Reflections all{a_, lda_, rows_, tau_.data(), 0, tau_.size(), true};
    dispatch<ReflectColumns>(&all, b, k, ldb);
}

}  // namespace trajex
