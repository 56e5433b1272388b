// Whether numbers are numbers.
#pragma once

#include <cmath>
#include <cstddef>
#include <limits>

namespace trajex {

/// Whether all of x is finite; without a branch per element, so that several are looked at
/// together.
inline bool all_finite(const double* x, std::size_t n) {
    constexpr double largest = std::numeric_limits<double>::max();
    unsigned bad = 0;
    for (std::size_t i = 0; i < n; ++i) bad |= static_cast<unsigned>(!(std::fabs(x[i]) <= largest));
    return bad == 0;
}

}  // namespace trajex
