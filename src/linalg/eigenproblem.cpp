// All eigenvalues of a real matrix, and the eigenvector of a real eigenvalue that is known already.
#include "linalg/eigenproblem.hpp"

#include <cmath>

#include "core/errors.hpp"
#include "core/extent.hpp"
#include "linalg/eigen.hpp"

namespace trajex {

namespace {

int reported(Trajex* tx, bool found) {
    return found ? 1 : report(tx, Error::eigenvalue_limit, "Hqr");
}

}  // namespace

int shifted_qr(Trajex* tx, double** a, int n, double* re, double* im) {
    return reported(tx, hessenberg_eigenvalues(a, extent(n), re, im));
}

}  // namespace trajex

using namespace trajex;

int TXEigen(Trajex* tx, int n, double** A, double* er, double* ei) {
    enter(tx, "TXEigen");
    return reported(tx, matrix_eigenvalues(A, extent(n), er, ei));
}

// With the last component of v fixed to 1, the first n - 1 rows of (A - r I) v = 0 are a linear
// system for the others:  [B - r I | c] (u, 1) = 0,  A = [B c; . .].
int TXEigenVector(Trajex* tx, int n, double** A, double r, double* ev, double* ws) {
    if (n < 1) return 1;
    const std::size_t last = extent(n) - 1;
    for (std::size_t i = 0; i < last; ++i) {
        A[i][i] -= r;
        ev[i] = -A[i][last];
    }
    TXLinZero(tx, n - 1, A, ev, ws);  // a failure stays in the handle; the vector gets its length
    double sum = 1;
    for (std::size_t i = 0; i < last; ++i) sum += ev[i] * ev[i];
    const double norm = std::sqrt(sum);
    for (std::size_t i = 0; i < last; ++i) ev[i] /= norm;
    ev[last] = 1 / norm;
    return 1;
}
