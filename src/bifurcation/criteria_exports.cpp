// The criteria under their public names, over the eigenvalues in the handle's bifurcation record.
// In an object of their own: short names that an application may have for itself.
#include <cstdio>

#include "bifurcation/criteria.hpp"
#include "core/handle.hpp"
#include "tx.h"

using namespace trajex;

namespace {

double give(const Critical& critical, int* place) {
    *place = static_cast<int>(critical.index);
    return critical.value;
}

double give(const CriticalPair& pair, int* first, int* second) {
    *first = static_cast<int>(pair.first);
    *second = static_cast<int>(pair.second);
    return pair.value;
}

}  // namespace

void SORTEIG(double* er, double* ei, int n) {
    if (n > 0) move_trivial_last(er, ei, static_cast<std::size_t>(n));
}

double CRIT(Trajex* tx, int* crit1, int mode) {
    const int count = tx->order - mode;
    return give(critical_multiplier(tx->txb->er, tx->txb->ei,
                                    count > 0 ? static_cast<std::size_t>(count) : 0),
                crit1);
}

double EQUICRIT(Trajex* tx, int* crit1) {
    return give(critical_eigenvalue(tx->txb->er, order_of(*tx)), crit1);
}

double EUKLID2(Trajex* tx, int cd) {
    return distance_from_units(tx->txb->er, tx->txb->ei, static_cast<std::size_t>(cd));
}

double CRIT2(Trajex* tx, int* crit1, int* crit2) {
    return give(critical_multipliers(tx->txb->er, tx->txb->ei, order_of(*tx)), crit1, crit2);
}

double EQUICRIT2(Trajex* tx, int* crit1, int* crit2) {
    return give(smallest_real_parts(tx->txb->er, tx->txb->ei, order_of(*tx)), crit1, crit2);
}

void SHOWMAT(int i, int j, double** m) {
    std::printf("\n");
    for (int row = 0; row < i; ++row) {
        std::printf("%c{ ", row == 0 ? '{' : ' ');
        for (int column = 0; column < j; ++column) {
            std::printf("%15.10g%c", m[row][column], column < j - 1 ? ',' : '}');
        }
        std::printf("%s\n", row < i - 1 ? "," : "}");
    }
    std::printf("\n");
}
