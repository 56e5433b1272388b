// The System V hook for errors of the mathematics functions. C libraries of today no longer call
// it; applications on those that do, or that call it themselves, get the report and the exit.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/errors.hpp"

using namespace trajex;

int matherr(struct exception* x) {
    constexpr int underflow = 4;  // System V: DOMAIN 1, SING 2, OVERFLOW 3, UNDERFLOW 4, ...
    if (x->type == underflow) return 0;
    const int system_error = errno;
    FILE* stream = error_stream();
    std::fprintf(stream, "\nFatal Error in %s (%s)\n'%s': %s\nAaaarrrrrggg!! Trajex Closed\n",
                 library_name, build_date, x->name, std::strerror(system_error));
    std::fflush(stream);
    std::exit(1);
}
