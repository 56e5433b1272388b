// The public short names of the dot product and of the orthonormalisation. They stand in an object
// of their own, and nothing in the library refers to it: an application that links statically may
// have functions of these names.
#include "core/extent.hpp"
#include "integration/gram_schmidt.hpp"
#include "tx.h"

double dot(double* x, double* y, int n) {
    return trajex::dot_product(x, y, trajex::extent(n));
}

void GSR(double* v, double* norm, int n, double* x, int nn) {
    if (n < 1) return;  // vectors without components have no lengths to be told
    trajex::orthonormalise(v, norm, trajex::extent(n), x, trajex::extent(nn));
}
