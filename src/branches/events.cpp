// Let P, Q be the numbers of unstable exponents that are real and alternating, U that of all. In
// one step
//
//     dU = delta_P + delta_Q + 2 k,   delta in {0, +-1} with the parity of dP, dQ,
//
// where k pairs cross; signs are chosen so that |k| is least. A pair that becomes two real
// exponents changes P by 2 and no parity, hence is no event. With A = F_x, Cramer's rule for the
// tangent t gives
//
//     sign det A = sign dp/ds * sign det [F_z; t^T],     sign det A ~ (-1)^P,
//
// so that an odd dP comes with a flip of exactly one of sigma and beta: a fold (sigma) or a branch
// that passes through (beta). Both flip and P keeps its parity on the curved side of a pitchfork.

#include "branches/events.hpp"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdlib>

namespace trajex {
namespace {

constexpr double beyond_rounding = 30;  // multipliers of 1e13 or 1e-13

bool odd(int k) {
    return k % 2 != 0;
}

int sign(int k) {
    return k < 0 ? -1 : 1;
}

// k with the least size, and the signs of delta_P, delta_Q that it needs. Where several do, they
// keep the direction that the counts themselves have.
void choose_signs(int dU, int dP, int dQ, int& delta_P, int& delta_Q, int& k) {
    delta_P = odd(dP) ? sign(dP) : 0;
    delta_Q = odd(dQ) ? sign(dQ) : 0;
    int best = (dU - delta_P - delta_Q) / 2;
    const int P = delta_P;
    const int Q = delta_Q;
    for (const int p : {P, -P})
        for (const int q : {Q, -Q}) {
            const int pairs = (dU - p - q) / 2;
            if (std::abs(pairs) >= std::abs(best)) continue;
            best = pairs;
            delta_P = p;
            delta_Q = q;
        }
    k = best;
}

unsigned changed_tests(const std::vector<Test>& a, const std::vector<Test>& b) {
    unsigned result = 0;
    for (std::size_t j = 0; j < a.size() && j < b.size() && j < 32; ++j)
        if (a[j].value * b[j].value < 0 || (b[j].value == 0 && a[j].value != 0)) result |= 1U << j;
    return result;
}

// Of multipliers, as many of which are unstable as before and none near enough to have crossed and
// come back: kinds of those far away are easily lost. A fold can come with a period doubling in the
// same step, but not where there is one multiplier, or where all that are real are beyond what
// rounding leaves of a sign: there dp/ds is noise.
bool none_crossed(const Marks& a, const Marks& b, const EventNames& names) {
    if (names.flip.empty() || a.exponents == 0 || a.exponents != b.exponents) return false;
    if (a.kinds_known() || b.kinds_known() || a.unstable != b.unstable) return false;
    const bool beyond = std::min(a.reach, b.reach) >= beyond_rounding;
    return a.exponents == 1 || a.sigma == b.sigma || beyond;
}

}  // namespace

void count_unstable(const Spectrum& spectrum, Marks& marks) {
    marks.unstable = marks.real = marks.flip = 0;
    marks.exponents = spectrum.size();
    marks.reach = HUGE_VAL;
    for (const Exponent& exponent : spectrum) {
        const bool unstable = exponent.value.real() > exponent.error;
        const double size = std::fabs(exponent.value.real());
        if (exponent.kind != Exponent::Kind::pair && size < marks.reach) {
            marks.reach = size;
            marks.real_nearest = exponent.kind == Exponent::Kind::real;
            marks.nearest_counted = unstable;
        }
        if (!unstable) continue;
        ++marks.unstable;
        if (exponent.kind == Exponent::Kind::real) ++marks.real;
        if (exponent.kind == Exponent::Kind::alternating) ++marks.flip;
    }
}

// The sign of a multiplier changes where it is 0, or meets another one in a pair. One that was far
// from both, and still is, has the sign it had: on canards, where it is 1e300, meshes get it wrong.
int keep_kinds(const Spectrum& known, double from, Spectrum& spectrum) {
    constexpr double not_zero = -5;
    constexpr double apart = 20;  // from the next ones
    if (known.size() != spectrum.size()) return 1;
    const auto alone = [](const Spectrum& of, std::size_t j) {
        const double value = of[j].value.real();
        return of[j].kind != Exponent::Kind::pair &&
               (j == 0 || of[j - 1].value.real() - value > apart) &&
               (j + 1 == of.size() || value - of[j + 1].value.real() > apart);
    };
    int sign = 1;
    for (std::size_t j = 0; j < known.size(); ++j) {
        Exponent& exponent = spectrum[j];
        const double value = exponent.value.real();
        if (known[j].value.real() < from || value < not_zero) break;
        if (exponent.kind == known[j].kind || !alone(known, j) || !alone(spectrum, j)) continue;
        exponent.kind = known[j].kind;
        exponent.value.imag(known[j].value.imag());
        if (value > 0) sign = -sign;
    }
    return sign;
}

int invariant(const Marks& marks) {
    return marks.sigma * marks.beta * (odd(marks.real) ? -1 : 1);
}

// Of three signs, each of which may be lost in noise, two give the third. That of dp/ds is lost
// where p is noisier than dp/ds, that of mu - 1 where a multiplier is 1 within its error, that of
// mu where mu is far beyond what can cross: there it is the last to be doubted that dp/ds was seen,
// and beyond what rounding leaves of a sign the first to be changed.
void reconcile(Marks& marks, int branch_invariant) {
    if (invariant(marks) == branch_invariant) return;
    const bool has_kinds = marks.real + marks.flip > 0 && marks.exponents > 1;
    const bool kinds_lost =
        has_kinds && (marks.reach >= beyond_rounding || (marks.seen && !marks.kinds_known()));
    if (!marks.parity_known() && marks.real_nearest) {
        const int counted = marks.nearest_counted ? -1 : 1;
        marks.real += counted;
        marks.unstable += counted;
        marks.nearest_counted = !marks.nearest_counted;
    } else if (kinds_lost) {
        const int swapped = marks.real > 0 ? 1 : -1;
        marks.real -= swapped;
        marks.flip += swapped;
    } else if (!marks.kinds_known() && !has_kinds && (!marks.seen || marks.exponents == 1)) {
        // No multiplier can cross, and no kind is in doubt: the mesh is too poor for the
        // determinant.
        marks.beta = -marks.beta;
    } else if (!marks.seen) {
        marks.sigma = -marks.sigma;
    }
}

int Decoded::count() const {
    return int{fold} + int{branch} + int{curved} + std::abs(real) + std::abs(flip) +
           std::abs(pairs) + std::popcount(tests);
}

Decoded decode(const Marks& a, const Marks& b, const std::vector<Test>& tests_a,
               const std::vector<Test>& tests_b, const EventNames& names) {
    Decoded result;
    const bool dynamics = a.exponents > 0 && a.exponents == b.exponents;  // else counts say nothing
    const int dU = dynamics ? b.unstable - a.unstable : 0;
    const int dP = dynamics ? b.real - a.real : 0;
    const int dQ = dynamics ? b.flip - a.flip : 0;
    const bool turns = a.sigma != b.sigma;
    const bool crossed = a.beta != b.beta;
    int delta_P = 0;
    int delta_Q = 0;
    choose_signs(dU, dP, dQ, delta_P, delta_Q, result.pairs);
    const bool folds = !names.fold.empty();
    result.curved = folds && turns && crossed;
    result.fold = folds && turns && !crossed;
    result.branch = crossed && !result.curved;
    result.flip = delta_Q;
    if (folds && dynamics)
        result.consistent = odd(dP) == (turns != crossed);
    else if (!folds && !names.real.empty())
        result.real = delta_P;
    result.real_pairs = result.pairs != 0 && std::abs(dP) >= 2 * std::abs(result.pairs);
    if (none_crossed(a, b, names)) result = {};
    result.tests = changed_tests(tests_a, tests_b);
    return result;
}

}  // namespace trajex
