// Matrices given by their rows, as the interface passes them.
#pragma once

#include <algorithm>
#include <cstddef>

namespace trajex {

/// Copies the leading rows x columns block of one matrix into another.
inline void copy_block(double* const* from, std::size_t rows, std::size_t columns, double** to) {
    for (std::size_t i = 0; i < rows; ++i) std::copy_n(from[i], columns, to[i]);
}

/// Sets the leading n rows to [I | 0], `columns` wide.
inline void set_identity(double** matrix, std::size_t n, std::size_t columns) {
    for (std::size_t i = 0; i < n; ++i) {
        std::fill_n(matrix[i], columns, 0.0);
        matrix[i][i] = 1.0;
    }
}

}  // namespace trajex
