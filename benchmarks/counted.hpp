// Evaluations that operations ask for, counted.
#pragma once

namespace benchmarks {

/// Evaluations per crossing of Roessler with y = 0, beyond those of the steps.
double evaluations_per_crossing(int crossings, double tolerance);

/// Evaluations per point of a branch.
double evaluations_per_equilibrium(int points);
double evaluations_per_autonomous_orbit(int points);
double evaluations_per_forced_orbit(int points);

}  // namespace benchmarks
