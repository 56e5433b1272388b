// Continuation of a curve of bifurcations in two parameters: what a kind of solution (equilibrium,
// periodic orbit) has to say about itself, and the driver that follows any of them.
#pragma once

#include <cstddef>

#include "continuation/problem.hpp"
#include "core/errors.hpp"
#include "core/newton.hpp"
#include "core/workspace.hpp"
#include "tx.h"

namespace trajex {

/// One kind of solution, on the curve where its criterion keeps the value of a bifurcation. Its
/// unknowns, in column order, are the record's state, the two parameters as the handle lists them,
/// and, where it is unknown too, the record's period. There are n + 1 residuals, the last of them
/// that of the criterion; forming them leaves the eigenvalues of the point in the record. The
/// driver fills the last row of the Newton matrix.
class CurveProblem : public ContinuationProblem {
  public:
    double* const c1;
    double* const c2;

    std::size_t first_column() const { return n + (first_leads() ? 0 : 1); }
    std::size_t second_column() const { return n + (first_leads() ? 1 : 0); }

    /// Whether the handle knows the two parameters, each exactly once.
    bool find_parameters();
    /// What else is missing for a run.
    virtual Error missing() const { return Error::none; }
    /// Flags the two parameters and lists the unknowns.
    void activate();

    /// The tangent at the start point; a component beyond the order of the system is 1.
    std::size_t tangent_system(double** A, double* v) override;

    /// Moves a predicted or corrected point back to where points are taken.
    virtual void settle() {}

    /// Looks for a point of codimension two near the point just accepted, the `step`-th. Returns
    /// whether the unknowns are there now.
    virtual bool find_codimension_two(int /*step*/, const Outputs& /*out*/) { return false; }

  protected:
    CurveProblem(Trajex& handle, double* first, double* second, std::size_t unknowns)
        : ContinuationProblem(handle, unknowns), c1(first), c2(second) {}

    /// The rows of the Newton matrix, formed afresh at the start point.
    virtual void starting_rows(double** A) = 0;

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

  private:
    int place1_ = 0;
    int place2_ = 0;

    bool first_leads() const { return record().cindi[1] < record().cindi[2]; }
};

/// Follows the curve until MaxContSteps points are accepted (1) or a failure is recorded (0).
/// However the run ends, the unknowns and the record are those of the last accepted point.
int follow_curve(const Run& run, CurveProblem& problem);

/// The same for a problem that is to be made, from what the record of the handle holds.
template <class Problem>
int follow_curve(const Run& run, Trajex& tx, double* c1, double* c2) {
    if (!usable(tx, tx.txb)) return report(&tx, Error::no_bifurcation_record, run.where);
    return with_work_memory(tx, run.where, [&] {
        Problem problem(tx, c1, c2);
        return follow_curve(run, problem);
    });
}

}  // namespace trajex
