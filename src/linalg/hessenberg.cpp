// Reduction of a matrix to upper Hessenberg form by elimination with pivoting. Every element takes
// part in the operations of the column-by-column method, in the same order, but the rows are passed
// over once per column. Reference: Martin and Wilkinson, Numer. Math. 12 (1968) 349.
#include <algorithm>
#include <cmath>
#include <utility>

#include "core/simd.hpp"
#include "linalg/eigen.hpp"

namespace trajex {

namespace {

void swap_rows_and_columns(double** a, std::size_t n, std::size_t m, std::size_t pivot) {
    for (std::size_t j = m - 1; j < n; ++j) std::swap(a[m][j], a[pivot][j]);
    for (std::size_t i = 0; i < n; ++i) std::swap(a[i][m], a[i][pivot]);
}

std::size_t largest_below_diagonal(double* const* a, std::size_t n, std::size_t column) {
    std::size_t pivot = column + 1;
    double largest = 0;
    for (std::size_t i = column + 1; i < n; ++i) {
        if (std::fabs(a[i][column]) > largest) {
            largest = std::fabs(a[i][column]);
            pivot = i;
        }
    }
    return pivot;
}

// One column of the reduction. For one row i below the pivot after the other, row i loses y_i times
// the pivot row and column m gains y_i times column i. Taken row by row of memory instead,
//
//     a_jm gathers  y_i a_ji  for i < j,
//     row j loses  y_j times the pivot row,
//     a_jm gathers  y_i a_ji  for i >= j,
//
// where the pivot row's own element m is what it had gathered when the turn of row j came.
class ColumnElimination {
  public:
    [[gnu::always_inline]] static inline void run(double** a, std::size_t n, std::size_t m) {
        ColumnElimination step(a, n, m);
        for (std::size_t i = m + 1; i < n;) {
            i = step.collect(i);
            step.gather_and_subtract();
        }
    }

  private:
    static constexpr std::size_t most = 128;  // multipliers that are dealt with at a time
    static constexpr std::size_t group = 4;   // rows whose sums are formed side by side

    ColumnElimination(double** a, std::size_t n, std::size_t m) : a_(a), n_(n), m_(m) {}

    // Makes multipliers of the elements below the pivot, from row i on. Returns the row to go on
    // with.
    [[gnu::always_inline]] inline std::size_t collect(std::size_t i) {
        const double pivot = a_[m_][m_ - 1];
        for (count_ = 0; i < n_ && count_ < most; ++i) {
            if (a_[i][m_ - 1] == 0) continue;
            a_[i][m_ - 1] /= pivot;
            row_[count_] = i;
            multiplier_[count_] = a_[i][m_ - 1];
            ++count_;
        }
        return i;
    }

    [[gnu::always_inline]] inline void gather_and_subtract() {
        for (std::size_t t = 0; t < count_; ++t) {
            diagonal_[t] = a_[m_][m_];
            a_[m_][m_] += multiplier_[t] * a_[m_][row_[t]];
        }
        gather(0, m_, 0, count_);
        std::size_t above = 0;  // multipliers of rows above j
        for (std::size_t j = m_ + 1; j < n_;) {
            const std::size_t end = std::min(j + group, n_);
            gather(j, end, 0, above);
            const std::size_t next = exchange_among(j, end, above);
            gather(j, end, next, count_);
            above = next;
            j = end;
        }
    }

    // What rows [j, end) do with their own multipliers, which begin with number `first`. Returns
    // the number after the last of these.
    [[gnu::always_inline]] inline std::size_t exchange_among(std::size_t j, std::size_t end,
                                                             std::size_t first) {
        std::size_t last = first;
        while (last < count_ && row_[last] < end) ++last;
        for (std::size_t t = first; j < end; ++j) {
            const bool has_multiplier = t < last && row_[t] == j;
            gather_group<1>(j, first, t);
            if (has_multiplier) subtract_pivot_row(t);
            gather_group<1>(j, t, last);
            t += has_multiplier;
        }
        return last;
    }

    [[gnu::always_inline]] inline void subtract_pivot_row(std::size_t t) {
        const double y = multiplier_[t];
        double* const row = a_[row_[t]];
        const double* const pivot_row = a_[m_];
        row[m_] -= y * diagonal_[t];
        for (std::size_t k = m_ + 1; k < n_; ++k) row[k] -= y * pivot_row[k];
    }

    // Element m of rows [j, end) gathers with the multipliers [from, to).
    [[gnu::always_inline]] inline void gather(std::size_t j, std::size_t end, std::size_t from,
                                              std::size_t to) {
        for (; j + group <= end; j += group) gather_group<group>(j, from, to);
        for (; j < end; ++j) gather_group<1>(j, from, to);
    }

    template <std::size_t rows>
    [[gnu::always_inline]] inline void gather_group(std::size_t j, std::size_t from,
                                                    std::size_t to) {
        double sums[rows];
        for (std::size_t r = 0; r < rows; ++r) sums[r] = a_[j + r][m_];
        for (std::size_t t = from; t < to; ++t) {
            for (std::size_t r = 0; r < rows; ++r) sums[r] += multiplier_[t] * a_[j + r][row_[t]];
        }
        for (std::size_t r = 0; r < rows; ++r) a_[j + r][m_] = sums[r];
    }

    double** a_;
    std::size_t n_;
    std::size_t m_;
    std::size_t count_ = 0;
    std::size_t row_[most];
    double multiplier_[most];
    double diagonal_[most];  // element m of the pivot row when the turn of this multiplier comes
};

}  // namespace

void reduce_to_hessenberg(double** a, std::size_t n) {
    for (std::size_t m = 1; m + 1 < n; ++m) {
        const std::size_t pivot = largest_below_diagonal(a, n, m - 1);
        if (pivot != m) swap_rows_and_columns(a, n, m, pivot);
        if (std::fabs(a[m][m - 1]) > 0) dispatch<ColumnElimination>(a, n, m);
    }
}

}  // namespace trajex
