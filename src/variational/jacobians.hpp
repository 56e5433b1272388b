// The choice between an application's analytic Jacobians and numerical differences.
#pragma once

#include <cstddef>

#include "core/handle.hpp"
#include "tx.h"

namespace trajex {

/// Forward differences from f = f(t, y): n evaluations, or one for every parameter of the handle.
void difference_state(Trajex& tx, double t, double* y, const double* f, double** J);
void difference_parameters(Trajex& tx, double t, double* y, const double* f, double** P);

/// J[i][k] = df_i/dy_k at (t, y). Differences start from f = f(t, y), which is evaluated where it
/// is not given.
inline void state_jacobian(Trajex& tx, double t, double* y, double** J, const double* f = nullptr) {
    if (tx.jac != nullptr) {
        tx.jac(t, y, J);
    } else if (f != nullptr) {
        difference_state(tx, t, y, f, J);
    } else {
        TXNumJac(&tx, t, y, J);
    }
}

/// P[i][q] = df_i/dc_q at (t, y), for every parameter of the handle.
inline void parameter_jacobian(Trajex& tx, double t, double* y, double** P,
                               const double* f = nullptr) {
    if (tx.paramjac != nullptr) {
        tx.paramjac(t, y, P);
    } else if (f != nullptr) {
        difference_parameters(tx, t, y, f, P);
    } else {
        TXNumParamJac(&tx, t, y, P);
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
