// Derivatives by differences of values. Central quotients with the steps h and 2h,
//
//     D(h) = (f(x + h) - f(x - h)) / 2h = f' + h^2 f''' / 6 + O(h^4),
//
// are combined to (4 D(h) - D(2h)) / 3, whose error is of fourth order. Their difference shows
// whether h was small enough for the curvature of f: if not, or where f is not defined at a shifted
// point, a smaller step is tried, and the one with the smallest difference wins.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>

namespace trajex::differences {

/// Balances the error of fourth order against rounding for f of order 1.
inline constexpr double relative_step = 7e-4;
inline constexpr double shrink = 1.0 / 8;
inline constexpr int attempts = 5;
inline constexpr double tolerance = 1e-5;

/// What a variable counts as when its step is chosen, among others whose largest is `largest`.
inline double scale(double x, double largest) {
    return std::max({std::fabs(x), 0.05 * largest, 1e-2});
}

/// The exact distance of x + h from x, so that division by it is by what was done.
inline double representable(double x, double h) {
    const volatile double shifted = x + h;
    return shifted - x;
}

/// From the values at x + h, x - h, x + 2h, x - 2h (rows of n): the derivative, and how far the two
/// quotients are apart relative to it; infinity where one is not finite.
inline double combine(std::size_t n, double h, const double* const f[4], double* derivative) {
    double apart = 0;
    double size = 0;
    for (std::size_t i = 0; i < n; ++i) {
        const double near = (f[0][i] - f[1][i]) / (2 * h);
        const double far = (f[2][i] - f[3][i]) / (4 * h);
        derivative[i] = near + (near - far) / 3;
        if (!std::isfinite(derivative[i])) return std::numeric_limits<double>::infinity();
        apart = std::max(apart, std::fabs(near - far));
        size = std::max(size, std::fabs(derivative[i]));
    }
    return apart == 0 ? 0 : apart / size;
}

}  // namespace trajex::differences
