// Error reports. A failure either ends the process with a message or is recorded in the handle,
// as the handle's TerminateOnFatalError says; without a handle it always ends the process.
#include "core/errors.hpp"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

const char* const TrajexFatalError[trajex::error_count] = {
    "No error",
    "Trajex not opened",
    "Trajex already opened",
    "Not enough memory",
    "Order of dynamical system not positive",
    "Tolerance not positive",
    "Timestep guess not positive",
    "Negative time step attempted",
    "No Poincare-section defined",
    "Attempt to interpolate outside interval",
    "Fatal error equilibrium state",
    "Max time step not positive",
    "No step taken before interpolation",
    "Unable to bracket Poincare section",
    "No Variational equation specified",
    "Unable to open Trajex substructure",
    "Poincare tolerance not positive",
    "Newton tolerance not positive",
    "Poincare plane not reached within MaxPeriodSteps",
    "Maximum number of Newton iterations exceeded",
    "Equilibrium find while searching for periodic solution",
    "Too many iterations in Housholder QR decomposition",
    "Singular matrix in LU decompostition",
    "Pertubation for Jacobian calculation not positive",
    "Negative number of parameter(s)",
    "Unable to open output file",
    "Wrong number of parameters",
    "Bad mode specification",
    "No Trajex Bifurcation structure specified",
    "Minimum stepsize reached",
    "No Convergense in Newton iteration",
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

char* TXStrErrorTrajex(Trajex* tx) {
    if (tx == nullptr) fail_without_handle(Error::not_opened, "TXStrError");
    return const_cast<char*>(message(tx->ErrorCode));  // the table is constant, the signature older
}
