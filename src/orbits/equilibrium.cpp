// Equilibrium points: Newton's method on f(0, y) = 0.
#include <cstddef>

#include "core/errors.hpp"
#include "core/guards.hpp"
#include "core/handle.hpp"
#include "core/newton.hpp"
#include "core/workspace.hpp"
#include "linalg/linear_system.hpp"
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

int find_equilibrium(Trajex& tx, double* y, const char* where) {
    const std::size_t n = order_of(tx);
    double *step, *guess, *solver;
    double** J;
    const Workspace work({{&step, n}, {&guess, n}, {&solver, solver_work(n)}}, {{&J, n, n}});
    RestoreUnlessKept restore(y, n, guess);
    const NewtonEnd end = newton(
        {tx.MaxNewtSteps}, [&](double) { return negated_flow(tx, y, step); },
        [&](double, double) {
            state_jacobian(tx, 0, y, J);
            TXLinZero(&tx, tx.order, J, step, solver);  // a singular J shows in the next residual
            for (std::size_t i = 0; i < n; ++i) y[i] += step[i];
            return true;
        });
    if (end != NewtonEnd::converged) return report(&tx, Error::newton_not_converged, where);
    restore.keep();
    return 1;
}

}  // namespace

}  // namespace trajex

using namespace trajex;

int TXEquiPoint(Trajex* handle, double* y) {
    constexpr const char* where = "TXEquiPoint";
    Trajex& tx = enter_variational(handle, where);
    return with_work_memory(tx, where, [&] { return find_equilibrium(tx, y, where); });
}
