// Lyapunov exponents by nearby trajectories: perturbed copies of the state are integrated beside
// the reference trajectory, and after every interval their separations are orthonormalised
// (classical Gram-Schmidt). The mean logarithms of the lengths are the exponents, in base 2.
// Benettin, Galgani, Giorgilli, Strelcyn, Meccanica 15 (1980) 9-20 and 21-30.
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <numbers>

#include "core/errors.hpp"
#include "core/handle.hpp"
#include "core/output_file.hpp"
#include "core/workspace.hpp"
#include "integration/gram_schmidt.hpp"
#include "integration/stepper.hpp"
#include "tx.h"

namespace trajex {

namespace {

/// The arguments that say what is measured.
struct Measurement {
    double eps;
    double interval;
    long transient;
    long counted;
    int exponents;
};

/// The code for a measurement that would compute nonsense.
Error refusal(const Trajex& tx, double t, const Measurement& m) {
    if (m.exponents < 1 || m.exponents > tx.order) return Error::wrong_parameters;
    if (m.transient < 0 || m.counted < 0) return Error::negative_parameter_count;
    if (!(m.eps > 0) || std::isinf(m.eps)) return Error::perturbation_not_positive;
    if (!advances(t, m.interval)) return Error::negative_time_step;
    return Error::none;
}

class Spectrum {
  public:
    /// `sums` receives the sums of the logarithms of the growth factors, one per exponent.
    Spectrum(Trajex& tx, const Measurement& measurement, double* sums)
        : tx_(tx),
          m_(measurement),
          sums_(sums),
          n_(order_of(tx)),
          count_(static_cast<std::size_t>(measurement.exponents)),
          work_({{&x_, n_}, {&norm_, count_}, {&v_, count_ * n_}}) {}

    /// Whether the work memory was there.
    explicit operator bool() const { return static_cast<bool>(work_); }

    /// Follows the trajectory through all intervals, and lets the sink know after each one counted:
    /// interval l, counted interval m. An integration that fails does not end the computation.
    /// Returns the code of the first that did.
    template <class Sink>
    Error measure(double* t, double* y, Sink& sink);

    /// sums[p] as an exponent in bits per unit of time, after m counted intervals. Without any it
    /// is 0/0, not a number: nothing was measured.
    double exponent(std::size_t p, unsigned long m) const {
        return sums_[p] / (std::numbers::ln2 * m_.interval * static_cast<double>(m));
    }
    double counted_time(unsigned long m) const { return m_.interval * static_cast<double>(m); }
    std::size_t count() const { return count_; }

  private:
    void advance(double* t, double* y);
    void integrate(double* t, double t1, double* y);

    Trajex& tx_;
    Measurement m_;
    double* sums_;
    std::size_t n_;
    std::size_t count_;
    double* x_ = nullptr;     // scratch of the orthonormalisation
    double* norm_ = nullptr;  // lengths that it found
    double* v_ = nullptr;     // directions between intervals, perturbed states during one
    Workspace work_;
    Error first_failure_ = Error::none;
};

template <class Sink>
Error Spectrum::measure(double* t, double* y, Sink& sink) {
    for (std::size_t p = 0; p < count_; ++p) {
        sums_[p] = 0;
        v_[p * n_ + p] = 1;
    }
    const auto transient = static_cast<unsigned long>(m_.transient);
    const auto total = transient + static_cast<unsigned long>(m_.counted);
    for (unsigned long l = 1; l <= total; ++l) {
        advance(t, y);
        orthonormalise(v_, norm_, n_, x_, count_);
        if (l <= transient) continue;
        for (std::size_t p = 0; p < count_; ++p) sums_[p] += std::log(norm_[p]);
        sink.after_interval(*this, l, l - transient);
    }
    for (std::size_t p = 0; p < count_; ++p) {
        sums_[p] = exponent(p, static_cast<unsigned long>(m_.counted));
    }
    return first_failure_;
}

/// One interval of the trajectory and of its perturbed copies: directions in, separations out. Time
/// and state of the trajectory stay together even where a callback throws in between.
void Spectrum::advance(double* t, double* y) {
    const double inv_eps = 1.0 / m_.eps;
    for (std::size_t p = 0; p < count_; ++p) {
        double* const vp = v_ + p * n_;
        for (std::size_t i = 0; i < n_; ++i) vp[i] = m_.eps * vp[i] + y[i];
    }
    const double t0 = *t;
    const double t1 = t0 + m_.interval;
    integrate(t, t1, y);
    for (std::size_t p = 0; p < count_; ++p) {
        double* const vp = v_ + p * n_;
        double time = t0;
        integrate(&time, t1, vp);
        for (std::size_t i = 0; i < n_; ++i) vp[i] = (vp[i] - y[i]) * inv_eps;
    }
}

void Spectrum::integrate(double* t, double t1, double* y) {
    if (TXIntegrate(&tx_, t, t1, y) == 1) return;
    if (first_failure_ == Error::none) first_failure_ = recorded_error(tx_);
}

/// The sink of a measurement whose running estimate nobody wants.
struct NoFile {
    static bool create() { return true; }
    static void after_interval(const Spectrum&, unsigned long, unsigned long) {}
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

    void after_interval(const Spectrum& spectrum, unsigned long l, unsigned long m) {
        if (period_ < 1 || l % static_cast<unsigned long>(period_) != 0) return;
        OutputFile file(name_, "a");
        if (file) write_line(file.stream(), spectrum, m);
        sound_ = file && file.close() && sound_;
    }

    /// Whether every line could be written.
    bool sound() const { return sound_; }

  private:
    static void write_line(std::FILE* stream, const Spectrum& spectrum, unsigned long m) {
        std::fprintf(stream, "%12.6g ", spectrum.counted_time(m));
        for (std::size_t p = 0; p < spectrum.count(); ++p) {
            std::fprintf(stream, "%12.6g ", spectrum.exponent(p, m));
        }
        std::fputc('\n', stream);
    }

    const char* name_;
    int period_;
    bool sound_ = true;
};

template <class Sink>
int estimate_exponents(Trajex& tx, const char* where, double* t, double* y, const Measurement& m,
                       double* exponents, Sink&& sink) {
    const Error refused = refusal(tx, *t, m);
    if (refused != Error::none) return report(&tx, refused, where);
    Spectrum spectrum(tx, m, exponents);
    if (!spectrum) return report(&tx, Error::no_memory, where);
    if (!sink.create()) return report(&tx, Error::no_output_file, where);
    const Error failure = spectrum.measure(t, y, sink);
    const int result = sink.sound() ? 1 : report(&tx, Error::no_output_file, where);
    // Reported when it happened, and cleared by the integrations after it.
    if (failure != Error::none) tx.ErrorCode = static_cast<int>(failure);
    return result;
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
