// A fuzzer over sequences of calls. The input chooses settings, a right-hand side that may jump,
// blow up, throw or be no number, and operations one after the other. Whatever it chooses, calls
// end, handles stay usable and close. The sanitizers see the rest.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "operations.hpp"
#include "tx.h"

namespace {

using namespace testing_support;

constexpr long budget = 20000;  // evaluations of one input, then the callback throws

/// The bytes of an input as choices; zeros when they are used up.
class Choices {
  public:
    Choices(const std::uint8_t* data, std::size_t size) : data_(data), end_(data + size) {}
    bool left() const { return data_ < end_; }
    int below(int n) { return left() ? *data_++ % n : 0; }
    /// A number of any size and sign, zero, infinite, or none.
    double number() {
        const double special[] = {0, 1, -1, infinity, -infinity, not_a_number, 1e-320, 1e308};
        const int kind = below(24), digits = below(256);
        if (kind < 8) return special[kind];
        return (digits - 128) * std::pow(10.0, kind < 20 ? kind / 4 - 5 : 4 * (kind - 20) - 4);
    }
    double positive() { return std::pow(10.0, -below(12)) * (1 + below(9)); }

  private:
    const std::uint8_t *data_, *end_;
};

enum Kind { circles, jumps, blows_up, switches_off, undefined, vanishes, kinds };
int kind = circles;
double trouble_at = 0;

void troubled(double t, double* y, double* f) {
    Circles::flow(t, y, f);
    const bool there = t > trouble_at || y[0] > trouble_at;
    if (kind == jumps && there) f[0] += 100;
    if (kind == blows_up) f[0] += y[0] * y[0] * y[0];
    if (kind == switches_off && there) f[0] = f[1] = 0;
    if (kind == undefined && there) f[1] = not_a_number;
    if (kind == vanishes) f[0] = std::log(y[0] - 1), f[1] = there ? infinity : -y[1];
}

void change_settings(Choices& choices, Bench& b) {
    Trajex* const tx = b.tx.get();
    double Trajex::*const settings[] = {
        &Trajex::h,          &Trajex::hmax,       &Trajex::RelTol,
        &Trajex::NewtRelTol, &Trajex::NewtAbsTol, &Trajex::JacPert,
        &Trajex::CutEps,     &Trajex::LambdaPert, &Trajex::ParamJacPert};
    double* const others[] = {&tx->TX->h, &tx->TX->RelTol, &trouble_at, &b.t,  &b.T,
                              &b.dc,      &b.y[0],         &b.y[1],     &b.c1, &b.c2};
    const bool setting = choices.below(2) == 0;
    double& field = setting ? tx->*settings[choices.below(std::size(settings))]
                            : *others[choices.below(std::size(others))];
    field = choices.below(2) == 0 ? choices.number() : choices.positive();
    TXSetMaxPeriodSteps(tx, choices.below(200));
    TXSetMaxNewtSteps(tx, choices.below(12));
    TXSetMaxPoincareSteps(tx, choices.below(100));
    tx->MaxContSteps = choices.below(6);
    tx->CheckBifs = choices.below(2);
    kind = choices.below(kinds);
}

void call_something(Choices& choices, Bench& b) {
    const int which = choices.below(int(operations().size()) + 5);
    Trajex* const tx = b.tx.get();
    double first[2] = {}, second[2] = {};
    if (which == 0) TXSetCut(tx, choices.below(2) == 0 ? nullptr : first_component, 1e-6);
    if (which == 1) TXInterpolate(tx, choices.number(), b.y);
    if (which == 2) TXSetRelTol(tx, choices.number()), TXSetMaxStep(tx, choices.number());
    if (which == 3) TXCutSurface(tx, first, second);
    if (which == 4) b.restart();
    if (which >= 5) operations()[std::size_t(which - 5)].run(b);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Choices choices(data, size);
    Probe::set(budget, true);
    kind = circles;
    Bench bench(choices.below(2) == 0);
    bench.tx->fcn = Probe::flow<troubled>;
    while (choices.left() && Probe::left > 0) {
        try {
            if (choices.below(3) == 0) change_settings(choices, bench);
            call_something(choices, bench);
        } catch (const Probe::Thrown&) {
        }
    }
    // After all that the handle is as good as a new one.
    Probe::set(Probe::never);
    Trajex* const tx = bench.tx.get();
    tx->fcn = Circles::flow;
    tx->h = 0.01, tx->hmax = 0, tx->RelTol = tx->AbsTol = 1e-8;
    Circles::c1 = 1, Circles::c2 = 0;
    double y[] = {3, 0}, t = 0;  // on the circle
    const bool usable =
        tx->nparam == 2 && TXIntegrate(tx, &t, 2 * pi, y) == 1 && std::hypot(y[0] - 3, y[1]) < 1e-4;
    if (!usable) {
        std::fprintf(stderr, "The handle is not usable any more: %g %g, code %d\n", y[0], y[1],
                     tx->ErrorCode);
        std::abort();
    }
    return 0;
}
