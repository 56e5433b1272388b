// The criterion of equilibria at any point: the real part of the critical eigenvalue there.
#pragma once

#include "bifurcation/criteria.hpp"
#include "core/handle.hpp"
#include "variational/jacobians.hpp"

namespace trajex {

/// Eigenvalues of the Jacobian at (t, y) go to er and ei; J (n x n) is scratch.
inline double critical_real_part(Trajex& tx, double t, double* y, double** J, double* er,
                                 double* ei) {
    state_jacobian(tx, t, y, J);
    TXEigen(&tx, tx.order, J, er, ei);  // one that fails leaves its code; the search then fails
    return critical_eigenvalue(er, order_of(tx)).value;
}

}  // namespace trajex
