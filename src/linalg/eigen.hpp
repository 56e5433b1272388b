// Eigenvalues of a real dense matrix: balancing, reduction to upper Hessenberg form, shifted QR.
#pragma once

#include <cstddef>

namespace trajex {

/// Similarity scaling by powers of two that brings row and column norms together.
void balance(double** a, std::size_t n);

/// Reduction to upper Hessenberg form by stabilised elimination.
void reduce_to_hessenberg(double** a, std::size_t n);

/// Iterations for one eigenvalue (or pair). Every tenth takes another shift than the rest. About
/// one ordinary matrix in a hundred thousand needs more than the published limit: the trailing
/// block may take long to settle where no eigenvalue is near its own, and the shifts wander until
/// then.
inline constexpr int published_limit = 30;
inline constexpr int patient_limit = 300;

/// Double-shift QR iteration on an upper Hessenberg matrix. Returns false when an eigenvalue is not
/// found within the limit; those found so far are then at the higher places. They are given times
/// 2^exponent.
bool hessenberg_eigenvalues(double** a, std::size_t n, double* re, double* im, int exponent = 0,
                            int limit = published_limit);

/// The three one after the other, on a matrix brought into the middle of the exponent range.
/// Returns what the last of them does.
bool matrix_eigenvalues(double** a, std::size_t n, double* re, double* im,
                        int limit = published_limit);

}  // namespace trajex
