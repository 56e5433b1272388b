// Continuation of a curve of bifurcations in two parameters: what a kind of solution (equilibrium,
// periodic orbit) has to say about itself, and the driver that follows any of them.
#pragma once

#include <cstddef>

#include "bifurcation/record.hpp"
#include "continuation/outputs.hpp"
#include "core/errors.hpp"
#include "core/handle.hpp"
#include "core/newton.hpp"
#include "core/workspace.hpp"
#include "tx.h"

namespace trajex {

/// One kind of solution, on the curve where its criterion keeps the value of a bifurcation. Its
/// unknowns, in column order, are the record's state, the two parameters as the handle lists them,
/// and, where it is unknown too, the record's period.
class CurveProblem {
  public:
    virtual ~CurveProblem() = default;
    CurveProblem(const CurveProblem&) = delete;
    CurveProblem& operator=(const CurveProblem&) = delete;

    Trajex& tx;
    const std::size_t n;
    const std::size_t size;  // number of unknowns
    double* const c1;
    double* const c2;

    TrajexBif& record() const { return *tx.txb; }
    double* const* unknowns() const { return unknowns_; }
    /// The matrix of the Newton system, which problem and driver fill together.
    double** matrix() const { return A_; }
    std::size_t first_column() const { return n + (first_leads() ? 0 : 1); }
    std::size_t second_column() const { return n + (first_leads() ? 1 : 0); }

    /// Whether the handle knows the two parameters, each exactly once.
    bool find_parameters();
    /// What else is missing for a run.
    virtual Error missing() const { return Error::none; }
    /// Flags the two parameters and lists the unknowns.
    void activate();

    virtual PathKind kind() const = 0;

    /// -(residual), -(criterion) at the current unknowns: n + 1 entries. Leaves the eigenvalues of
    /// the point in the record, and the derivatives of the residual in n rows of the matrix.
    virtual void evaluate(double* r) = 0;
    /// Completes the matrix with all other rows of the Newton system but the last, which the driver
    /// fills.
    virtual void newton_rows() = 0;

    /// The same rows, formed afresh at the start point.
    virtual void starting_rows() = 0;
    /// Makes of them a linear system for the direction v of the curve. Returns its order: a
    /// component beyond it is 1.
    virtual std::size_t direction_system(double* v);

    /// Moves a predicted or corrected point back to where points are taken.
    virtual void settle() {}

    /// Looks for a point of codimension two near the point just accepted, the `step`-th. Returns
    /// whether the unknowns are there now.
    virtual bool find_codimension_two(int /*step*/, const Outputs& /*out*/) { return false; }

  protected:
    CurveProblem(Trajex& handle, double* first, double* second, std::size_t unknowns)
        : tx(handle),
          n(order_of(handle)),
          size(unknowns),
          c1(first),
          c2(second),
          work_({}, {{&A_, unknowns, unknowns}, pointer_list(&unknowns_, unknowns)}) {}

    /// Calls visit(column) with each of the unknowns in turn raised by LambdaPert: the state, then
    /// the parameters as the caller named them, then the period.
    template <class Visit>
    void raise_unknowns(Visit&& visit) const {
        const auto raise_from = [&](std::size_t column, std::size_t count) {
            raise_each(unknowns_ + column, count, tx.LambdaPert,
                       [&](std::size_t j) { visit(column + j); });
        };
        raise_from(0, n);
        raise_from(first_column(), 1);
        raise_from(second_column(), 1);
        raise_from(n + 2, size - (n + 2));
    }

    double** unknowns_ = nullptr;

  private:
    double** A_ = nullptr;
    int place1_ = 0;
    int place2_ = 0;
    Workspace work_;

    bool first_leads() const { return record().cindi[1] < record().cindi[2]; }
};

/// What a caller asks of a run.
struct CurveRun {
    const char* where = nullptr;  // reporting name
    double* dc = nullptr;         // step length; its size on entry is the largest one
    Outputs out;
};

/// Follows the curve until MaxContSteps points are accepted (1) or a failure is recorded (0).
/// However the run ends, the unknowns and the record are those of the last accepted point.
int follow_curve(const CurveRun& run, CurveProblem& problem);

/// The same for a problem that is to be made, from what the record of the handle holds.
template <class Problem>
int follow_curve(const CurveRun& run, Trajex& tx, double* c1, double* c2) {
    if (!usable(tx, tx.txb)) return report(&tx, Error::no_bifurcation_record, run.where);
    return with_work_memory(tx, run.where, [&] {
        Problem problem(tx, c1, c2);
        return follow_curve(run, problem);
    });
}

}  // namespace trajex
