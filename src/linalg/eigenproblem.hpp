// Eigenvalues for callers that hold a handle: failures go through its error policy.
#pragma once

#include "tx.h"

namespace trajex {

/// hessenberg_eigenvalues with its failure reported (code 21, in the name of the published
/// routine). Returns 1, or 0 after the report.
int shifted_qr(Trajex* tx, double** a, int n, double* re, double* im);

}  // namespace trajex
