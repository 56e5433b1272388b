// LU decomposition of a complex matrix by Gaussian elimination, row by row. Reference: Golub and
// Van Loan, Matrix Computations, 3.4.
#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "core/finite.hpp"
#include "linalg/dense.hpp"
#include "linalg/range.hpp"

namespace trajex {

namespace {

using Complex = ComplexLu::Complex;

constexpr double relative_floor = 1.0e-20;  // a zero pivot becomes this times the largest element

// A size that does not overflow, within a factor of sqrt(2) of the modulus.
double size_of(Complex z) {
    return std::max(std::fabs(z.real()), std::fabs(z.imag()));
}

// A complex number is an array of two.
double* parts(Complex* z) {
    return reinterpret_cast<double*>(z);
}

void subtract_row(Complex factor, const Complex* from, std::size_t n, Complex* to) {
    for (std::size_t j = 0; j < n; ++j) to[j] -= factor * from[j];
}

}  // namespace

void ComplexLu::reserve(std::size_t n_max) {
    if (elements_.size() < n_max * n_max) elements_.resize(n_max * n_max);
    scale_.reserve(n_max);
    exchanges_.reserve(n_max);
    exponents_.reserve(n_max);
}

ComplexLu::Complex* ComplexLu::matrix(std::size_t n) {
    reserve(n);
    n_ = n;
    scale_.resize(n);
    exchanges_.resize(n);
    return elements_.data();
}

bool ComplexLu::decompose(const Complex* a, std::size_t n) {
    std::copy_n(a, n * n, matrix(n));
    return decompose_in_place();
}

bool ComplexLu::decompose_in_place() {
    if (!all_finite(parts(elements_.data()), 2 * n_ * n_)) return false;
    double largest = measure_rows();
    if (largest == 0) largest = 1;
    parity_ = 1;
    singular_ = false;
    for (std::size_t column = 0; column < n_; ++column) {
        exchange(column, pivot_row(column));
        if (row(column)[column] == 0.0) {
            row(column)[column] = relative_floor * largest;
            singular_ = true;
        }
        eliminate(column);
    }
    return true;
}

// Sets the scale of every row, 1 over its largest element, where need be after a multiplication by
// a power of two. Returns the size of the largest element.
double ComplexLu::measure_rows() {
    exponents_.clear();
    double smallest = std::numeric_limits<double>::infinity();
    double largest = 0;
    for (std::size_t i = 0; i < n_; ++i) {
        const double size = largest_size(parts(row(i)), 2 * n_);
        scale_[i] = size > 0 ? 1 / size : 1;
        if (size > 0) smallest = std::min(smallest, size);
        largest = std::max(largest, size);
    }
    if (smallest >= 1e-100 && largest <= 1e100) return largest;
    for (std::size_t i = 0; i < n_; ++i) {
        exponents_.scale_next(parts(row(i)), 2 * n_, largest_size(parts(row(i)), 2 * n_));
        scale_[i] = 1;
    }
    return 1;
}

void ComplexLu::exchange(std::size_t column, std::size_t pivot) {
    exchanges_[column] = pivot;
    if (pivot == column) return;
    std::swap_ranges(row(column), row(column) + n_, row(pivot));
    scale_[pivot] = scale_[column];
    parity_ = -parity_;
}

std::size_t ComplexLu::pivot_row(std::size_t column) const {
    std::size_t pivot = column;
    double best = -1;
    for (std::size_t i = column; i < n_; ++i) {
        const double size = scale_[i] * size_of(row(i)[column]);
        if (size > best) {
            best = size;
            pivot = i;
        }
    }
    return pivot;
}

void ComplexLu::eliminate(std::size_t column) {
    const Complex* const pivot = row(column);
    for (std::size_t i = column + 1; i < n_; ++i) {
        Complex* const below = row(i);
        if (below[column] == 0.0) continue;
        below[column] /= pivot[column];
        subtract_row(below[column], pivot + column + 1, n_ - column - 1, below + column + 1);
    }
}

void ComplexLu::solve_many(Complex* B, std::size_t k) const {
    exponents_.apply(parts(B), 2 * k);
    for (std::size_t i = 0; i < n_; ++i) {
        if (exchanges_[i] != i) std::swap_ranges(B + i * k, B + (i + 1) * k, B + exchanges_[i] * k);
    }
    for (std::size_t i = 0; i < n_; ++i) {
        for (std::size_t j = 0; j < i; ++j) subtract_row(row(i)[j], B + j * k, k, B + i * k);
    }
    for (std::size_t i = n_; i-- > 0;) {
        for (std::size_t j = i + 1; j < n_; ++j) subtract_row(row(i)[j], B + j * k, k, B + i * k);
        for (std::size_t c = 0; c < k; ++c) B[i * k + c] /= row(i)[i];
    }
}

void ComplexLu::solve_transposed(Complex* b) const {
    for (std::size_t i = 0; i < n_; ++i) {
        b[i] /= row(i)[i];
        subtract_row(b[i], row(i) + i + 1, n_ - i - 1, b + i + 1);
    }
    for (std::size_t i = n_; i-- > 0;) subtract_row(b[i], row(i), i, b);
    for (std::size_t i = n_; i-- > 0;) std::swap(b[i], b[exchanges_[i]]);
    exponents_.apply(parts(b), 2);
}

double ComplexLu::log_abs_det() const {
    if (singular_) return -std::numeric_limits<double>::infinity();
    double sum = exponents_.log_abs_det();
    for (std::size_t i = 0; i < n_; ++i) sum += std::log(std::abs(row(i)[i]));
    return sum;
}

ComplexLu::Complex ComplexLu::sign_det() const {
    if (singular_) return 0;
    Complex sign = parity_;
    for (std::size_t i = 0; i < n_; ++i) sign *= row(i)[i] / std::abs(row(i)[i]);
    return sign;
}

double ComplexLu::pivot_ratio() const {
    if (singular_ || n_ == 0) return singular_ ? 0 : 1;
    double smallest = std::numeric_limits<double>::infinity();
    double largest = 0;
    for (std::size_t i = 0; i < n_; ++i) {
        smallest = std::min(smallest, std::abs(row(i)[i]));
        largest = std::max(largest, std::abs(row(i)[i]));
    }
    return smallest / largest;
}

}  // namespace trajex
