// The public short names of the LU routines. They stand in an object of their own, and nothing in
// the library refers to it: an application that links statically may have functions of these names.
#include "core/extent.hpp"
#include "linalg/linear_system.hpp"
#include "linalg/lu.hpp"

int LUdcmp(Trajex* tx, int n, double** a, int* indx, double* d, double* work) {
    return trajex::decompose(tx, n, a, indx, d, work);
}

void LUbksb(int n, double** a, int* indx, double* b) {
    trajex::lu_substitute(trajex::extent(n), a, indx, b);
}
