// What a step works on: the vectors and settings of whoever integrates. A handle attaches its
// public work vectors; any other owner brings its own.
#pragma once

#include <cstddef>

namespace trajex {

/// Vectors of n components each; k holds the rows of the method one after the other.
struct StepWork {
    double* k = nullptr;         // evaluations: the stages, then those of dense output
    double* first = nullptr;     // the state at the start of the step
    double* last = nullptr;      // the accepted state, once the step is described
    double* y0 = nullptr;        // the first state as the stages use it
    double* argument = nullptr;  // where the right-hand side is evaluated; result of dense output
    double* lower = nullptr;     // the solution that the error is estimated with
    double* upper = nullptr;     // the solution that is propagated
    double* middle = nullptr;    // the state in the middle of the step
    double* error = nullptr;     // the estimate

    double abs_tol = 0;
    double rel_tol = 0;
    double hmax = 0;     // 0: none
    double t_first = 0;  // the ends of the last accepted step
    double t_last = 0;
    unsigned zero_estimates = 0;  // the last attempts in a row whose estimate was exactly 0
};

}  // namespace trajex
