// The driver. One step:
//
//     predict z0 + h t,  correct on the hyperplane <t, z - z0> = h,  tangent, exponents
//     guards: distance from the prediction, angle of the tangents, what the problem itself knows
//     window: a point outside is replaced by the one on the bound
//     events between z0 and the new point, ends of the run among them
//     accept: the problem renews its scales, phase, mesh
//
// Step lengths follow the contraction of Newton's method, the distance to the prediction and the
// angle: C. den Heijer and W. C. Rheinboldt, SIAM J. Numer. Anal. 18 (1981) 925.

#include "branches/continuer.hpp"

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <limits>
#include <numbers>
#include <string_view>
#include <utility>

#include "branches/locate.hpp"
#include "linalg/vectors.hpp"

namespace trajex {
namespace {

constexpr double ideal_contraction = 0.25;
constexpr double ideal_distance = 0.25;  // of prediction and solution, over h
constexpr double ideal_angle = 0.25;     // radians
constexpr double largest_distance = 0.5;
constexpr double largest_angle = 0.5;
constexpr double half_steps_agree = 1e-3;  // over h
constexpr double on_smooth_piece = 0.02;
constexpr double far_from_zero = 10;   // logarithms of multipliers that will not be 0 in a step,
constexpr double same_solution = -5;   // nor on another mesh
constexpr double spectral_jump = 0.3;  // of the largest exponent: what may not cross 0 in one step
constexpr int patience = 6;            // rejections for indicators that contradict one another
constexpr double returned = 1e-6;      // scaled distance of equal solutions
constexpr double rounding = 1e-13;
constexpr int hidden_steps = 4;
constexpr std::size_t most_events = 200;      // on a branch: more are noise,
constexpr std::size_t most_searched = 20000;  // and linearisations made to find them

tx::StopReason stop_reason(std::string_view text) {
    using enum tx::StopReason::Value;
    if (text == "hopf") return hopf;
    if (text == "homoclinic_suspected") return homoclinic_suspected;
    if (text == "resolution") return resolution;
    if (text == "period_bound") return period_bound;
    if (text == "norm_bound") return norm_bound;
    if (text == "branch_point") return branch_point;
    if (text == "user") return user;
    return inconsistent;
}

/// A place of the step where the run ends.
struct Ending {
    double s = std::numeric_limits<double>::infinity();
    tx::StopReason reason;
    std::string detail;
};

class Continuer {
  public:
    Continuer(Problem& problem, const RunSettings& settings)
        : problem_(problem), settings_(settings), sampler_(problem, settings.tol) {}

    Trace run(const std::vector<double>& z, const std::vector<double>& tangent);

  private:
    bool begin(const std::vector<double>& z, const std::vector<double>& tangent);
    void remember_start();
    void forget_start_row();
    double beyond_start(const Sample& x) const;
    double distance_from_start(const Sample& x) const;
    bool outward() const;
    bool advance();
    void stop(tx::StopReason reason, std::string detail);

    bool attempt(double h);
    bool defined_ahead();
    bool predict_and_correct(double h);
    bool land(double h);
    bool guards(double h);
    bool half_steps_agree_with(double h);
    bool contradiction();
    bool spectrum_moved_much() const;
    bool spectrum_jumped() const;
    void next_step_length(double g);
    void reject(double factor);

    bool finish_step();
    void find_specials();
    void finish_event(Located& located);
    void find_hidden();
    bool find_hidden_of(const SampleFunction& phi);
    std::string event_type(const Located& located) const;
    bool is_multiple(const Decoded& what) const;
    double event_slope(const Located& located) const;
    double location_error(const Located& located) const;
    void judge(const Located& located, Finding& finding) const;
    void search(const Sample& a, const Sample& b);
    Ending closing();
    Ending watched_crossings();
    bool accept();
    bool renew(bool changed);
    void find_bend(double distance);
    void turn_bend(double unit);
    void add_mesh_errors(TracePoint& point, const TracePoint& beside) const;
    bool correct_anew(const Sample& rough);
    TracePoint trace_point(const Sample& sample, double s);
    bool said_before(const Finding& finding);
    void file(Finding finding, double s);
    bool wanted(const std::string& type) const;
    double work() const { return sampler_.work() + examined_; }
    double parameter_width(std::size_t j) const {
        return settings_.windows[j].hi - settings_.windows[j].lo;
    }

    Problem& problem_;
    const RunSettings& settings_;
    Sampler sampler_;
    Trace trace_;

    Sample present_, next_, before_;  // accepted, under trial, accepted before the present one
    bool has_before_ = false;
    double s_before_ = 0;  // of before_, along the present step: negative
    std::vector<double> predicted_, fixed_row_;
    std::vector<double> bend_, twist_;  // derivatives of the tangent at present_; empty: not known
    std::vector<double> watched_values_, next_watched_;

    double h_ = 0;
    int wait_ = 0;  // steps until h may grow again
    int contradictions_ = 0;
    double contradicted_ = 0;  // step length at the first of them
    std::string trouble_;      // why the last attempt failed
    bool not_computable_ = false;
    bool landed_ = false;
    std::size_t landed_parameter_ = 0;  // that is on its bound
    double landed_bound_ = 0;
    std::size_t completed_ =
        0;  // evaluations when next_ was complete: later ones moved the problem
    std::vector<double> linear_;
    std::size_t events_ = 0;    // found so far,
    double examined_ = 0;       // work done on them,
    std::size_t searched_ = 0;  // and evaluations made for them

    std::vector<double> start_row_;    // of the function that is as at the start; empty: it is
    std::size_t start_parameter_ = 0;  // the start's value of this parameter,
    double start_sign_ = 1;            // that grows there, or falls
    double start_value_ = 0;
    bool rediscretised_ = false;
};

// ---- Begin and end ----

void Continuer::stop(tx::StopReason reason, std::string detail) {
    trace_.stop = reason;
    trace_.stop_detail = std::move(detail);
}

bool Continuer::begin(const std::vector<double>& z, const std::vector<double>& tangent) {
    sampler_.refresh();
    present_.z = z;
    present_.tangent = tangent;
    if (!sampler_.metric().normalise(present_.tangent.data())) {
        stop(tx::StopReason::not_computable, "no tangent at the start");
        return false;
    }
    const std::vector<double> direction = present_.tangent;
    if (!sampler_.correct_along(present_, direction, z, 0)) {
        present_.z = z;
        stop(tx::StopReason::not_computable,
             "the start is not a solution, and Newton's method finds none beside it");
        return false;
    }
    const std::size_t p = z.size() - problem_.active_parameters();
    for (std::size_t j = 0; p + j < z.size(); ++j)  // on the window's edge exactly, if it was
        for (const double bound : {settings_.windows[j].lo, settings_.windows[j].hi})
            if (std::abs(present_.z[p + j] - bound) < rounding * parameter_width(j))
                present_.z[p + j] = bound;
    if (!sampler_.complete(present_, direction, direction[p] < 0 ? -1 : 1)) {
        stop(tx::StopReason::not_computable, "the tangent at the start is not determined");
        return false;
    }
    h_ = std::min(settings_.h_first, settings_.h_max);
    sampler_.remember(present_, far_from_zero);
    remember_start();
    return true;
}

// The run has closed when the parameter that varies most at the start comes back to its value in
// the same direction and the solutions agree (cycles of any phase); where parameters vary little,
// the coordinate along the first tangent, as long as there is one discretisation.
void Continuer::remember_start() {
    const std::size_t first = present_.z.size() - problem_.active_parameters();
    const auto along = [&](std::size_t j) {
        return std::abs(present_.tangent[first + j]) *
               std::sqrt(sampler_.metric().weights()[first + j]);
    };
    start_parameter_ = 0;
    for (std::size_t j = 1; first + j < present_.z.size(); ++j)
        if (along(j) > along(start_parameter_)) start_parameter_ = j;
    start_sign_ = present_.tangent[first + start_parameter_] < 0 ? -1 : 1;
    start_row_.clear();
    if (!(along(start_parameter_) > 0.3)) {
        start_row_.resize(present_.z.size());
        sampler_.metric().row(present_.tangent.data(), start_row_.data());
    }
    start_value_ = 0;
    start_value_ = beyond_start(present_);
}

// Grows through 0 where the run may close.
double Continuer::beyond_start(const Sample& x) const {
    const std::size_t first = x.z.size() - problem_.active_parameters();
    const double value =
        start_row_.empty() ? start_sign_ * x.z[first + start_parameter_] : dot(start_row_, x.z);
    return value - start_value_;
}

double Continuer::distance_from_start(const Sample& x) const {
    const TracePoint& start = trace_.points.front();
    return rediscretised_ ? problem_.distance_from(x.z.data(), start.z, start.description)
                          : problem_.distance(x.z.data(), start.z.data());
}

// On the window's edge and about to leave it.
bool Continuer::outward() const {
    const std::size_t k = problem_.active_parameters();
    const std::size_t first = present_.z.size() - k;
    for (std::size_t j = 0; j < k; ++j) {
        const tx::Window& window = settings_.windows[j];
        const double margin = rounding * parameter_width(j);
        const double slope = present_.tangent[first + j] / parameter_width(j);
        if (present_.z[first + j] >= window.hi - margin && slope > 1e-6) return true;
        if (present_.z[first + j] <= window.lo + margin && slope < -1e-6) return true;
    }
    return false;
}

Trace Continuer::run(const std::vector<double>& z, const std::vector<double>& tangent) {
    const bool begun = begin(z, tangent);
    trace_.points.push_back(trace_point(present_, 0));
    if (begun) {
        watched_values_.clear();
        for (const Watched& watched : settings_.watched)
            watched_values_.push_back(watched.value(trace_.points.back()));
        if (outward())
            stop(tx::StopReason::parameter_bound, "at the window's edge");
        else
            while (advance()) {
            }
    }
    std::stable_sort(trace_.specials.begin(), trace_.specials.end(),
                     [](const TraceSpecial& a, const TraceSpecial& b) { return a.s < b.s; });
    trace_.evaluations = sampler_.evaluations();
    trace_.work = work();
    return std::move(trace_);
}

// ---- One step ----

void Continuer::reject(double factor) {
    h_ *= factor;
    wait_ = 2;
}

bool Continuer::advance() {
    if (trace_.points.size() >= settings_.max_points) {
        stop(tx::StopReason::max_points, std::to_string(settings_.max_points) + " points");
        return false;
    }
    if (work() >= settings_.max_work) {
        stop(tx::StopReason::work_bound, "linear systems of " +
                                             std::to_string(std::llround(work())) +
                                             " unknowns in all were solved");
        return false;
    }
    contradictions_ = 0;
    while (!attempt(h_)) {
        reject(0.5);
        if (contradictions_ == patience) h_ = contradicted_, ++contradictions_;
        if (h_ >= settings_.h_min) continue;
        if (not_computable_ || !defined_ahead())
            stop(tx::StopReason::not_computable, "the equations are not computable further on");
        else
            stop(tx::StopReason::step_too_small, trouble_);
        return false;
    }
    return finish_step();
}

// Whether the equations can be computed where the tangent leads.
bool Continuer::defined_ahead() {
    for (std::size_t i = 0; i < predicted_.size(); ++i)
        predicted_[i] = present_.z[i] + settings_.h_first * present_.tangent[i];
    linear_.resize(problem_.equations());
    return problem_.residual(predicted_.data(), linear_.data());
}

bool Continuer::predict_and_correct(double h) {
    predicted_.resize(present_.z.size());
    next_.z.resize(present_.z.size());
    for (std::size_t i = 0; i < predicted_.size(); ++i) {
        predicted_[i] = present_.z[i] + h * present_.tangent[i];
        if (!bend_.empty()) predicted_[i] += h * h * (0.5 * bend_[i] + h / 6 * twist_[i]);
    }
    next_.z = predicted_;
    if (sampler_.correct_along(next_, present_.tangent, present_.z, h)) return true;
    not_computable_ = next_.newton.outcome == BorderedNewton::Outcome::not_computable;
    trouble_ = not_computable_ ? "the equations are not computable further on"
                               : "Newton's method does not converge";
    // At a sharp turn the chord through the last two points may lead further than the tangent.
    if (not_computable_ || !has_before_ || before_.z.size() != next_.z.size()) return false;
    const double r = h / -s_before_;
    for (std::size_t i = 0; i < predicted_.size(); ++i)
        next_.z[i] = present_.z[i] + r * (present_.z[i] - before_.z[i]);
    return sampler_.correct_along(next_, present_.tangent, present_.z, h);
}

// The point where the branch leaves the window, if the new point is outside: that parameter is
// fixed.
bool Continuer::land(double h) {
    landed_ = false;
    const std::size_t k = problem_.active_parameters();
    const std::size_t first = next_.z.size() - k;
    double nearest = 2;
    std::size_t chosen = 0;
    double bound = 0;
    for (std::size_t j = 0; j < k; ++j) {
        const double from = present_.z[first + j];
        const double to = next_.z[first + j];
        const double margin = rounding * parameter_width(j);  // on the edge, but for the last bits
        const bool above = to > settings_.windows[j].hi - margin;
        if (!above && to >= settings_.windows[j].lo + margin) continue;
        const double limit = above ? settings_.windows[j].hi : settings_.windows[j].lo;
        const double r = to == from ? 1 : std::clamp((limit - from) / (to - from), 0.0, 1.0);
        if (r >= nearest) continue;
        nearest = r, chosen = first + j, bound = limit;
    }
    if (nearest > 1) return true;
    for (std::size_t i = 0; i < next_.z.size(); ++i) {  // parabola as between any two points
        const double bend = next_.z[i] - present_.z[i] - h * present_.tangent[i];
        next_.z[i] = present_.z[i] + nearest * h * present_.tangent[i] + nearest * nearest * bend;
    }
    fixed_row_.assign(next_.z.size(), 0.0);
    fixed_row_[chosen] = 1;
    if (!sampler_.correct(next_, fixed_row_.data(), bound)) {
        trouble_ = "the solution on the window's edge is not found";
        return false;
    }
    next_.z[chosen] = bound;
    landed_ = true;
    landed_parameter_ = chosen - first;
    landed_bound_ = bound;
    return true;
}

bool Continuer::attempt(double h) {
    not_computable_ = false;
    if (!predict_and_correct(h) || !land(h)) return false;
    next_.s = 0;
    const auto& w = sampler_.metric().weights();
    for (std::size_t i = 0; i < w.size(); ++i)
        next_.s += w[i] * present_.tangent[i] * (next_.z[i] - present_.z[i]);
    if (landed_ && !(next_.s > 0 && next_.s <= 1.001 * h)) {
        trouble_ = "the solution on the window's edge is on another branch";
        return false;
    }
    if (!sampler_.complete(next_, present_.tangent, present_.marks.sigma)) {
        trouble_ = "the tangent is not determined";
        return false;
    }
    completed_ = sampler_.evaluations();
    sampler_.mark_again(present_);
    return guards(next_.s);
}

// ---- Guards against jumps, and the step length ----

bool Continuer::guards(double h) {
    const Metric& metric = sampler_.metric();
    double distance = 0;
    for (std::size_t i = 0; i < next_.z.size(); ++i) {
        const double d = next_.z[i] - present_.z[i] - h * present_.tangent[i];
        distance += metric.weights()[i] * d * d;
    }
    distance = std::sqrt(distance) / h;
    const double cosine = metric.dot(present_.tangent.data(), next_.tangent.data());
    const double angle = std::acos(std::clamp(cosine, -1.0, 1.0));
    // Two corrections are as few as there can be: the second may be rounding.
    const double contraction = next_.newton.iterations > 2 ? next_.newton.contraction : 0;
    const double g = std::max({std::sqrt(contraction / ideal_contraction),
                               std::sqrt(distance / ideal_distance), angle / ideal_angle});
    trouble_ = "the branch turns too sharply";
    if (distance > largest_distance || angle > largest_angle || !(g <= 2)) return false;
    trouble_ = "neighbouring points do not belong together";
    if (!problem_.neighbours(present_.z.data(), next_.z.data())) return false;
    trouble_ = "the exponents are not computed";
    if (next_.rates.size() != present_.rates.size() && contradiction()) return false;
    trouble_ = "exponents jump";
    if (h > settings_.h_first / 8 && spectrum_jumped()) return false;
    trouble_ = "tangent, determinant and exponents disagree";
    if (!sampler_.decode(present_, next_).consistent && contradiction()) return false;
    trouble_ = "two half steps lead elsewhere";
    if ((angle > ideal_angle || spectrum_moved_much()) && !half_steps_agree_with(h)) return false;
    next_step_length(g);
    return true;
}

// Shorter steps are tried a few times; if they do not help, the first one is as good, and what
// cannot be told apart in it is recorded.
bool Continuer::contradiction() {
    if (contradictions_ >= patience) return false;
    if (contradictions_++ == 0) contradicted_ = h_;
    return true;
}

bool Continuer::spectrum_moved_much() const {
    const auto& a = present_.rates;
    const auto& b = next_.rates;
    if (a.size() != b.size() || a.empty()) return false;
    const double spread = std::max(a.front() - a.back(), std::abs(a.front()));
    for (std::size_t i = 0; i < a.size(); ++i)
        if (std::abs(a[i] - b[i]) > 0.5 * spread) return true;
    return false;
}

// A rate goes from well on the one side of 0 to well on the other.
bool Continuer::spectrum_jumped() const {
    const auto& a = present_.rates;
    const auto& b = next_.rates;
    if (a.size() != b.size() || a.empty()) return false;
    double largest = 0;
    for (const Exponent& exponent : present_.spectrum)
        largest = std::max(largest, std::abs(exponent.value));
    const double x = spectral_jump * largest;
    for (std::size_t i = 0; i < a.size(); ++i)
        if ((a[i] > x && b[i] < -x) || (a[i] < -x && b[i] > x)) return true;
    return false;
}

// From the solution half way, along its own tangent, to the hyperplane of the new point. The cubic
// through both points meets that solution, where they belong to one smooth piece; where a branch
// turns sharply away from another one, and the new point is on the other, it goes in between. (It
// misses cycles, too, whose fast motions come earlier or later along the branch.)
bool Continuer::half_steps_agree_with(double h) {
    sampler_.set_step(present_, next_);
    Sample middle, there;
    if (!sampler_.at(0.5 * h, middle)) return false;
    const bool cycles = !sampler_.names().flip.empty();
    if (!cycles && sampler_.missed() > on_smooth_piece * h) return false;
    const double cosine = sampler_.metric().dot(present_.tangent.data(), middle.tangent.data());
    there.z = middle.z;
    for (std::size_t i = 0; i < there.z.size(); ++i)
        there.z[i] += 0.5 * h / cosine * middle.tangent[i];
    return sampler_.correct_along(there, present_.tangent, present_.z, h) &&
           sampler_.metric().distance(there.z.data(), next_.z.data()) <= half_steps_agree * h;
}

void Continuer::next_step_length(double g) {
    double factor = 1 / std::clamp(g, 0.5, 2.0);
    if (wait_ > 0 && factor > 1) factor = 1;
    if (wait_ > 0) --wait_;
    h_ = std::min(h_ * factor, settings_.h_max);
}

// ---- What happened in the step ----

bool Continuer::finish_step() {
    sampler_.set_step(present_, next_);
    next_watched_.clear();
    Ending ending = closing();
    const Ending watched = watched_crossings();
    if (watched.s < ending.s) ending = watched;
    Sample last;
    if (ending.s < next_.s && sampler_.at(ending.s, last)) {
        next_ = std::move(last);
        sampler_.set_step(present_, next_);
    }
    find_specials();
    const bool ended = ending.s < std::numeric_limits<double>::infinity();
    if (ended) stop(ending.reason, ending.detail);
    if (!accept()) return false;
    const TracePoint& point = trace_.points.back();
    if (settings_.on_point && !settings_.on_point(point)) {
        stop(tx::StopReason::cancelled, "by the application");
        return false;
    }
    if (ended) return false;
    if (events_ > most_events || searched_ > most_searched) {
        stop(tx::StopReason::inconsistent,
             events_ > most_events ? "more than " + std::to_string(most_events) + " special points"
                                   : "special points are too hard to tell apart");
        return false;
    }
    if (landed_) {
        stop(tx::StopReason::parameter_bound, {});
        return false;
    }
    Finding finding;
    const std::string_view end = problem_.end(present_.z.data(), finding);
    if (!end.empty()) {
        const std::string detail = finding.type.empty() ? finding.reason : std::string();
        if (!finding.type.empty()) file(std::move(finding), point.s);
        stop(stop_reason(end), detail);
        return false;
    }
    if (settings_.known) {
        std::string name = settings_.known(point);
        if (!name.empty()) {
            stop(tx::StopReason::known_branch, std::move(name));
            return false;
        }
    }
    return true;
}

Ending Continuer::closing() {
    Ending ending;
    if (trace_.points.size() < 3) return ending;
    if (!(beyond_start(present_) < 0 && beyond_start(next_) >= 0)) return ending;
    const double reach = sampler_.metric().distance(present_.z.data(), next_.z.data());
    if (distance_from_start(next_) > 1.5 * reach + 0.01) return ending;
    const auto value = [this](const Sample& x) { return beyond_start(x); };
    const Root root = find_root(sampler_, value, present_, next_, 0);
    Sample back;
    if (!root.found || !sampler_.at(root.s, back)) return ending;
    const double accuracy = rediscretised_ ? 5 * problem_.slope_noise() : 0;
    if (distance_from_start(back) > returned + accuracy) return ending;
    const std::vector<double>& start = trace_.points.front().tangent;
    if (!rediscretised_ && sampler_.metric().dot(back.tangent.data(), start.data()) < 0)
        return ending;
    ending.s = root.s;
    ending.reason = tx::StopReason::closed;
    ending.detail = "back at the start";
    return ending;
}

Ending Continuer::watched_crossings() {
    Ending ending;
    if (settings_.watched.empty()) return ending;
    const double s0 = trace_.points.back().s;
    const TracePoint point = trace_point(next_, s0 + next_.s);
    for (std::size_t j = 0; j < settings_.watched.size(); ++j) {
        const Watched& watched = settings_.watched[j];
        const double a = watched_values_[j];
        const double b = watched.value(point);
        next_watched_.push_back(b);
        if (!((a < 0 && b >= 0) || (a > 0 && b <= 0))) continue;
        const SampleFunction value = [&](const Sample& x) {
            if (&x == &present_) return a;
            if (&x == &next_) return b;
            return watched.value(trace_point(x, s0 + x.s));
        };
        const Root root =
            b == 0 ? Root{true, next_.s, 0} : find_root(sampler_, value, present_, next_, 0);
        Finding finding;
        finding.type = "UZ";
        finding.subtype = watched.name;
        Sample at;
        if (!root.found || !sampler_.at(root.s, at)) {
            finding.status = "unresolved";
            finding.reason = "the zero of the function was not located";
            at = next_;
        }
        const std::size_t p = at.z.size() - problem_.active_parameters();
        finding.z = at.z;
        finding.tangent = at.tangent;
        finding.spectrum = at.spectrum;
        finding.error = std::abs(at.tangent[p]) * root.error;
        finding.bracket[0] = std::min(present_.z[p], next_.z[p]);
        finding.bracket[1] = std::max(present_.z[p], next_.z[p]);
        file(std::move(finding), s0 + root.s);
        if (watched.stops && root.found && root.s < ending.s)
            ending = {root.s, tx::StopReason::user, watched.name};
    }
    return ending;
}

// ---- Special points ----

void Continuer::find_specials() {
    if (!settings_.detect.everything && settings_.detect.types.empty()) return;
    const std::size_t before = sampler_.evaluations();
    search(present_, next_);
    find_hidden();
    searched_ += sampler_.evaluations() - before;
}

void Continuer::search(const Sample& a, const Sample& b) {
    find_events(sampler_, a, b, [this](Located& located) { finish_event(located); });
}

// Roots in pairs between two points, seen by no count: where a test function comes near 0 inside
// the step, a solution is computed there, and both parts of the step are decoded.
void Continuer::find_hidden() {
    if (!has_before_ || sampler_.decode(present_, next_).count() > 0) return;
    if (find_hidden_of([](const Sample& x) { return x.pdot; })) return;
    for (std::size_t j = 0; j < next_.rates.size(); ++j)
        if (find_hidden_of([j](const Sample& x) { return j < x.rates.size() ? x.rates[j] : NAN; }))
            return;
    for (std::size_t j = 0; j < next_.tests.size(); ++j)
        if (find_hidden_of(
                [j](const Sample& x) { return j < x.tests.size() ? x.tests[j].value : NAN; }))
            return;
}

bool Continuer::find_hidden_of(const SampleFunction& phi) {
    Extremum search{{s_before_, 0, next_.s}, {phi(before_), phi(present_), phi(next_)}, 0, next_.s};
    for (int k = 0; k < hidden_steps; ++k) {
        const double s = search.suspect();
        Sample middle;
        if (std::isnan(s) || !sampler_.at(s, middle)) return false;
        if (sampler_.decode(present_, middle).count() > 0) {
            this->search(present_, middle);
            this->search(middle, next_);
            return true;
        }
        if (!search.narrow(s, phi(middle))) return false;
    }
    return false;
}

void Continuer::finish_event(Located& located) {
    Finding finding;
    finding.type = event_type(located);
    if (finding.type.empty() || !wanted(finding.type) || ++events_ > most_events) return;
    const Sample& at = located.at;
    const std::size_t p = at.z.size() - problem_.active_parameters();
    const auto [least, most] = std::minmax({located.before.z[p], at.z[p], located.after.z[p]});
    finding.bracket[0] = least;
    finding.bracket[1] = most;
    finding.z = at.z;
    finding.tangent = at.tangent;
    if (located.what.branch || located.what.curved || located.what.real_pairs) {
        // Where the kernel is larger any vector of it is a tangent to the solver.
        for (std::size_t i = 0; i < finding.tangent.size(); ++i)
            finding.tangent[i] = 0.5 * (located.before.tangent[i] + located.after.tangent[i]);
    }
    finding.spectrum = at.spectrum;
    finding.slope = event_slope(located);
    finding.error = location_error(located);
    judge(located, finding);
    if (finding.status == "located") {
        problem_.examine(finding);
        examined_ += finding.work;
        const double margin = (most - least) + 1e-9 * parameter_width(0);
        const bool inside = finding.z[p] >= finding.bracket[0] - margin &&
                            finding.z[p] <= finding.bracket[1] + margin;
        if (!inside) finding.z = at.z;  // a polish that left the bracket found something else
    }
    file(std::move(finding), trace_.points.back().s + at.s);
}

std::string Continuer::event_type(const Located& located) const {
    const Decoded& what = located.what;
    const EventNames& names = sampler_.names();
    std::string result;
    const auto add = [&result](std::string_view name) {
        if (name.empty()) return;
        if (!result.empty()) result += '+';
        result += name;
    };
    if (is_multiple(what)) return std::string(names.branch);
    if (what.fold) add(names.fold);
    if (what.branch || what.curved) add(names.branch);
    if (what.real != 0) add(names.real);
    if (what.flip != 0) add(names.flip);
    for (int k = 0; k < std::abs(what.pairs); ++k)
        add(what.real_pairs && !names.branch.empty() ? names.branch : names.pair);
    for (std::size_t j = 0; j < located.at.tests.size() && j < 32; ++j)
        if ((what.tests >> j & 1U) != 0) add(located.at.tests[j].name);
    if (result.empty() && !what.consistent) result = "?";
    return result;
}

// Several real exponents cross at once: more than one branch crosses this one, as symmetry makes
// it.
bool Continuer::is_multiple(const Decoded& what) const {
    return what.real_pairs && what.consistent && !what.fold && !what.curved && what.flip == 0 &&
           what.tests == 0 && !sampler_.names().branch.empty();
}

// The coordinate of the step is longer by 1 / cos than arclength at the point.
double Continuer::event_slope(const Located& located) const {
    const Sample& before = located.before;
    const Sample& after = located.after;
    const auto j = static_cast<std::size_t>(std::min(before.marks.unstable, after.marks.unstable));
    double change = after.pdot - before.pdot;
    if (!located.what.fold) {
        if (j >= before.rates.size() || j >= after.rates.size()) return 0;
        change = after.rates[j] - before.rates[j];
    }
    const double cosine = sampler_.metric().dot(present_.tangent.data(), located.at.tangent.data());
    const double slope = cosine * change / (after.s - before.s);
    return std::isfinite(slope) ? slope : 0;
}

// Of the parameter: from the bracket of the root, the error of the exponents over their slope, and
// the accuracy of the solution itself.
double Continuer::location_error(const Located& located) const {
    const Sample& at = located.at;
    const std::size_t p = at.z.size() - problem_.active_parameters();
    const double width = located.after.s - located.before.s;
    double along = located.error;
    if (!located.what.fold && !located.what.curved && located.what.tests == 0) {
        const auto j = static_cast<std::size_t>(
            std::min(located.before.marks.unstable, located.after.marks.unstable));
        double error = 0;
        for (const Exponent& exponent : at.spectrum) error = std::max(error, exponent.error);
        if (j < located.before.rates.size() && j < located.after.rates.size() && width > 0) {
            const double change = std::abs(located.after.rates[j] - located.before.rates[j]);
            if (change > 0) along += std::min(width, error * width / change);
        }
    }
    const double unit = 1 / std::sqrt(sampler_.metric().weights()[p]);
    const double bend =
        width > 0 ? std::abs(located.after.tangent[p] - located.before.tangent[p]) / width : 0;
    return std::abs(at.tangent[p]) * along + bend * along * along + at.newton.correction * unit +
           8 * std::numeric_limits<double>::epsilon() * (std::abs(at.z[p]) + unit);
}

// A located event must be what it is called; else it is kept with the reason why it is not
// believed.
void Continuer::judge(const Located& located, Finding& finding) const {
    if (!located.reason.empty() && !is_multiple(located.what)) {
        const bool several = located.what.consistent && located.what.count() > 1;
        finding.status = several ? "coincident" : "unresolved";
        finding.reason = located.reason;
        return;
    }
    if (is_multiple(located.what)) finding.subtype = "multiple";
    if (!located.what.curved || located.at.spectrum.empty()) return;
    double least = std::numeric_limits<double>::infinity();
    double largest =
        0;  // at the ends of the step too: the only exponent may be the one that vanishes
    for (const Exponent& exponent : located.at.spectrum)
        least = std::min(least, std::abs(exponent.value) - 100 * exponent.error);
    for (const Sample* sample : {&located.at, &present_, &next_})
        for (const Exponent& exponent : sample->spectrum)
            largest = std::max(largest, std::abs(exponent.value));
    if (least <= 1e-3 * largest) return;
    finding.status = "unresolved";
    finding.reason = "no exponent vanishes where the branch turns";
}

bool Continuer::wanted(const std::string& type) const {
    const auto& types = settings_.detect.types;
    return settings_.detect.everything ||
           std::find(types.begin(), types.end(), type) != types.end();
}

// ---- Results ----

TracePoint Continuer::trace_point(const Sample& sample, double s) {
    TracePoint point{sample.z,
                     sample.tangent,
                     sample.spectrum,
                     problem_.describe(sample.z.data()),
                     s,
                     sample.newton.iterations,
                     sample.newton.residual,
                     sample.newton.correction};
    problem_.add_critical(sample.z.data(), point.spectrum);
    return point;
}

// On a canard the noise of the mesh makes an event happen many times over.
bool Continuer::said_before(const Finding& finding) {
    constexpr double same_place = 1e-9;  // of the window
    if (finding.status != "unresolved" || trace_.specials.empty()) return false;
    Finding& last = trace_.specials.back().finding;
    if (last.status != finding.status || last.type != finding.type) return false;
    const std::size_t k = problem_.active_parameters();
    for (std::size_t j = 0; j < k; ++j) {
        const double moved = finding.z[finding.z.size() - k + j] - last.z[last.z.size() - k + j];
        if (std::abs(moved) > same_place * parameter_width(j)) return false;
    }
    last.bracket[0] = std::min(last.bracket[0], finding.bracket[0]);
    last.bracket[1] = std::max(last.bracket[1], finding.bracket[1]);
    constexpr std::string_view again = ", more than once";
    if (!last.reason.ends_with(again)) last.reason += again;
    return true;
}

void Continuer::file(Finding finding, double s) {
    if (said_before(finding)) return;
    Description description = problem_.describe(finding.z.data());
    problem_.add_critical(finding.z.data(), finding.spectrum);
    trace_.specials.push_back(
        {std::move(finding), std::move(description), trace_.points.size() - 1, s});
}

// The row belongs to the first discretisation; the parameter's value does not.
void Continuer::forget_start_row() {
    rediscretised_ = true;
    if (start_row_.empty()) return;
    const std::vector<double>& start = trace_.points.front().z;
    const std::size_t first = start.size() - problem_.active_parameters();
    start_row_.clear();
    start_value_ = start_sign_ * start[first + start_parameter_];
}

// In a new discretisation: on the hyperplane of the tangent, or on the window's edge still.
bool Continuer::correct_anew(const Sample& rough) {
    if (!landed_) return sampler_.correct_along(present_, rough.tangent, rough.z, 0);
    const std::size_t size = present_.z.size();
    const std::size_t chosen = size - problem_.active_parameters() + landed_parameter_;
    fixed_row_.assign(size, 0.0);
    fixed_row_[chosen] = 1;
    if (!sampler_.correct(present_, fixed_row_.data(), landed_bound_)) return false;
    present_.z[chosen] = landed_bound_;
    return true;
}

// The derivative of the tangent by the arclength of the present metric, in which the tangent was
// `unit` long; it is square to the tangent.
void Continuer::turn_bend(double unit) {
    double power = unit;
    for (std::vector<double>* const derivative : {&bend_, &twist_}) {
        power *= unit;
        const double along = sampler_.metric().dot(present_.tangent.data(), derivative->data());
        for (std::size_t i = 0; i < derivative->size(); ++i)
            (*derivative)[i] = ((*derivative)[i] - along * present_.tangent[i]) / power;
    }
}

// Exponents are wrong by what collocation makes of their growth on each segment, and by what the
// equations of the mesh are off, of which the solution is off the more the less the parameter
// changes along the branch: where its derivatives are p' and p'', by p' s + p'' s^2 / 2 = place.
void Continuer::add_mesh_errors(TracePoint& point, const TracePoint& beside) const {
    constexpr double margin = 3;
    constexpr double farthest = 1;
    const double distance = std::abs(point.s - beside.s);
    if (point.description.mesh_error == 0 || distance == 0) return;
    const double unit = std::sqrt(sampler_.metric().weights().back());
    const double slope = unit * std::abs(point.tangent.back());
    const double bend = unit * std::abs(point.tangent.back() - beside.tangent.back()) / distance;
    for (std::size_t j = 0; j < point.spectrum.size() && j < beside.spectrum.size(); ++j) {
        Exponent& exponent = point.spectrum[j];
        const std::complex<double> change = exponent.value - beside.spectrum[j].value;
        const double turned = std::remainder(change.imag(), 2 * std::numbers::pi);
        const double place = point.description.end_error + exponent.error;
        const double along = 2 * place / (slope + std::sqrt(slope * slope + 2 * bend * place));
        exponent.mesh_error =
            margin * exponent.mesh_error + place +
            std::min(along, farthest) * std::hypot(change.real(), turned) / distance;
    }
}

// Of the cubic through the last two points along their tangents.
void Continuer::find_bend(double distance) {
    const double cosine = sampler_.metric().dot(present_.tangent.data(), next_.tangent.data());
    const double angle = std::acos(std::clamp(cosine, -1.0, 1.0));
    const double d = distance * (1 + angle * angle / 24);  // the arc over the chord
    bend_.resize(next_.z.size());
    twist_.resize(next_.z.size());
    for (std::size_t i = 0; i < bend_.size(); ++i) {
        const double chord = (next_.z[i] - present_.z[i]) / d;
        const double a = present_.tangent[i] - chord;
        const double b = next_.tangent[i] - chord;
        bend_[i] = (2 * a + 4 * b) / d;
        twist_[i] = 6 * (a + b) / (d * d);
    }
}

// The present point in the scales that the problem has now. Where the discretisation was changed,
// the solution is corrected in it, and tangent, exponents and signs are found anew: next to canards
// the signs of two meshes need not agree.
bool Continuer::renew(bool changed) {
    sampler_.refresh();
    const double unit = sampler_.metric().norm(present_.tangent.data());
    if (!sampler_.metric().normalise(present_.tangent.data())) return false;
    if (changed) {
        const Sample rough = present_;
        sampler_.remember(rough, same_solution);
        if (!correct_anew(rough) || !sampler_.complete(present_, rough.tangent, rough.marks.sigma))
            return false;
    }
    turn_bend(unit);
    return true;
}

// The new point becomes the present one. A discretisation in which it is not found is not taken.
bool Continuer::accept() {
    const double distance = sampler_.metric().distance(present_.z.data(), next_.z.data());
    find_bend(distance);
    std::swap(before_, present_);
    std::swap(present_, next_);
    present_.s = 0;
    has_before_ = true;
    s_before_ = -distance;
    watched_values_ = next_watched_;
    if (sampler_.evaluations() != completed_) {
        linear_.resize(problem_.equations());
        problem_.linearise(present_.z.data(), linear_.data());
    }
    const Sample old = present_;  // its unknowns may become others in number
    const std::vector<double> old_bend = bend_;
    const std::vector<double> old_twist = twist_;
    bool changed = problem_.accepted(present_.z, {&present_.tangent, &bend_, &twist_});
    bool found = renew(changed);
    if (changed && !found) {
        changed = false;
        present_ = old;
        bend_ = old_bend;
        twist_ = old_twist;
        problem_.restore(present_.z.data());
        found = renew(false);
    }
    double moved = 0;  // by the new discretisation
    if (changed) {
        const std::size_t k = problem_.active_parameters();
        const auto parameter = [k](const std::vector<double>& z) { return z[z.size() - k]; };
        moved = std::abs(parameter(present_.z) - parameter(old.z)) *
                std::sqrt(parameter(sampler_.metric().weights()));
        forget_start_row();
    }
    sampler_.set_noise(moved, distance);
    sampler_.remember(present_, far_from_zero);
    TracePoint point = trace_point(present_, trace_.points.back().s + distance);
    add_mesh_errors(point, trace_.points.back());
    if (trace_.points.size() == 1) add_mesh_errors(trace_.points.front(), point);
    trace_.points.push_back(std::move(point));
    if (!found) stop(tx::StopReason::resolution, "the tangent vanishes");
    return found;
}

}  // namespace

RunSettings run_settings(const tx::Options& options, std::vector<tx::Window> windows) {
    RunSettings settings;
    settings.windows = std::move(windows);
    settings.max_points = options.max_points;
    settings.max_work = options.max_work;
    settings.h_max = options.h_max;
    settings.h_first = std::min(settings.h_first, options.h_max);
    settings.tol = options.tol;
    settings.detect = options.detect;
    return settings;
}

Trace follow_half(Problem& problem, const std::vector<double>& z,
                  const std::vector<double>& tangent, const RunSettings& settings) {
    return Continuer(problem, settings).run(z, tangent);
}

// ---- First tangents ----

namespace {

constexpr double well_conditioned = 1e-6;

/// Tangents from rows that are not orthogonal to them.
class FirstTangent {
  public:
    FirstTangent(Problem& problem, const std::vector<double>& z)
        : problem_(problem), metric_(problem), newton_(problem), z_(z), row_(z.size()) {}

    bool find(std::vector<double>& tangent) {
        const std::size_t p = z_.size() - problem_.active_parameters();
        row_.assign(z_.size(), 0.0);
        row_[p] = std::sqrt(metric_.weights()[p]);
        if (solve(tangent) && improve(tangent)) return true;
        for (unsigned seed = 1; seed <= 4; ++seed) {
            scatter(seed);
            if (solve(tangent) && improve(tangent)) return true;
        }
        return false;
    }

  private:
    bool solve(std::vector<double>& tangent) {
        return newton_.tangent(z_.data(), row_.data(), metric_, tangent, residual_) ==
               BorderedNewton::Outcome::converged;
    }

    // Once more with the tangent itself as the row; then the bordered matrix must be able to give
    // back a vector, which it is not where the kernel of F_z is larger.
    bool improve(std::vector<double>& tangent) {
        metric_.row(tangent.data(), row_.data());
        if (!solve(tangent)) return false;
        std::vector<double> known(z_.size());
        for (std::size_t i = 0; i < known.size(); ++i)
            known[i] =
                std::sin(1.0 + 2.0 * static_cast<double>(i)) / std::sqrt(metric_.weights()[i]);
        std::vector<double> back(z_.size());
        problem_.apply(known.data(), back.data());
        back.back() = dot(row_, known);
        problem_.solve(back.data());
        return metric_.distance(back.data(), known.data()) <=
               well_conditioned * metric_.norm(known.data());
    }

    void scatter(unsigned seed) {
        for (std::size_t i = 0; i < row_.size(); ++i)
            row_[i] = std::sin(static_cast<double>(seed) * (1.7 + 3.1 * static_cast<double>(i))) *
                      std::sqrt(metric_.weights()[i]);
    }

    Problem& problem_;
    Metric metric_;
    BorderedNewton newton_;
    const std::vector<double>& z_;
    std::vector<double> row_;
    double residual_ = 0;
};

}  // namespace

bool first_tangent(Problem& problem, const std::vector<double>& z, bool up,
                   std::vector<double>& tangent) {
    if (!FirstTangent(problem, z).find(tangent)) return false;
    const std::size_t p = z.size() - problem.active_parameters();
    if ((tangent[p] < 0) == up)
        for (double& component : tangent) component = -component;
    return true;
}

}  // namespace trajex
