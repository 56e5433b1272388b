// The choice between an application's analytic Jacobians and numerical differences.
#pragma once

#include <cstddef>

#include "core/handle.hpp"
#include "tx.h"

namespace trajex {

/// Forward differences from f = f(t, y): n evaluations, or one for every parameter of the handle.
void difference_state(Trajex& tx, double t, double* y, const double* f, double** J);
void difference_parameters(Trajex& tx, double t, double* y, const double* f, double** P);

/// J[i][k] = df_i/dy_k at (t, y).
inline void state_jacobian(Trajex& tx, double t, double* y, double** J) {
    if (tx.jac != nullptr) {
        tx.jac(t, y, J);
    } else {
        TXNumJac(&tx, t, y, J);
    }
}

/// P[i][q] = df_i/dc_q at (t, y), for every parameter of the handle.
inline void parameter_jacobian(Trajex& tx, double t, double* y, double** P) {
    if (tx.paramjac != nullptr) {
        tx.paramjac(t, y, P);
    } else {
        TXNumParamJac(&tx, t, y, P);
    }
}

/// The same two where f = f(t, y) is known already.
inline void state_jacobian(Trajex& tx, double t, double* y, const double* f, double** J) {
    if (tx.jac != nullptr) {
        tx.jac(t, y, J);
    } else {
        difference_state(tx, t, y, f, J);
    }
}
inline void parameter_jacobian(Trajex& tx, double t, double* y, const double* f, double** P) {
    if (tx.paramjac != nullptr) {
        tx.paramjac(t, y, P);
    } else {
        difference_parameters(tx, t, y, f, P);
    }
}

/// A = [J | df/dc for each of the `count` parameters with the given indices]; P (n rows of nparam)
/// is scratch.
inline void linearise_flow(Trajex& tx, double t, double* y, const int* parameters,
                           std::size_t count, double** P, double** A) {
    const std::size_t n = order_of(tx);
    state_jacobian(tx, t, y, A);
    parameter_jacobian(tx, t, y, P);
    for (std::size_t i = 0; i < n; ++i) {
        for (std::size_t q = 0; q < count; ++q) A[i][n + q] = P[i][parameters[q]];
    }
}

}  // namespace trajex
