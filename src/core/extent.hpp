// Orders and counts come through the public interface as int.
#pragma once

#include <cstddef>

namespace trajex {

/// The count as a loop bound; there is nothing to do for one that is not positive.
constexpr std::size_t extent(int n) {
    return n > 0 ? static_cast<std::size_t>(n) : 0;
}

}  // namespace trajex
