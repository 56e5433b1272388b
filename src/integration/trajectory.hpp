// A step, an integration to a given time, and dense output, for any flow.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "core/errors.hpp"
#include "core/handle.hpp"
#include "integration/dense_output.hpp"
#include "integration/flow.hpp"
#include "integration/stepper.hpp"

namespace trajex {

/// The system itself: the record that is stepped is the handle.
struct StateFlow {
    using Method = RecordMethod;
    using Sums = StateSums;

    Trajex& tx;
    double* y;

    Trajex& record() const { return tx; }
    std::size_t size() const { return order_of(tx); }
    const auto& right_hand_side() const { return tx.fcn; }
    const double* state(double*) const { return y; }
    void store(const double* state) const { passes::copy_state(size(), state, y); }
    int step(double* t) const { return TXStep(&tx, t, y); }
    int interpolate(double t) const { return TXInterpolate(&tx, t, y); }
    int section_step(double* t) const { return TXPoincareStep(&tx, t, y); }
};

static_assert(Flow<StateFlow>);

/// The step size to try first.
inline double first_step_size(const Trajex& rec) {
    return limited_step_size(rec.h, rec.hmax);
}

/// One accepted step from the state `start` at t; the first attempt is of size h. Until its caller
/// has completed the description of the step, the record says that no step was taken: a callback
/// may throw, and rows of two steps must not be mixed.
template <Flow F>
[[gnu::always_inline]] inline StepOutcome accepted_step(const F& flow, const double* start,
                                                        double t, double h) {
    Trajex& rec = flow.record();
    StepWork& work = private_part(rec).step_work;
    rec.StepTaken = 0;
    rec.tfirst = t;
    work.abs_tol = rec.AbsTol;
    work.rel_tol = rec.RelTol;
    work.hmax = rec.hmax;
    const StepOutcome step =
        accepted_step<typename F::Method>(flow.size(), work, start, t, h, flow.right_hand_side());
    rec.tlast = work.t_last;
    return step;
}

/// Completes the description of the step that was accepted: dense output may use it from now on.
template <Flow F>
void describe_step(const F& flow) {
    Trajex& rec = flow.record();
    describe_step(flow.size(), private_part(rec).step_work);
    private_part(rec).step_components = flow.size();
    rec.StepTaken = 1;
}

/// Dense output of the flow's last step into the caller's state.
template <Flow F>
class DenseStep {
  public:
    explicit DenseStep(const F& flow)
        : flow_(flow),
          interpolant_(flow.size(), private_part(flow.record()).step_work, flow.right_hand_side()) {
    }

    /// False, with the caller's state as it was, where the state at t is not finite.
    bool at(double t) {
        const double* const state = interpolant_.at(t);
        if (state != nullptr) flow_.store(state);
        return state != nullptr;
    }

  private:
    const F& flow_;
    StepInterpolant<typename F::Method, typename F::Sums, RightHandSide<F>> interpolant_;
};

/// One accepted step from *t0. On failure the caller's time and state and the proposed step size
/// stay as they were.
template <Flow F>
[[gnu::always_inline]] inline int take_step(F& flow, double* t0, const char* where) {
    Trajex& rec = flow.record();
    const StepOutcome step = accepted_step(flow, flow.state(rec.yfirst), *t0, first_step_size(rec));
    if (!step.accepted) return report(&flow.tx, Error::minimum_step, where);
    rec.h = step.next_h;
    *t0 = rec.tlast;
    flow.store(rec.y6);
    describe_step(flow);
    return 1;
}

/// Integration from *t0 to t1. The last step is not shortened: it may end beyond t1, and the state
/// at t1 is its dense output. After each step goes_on(state) is asked, state being that at the end
/// of the step; where it says no, the integration ends as after a failure, but without a code.
template <Flow F, class GoesOn>
int integrate_to(F& flow, double* t0, double t1, const char* where, GoesOn&& goes_on) {
    Trajex& rec = flow.record();
    double t = *t0;
    if (t == t1) return 1;
    if (!(t1 > t) || std::isinf(t1)) return report(&flow.tx, Error::negative_time_step, where);
    const double* start = flow.state(rec.y6);
    double h = first_step_size(rec);
    while (t < t1) {
        const StepOutcome step = accepted_step(flow, start, t, h);
        if (!step.accepted) return report(&flow.tx, Error::minimum_step, where);
        if (!goes_on(rec.y6)) return 0;
        t = rec.tlast;
        h = step.next_h;
        start = rec.y6;
    }
    describe_step(flow);
    if (t > t1) {
        if (flow.interpolate(t1) != 1) return 0;
    } else {
        flow.store(rec.ylast);
    }
    rec.h = h;
    *t0 = t1;
    return 1;
}

/// The same, however many steps it takes.
template <Flow F>
int integrate_to(F& flow, double* t0, double t1, const char* where) {
    return integrate_to(flow, t0, t1, where, [](const double*) { return true; });
}

/// Dense output at time t of the last step, which has to be one of the same system.
template <Flow F>
int interpolate_at(F& flow, double t, const char* where) {
    Trajex& rec = flow.record();
    if (rec.StepTaken == 0 || private_part(rec).step_components != flow.size()) {
        return report(&rec, Error::no_step_taken, where);
    }
    return DenseStep<F>(flow).at(t) ? 1 : report(&flow.tx, Error::minimum_step, where);
}

}  // namespace trajex
