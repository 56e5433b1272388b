// Classification of a located bifurcation of an equilibrium from its eigenvalues alone: a real
// critical eigenvalue is a saddle-node, a complex pair a Hopf bifurcation.
#include <algorithm>
#include <cstddef>
#include <cstdio>

#include "bifurcation/criteria.hpp"
#include "bifurcation/record.hpp"
#include "core/errors.hpp"
#include "core/workspace.hpp"
#include "linalg/linear_system.hpp"
#include "linalg/matrix.hpp"

namespace trajex {

namespace {

int classify(Trajex& tx, TrajexBif& bif) {
    const std::size_t n = order_of(tx);
    double *eigenvector, *solver;
    double** matrix;
    const Workspace work({{&eigenvector, n}, {&solver, solver_work(n)}}, {{&matrix, n, n}});
    const std::size_t critical = critical_eigenvalue(bif.er, n).index;
    copy_block(bif.Phi, n, n, matrix);
    TXEigenVector(&tx, tx.order, matrix, bif.er[critical], eigenvector, solver);
    restore_parameters(tx, bif);
    if (bif.ei[critical] == 0) {
        bif.biftype = saddle_node;
        std::snprintf(bif.btype, sizeof bif.btype, " ) or ( ");
    } else {
        bif.biftype = hopf;
        std::copy_n(eigenvector, n, bif.trans);
        std::snprintf(bif.btype, sizeof bif.btype, " -Oo- or -oO- ");
    }
    return 1;
}

}  // namespace

}  // namespace trajex

using namespace trajex;

int TXCheckEquiBif(Trajex* handle, TrajexBif* txb, double* c, double /*thedc*/, FILE* /*state*/) {
    constexpr const char* where = "TXCheckEquiBif";
    Trajex& tx = enter_variational(handle, where);
    if (!usable(tx, txb)) return report(&tx, Error::no_bifurcation_record, where);
    int index = 0;
    if (activate_parameter(tx, c, &index) != 1) return 0;
    return with_work_memory(tx, where, [&] { return classify(tx, *txb); });
}
