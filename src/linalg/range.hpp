// Matrices near the ends of the exponent range: their products over- or underflow, although their
// solutions and eigenvalues need not. They are worked on after multiplication by a power of two,
// which is exact.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

namespace trajex {

/// 0, or the exponent e by which a matrix whose largest element has the given size is to be scaled,
/// 2^-e A: that of its largest element where this lies outside 1e-100 ... 1e100.
inline bool in_middle_range(double size) {
    return size >= 1e-100 && size <= 1e100;
}
inline int range_exponent(double largest) {
    const bool leave = in_middle_range(largest) || largest == 0 || !std::isfinite(largest);
    return leave ? 0 : std::ilogb(largest);
}

/// The size of the largest element; what is not a number is left out.
inline double largest_size(const double* x, std::size_t n) {
    double largest = 0;
    for (std::size_t i = 0; i < n; ++i) largest = std::max(largest, std::fabs(x[i]));
    return largest;
}

/// x becomes 2^e x.
inline void scale_by_power(double* x, std::size_t n, int e) {
    for (std::size_t i = 0; i < n; ++i) x[i] = std::ldexp(x[i], e);
}

/// The rows of a system that were multiplied by powers of two, 2^-e_i for row i, or none. A right
/// side goes the same way before the substitution, a solution of the transposed system after it.
class RowExponents {
  public:
    void reserve(std::size_t n_max) { exponents_.reserve(n_max); }
    void clear() { exponents_.clear(); }
    /// Multiplies a row, the next one, whose largest element has the given size.
    void scale_next(double* row, std::size_t length, double size) {
        const int e = size > 0 ? std::ilogb(size) : 0;
        exponents_.push_back(e);
        scale_by_power(row, length, -e);
    }
    /// B has rows of k doubles.
    void apply(double* B, std::size_t k) const {
        for (std::size_t i = 0; i < exponents_.size(); ++i) {
            scale_by_power(B + i * k, k, -exponents_[i]);
        }
    }
    /// What log |det| lost.
    double log_abs_det() const {
        double sum = 0;
        for (const int e : exponents_) sum += e;
        return sum * std::log(2.0);
    }

  private:
    std::vector<int> exponents_;
};

}  // namespace trajex
