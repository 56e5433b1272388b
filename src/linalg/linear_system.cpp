// Solution of A x = b, the linear step of every Newton correction.
#include "linalg/linear_system.hpp"

#include <memory>

#include "core/errors.hpp"
#include "core/extent.hpp"
#include "linalg/lu.hpp"

namespace trajex {

namespace {

// The integers behind the n doubles of a work vector. Constructing them, which costs nothing, makes
// them objects that may be used as such.
int* integers_behind(double* work, std::size_t n) {
    int* const first = reinterpret_cast<int*>(work + n);
    std::uninitialized_default_construct_n(first, n);
    return first;
}

}  // namespace

int decompose(Trajex* tx, int n, double** a, int* exchanges, double* parity, double* scale) {
    if (lu_decompose(extent(n), a, exchanges, *parity, scale)) return 1;
    return report(tx, Error::singular_matrix, "LUdcmp");
}

}  // namespace trajex

using namespace trajex;

int TXLinZero(Trajex* tx, int n, double** A, double* b, double* work) {
    enter(tx, "TXLinZero");
    int* const exchanges = integers_behind(work, extent(n));
    double parity = 1;
    if (decompose(tx, n, A, exchanges, &parity, work) != 1) return 0;
    lu_substitute(extent(n), A, exchanges, b);
    return 1;
}
