// The product of the Jacobian with the matrix of derivatives, the cost of the extended system for
// all but small systems. Tiles of four rows and two vectors are summed in registers; at an edge
// the last tile overlaps the one before it. Each element is summed over l in increasing order,
// starting with its first term.
#pragma once

#include <cstddef>

#include "core/simd.hpp"

namespace trajex {

/// A kernel: product[i][k] = sum over l of J[i][l] M[l][k], with n x n J given by its rows, and M
/// and the product n x columns with contiguous rows. The product does not overlap J or M.
template <class Vector>
struct MatrixProduct {
    [[gnu::always_inline]] static inline void run(double* const* J, std::size_t n, const double* M,
                                                  std::size_t columns, double* product) {
        if (columns >= 2 * width<Vector>) {
            multiply_columns<Vector, 2>(J, n, M, columns, product);
        } else if (columns >= width<Vector>) {
            multiply_columns<Vector, 1>(J, n, M, columns, product);
        } else {
            multiply_columns<double, 1>(J, n, M, columns, product);
        }
    }

  private:
    template <class Number, std::size_t count>
    [[gnu::always_inline]] static inline void multiply_columns(double* const* J, std::size_t n,
                                                               const double* M, std::size_t columns,
                                                               double* product) {
        constexpr std::size_t step = count * width<Number>;
        for (std::size_t k = 0; k < columns; k += step) {
            const std::size_t first = k + step <= columns ? k : columns - step;
            multiply_panel<Number, count>(J, n, M + first, columns, product + first);
        }
    }

    /// `stride` separates the rows of M and of the product.
    template <class Number, std::size_t count>
    [[gnu::always_inline]] static inline void multiply_panel(double* const* J, std::size_t n,
                                                             const double* M, std::size_t stride,
                                                             double* product) {
        constexpr std::size_t rows = 4;
        if (n < rows) {
            for (std::size_t i = 0; i < n; ++i) {
                multiply_tile<Number, 1, count>(J + i, n, M, stride, product + i * stride);
            }
            return;
        }
        for (std::size_t i = 0; i < n; i += rows) {
            const std::size_t first = i + rows <= n ? i : n - rows;
            multiply_tile<Number, rows, count>(J + first, n, M, stride, product + first * stride);
        }
    }

    template <class Number, std::size_t rows, std::size_t count>
    [[gnu::always_inline]] static inline void multiply_tile(double* const* J, std::size_t n,
                                                            const double* M, std::size_t stride,
                                                            double* product) {
        Number tile[rows][count];
        Number source[count];
        for (std::size_t c = 0; c < count; ++c) load(source[c], M + c * width<Number>);
        for (std::size_t r = 0; r < rows; ++r) {
            for (std::size_t c = 0; c < count; ++c) tile[r][c] = J[r][0] * source[c];
        }
        for (std::size_t l = 1; l < n; ++l) {
            M += stride;
            for (std::size_t c = 0; c < count; ++c) load(source[c], M + c * width<Number>);
            for (std::size_t r = 0; r < rows; ++r) {
                for (std::size_t c = 0; c < count; ++c) tile[r][c] += J[r][l] * source[c];
            }
        }
        for (std::size_t r = 0; r < rows; ++r) {
            for (std::size_t c = 0; c < count; ++c) {
                store(tile[r][c], product + r * stride + c * width<Number>);
            }
        }
    }
};

}  // namespace trajex
