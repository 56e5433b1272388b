// Location of a bifurcation of an equilibrium: Newton's method on
//
//     f(y, c) = 0,    g(y, c) = 0,
//
//     [   J    df/dc ] [ dy ]     [ f ]
//     [ dg/dy  dg/dc ] [ dc ] = - [ g ],
//
// g being the real part of the eigenvalue nearest to the imaginary axis, and the last row formed by
// forward differences of it. The iterate is the record's state together with
// the application's own parameter.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdio>

#include "bifurcation/equilibrium_criterion.hpp"
#include "bifurcation/record.hpp"
#include "core/errors.hpp"
#include "core/newton.hpp"
#include "core/workspace.hpp"
#include "linalg/linear_system.hpp"
#include "linalg/matrix.hpp"
#include "variational/jacobians.hpp"

namespace trajex {

namespace {

class EquilibriumLocation {
  public:
    /// `index` is the place of c among the handle's parameters.
    EquilibriumLocation(Trajex& tx, TrajexBif& bif, double* c, int index)
        : tx_(tx),
          bif_(bif),
          index_(index),
          n_(order_of(tx)),
          work_({{&right_, n_ + 1}, {&samples_, n_ + 1}, {&solver_, solver_work(n_ + 1)}},
                {{&linear_, n_, n_ + 1},
                 {&parameter_columns_, n_, parameters_of(tx)},
                 pointer_list(&unknowns_, n_ + 1)}) {
        for (std::size_t i = 0; i < n_; ++i) unknowns_[i] = &bif.y[i];
        unknowns_[n_] = c;
    }

    /// Whether the iteration converged; the record then holds the located point.
    bool run(FILE* state) {
        NewtonLimit limit{tx_.MaxNewtSteps + 2LL};
        const NewtonEnd end = newton(
            limit, [this](double) { return distance_from_bifurcation(); },
            [this](double, double) {
                correct();
                return true;
            },
            [state](double dist, double previous) {
                if (state != nullptr) std::fputc(progress_mark(dist, previous), state);
            });
        if (end != NewtonEnd::converged) return false;
        copy_block(linear_, n_, n_ + 1, bif_.Phi);
        return true;
    }

  private:
    double distance_from_bifurcation() {
        evaluate();
        return distance();
    }

    /// f, [J | df/dc], the eigenvalues and g at the iterate.
    void evaluate() {
        tx_.fcn(bif_.t, bif_.y, right_);
        linearise_flow(tx_, bif_.t, bif_.y, &index_, 1, parameter_columns_, linear_);
        copy_block(linear_, n_, n_, bif_.Phi);
        critical_ = critical_real_part_of(tx_, bif_.Phi, bif_.er, bif_.ei);
        for (std::size_t i = 0; i < n_; ++i) right_[i] = -right_[i];
        right_[n_] = -critical_;
    }

    /// The state terms weigh with the roots of the Newton tolerances: a located point is asked for
    /// the criterion first, and for the equilibrium no more than that needs.
    double distance() const {
        WeightedNorm norm(std::sqrt(tx_.NewtRelTol), std::sqrt(tx_.NewtAbsTol));
        norm.add_weighted(critical_, tx_.LambdaNewtRelTol + tx_.LambdaNewtAbsTol);
        for (std::size_t i = 0; i < n_; ++i) norm.add(right_[i], bif_.y[i]);
        return norm.value();
    }

    void correct() {
        double** const matrix = tx_.TX->j;
        const double h = tx_.LambdaPert;
        sample_criterion(
            unknowns_, n_ + 1, h,
            [this] { return critical_real_part(tx_, bif_.t, bif_.y, bif_.Phi, bif_.er, bif_.ei); },
            samples_);
        copy_block(linear_, n_, n_ + 1, matrix);
        difference_row(samples_, n_ + 1, critical_, h, matrix[n_]);
        TXLinZero(&tx_, tx_.order + 1, matrix, right_, solver_);  // see the next residual
        for (std::size_t j = 0; j <= n_; ++j) *unknowns_[j] += right_[j];
    }

    Trajex& tx_;
    TrajexBif& bif_;
    int index_;
    std::size_t n_;
    double* right_ = nullptr;  // -f, then -g; the correction once solved
    double* samples_ = nullptr;
    double* solver_ = nullptr;
    double** linear_ = nullptr;  // [J | df/dc] at the iterate
    double** parameter_columns_ = nullptr;
    double** unknowns_ = nullptr;
    double critical_ = 0;
    Workspace work_;
};

}  // namespace

}  // namespace trajex

using namespace trajex;

int TXLocateEquiBif(Trajex* handle, TrajexBif* txb, double* c, FILE* state) {
    constexpr const char* where = "TXLocateEquiBif";
    Trajex& tx = enter_variational(handle, where);
    if (!usable(tx, txb)) return report(&tx, Error::no_bifurcation_record, where);
    int index = 0;
    if (activate_parameter(tx, c, &index) != 1) return 0;
    return with_work_memory(tx, where, [&] {
        EquilibriumLocation location(tx, *txb, c, index);
        if (!location.run(state)) return report(&tx, Error::newton_not_converged, where);
        record_location(tx, *txb);
        return 1;
    });
}
