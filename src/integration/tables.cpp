// Tables: the trajectory at equally spaced times, as rows of text or through a function of the
// application. The steps keep the size that the error control gives them; a sample is the dense
// output of the step that it falls in, and a step with many samples is completed once.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdio>

#include "core/errors.hpp"
#include "core/handle.hpp"
#include "core/output_file.hpp"
#include "core/workspace.hpp"
#include "integration/dense_output.hpp"
#include "integration/trajectory.hpp"
#include "tx.h"

namespace trajex {

namespace {

/// The sample taken last. The caller's time and state run ahead of it while steps are taken; on
/// every way out they are set to it, so that they belong together.
class [[nodiscard]] LastSample {
  public:
    LastSample(std::size_t n, double* t, double* y, double* state)
        : time(*t), n_(n), t_(t), y_(y), state_(state) {
        std::copy_n(y_, n_, state_);
    }
    ~LastSample() {
        *t_ = time;
        std::copy_n(state_, n_, y_);
    }
    LastSample(const LastSample&) = delete;
    LastSample& operator=(const LastSample&) = delete;

    double time;

  private:
    std::size_t n_;
    double* t_;
    double* y_;
    double* state_;
};

/// Emits the samples at *t, *t + dt, ..., t1 with dt = (t1 - *t) / n. Without an interval that
/// moves the time on there is the first one only. Half an interval of margin at the end makes the
/// number of samples independent of the rounding of the repeated sum. `state` is work memory.
template <class Emit>
int sample_trajectory(Trajex& tx, double* t, double t1, long n, double* y, double* state,
                      Emit&& emit, const char* where) {
    const double dt = n > 0 ? (t1 - *t) / static_cast<double>(n) : 0;
    LastSample last(order_of(tx), t, y, state);
    emit(last.time, state);
    if (!std::isfinite(dt)) return 1;
    const double end = t1 + dt * 0.5;
    double reached = last.time;
    double next = last.time + dt;
    const auto due = [&] { return next > last.time && next <= end; };
    StateFlow flow{tx, state};
    while (due()) {
        if (TXStep(&tx, &reached, y) != 1) return 0;
        DenseStep<StateFlow> step(flow);
        for (; due() && next <= reached; next += dt) {
            if (!step.at(next)) return report(&tx, Error::minimum_step, where);
            last.time = next;
            emit(next, state);
        }
    }
    return 1;
}

constexpr std::size_t form_length = 9;

/// Builds the handle's column table. Column 0 is the time; a digit from 1 to 9 is the number of
/// decimals. Any other character, and the end of a short format, suppress the column.
void build_columns(Trajex& tx, const char* format) {
    const char* next = format != nullptr ? format : "";
    for (std::size_t c = 0; c <= order_of(tx); ++c) {
        const char digit = *next != '\0' ? *next++ : '0';
        char* const form = tx.form + form_length * c;
        const bool printed = '1' <= digit && digit <= '9';
        tx.output[c] = printed ? 1 : 0;
        *form = '\0';
        if (!printed) continue;
        const int decimals = (digit - '0') % 10;  // a range that the compiler can check, too
        std::snprintf(form, form_length, "%%%d.%de ", decimals + 6, decimals);
    }
}

/// Writes samples as rows of the selected columns.
class RowWriter {
  public:
    RowWriter(const Trajex& tx, std::FILE* file) : tx_(tx), file_(file) {}

    void operator()(double t, const double* state) {
        print(0, t);
        for (std::size_t i = 0; i < order_of(tx_); ++i) print(i + 1, state[i]);
        note(std::fputc('\n', file_));
    }

    /// Whether the stream has taken every row so far.
    bool sound() const { return sound_; }

  private:
    void print(std::size_t column, double value) {
        if (tx_.output[column] == 0) return;
        note(std::fprintf(file_, tx_.form + form_length * column, value));
    }
    void note(int result) { sound_ = sound_ && result >= 0; }

    const Trajex& tx_;
    std::FILE* file_;
    bool sound_ = true;
};

int write_file(Trajex& tx, const char* filename, const char* format, double* t, double t1, long n,
               double* y, const char* where) {
    double* state = nullptr;
    const Workspace work({{&state, order_of(tx)}});
    OutputFile file(filename, "w");
    if (!file) return report(&tx, Error::no_output_file, where);
    build_columns(tx, format);
    if (sample_trajectory(tx, t, t1, n, y, state, RowWriter(tx, file.stream()), where) != 1)
        return 0;
    return file.close() ? 1 : report(&tx, Error::no_output_file, where);
}

int write_stream(Trajex& tx, FILE* file, const char* format, double* t, double t1, long n,
                 double* y, const char* where) {
    double* state = nullptr;
    const Workspace work({{&state, order_of(tx)}});
    if (file == nullptr) return report(&tx, Error::no_output_file, where);
    build_columns(tx, format);
    RowWriter rows(tx, file);
    if (sample_trajectory(tx, t, t1, n, y, state, rows, where) != 1) return 0;
    return rows.sound() ? 1 : report(&tx, Error::no_output_file, where);
}

}  // namespace

}  // namespace trajex

using namespace trajex;

int TXftablef(Trajex* handle, const char* filename, const char* format, double* t, double t1,
              long n, double* y) {
    constexpr const char* where = "TXftablef";
    Trajex& tx = enter(handle, where);
    return with_work_memory(tx, where,
                            [&] { return write_file(tx, filename, format, t, t1, n, y, where); });
}

int TXftablea(Trajex* handle, FILE* file, const char* format, double* t, double t1, long n,
              double* y) {
    constexpr const char* where = "TXftablea";
    Trajex& tx = enter(handle, where);
    return with_work_memory(tx, where,
                            [&] { return write_stream(tx, file, format, t, t1, n, y, where); });
}

int TXftableg(Trajex* handle, double* t, double t1, long n, double* y,
              void (*g)(double t, double* y)) {
    constexpr const char* where = "TXftableg";
    Trajex& tx = enter(handle, where);
    return with_work_memory(tx, where, [&] {
        double* state = nullptr;
        const Workspace work({{&state, order_of(tx)}});
        return sample_trajectory(tx, t, t1, n, y, state, g, where);
    });
}
