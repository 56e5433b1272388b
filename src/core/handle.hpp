// The handle behind the public record: what a handle owns that applications need not see.
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "core/step_work.hpp"
#include "tx.h"

namespace trajex {

/// A handle or a variational sub-record. Applications see its base, the public record.
struct Handle : Trajex {
    std::unique_ptr<double[]> state_vectors;
    std::unique_ptr<double[]> stages;
    std::unique_ptr<int[]> table_columns;
    std::unique_ptr<char[]> table_formats;
    StepWork step_work;  // the vectors of the record, as a step wants them

    // Components of the last step taken; those of an extended system vary with its parameters.
    std::size_t step_components = 0;

    // Of a handle: the parameter table. It outlives the sub-record, so that `c` and `cp` stay
    // valid.
    std::vector<double*> parameters;
    std::vector<char> active_flags;

    // Of a sub-record: its work matrix.
    std::unique_ptr<double*[]> matrix_rows;
    std::unique_ptr<double[]> matrix_elements;
};

inline Handle& private_part(Trajex& tx) {
    return static_cast<Handle&>(tx);
}

/// Makes a record with its work vectors and the default settings; null when memory is short.
Trajex* new_record(void (*fcn)(double, double*, double*), int order, double RelTol, double h);

/// Releases a record made by new_record and everything it owns.
void delete_record(Trajex* tx);

inline std::size_t order_of(const Trajex& tx) {
    return static_cast<std::size_t>(tx.order);
}

inline std::size_t parameters_of(const Trajex& tx) {
    return tx.nparam > 0 ? static_cast<std::size_t>(tx.nparam) : 0;
}

}  // namespace trajex
