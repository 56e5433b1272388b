// Stability criteria: which eigenvalue or Floquet multiplier is about to change the stability, and
// by how much. Candidates are visited in order and only a strictly better one replaces the best so
// far, so that of equal ones the first is taken, and nothing is ever replaced by a NaN.
#pragma once

#include <cmath>
#include <cstddef>
#include <utility>

namespace trajex {

/// A criterion and the place of the eigenvalue it was taken from.
struct Critical {
    std::size_t index = 0;
    double value = 0;
};

/// Two critical eigenvalues; `first` has the greater real part (imaginary part on a tie).
struct CriticalPair {
    std::size_t first = 0;
    std::size_t second = 0;
    double value = 0;
};

inline double modulus(const double* er, const double* ei, std::size_t i) {
    return std::sqrt(er[i] * er[i] + ei[i] * ei[i]);
}

/// Swaps the multiplier nearest to +1, the trivial one of an autonomous orbit, into the last place.
void move_trivial_last(double* er, double* ei, std::size_t n);

/// The multiplier, among the first `count` (at least one is looked at), whose modulus is nearest to
/// 1; the value is that modulus.
Critical critical_multiplier(const double* er, const double* ei, std::size_t count);

/// The eigenvalue with the real part nearest to 0; the value is that real part with its sign.
Critical critical_eigenvalue(const double* er, std::size_t n);

/// Distance of multiplier i from the nearer of +1 and -1.
double distance_from_units(const double* er, const double* ei, std::size_t i);

/// The two multipliers nearest to +1 or -1; the value is the larger of their distances.
CriticalPair critical_multipliers(const double* er, const double* ei, std::size_t n);

/// The two smallest real parts; the value is the second smallest.
CriticalPair smallest_real_parts(const double* er, const double* ei, std::size_t n);

/// Number of multipliers, among the first `count`, inside the unit circle.
int stable_multipliers(const double* er, const double* ei, std::size_t count);

/// Number of eigenvalues with negative real part.
int stable_eigenvalues(const double* er, std::size_t n);

}  // namespace trajex
