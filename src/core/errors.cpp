// Error reports. A failure either ends the process with a message or is recorded in the handle,
// as the handle's TerminateOnFatalError says; without a handle it always ends the process.
#include "core/errors.hpp"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

using trajex::Error;

namespace {

struct CatalogueEntry {
    Error error;
    const char* message;
};

constexpr CatalogueEntry catalogue[trajex::error_count] = {
    {Error::none, "No error"},
    {Error::not_opened, "Trajex not opened"},
    {Error::already_opened, "Trajex already opened"},
    {Error::no_memory, "Not enough memory"},
    {Error::order_not_positive, "Order of dynamical system not positive"},
    {Error::tolerance_not_positive, "Tolerance not positive"},
    {Error::step_guess_not_positive, "Timestep guess not positive"},
    {Error::negative_time_step, "Negative time step attempted"},
    {Error::no_section, "No Poincare-section defined"},
    {Error::outside_interval, "Attempt to interpolate outside interval"},
    {Error::equilibrium_state, "Fatal error equilibrium state"},
    {Error::max_step_not_positive, "Max time step not positive"},
    {Error::no_step_taken, "No step taken before interpolation"},
    {Error::section_not_bracketed, "Unable to bracket Poincare section"},
    {Error::no_variational_equation, "No Variational equation specified"},
    {Error::no_substructure, "Unable to open Trajex substructure"},
    {Error::section_tolerance_not_positive, "Poincare tolerance not positive"},
    {Error::newton_tolerance_not_positive, "Newton tolerance not positive"},
    {Error::section_not_reached, "Poincare plane not reached within MaxPeriodSteps"},
    {Error::newton_limit, "Maximum number of Newton iterations exceeded"},
    {Error::equilibrium_found, "Equilibrium find while searching for periodic solution"},
    {Error::eigenvalue_limit, "Too many iterations in Housholder QR decomposition"},
    {Error::singular_matrix, "Singular matrix in LU decompostition"},
    {Error::perturbation_not_positive, "Pertubation for Jacobian calculation not positive"},
    {Error::negative_parameter_count, "Negative number of parameter(s)"},
    {Error::no_output_file, "Unable to open output file"},
    {Error::wrong_parameters, "Wrong number of parameters"},
    {Error::bad_mode, "Bad mode specification"},
    {Error::no_bifurcation_record, "No Trajex Bifurcation structure specified"},
    {Error::minimum_step, "Minimum stepsize reached"},
    {Error::newton_not_converged, "No Convergense in Newton iteration"},
};

constexpr bool catalogue_is_in_order() {
    for (int code = 0; code < trajex::error_count; ++code) {
        if (static_cast<int>(catalogue[code].error) != code) return false;
    }
    return true;
}
static_assert(catalogue_is_in_order(), "codes index the public table of messages");

}  // namespace

const char* const TrajexFatalError[trajex::error_count] = {
    catalogue[0].message,  catalogue[1].message,  catalogue[2].message,  catalogue[3].message,
    catalogue[4].message,  catalogue[5].message,  catalogue[6].message,  catalogue[7].message,
    catalogue[8].message,  catalogue[9].message,  catalogue[10].message, catalogue[11].message,
    catalogue[12].message, catalogue[13].message, catalogue[14].message, catalogue[15].message,
    catalogue[16].message, catalogue[17].message, catalogue[18].message, catalogue[19].message,
    catalogue[20].message, catalogue[21].message, catalogue[22].message, catalogue[23].message,
    catalogue[24].message, catalogue[25].message, catalogue[26].message, catalogue[27].message,
    catalogue[28].message, catalogue[29].message, catalogue[30].message,
};

namespace trajex {

namespace {

// Process-wide on purpose: one stream for all handles. Null stands for standard error, which is
// looked up at the time of the report because an application may reopen it.
// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables)
std::atomic<FILE*> chosen_stream{nullptr};

const char* message(int code) {
    const bool known = code >= 0 && code < error_count;
    return known ? TrajexFatalError[code] : "Unknown error";
}

}  // namespace

const char* const build_date = __DATE__;

FILE* error_stream() {
    FILE* stream = chosen_stream.load();
    return stream != nullptr ? stream : stderr;
}

void fail_without_handle(Error error, const char* where, int line) {
    TXFatalError(nullptr, line, static_cast<int>(error), where);
    std::abort();  // not reached: without a handle the report does not return
}

int report(Trajex* tx, Error error, const char* where, int line) {
    return TXFatalError(tx, line, static_cast<int>(error), where);
}

}  // namespace trajex

using namespace trajex;

int TXFatalError(Trajex* tx, int lineno, int msgno, const char* where) {
    const int system_error = errno;
    if (tx != nullptr && tx->TerminateOnFatalError == 0) {
        tx->ErrorCode = msgno;
        return 0;
    }
    FILE* stream = error_stream();
    if (tx == nullptr) {
        std::fprintf(stream, "ERROR in %s (%s) line %d\n'%s': %s\n", library_name, build_date,
                     lineno, where, message(msgno));
    } else {
        std::fprintf(stream, "Error in %s (%s) line %d\n'%s': %s", library_name, build_date, lineno,
                     where, message(msgno));
        if (system_error != 0) std::fprintf(stream, " (%s)", std::strerror(system_error));
        std::fprintf(stream, "\nTrajex Closed\n");
    }
    std::fflush(stream);
    std::exit(1);
}

int TXSetErrorOutput(FILE* where) {
    chosen_stream.store(where);
    return 1;
}

int TXErrorTrajex(Trajex* tx) {
    if (tx == nullptr) fail_without_handle(Error::not_opened, "TXErrorTrajex");
    return tx->ErrorCode;
}

// It reports under a shorter name than its own, which applications have come to know.
char* TXStrErrorTrajex(Trajex* tx) {
    if (tx == nullptr) fail_without_handle(Error::not_opened, "TXStrError");
    return const_cast<char*>(message(tx->ErrorCode));  // the table is constant, the signature older
}
