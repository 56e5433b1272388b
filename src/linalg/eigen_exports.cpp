// The public short names of the eigenvalue routines, in an object of their own as those of the LU
// routines are.
#include "core/extent.hpp"
#include "linalg/eigen.hpp"
#include "linalg/eigenproblem.hpp"

void Balanc(double** a, int n) {
    trajex::balance(a, trajex::extent(n));
}

void Elmhes(double** a, int n) {
    trajex::reduce_to_hessenberg(a, trajex::extent(n));
}

int Hqr(Trajex* tx, double** a, int n, double* wr, double* wi) {
    return trajex::shifted_qr(tx, a, n, wr, wi);
}
