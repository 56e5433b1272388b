// What the drivers of continuation, in one parameter and in two, ask every kind of solution
// (equilibrium, periodic orbit) and every caller.
#pragma once

#include <cstddef>

#include "bifurcation/record.hpp"
#include "continuation/outputs.hpp"
#include "core/handle.hpp"
#include "core/workspace.hpp"
#include "tx.h"

namespace trajex {

/// What a caller asks of a run.
struct Run {
    const char* where = nullptr;  // reporting name
    double* dc = nullptr;         // step length; its size on entry is the largest one
    Outputs out;
    int bifurcations = 0;  // of a branch: stop at this many; 0: no limit
};

/// One kind of solution: equations for a list of unknowns, which begins with the state, then come
/// the parameters and, where it is unknown too, the period.
class ContinuationProblem {
  public:
    virtual ~ContinuationProblem() = default;
    ContinuationProblem(const ContinuationProblem&) = delete;
    ContinuationProblem& operator=(const ContinuationProblem&) = delete;

    Trajex& tx;
    const std::size_t n;
    const std::size_t size;  // number of unknowns

    TrajexBif& record() const { return *tx.txb; }
    double* const* unknowns() const { return unknowns_; }

    virtual PathKind kind() const = 0;

    /// The residuals at the current unknowns, negated. False: they cannot be formed.
    virtual bool residual(double* r) = 0;
    /// All rows of the Newton matrix there but one, which the driver fills.
    virtual void newton_rows(double** A) = 0;
    /// A linear system for the tangent v. Returns its order.
    virtual std::size_t tangent_system(double** A, double* v) = 0;

  protected:
    /// The unknowns are listed by the kinds.
    ContinuationProblem(Trajex& handle, std::size_t unknowns)
        : tx(handle),
          n(order_of(handle)),
          size(unknowns),
          work_({}, {pointer_list(&unknowns_, unknowns)}) {}

    double** unknowns_ = nullptr;

  private:
    Workspace work_;
};

}  // namespace trajex
