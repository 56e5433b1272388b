// Cycles that a reflection of some variables maps to themselves half a period later, x(tau + 1/2) =
// S x(tau), S = diag(+-1). Reference: Swift and Wiesenfeld, Phys. Rev. Lett. 52 (1984) 705.
#pragma once

#include <cstddef>
#include <span>
#include <utility>
#include <vector>

#include "branches/orbit.hpp"
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

/// The signs of a reflection, not the identity, that the right-hand side has around the orbit;
/// empty: there is none.
std::vector<int> reflection_of_equations(const Rate& rate, const Orbit& orbit,
                                         const std::vector<double>& scale);

/// States of the cycle at times of which each has one half a period later.
std::vector<double> symmetry_samples(const Orbit& cycle);

/// How far the cycles of a family are from S x(tau) = x(tau + 1/2): families that have left the
/// cycles with this symmetry (of half the period, where S is the identity) in a period doubling or
/// pitchfork end where they come back to them.
class BrokenSymmetry {
  public:
    void begin(std::vector<int> signs) { signs_ = std::move(signs); }
    bool begun() const { return !signs_.empty(); }
    /// points: samples of the cycle, as above.
    void remember(const std::vector<double>& points, const std::vector<double>& scale);
    /// Whether the next steps would pass through a symmetric cycle.
    bool returns(double amplitude) const;

  private:
    std::vector<int> signs_;
    std::vector<double> misfit_;    // x(tau + 1/2) - S x(tau) of the last cycle
    double size_ = 0, before_ = 0;  // its size, at the last cycle and at the one before
    double largest_ = 0;
    bool turned_over_ = false;  // it has changed its sign in between
};

/// S x(tau + 1/2), on the same mesh.
Orbit mirror_image(const Orbit& orbit, const std::vector<int>& signs);

}  // namespace trajex
