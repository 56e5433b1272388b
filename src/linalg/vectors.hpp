// Products and sizes of vectors; sums run in index order.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

#include "core/finite.hpp"

namespace trajex {

inline double dot(const double* a, const double* b, std::size_t n) {
    double sum = 0;
    for (std::size_t i = 0; i < n; ++i) sum += a[i] * b[i];
    return sum;
}

inline double dot(const std::vector<double>& a, const std::vector<double>& b) {
    return dot(a.data(), b.data(), a.size());
}

inline double euclidean(const std::vector<double>& v) {
    return std::sqrt(dot(v, v));
}

/// The largest |x_i|; one that is NaN does not count.
inline double largest(const double* x, std::size_t n) {
    double size = 0;
    for (std::size_t i = 0; i < n; ++i) size = std::max(size, std::fabs(x[i]));
    return size;
}

inline double largest(const std::vector<double>& x) {
    return largest(x.data(), x.size());
}

inline bool all_finite(const std::vector<double>& x) {
    return all_finite(x.data(), x.size());
}

}  // namespace trajex
