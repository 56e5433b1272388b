// Equilibrium points: Newton's method on f(0, y) = 0.
#include <cstddef>

#include "core/errors.hpp"
#include "core/guards.hpp"
#include "core/handle.hpp"
#include "core/newton.hpp"
#include "core/workspace.hpp"
#include "variational/jacobians.hpp"

namespace trajex {

namespace {

/// -f(0, y), and its norm with the weights of y.
double negated_flow(Trajex& tx, double* y, double* minus_f) {
    const std::size_t n = order_of(tx);
    tx.fcn(0, y, minus_f);
    WeightedNorm norm(tx.NewtRelTol, tx.NewtAbsTol);
    for (std::size_t i = 0; i < n; ++i) {
        minus_f[i] = -minus_f[i];
        norm.add(minus_f[i], y[i]);
    }
    return norm.value();
}

}  // namespace

}  // namespace trajex

using namespace trajex;

int TXEquiPoint(Trajex* handle, double* y) {
    constexpr const char* where = "TXEquiPoint";
    Trajex& tx = enter_variational(handle, where);
    const std::size_t n = order_of(tx);
    double *step, *guess, *solver;
    double** J;
    const Workspace work({{&step, n}, {&guess, n}, {&solver, solver_work(n)}}, {{&J, n, n}});
    if (!work) return report(&tx, Error::no_memory, where);
    RestoreUnlessKept restore(y, n, guess);

    double previous = 0;
    for (int its = 1;; ++its) {
        const double dist = negated_flow(tx, y, step);
        if (its >= tx.MaxNewtSteps || diverging(dist, previous)) break;
        if (dist <= 1) {
            restore.keep();
            return 1;
        }
        previous = dist;
        state_jacobian(tx, 0, y, J);
        TXLinZero(&tx, tx.order, J, step, solver);  // a singular J shows in the next residual
        for (std::size_t i = 0; i < n; ++i) y[i] += step[i];
    }
    return report(&tx, Error::newton_not_converged, where);
}
