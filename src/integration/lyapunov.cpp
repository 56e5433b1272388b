// Lyapunov exponents of a handle's system: what is refused, the running estimate in a file, and the
// failures of integrations, which do not end the computation.
#include <cmath>
#include <cstddef>
#include <cstdio>

#include "core/errors.hpp"
#include "core/handle.hpp"
#include "core/output_file.hpp"
#include "core/workspace.hpp"
#include "integration/spectrum.hpp"
#include "integration/stepper.hpp"
#include "tx.h"

namespace trajex {

namespace {

/// The code for a measurement that would compute nonsense.
Error refusal(const Trajex& tx, double t, const Measurement& m) {
    if (m.exponents < 1 || m.exponents > tx.order) return Error::wrong_parameters;
    if (m.transient < 0 || m.counted < 0) return Error::negative_parameter_count;
    if (!(m.eps > 0) || std::isinf(m.eps)) return Error::perturbation_not_positive;
    if (!advances(t, m.interval)) return Error::negative_time_step;
    return Error::none;
}

/// The sink of a measurement whose running estimate nobody wants.
struct NoFile {
    static bool create() { return true; }
    static void after_interval(const GrowthSums&, unsigned long, unsigned long) {}
    static bool sound() { return true; }
};

/// The running estimate as lines of text. The file is open only while a line is written, so that a
/// reader beside us sees whole lines.
class EstimateFile {
  public:
    /// Lines are written after every `period`-th interval; none for a period that is not positive.
    EstimateFile(const char* name, int period) : name_(name), period_(period) {}

    /// Creates or empties the file.
    bool create() const {
        OutputFile file(name_, "w");
        return file && file.close();
    }

    void after_interval(const GrowthSums& sums, unsigned long l, unsigned long m) {
        if (period_ < 1 || l % static_cast<unsigned long>(period_) != 0) return;
        OutputFile file(name_, "a");
        if (file) write_line(file.stream(), sums, m);
        sound_ = file && file.close() && sound_;
    }

    /// Whether every line could be written.
    bool sound() const { return sound_; }

  private:
    static void write_line(std::FILE* stream, const GrowthSums& sums, unsigned long m) {
        std::fprintf(stream, "%12.6g ", sums.counted_time(m));
        for (std::size_t p = 0; p < sums.count; ++p) {
            std::fprintf(stream, "%12.6g ", sums.exponent(p, m));
        }
        std::fputc('\n', stream);
    }

    const char* name_;
    int period_;
    bool sound_ = true;
};

template <class Sink>
int estimate(Trajex& tx, const char* where, double* t, double* y, const Measurement& m,
             double* exponents, Sink&& sink) {
    const std::size_t n = order_of(tx);
    const GrowthSums sums{exponents, m.interval, static_cast<std::size_t>(m.exponents)};
    SpectrumVectors vectors{};
    const Workspace work(
        {{&vectors.scratch, n}, {&vectors.lengths, sums.count}, {&vectors.v, sums.count * n}});
    if (!sink.create()) return report(&tx, Error::no_output_file, where);
    Error failure = Error::none;  // the first
    const auto integrate = [&](double* time, double t1, double* state) {
        if (TXIntegrate(&tx, time, t1, state) == 1 || failure != Error::none) return;
        failure = recorded_error(tx);
    };
    measure_spectrum(n, m, sums, vectors, t, y, integrate, sink);
    const int result = sink.sound() ? 1 : report(&tx, Error::no_output_file, where);
    // Reported when it happened, and cleared by the integrations after it.
    if (failure != Error::none) tx.ErrorCode = static_cast<int>(failure);
    return result;
}

template <class Sink>
int estimate_exponents(Trajex& tx, const char* where, double* t, double* y, const Measurement& m,
                       double* exponents, Sink&& sink) {
    const Error refused = refusal(tx, *t, m);
    if (refused != Error::none) return report(&tx, refused, where);
    return with_work_memory(tx, where,
                            [&] { return estimate(tx, where, t, y, m, exponents, sink); });
}

}  // namespace

}  // namespace trajex

using namespace trajex;

int TXLyapCalc(Trajex* handle, double* t, double* y, double eps, double lyap_dt, long trans_steps,
               long lyap_steps, double* exponents, int nn) {
    constexpr const char* where = "TXLyapCalc";
    return estimate_exponents(enter(handle, where), where, t, y,
                              {eps, lyap_dt, trans_steps, lyap_steps, nn}, exponents, NoFile());
}

int TXLyapCalcFile(Trajex* handle, const char* filename, double* t, double* y, double eps,
                   double lyap_dt, long trans_steps, long lyap_steps, double* exponents, int nn,
                   int samp) {
    constexpr const char* where = "TXLyapCalcFile";
    return estimate_exponents(enter(handle, where), where, t, y,
                              {eps, lyap_dt, trans_steps, lyap_steps, nn}, exponents,
                              EstimateFile(filename, samp));
}
