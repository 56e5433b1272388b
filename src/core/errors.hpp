// Errors: the numbered codes, the one report that every failure goes through, and the entry step
// with which every public operation begins.
#pragma once

#include "tx.h"

namespace trajex {

/// The codes index the public table TrajexFatalError.
enum class Error : int {
    none = 0,
    not_opened = 1,
    already_opened = 2,
    no_memory = 3,
    order_not_positive = 4,
    tolerance_not_positive = 5,
    step_guess_not_positive = 6,
    negative_time_step = 7,
    no_section = 8,
    outside_interval = 9,
    equilibrium_state = 10,
    max_step_not_positive = 11,
    no_step_taken = 12,
    section_not_bracketed = 13,
    no_variational_equation = 14,
    no_substructure = 15,
    section_tolerance_not_positive = 16,
    newton_tolerance_not_positive = 17,
    section_not_reached = 18,
    newton_limit = 19,
    equilibrium_found = 20,
    eigenvalue_limit = 21,
    singular_matrix = 22,
    perturbation_not_positive = 23,
    negative_parameter_count = 24,
    no_output_file = 25,
    wrong_parameters = 26,
    bad_mode = 27,
    no_bifurcation_record = 28,
    minimum_step = 29,
    newton_not_converged = 30,
};

inline constexpr int error_count = 31;

/// Ends the process with status 1 after printing the failure: what happens where there is no handle
/// that could hold a code.
[[noreturn]] void fail_without_handle(Error error, const char* where, int line = __builtin_LINE());

/// Reports a failure under the policy of `tx`: ends the process, or records the code and returns 0.
int report(Trajex* tx, Error error, const char* where, int line = __builtin_LINE());

/// The entry step: refuses a null handle, clears the code of the last call.
inline Trajex& enter(Trajex* tx, const char* where, int line = __builtin_LINE()) {
    if (tx == nullptr) fail_without_handle(Error::not_opened, where, line);
    tx->ErrorCode = 0;
    return *tx;
}

/// The entry step of an operation that also needs the variational sub-record.
inline Trajex& enter_variational(Trajex* tx, const char* where, int line = __builtin_LINE()) {
    Trajex& entered = enter(tx, where, line);
    enter(entered.TX, where, line);
    return entered;
}

/// The recorded code of the last call, for a report that passes a nested failure on.
inline Error recorded_error(const Trajex& tx) {
    return static_cast<Error>(tx.ErrorCode);
}

/// The stream that reports and the mathematics hook write to.
FILE* error_stream();

/// Names the library in every report.
inline constexpr const char* library_name = "tx";
extern const char* const build_date;

}  // namespace trajex
