// Loops over a few components run several times faster where their number is a constant.
#pragma once

#include <cstddef>
#include <type_traits>

namespace trajex {

/// Calls f(n), with n a compile-time constant where it is small: f is compiled for each of these,
/// and once for a number known at run time only.
template <std::size_t constant = 1, class F>
decltype(auto) with_size(std::size_t n, const F& f) {
    constexpr std::size_t largest = 6;
    if constexpr (constant > largest) {
        return f(n);
    } else {
        if (n == constant) return f(std::integral_constant<std::size_t, constant>());
        return with_size<constant + 1>(n, f);
    }
}

}  // namespace trajex
