// LU decomposition with partial pivoting by implicit scaling, and substitution.
#pragma once

#include <cstddef>

namespace trajex {

/// Decomposes the n x n matrix in place, exchanging the elements of rows (never the row pointers).
/// `exchanges` receives n row indices, `parity` +1 or -1; `scale` is scratch of n doubles.
/// Returns false, with the matrix unchanged, when a row is entirely zero.
bool lu_decompose(std::size_t n, double** a, int* exchanges, double& parity, double* scale);

/// Solves with the factors of lu_decompose; b becomes x.
void lu_substitute(std::size_t n, double* const* a, const int* exchanges, double* b);

}  // namespace trajex
