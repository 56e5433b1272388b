// Cycles that a reflection of some variables maps to themselves half a period later, x(tau + 1/2) =
// S x(tau), S = diag(+-1). Reference: Swift and Wiesenfeld, Phys. Rev. Lett. 52 (1984) 705.
#pragma once

#include <cstddef>
#include <span>
#include <vector>

#include "cycles/orbit.hpp"
#include "cycles/rate.hpp"

namespace trajex {

/// The signs of S; empty: the cycle, or the right-hand side around it, does not have the symmetry.
/// `tolerance` is relative to the scales.
std::vector<int> half_period_symmetry(const Rate& rate, const Orbit& orbit,
                                      const std::vector<double>& scale, double tolerance);

/// nu of v(tau + 1/2) = nu S v(tau) for a solution v of the linearised equations, given at the
/// nodes of the orbit without the last: a multiplier of the half map, +1 or -1 where v is periodic.
/// In between: v has no such symmetry.
double half_period_multiplier(const Orbit& orbit, std::span<const double> v,
                              const std::vector<double>& scale, const std::vector<int>& signs);

/// S x(tau + 1/2), on the same mesh.
Orbit mirror_image(const Orbit& orbit, const std::vector<int>& signs);

}  // namespace trajex
