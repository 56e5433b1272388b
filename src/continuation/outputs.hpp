// The output protocol of continuation runs: which streams a run writes to, and what it writes
// there.
#pragma once

#include <cstdarg>
#include <cstdio>

#include "tx.h"

namespace trajex {

/// The streams named by the mode bits; null where a bit is not set. They belong to the caller.
struct Outputs {
    FILE* state = nullptr;
    FILE* path = nullptr;
    output_t user_output = nullptr;
    FILE* user = nullptr;

    /// Reads the extras that follow `mode`, each present only when its bit is set.
    static Outputs read(int mode, std::va_list extras) {
        Outputs outputs;
        if ((mode & 1) != 0) outputs.state = va_arg(extras, FILE*);
        if ((mode & 2) != 0) outputs.path = va_arg(extras, FILE*);
        if ((mode & 4) != 0) {
            outputs.user_output = va_arg(extras, output_t);
            outputs.user = va_arg(extras, FILE*);
        }
        return outputs;
    }

    /// An accepted point, from the record.
    void point(Trajex& tx) const {
        if (state != nullptr) TXStateOutput(&tx, state);
        path_and_user(tx);
    }
    /// A located bifurcation, from the record.
    void bifurcation(Trajex& tx) const {
        if (state != nullptr) TXStateBifOutput(&tx, state);
        path_and_user(tx);
    }
    void text(const char* words) const {
        if (state != nullptr) std::fputs(words, state);
    }
    void step_size(double dc) const {
        if (state != nullptr) std::fprintf(state, "   Stepsize: %g ", dc);
    }
    void mark(char progress) const {
        if (state != nullptr) std::fputc(progress, state);
    }

  private:
    void path_and_user(Trajex& tx) const {
        if (path != nullptr) TXPathOutput(&tx, path);
        if (user_output != nullptr) user_output(&tx, user);
    }
};

}  // namespace trajex
