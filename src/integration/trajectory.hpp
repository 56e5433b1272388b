// A step, an integration to a given time, and dense output, for any flow. A flow is a system that
// is stepped on the work vectors of a record:
//
//   Trajex& tx;                      the handle, on which failures are reported
//   Trajex& record();                the record that is stepped
//   std::size_t size();              number of components
//   void operator()(t, Y, F);        right-hand side
//   const double* state(double* Y);  the caller's state as one vector, in Y if it is not one
//   void store(const double* Y);     and back
//   int step(double* t);             the public operations on the caller's state
//   int interpolate(double t);
//   int section_step(double* t);
//   typename Sums                    order of the sums of dense output
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "core/errors.hpp"
#include "core/handle.hpp"
#include "integration/dense_output.hpp"
#include "integration/stepper.hpp"

namespace trajex {

/// The system itself: the record that is stepped is the handle.
struct StateFlow {
    using Sums = StateSums;

    Trajex& tx;
    double* y;

    Trajex& record() const { return tx; }
    std::size_t size() const { return order_of(tx); }
    void operator()(double t, double* state, double* f) const { tx.fcn(t, state, f); }
    const double* state(double*) const { return y; }
    void store(const double* state) const { passes::copy_state(size(), state, y); }
    int step(double* t) const { return TXStep(&tx, t, y); }
    int interpolate(double t) const { return TXInterpolate(&tx, t, y); }
    int section_step(double* t) const { return TXPoincareStep(&tx, t, y); }
};

/// One accepted step from the state `start` at t; the first attempt is of size h.
template <class Flow>
StepOutcome accepted_step(const Flow& flow, const double* start, double t, double h) {
    return dispatch_sized<RepeatAttempts>(flow.size(), &flow.record(), start, t, h, &flow);
}

/// Completes the description of the step that was accepted: dense output may use it from now on.
template <class Flow>
void describe_step(const Flow& flow) {
    Trajex& rec = flow.record();
    passes::copy_state(flow.size(), rec.y6, rec.ylast);
    private_part(rec).step_components = flow.size();
    rec.StepTaken = 1;
}

/// One accepted step from *t0. On failure the caller's time and state and the proposed step size
/// stay as they were.
template <class Flow>
int take_step(Flow& flow, double* t0, const char* where) {
    Trajex& rec = flow.record();
    const StepOutcome step = accepted_step(flow, flow.state(rec.yfirst), *t0, first_step_size(rec));
    if (!step.accepted) return report(&flow.tx, Error::minimum_step, where);
    flow.store(rec.y6);
    rec.h = step.next_h;
    *t0 = rec.tlast;
    describe_step(flow);
    return 1;
}

/// Integration from *t0 to t1. The last step is not shortened: it may end beyond t1, and the state
/// at t1 is its dense output.
template <class Flow>
int integrate_to(Flow& flow, double* t0, double t1, const char* where) {
    Trajex& rec = flow.record();
    double t = *t0;
    if (t == t1) return 1;
    if (!(t1 > t) || std::isinf(t1)) return report(&flow.tx, Error::negative_time_step, where);
    const double* start = flow.state(rec.y6);
    double h = first_step_size(rec);
    while (t < t1) {
        const StepOutcome step = accepted_step(flow, start, t, h);
        if (!step.accepted) return report(&flow.tx, Error::minimum_step, where);
        t = rec.tlast;
        h = step.next_h;
        start = rec.y6;
    }
    describe_step(flow);
    rec.h = h;
    if (t > t1) {
        if (flow.interpolate(t1) != 1) return 0;
    } else {
        flow.store(rec.ylast);
    }
    *t0 = t1;
    return 1;
}

/// Dense output at time t of the last step, which has to be one of the same system.
template <class Flow>
int interpolate_at(Flow& flow, double t, const char* where) {
    Trajex& rec = flow.record();
    if (rec.StepTaken == 0 || private_part(rec).step_components != flow.size()) {
        return report(&rec, Error::no_step_taken, where);
    }
    DenseStep<Flow>(flow).at(t);
    return 1;
}

}  // namespace trajex
