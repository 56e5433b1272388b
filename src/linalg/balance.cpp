// Balancing of a matrix before its eigenvalues are computed: a diagonal similarity by powers of
// two, hence without rounding. Reference: Parlett and Reinsch, Numer. Math. 13 (1969) 293.
#include <cmath>
#include <limits>

#include "linalg/eigen.hpp"

namespace trajex {

namespace {

struct Norms {
    double column;
    double row;
};

Norms off_diagonal_norms(double* const* a, std::size_t n, std::size_t i) {
    Norms norms{0, 0};
    for (std::size_t j = 0; j < n; ++j) {
        if (j == i) continue;
        norms.column += std::fabs(a[j][i]);
        norms.row += std::fabs(a[i][j]);
    }
    return norms;
}

// Zero, infinity and what is not a number are not.
bool is_positive(double norm) {
    return norm > 0 && norm <= std::numeric_limits<double>::max();
}

// The power of two f that makes the norms of column · f and row / f about equal; 1 when there is
// little to gain, and where a norm is zero or infinite or f leaves the range of normal numbers.
double balancing_factor(Norms norms) {
    auto [c, r] = norms;
    if (c >= r / 2 && c <= 2 * r) return 1;
    if (!is_positive(c) || !is_positive(r)) return 1;
    double f = 1;
    const double s = c + r;
    for (; c < r / 2; c *= 4) f *= 2;
    for (; c > 2 * r; c /= 4) f /= 2;
    return (c + r) / f < 0.95 * s && std::isnormal(f) ? f : 1;
}

// Whether x f can be turned back to x: no bit is lost at the ends of the exponent range.
bool exact(double x, double f) {
    return x * f / f == x;
}

bool scales_exactly(double* const* a, std::size_t n, std::size_t i, double f) {
    for (std::size_t j = 0; j < n; ++j) {
        if (j != i && !(exact(a[i][j], 1 / f) && exact(a[j][i], f))) return false;
    }
    return true;
}

// Row i / f, column i · f; the diagonal element, which both would change, stays as it is.
void scale_row_and_column(double** a, std::size_t n, std::size_t i, double f) {
    for (std::size_t j = 0; j < n; ++j) {
        if (j == i) continue;
        a[i][j] *= 1 / f;
        a[j][i] *= f;
    }
}

// Scales every index once; whether anything changed.
bool balance_once(double** a, std::size_t n) {
    bool changed = false;
    for (std::size_t i = 0; i < n; ++i) {
        const double f = balancing_factor(off_diagonal_norms(a, n, i));
        if (f == 1 || !scales_exactly(a, n, i, f)) continue;
        changed = true;
        scale_row_and_column(a, n, i, f);
    }
    return changed;
}

}  // namespace

void balance(double** a, std::size_t n) {
    while (balance_once(a, n)) {
    }
}

}  // namespace trajex
