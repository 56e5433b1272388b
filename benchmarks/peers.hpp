// What each peer does in the comparison. The sources of a peer are built where it is installed; the
// definitions that the build makes say which are.
#pragma once

#include <cstddef>
#include <vector>

#include "systems.hpp"

namespace benchmarks {

/// The state at the end of the problem.
std::vector<double> odeint_solve(const Problem&, double tolerance);
std::vector<double> gsl_solve(const Problem&, double tolerance);

/// State and fundamental matrix of the coupled units, in the layout of the extended problem.
std::vector<double> cvodes_variational(const Problem& extended, double tolerance);

/// Integrates with the library's tableau and steps of at most 0.05; returns the step attempts made.
long arkode_attempts(const Problem&, double tolerance);

/// 1001 equidistant states of Lorenz.
std::vector<double> odeint_samples(const Problem&, double tolerance);
/// The three exponents of Lorenz, by nearby trajectories.
void exponents_with_odeint(double interval, int intervals, double tolerance, double* exponents);
/// Their sum, by Lorenz and its linearised equations along three directions, twelve in all.
std::vector<double> odeint_divergence(const Problem&, double tolerance);

/// Dense linear algebra, of matrices in row order.
void eigen_solve(const std::vector<double>& A, std::vector<double>& b);
void eigen_values(const std::vector<double>& A, std::size_t n);
void lapack_solve(const std::vector<double>& A, std::vector<double>& b);
void lapack_values(const std::vector<double>& A, std::size_t n);

}  // namespace benchmarks
