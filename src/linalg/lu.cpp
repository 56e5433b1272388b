// LU decomposition with partial pivoting and implicit scaling of the rows, by right-looking
// elimination: every element receives the updates of Crout's method, in the same order, but row by
// row of memory. Reference: Golub and Van Loan, Matrix Computations, 3.2 and 3.4.
#include "linalg/lu.hpp"

#include <algorithm>
#include <cmath>

namespace trajex {

namespace {

// Replaces a pivot that is exactly zero: a singular matrix gives a huge solution, not a failure.
constexpr double pivot_floor = 1.0e-20;

bool is_zero_row(const double* row, std::size_t n) {
    return std::all_of(row, row + n, [](double x) { return x == 0; });
}

// 1 / max |a_ij| for every row i; false when there is a row of zeros.
bool scale_rows(std::size_t n, double* const* a, double* scale) {
    for (std::size_t i = 0; i < n; ++i) {
        double largest = 0;
        for (std::size_t j = 0; j < n; ++j) {
            const double size = std::fabs(a[i][j]);
            largest = size > largest ? size : largest;
        }
        if (largest == 0 && is_zero_row(a[i], n)) return false;
        scale[i] = 1 / largest;
    }
    return true;
}

// The row with the largest scaled element of a column, the last one among equals. Elements that are
// not a number never win; if nothing wins the diagonal stays.
std::size_t find_pivot(std::size_t n, double* const* a, const double* scale, std::size_t column) {
    std::size_t pivot = column;
    double largest = 0;
    for (std::size_t i = column; i < n; ++i) {
        const double size = scale[i] * std::fabs(a[i][column]);
        if (size >= largest) {
            largest = size;
            pivot = i;
        }
    }
    return pivot;
}

}  // namespace

bool lu_decompose(std::size_t n, double** a, int* exchanges, double& parity, double* scale) {
    parity = 1;
    if (!scale_rows(n, a, scale)) return false;
    for (std::size_t k = 0; k < n; ++k) {
        const std::size_t pivot = find_pivot(n, a, scale, k);
        if (pivot != k) {
            std::swap_ranges(a[k], a[k] + n, a[pivot]);
            scale[pivot] = scale[k];
            parity = -parity;
        }
        exchanges[k] = static_cast<int>(pivot);
        if (a[k][k] == 0) a[k][k] = pivot_floor;
        const double reciprocal = 1 / a[k][k];
        for (std::size_t i = k + 1; i < n; ++i) {
            const double multiplier = a[i][k] *= reciprocal;
            for (std::size_t j = k + 1; j < n; ++j) a[i][j] -= multiplier * a[k][j];
        }
    }
    return true;
}

void lu_substitute(std::size_t n, double* const* a, const int* exchanges, double* b) {
    std::size_t first = n;  // the first row whose sum is not zero; before it all of b is
    for (std::size_t i = 0; i < n; ++i) {
        const auto exchanged = static_cast<std::size_t>(exchanges[i]);
        double sum = b[exchanged];
        b[exchanged] = b[i];
        for (std::size_t j = first; j < i; ++j) sum -= a[i][j] * b[j];
        if (first == n && sum != 0) first = i;
        b[i] = sum;
    }
    for (std::size_t i = n; i-- > 0;) {
        double sum = b[i];
        for (std::size_t j = i + 1; j < n; ++j) sum -= a[i][j] * b[j];
        b[i] = sum / a[i][i];
    }
}

}  // namespace trajex
