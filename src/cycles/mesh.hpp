// Where the intervals of a cycle are placed, and how many there are. The derivative of order m + 1,
// which the polynomials do not have, is taken from the jumps of their m-th derivatives; intervals
// are made such that the error it stands for is the same on each. References: de Boor, Lecture
// Notes in Mathematics 363 (1973) 12; Russell and Christiansen, SIAM J. Numer. Anal. 15 (1978) 59.
#pragma once

#include <cstddef>
#include <vector>

#include "branches/orbit.hpp"

namespace trajex {

struct MeshMonitor {
    std::vector<double> density;  ///< of intervals: its integral over each one is to be the same
    double error = 0;             ///< largest error of the solution, relative to the scales
};

/// x: the points of a closed chain (N m of n components, point N m is point 0), x / scale counts.
void monitor_mesh(const std::vector<double>& mesh, std::size_t n, std::size_t m, const double* x,
                  const double* scale, MeshMonitor& out);

double integral(const std::vector<double>& mesh, const std::vector<double>& density);
/// The number of intervals of equal shares of the monitor for which the error is `tolerance`, and
/// the error with a given number of them.
double intervals_for(double total, double tolerance, std::size_t m);
double balanced_error(double total, double intervals, std::size_t m);

/// A mesh of intervals with equal integrals of the density.
std::vector<double> equidistributed(const std::vector<double>& mesh,
                                    const std::vector<double>& density, std::size_t intervals);

/// Points of a periodic piecewise polynomial, at the places of those of another mesh.
std::vector<double> transfer_points(const std::vector<double>& from, const std::vector<double>& to,
                                    std::size_t n, std::size_t m, const double* x);

/// The same polynomials with every interval halved.
Orbit halved(const Orbit& orbit);

std::vector<double> uniform_mesh(std::size_t intervals);

}  // namespace trajex
