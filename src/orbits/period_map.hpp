// One period of a periodic orbit: the image of its start point, the monodromy matrix, and the
// derivatives with respect to the active parameters.
#pragma once

#include <algorithm>
#include <cstddef>

#include "core/handle.hpp"
#include "integration/stepper.hpp"
#include "linalg/matrix.hpp"
#include "tx.h"
#include "variational/extended.hpp"

namespace trajex {

/// Whether T can be a period from time t on. An integration over a T that does not move the time
/// leaves every point where it is, which must not pass for an orbit that closes.
inline bool possible_period(double t, double T) {
    return advances(t, T);
}

/// M - I in the leading n x n block, for the derivative of (image - start) by the start point.
inline void subtract_identity(double** matrix, std::size_t n) {
    for (std::size_t i = 0; i < n; ++i) matrix[i][i] -= 1;
}

/// Integrates from y over T: `image` receives the end state, the n rows of `Phi` receive
/// [M | de/dc], a column for each active parameter of the handle. *t moves on by T. An integration
/// that fails returns 0 with its code recorded; `image` is then still y.
inline int integrate_period(Trajex& tx, double* t, double T, const double* y, double* image,
                            double** Phi) {
    const std::size_t n = order_of(tx);
    std::copy_n(y, n, image);
    set_identity(Phi, n, n + active_parameters(tx));
    return TXVarIntegrate(&tx, t, *t + T, image, Phi);
}

}  // namespace trajex
