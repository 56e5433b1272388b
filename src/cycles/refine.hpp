// Special points of cycles on a finer mesh: where they really are, and how far off they were.
#pragma once

#include <memory>
#include <vector>

#include "branches/problem.hpp"
#include "cycles/cycle_problem.hpp"

namespace trajex {

struct RefinedPoint {
    bool found = false;
    double period = 0;
    double parameter = 0;
    Spectrum spectrum;
    std::vector<double> z, tangent;  ///< with the finer mesh
    bool by_slope = false;  ///< a zero of dp/ds, not of the critical multiplier's logarithm
    double slope = 0;       ///< of that function by s
    double work = 0;        ///< unknowns of the linear systems solved
};

/// The event of `finding` (LPC, BPC, PD or NS) on the branch of `fine`, a problem for the same
/// cycles with another mesh. `tangent` is that of the branch at `z`, both with the mesh of `fine`.
/// `coarser`: what was found on the mesh before, if anything.
RefinedPoint refine_event(CycleProblem& fine, const std::vector<double>& z,
                          const std::vector<double>& tangent, const Finding& finding,
                          const RefinedPoint& coarser);

}  // namespace trajex
