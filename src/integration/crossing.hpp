// The location of a crossing by bisection, for whoever can move a state in time.
#pragma once

#include <cmath>

namespace trajex {

/// When a crossing is located, and when it is given up.
struct CrossingLimits {
    double width;  ///< of the strip beyond the section that the crossing is to lie in
    int steps;     ///< bisections; 0: no limit
};

/// Bisection for the time in [t1, t2] at which sign * cut = -width/2, just beyond the section.
/// `cut_at(t)` moves the state to time t and returns the cut value there. Returns whether the value
/// was met within width/2; *t and the state are at the last time tried. It ends at the limit, or
/// when no number is left between the ends: then the later one is the last to be tried. A cut value
/// that is not a number, or that jumps, ends that way.
template <class CutAt>
bool bisect_crossing(const CrossingLimits& limits, double t1, double t2, double sign, double* t,
                     CutAt&& cut_at) {
    const double half_width = limits.width * 0.5;
    for (int it = 0; limits.steps == 0 || it == 0 || it < limits.steps; ++it) {
        const double middle = (t1 + t2) * 0.5;
        const bool divisible = t1 < middle && middle < t2;
        *t = divisible ? middle : t2;
        const double f = sign * cut_at(*t) + half_width;
        if (std::fabs(f) < half_width) return true;
        if (!divisible) return false;
        (f < 0 ? t2 : t1) = middle;
    }
    return false;
}

}  // namespace trajex
