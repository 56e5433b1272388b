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

using namespace trajex;

int TXCheckEquiBif(Trajex* handle, TrajexBif* txb, double* c, double /*thedc*/, FILE* /*state*/) {
    constexpr const char* where = "TXCheckEquiBif";
    Trajex& tx = enter_variational(handle, where);
    if (!usable(tx, txb)) return report(&tx, Error::no_bifurcation_record, where);
    int index = 0;
    if (activate_parameter(tx, c, &index) != 1) return 0;
    const std::size_t n = order_of(tx);
    double *eigenvector, *solver;
    double** matrix;
    const Workspace work({{&eigenvector, n}, {&solver, solver_work(n)}}, {{&matrix, n, n}});
    if (!work) return report(&tx, Error::no_memory, where);

    const std::size_t critical = critical_eigenvalue(txb->er, n).index;
    copy_block(txb->Phi, n, n, matrix);
    TXEigenVector(&tx, tx.order, matrix, txb->er[critical], eigenvector, solver);
    restore_parameters(tx, *txb);
    if (txb->ei[critical] == 0) {
        txb->biftype = saddle_node;
        std::snprintf(txb->btype, sizeof txb->btype, " ) or ( ");
    } else {
        txb->biftype = hopf;
        std::copy_n(eigenvector, n, txb->trans);
        std::snprintf(txb->btype, sizeof txb->btype, " -Oo- or -oO- ");
    }
    return 1;
}
