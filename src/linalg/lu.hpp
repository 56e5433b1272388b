// LU decomposition with partial pivoting by implicit scaling, and substitution.
#pragma once

#include <cstddef>

#include "linalg/range.hpp"

namespace trajex {

/// Decomposes the n x n matrix in place, exchanging the elements of rows (never the row pointers).
/// `exchanges` receives n row indices, `parity` +1 or -1; `scale` is scratch of n doubles.
/// Returns false, with the matrix unchanged, when a row is entirely zero.
bool lu_decompose(std::size_t n, double** a, int* exchanges, double& parity, double* scale);

/// The sign of the exchanges, and whether a zero pivot was replaced by a tiny one.
struct LuOutcome {
    double parity = 1;
    bool singular = false;
};

/// The same for any finite matrix, rows of zeros included. Where rows lie outside the middle of the
/// exponent range, all of them are multiplied by powers of two first, so that the factors are those
/// of other rows; `exponents` tells which. The tiny pivot is relative to the largest element.
LuOutcome lu_decompose_any(std::size_t n, double** a, int* exchanges, double* scale,
                           RowExponents& exponents);

/// Solves with the factors of lu_decompose; b becomes x.
void lu_substitute(std::size_t n, double* const* a, const int* exchanges, double* b);

}  // namespace trajex
