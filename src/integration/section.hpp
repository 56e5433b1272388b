// Poincare sections: the cut value, the location of a crossing by bisection on dense output, and
// the step that looks for one. Plain and variational steps share all of it.
#pragma once

#include <cmath>

#include "core/errors.hpp"
#include "integration/dense_output.hpp"
#include "tx.h"

namespace trajex {

/// The cut function of the handle, or its hyperplane where there is none.
inline double cut_value(Trajex& tx, double t, double* y) {
    return tx.cut != nullptr ? tx.cut(t, y) : TXAutoCut(&tx, t, y);
}

/// Bisection for the time in [t1, t2] at which sign * cut = -CutEps/2, just beyond the section.
/// `cut_at(t)` moves the state to time t and returns the cut value there. Returns whether the value
/// was met within CutEps/2; *t and the state are at the last time tried. It ends at
/// MaxPoincareSteps (0: no limit), or when no number is left between the ends: then the later one
/// is the last to be tried. A cut value that is not a number, or that jumps, ends that way.
template <class CutAt>
bool bisect_crossing(const Trajex& tx, double t1, double t2, double sign, double* t,
                     CutAt&& cut_at) {
    const double half_width = tx.CutEps * 0.5;
    for (int it = 0; tx.MaxPoincareSteps == 0 || it == 0 || it < tx.MaxPoincareSteps; ++it) {
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

/// One step of the flow from *t. Returns 1 when it crossed the section and the crossing was
/// located; the time and state are then there, just beyond the section, so that the next step
/// starts on the other side.
template <class Flow>
int poincare_step(Flow& flow, double* t, const char* where) {
    Trajex& tx = flow.tx;
    const double before = cut_value(tx, *t, flow.y);
    const double sign = before < 0 ? -1 : 1;
    const double t1 = *t;
    if (flow.step(t) != 1) return 0;
    const double t2 = *t;
    if (std::isnan(before) || !(sign * cut_value(tx, t2, flow.y) < 0)) return 0;
    DenseStep<Flow> dense(flow);
    const bool located = bisect_crossing(tx, t1, t2, sign, t, [&](double middle) {
        dense.at(middle);
        return cut_value(tx, middle, flow.y);
    });
    return located ? 1 : report(&tx, Error::section_not_bracketed, where);
}

/// Moves a point on or near the section to the nearby one just beyond it in the direction of
/// motion, by secant steps in time along the trajectory. Returns whether it got there; records
/// nothing.
bool move_to_section(Trajex& tx, double* t, double* y);

}  // namespace trajex
