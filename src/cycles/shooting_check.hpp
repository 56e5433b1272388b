// A special cycle computed once more by integration, with which collocation shares nothing but the
// equations.
#pragma once

#include "branches/problem.hpp"
#include "cycles/cycle_problem.hpp"

namespace trajex {

/// Adds the coefficient "shooting error": by how much the cycle (in scaled variables) and its
/// critical multiplier (in its logarithm) differ. More than the discretisation explains makes the
/// finding unresolved; where integration does not succeed, the reason says so.
void check_by_shooting(const CycleProblem& problem, Finding& finding);

}  // namespace trajex
