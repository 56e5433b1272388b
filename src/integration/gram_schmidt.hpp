// Classical Gram-Schmidt orthonormalisation of vectors stored one after the other.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace trajex {

inline double dot_product(const double* x, const double* y, std::size_t n) {
    double sum = 0;
    for (std::size_t i = 0; i < n; ++i) sum += y[i] * x[i];
    return sum;
}

/// Orthonormalises the `count` vectors of length n in v, in place. norm[i] is the length that
/// vector i had left when its components along the vectors before it were taken away; x is scratch
/// of length n. The components are those of the vector as given, not of the partly reduced one.
inline void orthonormalise(double* v, double* norm, std::size_t n, double* x, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        double* const vi = v + i * n;
        std::copy_n(vi, n, x);
        for (std::size_t j = 0; j < i; ++j) {
            const double* const vj = v + j * n;
            const double component = dot_product(vi, vj, n);
            for (std::size_t k = 0; k < n; ++k) x[k] -= component * vj[k];
        }
        norm[i] = std::sqrt(dot_product(x, x, n));
        for (std::size_t k = 0; k < n; ++k) vi[k] = x[k] / norm[i];
    }
}

}  // namespace trajex
