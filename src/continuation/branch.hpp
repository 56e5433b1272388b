// Continuation of a branch of solutions in one parameter: what a kind of solution (equilibrium,
// periodic orbit) has to say about itself, and the driver that follows any of them.
#pragma once

#include <cstddef>

#include "continuation/problem.hpp"
#include "core/handle.hpp"
#include "core/workspace.hpp"
#include "tx.h"

namespace trajex {

/// What the eigenvalues say about a point: how many are stable, and the criterion of the one
/// nearest to changing sides.
struct Stability {
    int stable = 0;
    double critical = 0;
};

/// The caller's state and period, or copies where they lie in the handle's bifurcation record: the
/// run overwrites that, and replaces it where it has too little room. Copies are written back in
/// the end, except to the record's own y and T, which hold what the record holds.
class CallerState {
  public:
    CallerState(Trajex& tx, double* y, double* T);
    ~CallerState();
    CallerState(const CallerState&) = delete;
    CallerState& operator=(const CallerState&) = delete;

    double* y() const { return y_; }
    double& T() const { return *T_; }

  private:
    std::size_t n_;
    double* y_;
    double* T_;
    double* y_home_ = nullptr;  // where a copy goes in the end
    double* T_home_ = nullptr;
    double* y_copy_ = nullptr;
    double T_copy_ = 0;
    Workspace work_;
};

/// One kind of solution, along one parameter. Its unknowns are the state y, the parameter c and,
/// where it is unknown too, the period. There are n residuals; where they cannot be formed, the run
/// is lost. The driver fills row n of the Newton matrix. The tangent is d(y)/dc, and d(period)/dc
/// behind it where that is unknown.
class BranchProblem : public ContinuationProblem {
  public:
    double* const y;
    double* const c;

    /// Converges the caller's guess and linearises there. False: the code is in the handle.
    virtual bool converge_start() = 0;
    /// The derivatives of the residual, where `residual` has not formed them already.
    virtual void linearise() {}

    /// Eigenvalues or multipliers at the current point, from the last linearisation; A is scratch.
    /// Under the policy to record, a run goes on with those that were found.
    virtual Stability stability(double** A, double* er, double* ei) = 0;

    /// How far the tangent turned round between two points: 0 unless (nearly) all components
    /// changed sign, then their mean change in units of two.
    virtual double reversal(const double* tangent, const double* previous) const;
    /// Length of the tangent that measures the step, from the sum of squares of its state part.
    virtual double tangent_length(double squares) const;
    /// Length of (dy/dc, 1) from that.
    virtual double space_length(double tangent_length) const;
    virtual double largest_growth() const { return 1.4142; }

    /// What the record takes of a point beside y, c and the eigenvalues: for a report, for a
    /// search.
    virtual void record_point() const {}
    virtual void record_guess() const { record_point(); }
    virtual int locate(FILE* state) = 0;
    /// Called when a bifurcation was located; false turns it into one that was not.
    virtual bool classify(const double* /*tangent*/, double /*dc*/, const Outputs& /*out*/) {
        return true;
    }

  protected:
    BranchProblem(Trajex& handle, double* state, double* parameter, std::size_t unknowns);
};

/// Follows the branch until the step limit or the bifurcation limit is reached (1), or a failure is
/// recorded (0).
int follow_branch(const Run& run, BranchProblem& problem);

/// The same for a problem that is to be made of the caller's state and what else it takes.
template <class Problem, class... Others>
int follow_branch(const Run& run, Trajex& tx, double* y, double* T, double* c, Others... others) {
    return with_work_memory(tx, run.where, [&] {
        const CallerState state(tx, y, T);
        Problem problem(tx, state, c, others...);
        return follow_branch(run, problem);
    });
}

}  // namespace trajex
