// Linear systems for callers that hold a handle: failures go through its error policy.
#pragma once

#include <cstddef>

#include "tx.h"

namespace trajex {

/// lu_decompose with its failure reported (code 22, in the name of the published routine). Returns
/// 1, or 0 after the report. `tx` may be null; the report is then one without a handle.
int decompose(Trajex* tx, int n, double** a, int* exchanges, double* parity, double* scale);

/// Length of the work vector that TXLinZero needs for n unknowns: the row scales, then the row
/// exchanges (n integers, which n further doubles hold with room to spare).
constexpr std::size_t solver_work(std::size_t n) {
    return 2 * n;
}

}  // namespace trajex
