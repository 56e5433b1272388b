// The library's part in the comparison.
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "systems.hpp"
#include "tx.h"

namespace benchmarks {

struct CloseHandle {
    void operator()(Trajex* tx) const { TXCloseTrajex(tx); }
};
using Handle = std::unique_ptr<Trajex, CloseHandle>;

/// A handle with both tolerances alike.
inline Handle open_handle(RightHandSide f, std::size_t n, double tolerance, double h = 1e-3) {
    Handle tx(TXOpenTrajex(f, static_cast<int>(n), tolerance, h));
    TXSetAbsTol(tx.get(), tolerance);
    return tx;
}

inline Handle open_variational(std::size_t n, double tolerance) {
    Handle tx = open_handle(coupled, n, tolerance);
    TXVarOpenTrajex(tx.get(), coupled_jacobian, 0);
    return tx;
}

inline std::vector<double> own_solve(const Problem& problem, double tolerance) {
    std::vector<double> y = problem.start;
    const Handle tx = open_handle(problem.f, y.size(), tolerance);
    double t = 0;
    TXIntegrate(tx.get(), &t, problem.end, y.data());
    return y;
}

/// Row pointers into an extended vector [y | Phi].
inline std::vector<double*> rows_of_Phi(std::vector<double>& Y, std::size_t n) {
    std::vector<double*> rows;
    for (std::size_t i = 0; i < n; ++i) rows.push_back(&Y[n + i * n]);
    return rows;
}

inline std::vector<double> own_variational(const Problem& extended, double tolerance) {
    std::vector<double> Y = extended.start;
    std::vector<double*> Phi = rows_of_Phi(Y, components);
    const Handle tx = open_variational(components, tolerance);
    double t = 0;
    TXVarIntegrate(tx.get(), &t, extended.end, Y.data(), Phi.data());
    return Y;
}

/// y and Phi = I of the coupled units as one system, for integrators that know of no derivatives.
inline void extended_coupled(double t, double* Y, double* F) {
    static std::vector<double> J;
    static std::vector<double*> rows;
    const std::size_t n = components;
    J.resize(n * n);
    rows.resize(n);
    for (std::size_t i = 0; i < n; ++i) rows[i] = &J[i * n];
    coupled(t, Y, F);
    coupled_jacobian(t, Y, rows.data());
    for (std::size_t i = 0; i < n; ++i) {
        double* const row = F + n + i * n;
        for (std::size_t k = 0; k < n; ++k) row[k] = 0;
        for (std::size_t l = 0; l < n; ++l) {
            for (std::size_t k = 0; k < n; ++k) row[k] += rows[i][l] * Y[n + l * n + k];
        }
    }
}

inline Problem extended_problem(std::size_t n, double end) {
    std::vector<double> Y = waves(n);
    Y.resize(n * (n + 1));
    for (std::size_t i = 0; i < n; ++i) Y[n + i * n + i] = 1;
    return {"variational, n = " + std::to_string(n), extended_coupled, Y, end};
}

}  // namespace benchmarks
