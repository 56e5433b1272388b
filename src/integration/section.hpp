// Poincare sections: the cut value, the location of a crossing by bisection on dense output, and
// the step that looks for one. Plain and variational steps share all of it.
#pragma once

#include <cmath>
#include <limits>

#include "core/errors.hpp"
#include "integration/crossing.hpp"
#include "integration/trajectory.hpp"
#include "tx.h"

namespace trajex {

/// The cut function of the handle, or its hyperplane where there is none.
inline double cut_value(Trajex& tx, double t, double* y) {
    return tx.cut != nullptr ? tx.cut(t, y) : TXAutoCut(&tx, t, y);
}

/// The bisection within the limits of the handle.
template <class CutAt>
bool bisect_crossing(const Trajex& tx, double t1, double t2, double sign, double* t,
                     CutAt&& cut_at) {
    return bisect_crossing(CrossingLimits{tx.CutEps, tx.MaxPoincareSteps}, t1, t2, sign, t, cut_at);
}

/// The cut value at times of a flow's last step, whose state goes along. Where dense output fails
/// it is not a number, and the state stays where it was.
template <Flow F>
class CutOnStep {
  public:
    /// The caller's state is at time t.
    CutOnStep(const F& flow, double t) : flow_(flow), dense_(flow), reached_(t) {}

    double operator()(double t) {
        if (!dense_.at(t)) {
            failed_ = true;
            return std::numeric_limits<double>::quiet_NaN();
        }
        reached_ = t;
        return cut_value(flow_.tx, t, flow_.y);
    }

    /// Whether dense output failed, and the time that the state is at.
    bool failed() const { return failed_; }
    double reached() const { return reached_; }

  private:
    const F& flow_;
    DenseStep<F> dense_;
    double reached_;
    bool failed_ = false;
};

/// One step of the flow from *t. Returns 1 when it crossed the section and the crossing was
/// located; the time and state are then there, just beyond the section, so that the next step
/// starts on the other side.
template <Flow F>
int poincare_step(F& flow, double* t, const char* where) {
    Trajex& tx = flow.tx;
    const double before = cut_value(tx, *t, flow.y);
    const double sign = before < 0 ? -1 : 1;
    const double t1 = *t;
    if (flow.step(t) != 1) return 0;
    const double t2 = *t;
    if (std::isnan(before) || !(sign * cut_value(tx, t2, flow.y) < 0)) return 0;
    CutOnStep<F> cut(flow, t2);
    if (bisect_crossing(tx, t1, t2, sign, t, cut)) return 1;
    if (!cut.failed()) return report(&tx, Error::section_not_bracketed, where);
    *t = cut.reached();
    return report(&tx, Error::minimum_step, where);
}

/// Moves a point on or near the section to the nearby one just beyond it in the direction of
/// motion, by secant steps in time along the trajectory. Returns whether it got there; records
/// nothing.
bool move_to_section(Trajex& tx, double* t, double* y);

}  // namespace trajex
