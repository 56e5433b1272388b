// What cycles need beside their equations: comparison of orbits free of phase, the Hopf point that
// a family ends at, Newton's method at fixed parameters.
#pragma once

#include <cstddef>
#include <vector>

#include "branches/orbit.hpp"
#include "branches/problem.hpp"
#include "cycles/rate.hpp"
#include "model/equations.hpp"

namespace trajex {

/// Root mean square distance of two closed orbits at their best shift in time (any shift for
/// autonomous systems, whole periods of the forcing for forced ones).
double orbit_distance(const Orbit& a, const Orbit& b, const std::vector<double>& scale,
                      const Timing& timing);

struct HopfPoint {
    std::vector<double> state;
    std::vector<double> parameters;
    double omega = 0;
};
/// Improves a guess in the state, one parameter and omega. False: not found near it.
bool solve_hopf(const Equations& equations, double t, std::size_t parameter, double width,
                HopfPoint& point);

/// Newton's method in all unknowns but the parameters.
bool correct_at_fixed_parameters(Problem& problem, std::vector<double>& z, double tolerance);

}  // namespace trajex
