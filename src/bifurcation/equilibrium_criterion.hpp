// The criterion of equilibria at any point: the real part of the critical eigenvalue there.
#pragma once

#include <limits>

#include "bifurcation/criteria.hpp"
#include "core/handle.hpp"
#include "variational/jacobians.hpp"

namespace trajex {

/// The same of the Jacobian J, which is destroyed.
inline double critical_real_part_of(Trajex& tx, double** J, double* er, double* ei) {
    if (TXEigen(&tx, tx.order, J, er, ei) != 1) return std::numeric_limits<double>::quiet_NaN();
    return critical_eigenvalue(er, order_of(tx)).value;
}

/// Eigenvalues of the Jacobian at (t, y) go to er and ei; J (n x n) is scratch. Not a number where
/// they are not all found.
inline double critical_real_part(Trajex& tx, double t, double* y, double** J, double* er,
                                 double* ei) {
    state_jacobian(tx, t, y, J);
    return critical_real_part_of(tx, J, er, ei);
}

}  // namespace trajex
