// Floquet multipliers of a periodic orbit. One of them is trivial (it equals 1) when the system is
// autonomous, and takes no part in the stability.
#pragma once

#include <cstddef>

#include "bifurcation/criteria.hpp"
#include "core/handle.hpp"
#include "tx.h"

namespace trajex {

/// How many multipliers are trivial: where the eigenvalues are kept, they are the last ones.
inline constexpr std::size_t forced_orbit = 0;
inline constexpr std::size_t autonomous_orbit = 1;

/// Eigenvalues of the monodromy matrix M, which is destroyed, with the `trivial` one moved last.
/// Returns 1, or 0 when they were not all found: er and ei are then of no use, the code is in the
/// handle.
inline int find_multipliers(Trajex& tx, double** M, double* er, double* ei, std::size_t trivial) {
    const int found = TXEigen(&tx, tx.order, M, er, ei);
    if (trivial > 0) move_trivial_last(er, ei, order_of(tx));
    return found;
}

/// The critical one of the multipliers that are not trivial.
inline Critical critical_multiplier_of(const Trajex& tx, const double* er, const double* ei,
                                       std::size_t trivial) {
    return critical_multiplier(er, ei, order_of(tx) - trivial);
}

/// How many of the multipliers that are not trivial are inside the unit circle.
inline int stable_multipliers_of(const Trajex& tx, const double* er, const double* ei,
                                 std::size_t trivial) {
    return stable_multipliers(er, ei, order_of(tx) - trivial);
}

}  // namespace trajex
