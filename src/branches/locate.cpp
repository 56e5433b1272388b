// A step from a to b is described by the coordinate s along a's tangent t: the solution at s is
// where the branch meets the hyperplane <t, z - a> = s. Events are searched for as follows.
//
//     decode(a, b):  nothing -> done
//     take a test function that is simple where the event is, and bracket its root s*
//     decode(s* - e, s* + e):  one event -> that is it, whatever (a, b) looked like
//     go on with (a, s* - e) and (s* + e, b)
//
// What the small bracket does not explain is so looked for in the rest: the signs and counts of the
// pieces always add up to those of the step. Test functions: dp/ds where the branch turns; else the
// j-th largest real part of the exponents, which is continuous whatever they do, where j - 1 of
// them are unstable on the poorer side.

#include "branches/locate.hpp"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <utility>

#include "linalg/vectors.hpp"

namespace trajex {
namespace {

constexpr double sure_sign = 1e-13;       // |dp/ds| that has a sign at a sample inside a step
constexpr double narrow = 1e-4;           // half width of the bracket around a root over the step,
constexpr double coincidence = 1e-6;      // and the least one; roots closer than this,
constexpr double coincident_part = 1e-3;  // or this part of the step, are not separated
constexpr double near_prediction =
    0.1;                              // distance from the prediction over the width of the bracket
constexpr double same_factors = 0.1;  // part of a step over which equations change little
constexpr int deepest = 24;           // nested intervals in one step,
constexpr std::size_t most_evaluations = 1600;  // and linearisations made to search it
constexpr double near_crossing = 0.5;           // multipliers of 1.6 or 1 / 1.6
constexpr int most_root_steps = 80;
constexpr double last_bits = 1e-15;
constexpr double suspicious = 0.25;  // part of the end values

void sort_rates(Sample& sample) {
    sample.rates.clear();
    for (const Exponent& exponent : sample.spectrum) sample.rates.push_back(exponent.value.real());
    std::sort(sample.rates.begin(), sample.rates.end(), std::greater<>());
}

}  // namespace

// ---- Solutions ----

void Sampler::count(int solves) {
    evaluations_ += static_cast<std::size_t>(solves);
    work_ += static_cast<double>(solves) * static_cast<double>(problem_.unknowns());
}

bool Sampler::correct(Sample& out, const double* row, double value, bool again) {
    out.newton = newton_.correct(out.z, row, value, metric_, again);
    count(out.newton.iterations);
    return static_cast<bool>(out.newton);
}

bool Sampler::correct_along(Sample& out, const std::vector<double>& direction,
                            const std::vector<double>& from, double s, bool again) {
    row_.resize(direction.size());
    metric_.row(direction.data(), row_.data());
    return correct(out, row_.data(), dot(row_, from) + s, again);
}

bool Sampler::complete(Sample& out, const std::vector<double>& direction, int sigma, double sure) {
    row_.resize(direction.size());
    metric_.row(direction.data(), row_.data());
    count(1);
    const auto outcome =
        newton_.tangent(out.z.data(), row_.data(), metric_, out.tangent, out.newton.residual);
    if (outcome != BorderedNewton::Outcome::converged) {
        out.newton.outcome = outcome;
        return false;
    }
    const std::size_t p = out.z.size() - problem_.active_parameters();
    out.pdot = out.tangent[p] * std::sqrt(metric_.weights()[p]);
    problem_.spectrum(out.spectrum);
    // Where a multiplier beyond 1 has the wrong sign, so has 1 - mu, and the determinant with it.
    // Next to homoclinic orbits one may pass 1, 0 and -1 in a moment: there the branch turns.
    out.marks.beta = problem_.determinant_sign();
    if (out.pdot * known_pdot_ > 0) out.marks.beta *= keep_kinds(known_, known_from_, out.spectrum);
    problem_.tests(out.tests);
    count_unstable(out.spectrum, out.marks);
    mark_signs(out, sigma, sure);
    sort_rates(out);
    return true;
}

// The first clear sample tells what sigma beta (-1)^P is on this branch; until then, as on small
// cycles near a Hopf point, each one that can.
void Sampler::mark_signs(Sample& out, int sigma, double sure) {
    const double noise = std::max({sure, problem_.slope_noise(), noise_});
    const bool seen = std::abs(out.pdot) >= noise;
    out.marks.seen = seen;
    out.marks.sigma = seen ? (out.pdot < 0 ? -1 : 1) : sigma;
    if (out.spectrum.empty() || names_.fold.empty() || names_.flip.empty()) return;
    const bool clear = std::abs(out.pdot) >= 10 * std::max(noise, kept_sign);
    if (invariant_ == 0 || (!certain_ && out.marks.parity_known()))
        invariant_ = invariant(out.marks);
    certain_ = certain_ || (clear && out.marks.parity_known() && out.marks.kinds_known());
    reconcile(out.marks, invariant_);
}

// The predictor is the cubic through lo and hi with their tangents: close to a branch point the
// solutions of the other branch are near, and only a prediction better than that distance finds the
// right ones.
bool Sampler::between(const Sample& lo, const Sample& hi, double s, Sample& out) {
    const double width = hi.s - lo.s;
    const double r = (s - lo.s) / width;
    const double h00 = (1 + 2 * r) * (1 - r) * (1 - r);
    const double h10 = r * (1 - r) * (1 - r) * width;
    const double h01 = r * r * (3 - 2 * r);
    const double h11 = r * r * (r - 1) * width;
    const double lo_cosine = metric_.dot(a_->tangent.data(), lo.tangent.data());
    const double hi_cosine = metric_.dot(a_->tangent.data(), hi.tangent.data());
    out.s = s;
    out.z.resize(lo.z.size());
    for (std::size_t i = 0; i < out.z.size(); ++i)
        out.z[i] = h00 * lo.z[i] + h10 * lo.tangent[i] / lo_cosine + h01 * hi.z[i] +
                   h11 * hi.tangent[i] / hi_cosine;
    predicted_ = out.z;
    const bool near = std::abs(s - factored_at_) <= same_factors * (b_->s - a_->s);
    factored_at_ = s;
    if (!correct_along(out, a_->tangent, a_->z, s, near && share_factors_)) return false;
    missed_ = metric_.distance(out.z.data(), predicted_.data());
    return missed_ <= near_prediction * width &&
           complete(out, a_->tangent, a_->marks.sigma, sure_sign);
}

bool Sampler::near(const Sample& lo, const Sample& hi, double s, double shift, Sample& out) {
    return between(lo, hi, s, out) || between(lo, hi, s + shift, out) ||
           between(lo, hi, s - shift, out);
}

bool Sampler::refine(Sample& sample) {
    return correct_along(sample, a_->tangent, a_->z, sample.s) &&
           complete(sample, a_->tangent, sample.marks.sigma, sure_sign);
}

// ---- Roots ----

namespace {

// Inverse quadratic interpolation through the last three values, as long as these fall; else regula
// falsi with the weights of Anderson and Bjoerck: an end that stays twice gets its value reduced,
// so that both sides close in like the secant method does. A bisection whenever three steps have
// neither halved the bracket nor made the value small.
class Bracket {
  public:
    Bracket(const Sample& a, const Sample& b, double f_a, double f_b)
        : lo(a),
          hi(b),
          lo_{a.s, f_a, f_a},
          hi_{b.s, f_b, f_b},
          width_before_(width()),
          value_before_(value()) {}

    Sample lo, hi;
    double width() const { return hi.s - lo.s; }

    double propose(int k) {
        bool halve = false;
        if (k % 3 == 0) {
            halve = width() > 0.5 * width_before_ && value() > 0.1 * value_before_;
            width_before_ = width();
            value_before_ = value();
        }
        if (halve) return lo.s + 0.5 * width();
        const double inverse = inverse_parabola();
        if (inverse > lo.s && inverse < hi.s) return inverse;
        return lo.s - lo_.weighted * width() / (hi_.weighted - lo_.weighted);
    }

    void take(Sample& sample, double f) {
        const int moved = (f < 0) == (lo_.f < 0) ? -1 : 1;
        End& same = moved < 0 ? lo_ : hi_;
        End& other = moved < 0 ? hi_ : lo_;
        const double weight = 1 - f / same.weighted;
        if (moved == side_) other.weighted *= weight > 0 ? weight : 0.5;
        side_ = moved;
        gone_ = same;
        same = {sample.s, f, f};
        std::swap(moved < 0 ? lo : hi, sample);
    }

  private:
    struct End {
        double s, f, weighted;
    };

    double value() const { return std::min(std::abs(lo_.f), std::abs(hi_.f)); }

    // The place of 0 on the parabola s(f) through both ends and the one given up last; NaN where
    // that is not larger than the one that took its place.
    double inverse_parabola() const {
        const double f = side_ < 0 ? lo_.f : hi_.f;
        if (!(std::abs(f) < std::abs(gone_.f))) return NAN;
        const double slope = (hi_.s - lo_.s) / (hi_.f - lo_.f);
        const double bend = ((gone_.s - hi_.s) / (gone_.f - hi_.f) - slope) / (gone_.f - lo_.f);
        return lo_.s - lo_.f * (slope - hi_.f * bend);
    }

    End lo_, hi_;
    End gone_{0, 0, 0};
    double width_before_;  // three steps ago,
    double value_before_;  // and the smaller value
    int side_ = 0;         // that moved last: -1 lo, 1 hi
};

}  // namespace

Root find_root(Sampler& sampler, const SampleFunction& phi, const Sample& a, const Sample& b,
               double tol, bool quick) {
    const double f_a = phi(a);
    const double f_b = phi(b);
    if (!std::isfinite(f_a) || !std::isfinite(f_b)) return {};
    double best = std::min(std::abs(f_a), std::abs(f_b));
    Root root{true, best == std::abs(f_a) ? a.s : b.s, 0};
    if (!(f_a * f_b < 0))
        return root;  // the sign was decided within the error of phi: it is that end
    Bracket bracket(a, b, f_a, f_b);
    Sample sample;
    const double xtol = std::max(tol, last_bits * std::abs(b.s));
    for (int k = 1; k <= most_root_steps && bracket.width() > 2 * xtol; ++k) {
        const double proposed = bracket.propose(k);
        if (quick && !root.at.z.empty() && std::abs(proposed - root.s) <= xtol) {
            root.error = xtol;
            return root;
        }
        const double s = std::clamp(proposed, bracket.lo.s + xtol, bracket.hi.s - xtol);
        // Where there is no solution at the root itself, one beyond it closes the bracket.
        const double beyond = bracket.lo.s + bracket.hi.s > 2 * s ? 1e-3 : -1e-3;
        if (!sampler.near(bracket.lo, bracket.hi, s, beyond * bracket.width(), sample)) break;
        const double f = phi(sample);
        if (!std::isfinite(f)) break;
        if (std::abs(f) <= best) {
            best = std::abs(f);
            root.s = sample.s;
            root.at = sample;
        }
        if (f == 0) return root;
        bracket.take(sample, f);
    }
    root.error = bracket.width();
    root.found = root.error <= 0.01 * (b.s - a.s);
    return root;
}

// ---- Events ----

namespace {

class Search {
  public:
    Search(Sampler& sampler, double step, const std::function<void(Located&)>& sink)
        : sampler_(sampler),
          step_(step),
          least_(std::min(coincidence, coincident_part * step)),
          before_(sampler.evaluations()),
          sink_(sink) {}

    void run(const Sample& a, const Sample& b) {
        later(a, b, 0);
        while (!intervals_.empty() && !exhausted()) {
            const Interval next = std::move(intervals_.back());
            intervals_.pop_back();
            look(next.a, next.b, next.depth);
        }
        sampler_.share_factors(false);
        for (const Interval& rest : intervals_) {
            const Decoded what = sampler_.decode(rest.a, rest.b);
            if (what.count() > 0 || !what.consistent)
                blur(what, rest.a, rest.b, "too many events in one step");
        }
        if (!blurred_.reason.empty()) sink_(blurred_);
    }

  private:
    struct Interval {
        Sample a, b;
        int depth;
    };

    void later(const Sample& a, const Sample& b, int depth) { intervals_.push_back({a, b, depth}); }
    void look(const Sample& a, const Sample& b, int depth);
    static SampleFunction test_function(const Decoded& what, const Sample& a, const Sample& b);
    void around(const Sample& a, const Sample& b, const Decoded& what, const Root& root, int depth);
    void split(const Sample& a, const Sample& b, const Decoded& what, int depth);
    void record(const Decoded& what, const Sample& before, const Sample& at, const Sample& after,
                double error, std::string reason);
    void unresolved(const Decoded& what, const Sample& a, const Sample& b, std::string reason);
    void blur(const Decoded& what, const Sample& a, const Sample& b, std::string reason);
    bool far_from_crossing(const Decoded& what, const Sample& at) const;
    static bool look_alike(const Sample& a, const Sample& b);
    bool noise_of_signs(const Decoded& what, const Sample& a, const Sample& b) const;
    bool exhausted() const { return sampler_.evaluations() - before_ >= most_evaluations; }
    bool sample(const Sample& a, const Sample& b, double s, Sample& out) {
        return !exhausted() && sampler_.near(a, b, s, 0.1 * least_, out);
    }

    Sampler& sampler_;
    double step_;
    double least_;        // half width of a bracket around events that cannot be separated
    std::size_t before_;  // evaluations made before the search
    const std::function<void(Located&)>& sink_;
    std::vector<Interval> intervals_;  // to be looked into
    Located blurred_;                  // all that indicators contradict one another about
};

// A simple function with different signs at a and b; empty: none.
SampleFunction Search::test_function(const Decoded& what, const Sample& a, const Sample& b) {
    if (a.marks.sigma != b.marks.sigma && (what.fold || what.curved) && a.pdot * b.pdot <= 0)
        return [](const Sample& x) { return x.pdot; };
    if (a.marks.unstable != b.marks.unstable && a.rates.size() == b.rates.size()) {
        const auto j = static_cast<std::size_t>(std::min(a.marks.unstable, b.marks.unstable));
        return [j](const Sample& x) { return j < x.rates.size() ? x.rates[j] : NAN; };
    }
    for (std::size_t j = 0; j < a.tests.size(); ++j)
        if ((what.tests >> j & 1U) != 0)
            return [j](const Sample& x) { return j < x.tests.size() ? x.tests[j].value : NAN; };
    return {};
}

void Search::record(const Decoded& what, const Sample& before, const Sample& at,
                    const Sample& after, double error, std::string reason) {
    Located located{what, at, before, after, error, std::move(reason)};
    sink_(located);
}

void Search::unresolved(const Decoded& what, const Sample& a, const Sample& b, std::string reason) {
    Sample middle;
    const bool computed = sampler_.near(a, b, a.s + 0.5 * (b.s - a.s), 0.1 * least_, middle);
    record(what, a, computed ? middle : a, b, b.s - a.s, std::move(reason));
}

// Where indicators are noise they are so in many places of the step: these make one record, named
// after the first of them, with the interval that holds all.
void Search::blur(const Decoded& what, const Sample& a, const Sample& b, std::string reason) {
    if (blurred_.reason.empty()) {
        blurred_ = {what, a, a, b, b.s - a.s, std::move(reason)};
        blurred_.what.consistent = false;
        return;
    }
    if (a.s < blurred_.before.s) blurred_.before = a;
    if (b.s > blurred_.after.s) blurred_.after = b;
    blurred_.error = blurred_.after.s - blurred_.before.s;
}

// Whether counts of multipliers have changed while none comes near the unit circle: those of 1e20
// and more have signs and errors that nobody knows.
bool Search::far_from_crossing(const Decoded& what, const Sample& at) const {
    if (sampler_.names().flip.empty() || at.spectrum.empty() || what.tests != 0) return false;
    return std::none_of(at.spectrum.begin(), at.spectrum.end(), [](const Exponent& exponent) {
        return std::abs(exponent.value.real()) <= near_crossing;
    });
}

bool Search::look_alike(const Sample& a, const Sample& b) {
    Marks before;
    Marks after;
    count_unstable(a.spectrum, before);
    count_unstable(b.spectrum, after);
    return a.pdot * b.pdot > 0 && a.marks.beta == b.marks.beta &&
           before.unstable == after.unstable && before.real == after.real &&
           before.flip == after.flip;
}

// Between points so near to one another nothing has happened where nothing that is computed shows
// it, but only what was concluded from the rest of the branch. Nor has any multiplier crossed, for
// they are continuous, where as many are unstable and none is near the unit circle; what comes in
// pairs may have, beside a fold.
bool Search::noise_of_signs(const Decoded& what, const Sample& a, const Sample& b) const {
    if (what.tests == 0 && look_alike(a, b)) return true;
    const bool counted = a.marks.exponents > 0 && a.marks.unstable == b.marks.unstable;
    return counted && !what.fold && far_from_crossing(what, a) && far_from_crossing(what, b);
}

void Search::split(const Sample& a, const Sample& b, const Decoded& what, int depth) {
    Sample middle;
    if (!sample(a, b, a.s + 0.5 * (b.s - a.s), middle))
        return unresolved(what, a, b, "no solution was found between the ends of the bracket");
    later(a, middle, depth + 1);
    later(middle, b, depth + 1);
}

// NOLINTNEXTLINE(readability-function-cognitive-complexity): one decision after another
void Search::around(const Sample& a, const Sample& b, const Decoded& what, const Root& root,
                    int depth) {
    const bool whole = b.s - a.s > 4 * narrow * step_;
    const double e = std::max({whole ? narrow * step_ : 0, least_, root.error});
    Sample before, after;
    const double lo = std::max(a.s, root.s - e);
    const double hi = std::min(b.s, root.s + e);
    const bool first = lo == a.s;
    const bool last = hi == b.s;
    if ((!first && !sample(a, b, lo, before)) || (!last && !sample(a, b, hi, after)))
        return unresolved(what, a, b, "no solution was found beside the root");
    if (first) before = a;
    if (last) after = b;
    const Decoded inner = sampler_.decode(before, after);
    if (inner.consistent && inner.count() == 1) {
        Sample at = root.at;
        if (at.z.empty() && !sampler_.near(before, after, root.s, 1e-3 * (hi - lo), at))
            at = before;
        const bool refined_later = sampler_.problem().location_tolerance() > 0;
        if (!refined_later && !inner.branch && !inner.curved && !inner.real_pairs)
            sampler_.refine(at);
        if (!first) later(a, before, depth + 1);
        if (far_from_crossing(inner, at)) {
            if (!noise_of_signs(inner, before, after))
                blur(inner, before, after, "no multiplier comes near the unit circle");
        } else {
            record(inner, before, at, after, root.error, {});
        }
        if (!last) later(after, b, depth + 1);
        return;
    }
    if (inner.count() == 0 && first && last) return unresolved(what, a, b, "no sign change found");
    // Where nothing changes at the root, dp/ds has one that is noise (its sign is then taken from
    // the exponents): what does change is in one of the remainders.
    if (!first) later(a, before, depth + 1);
    if (inner.count() > 0 || !inner.consistent) later(before, after, depth + 1);
    if (!last) later(after, b, depth + 1);
}

void Search::look(const Sample& a, const Sample& b, int depth) {
    const Decoded what = sampler_.decode(a, b);
    if (what.consistent && what.count() == 0) return;
    if (b.s - a.s <= 2.5 * least_ || depth >= deepest) {
        if (what.count() == 0)
            return;  // noise of the determinant next to an event that is recorded
        if (noise_of_signs(what, a, b)) return;
        if (!what.consistent)
            return blur(what, a, b, "tangent, determinant and exponents disagree");
        return unresolved(what, a, b, "the events coincide");
    }
    const SampleFunction phi = what.consistent ? test_function(what, a, b) : SampleFunction{};
    if (!phi) return split(a, b, what, depth);
    const bool singular = what.branch || what.curved || what.real_pairs;
    sampler_.share_factors(!singular);
    const double least = sampler_.problem().location_tolerance();
    const Root root = find_root(sampler_, phi, a, b, std::max(singular ? 1e-8 : 0, least) * step_,
                                least > 0 && !singular);
    if (!root.found) return split(a, b, what, depth);
    around(a, b, what, root, depth);
}

}  // namespace

void find_events(Sampler& sampler, const Sample& a, const Sample& b,
                 const std::function<void(Located&)>& sink) {
    Search(sampler, b.s - a.s, sink).run(a, b);
}

// The parabola is f1 + d (s - s1) + c (s - s1)(s - s2), d the difference quotient from s1 to s2.
double Extremum::suspect() const {
    const double d = (f[2] - f[1]) / (s[2] - s[1]);
    const double c = (d - (f[1] - f[0]) / (s[1] - s[0])) / (s[2] - s[0]);
    if (!(f[1] * f[2] > 0) || !(c * f[1] > 0)) return NAN;
    const double place = 0.5 * (s[1] + s[2] - d / c);
    if (!(place > lo && place < hi)) return NAN;
    const double value = f[1] + d * (place - s[1]) + c * (place - s[1]) * (place - s[2]);
    const double small = suspicious * std::min(std::abs(f[1]), std::abs(f[2]));
    if (!(value * f[1] <= 0) && std::abs(value) > small) return NAN;
    const double margin = 0.02 * (hi - lo);
    return std::clamp(place, lo + margin, hi - margin);
}

bool Extremum::narrow(double place, double value) {
    // The new place and its neighbours among lo, hi and the old places.
    double left = lo, f_left = NAN, right = hi, f_right = NAN;
    for (int i = 0; i < 3; ++i) {
        if (s[i] >= left && s[i] < place) left = s[i], f_left = f[i];
        if (s[i] <= right && s[i] > place) right = s[i], f_right = f[i];
    }
    if (!(std::abs(value) < std::min(std::abs(f_left), std::abs(f_right)))) return false;
    *this = {{left, place, right}, {f_left, value, f_right}, left, right};
    return true;
}

}  // namespace trajex
