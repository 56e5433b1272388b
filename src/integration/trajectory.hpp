// A step, an integration to a given time, and dense output, for any flow. A flow is a system that
// is stepped on the work vectors of a record:
//
//   Trajex& tx;                      the handle, on which failures are reported
//   Trajex& record();                the record that is stepped
//   std::size_t size();              number of components
//   void operator()(t, Y, F);        right-hand side
//   void load(double* Y);            the caller's state into one vector, and back
//   void store(const double* Y);
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
    void load(double* state) const { std::copy_n(y, size(), state); }
    void store(const double* state) const { std::copy_n(state, size(), y); }
    int step(double* t) const { return TXStep(&tx, t, y); }
    int interpolate(double t) const { return TXInterpolate(&tx, t, y); }
    int section_step(double* t) const { return TXPoincareStep(&tx, t, y); }
};

/// One accepted step from *t0. On failure the caller's time and state and the proposed step size
/// stay as they were.
template <class Flow>
int take_step(Flow& flow, double* t0, const char* where) {
    Trajex& rec = flow.record();
    const std::size_t n = flow.size();
    const double t = *t0;
    double h = first_step_size(rec);
    flow.load(rec.yfirst);
    rec.tfirst = t;
    if (!accepted_step(rec, n, t, h, flow)) return report(&flow.tx, Error::minimum_step, where);
    std::copy_n(rec.y6, n, rec.ylast);
    flow.store(rec.ylast);
    rec.h = h;
    *t0 = rec.tlast;
    rec.StepTaken = 1;
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
    const std::size_t n = flow.size();
    double h = first_step_size(rec);
    flow.load(rec.y6);
    while (t < t1) {
        rec.tfirst = t;
        std::copy_n(rec.y6, n, rec.yfirst);
        if (!accepted_step(rec, n, t, h, flow)) return report(&flow.tx, Error::minimum_step, where);
        t = rec.tlast;
    }
    rec.StepTaken = 1;
    rec.h = h;
    std::copy_n(rec.y6, n, rec.ylast);
    if (t > t1) {
        if (flow.interpolate(t1) != 1) return 0;
    } else {
        flow.store(rec.ylast);
    }
    *t0 = t1;
    return 1;
}

/// Dense output at time t of the last step.
template <class Flow>
int interpolate_at(Flow& flow, double t, const char* where) {
    if (flow.record().StepTaken == 0) {
        return report(&flow.record(), Error::no_step_taken, where);
    }
    DenseStep<Flow>(flow).at(t);
    return 1;
}

}  // namespace trajex
