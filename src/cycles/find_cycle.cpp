// Cycles from trajectories. The trajectory runs on until it returns to a point that it left, across
// the plane through that point and square to the flow there, in the same direction; the time of
// return is the guess of the period, the track in between that of the orbit, with intervals of
// equal length of the track.
#include "cycles/find_cycle.hpp"

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstddef>
#include <limits>
#include <numbers>
#include <string>
#include <utility>

#include "cycles/cycle_branches.hpp"
#include "cycles/cycle_points.hpp"
#include "cycles/cycle_problem.hpp"
#include "cycles/mesh.hpp"
#include "model/stiff_integrator.hpp"
#include "tx/error.hpp"

namespace trajex {

namespace {

constexpr std::size_t most_steps = 200'000;   // of all integrations of one search
constexpr std::size_t steps_of_lap = 20'000;  // until a return is given up
constexpr std::size_t most_laps = 400;
constexpr std::size_t most_returns = 64;  // that are looked at before the track is left behind
constexpr int forced_transient = 50;      // periods
constexpr double rest = 1e-7;             // of the size of the state: no motion

PointData not_found(const ModelPtr& model, std::string reason) {
    PointData point;
    point.model = model;
    point.kind = model->forcing ? SolutionKind::forced_cycle : SolutionKind::cycle;
    point.status = "not found";
    point.reason = std::move(reason);
    point.description.parameters = model->values;
    return point;
}

// ---- Tracks ----

/// Steps along a trajectory, kept as a track: ends of steps and three points in each.
class Walk {
  public:
    Walk(const Model& model, const std::vector<double>& state, double t0)
        : n_(state.size()),
          integrator_(model, state, t0 + 1, options(t0), StiffIntegrator::Kind::watched) {
        track_.states = n_;
    }

    bool step() {
        if (steps_ == most_steps || !integrator_.step()) return false;
        ++steps_;
        return true;
    }
    /// Appends the last step up to the time `end`. False: not finite.
    bool keep(double end) {
        const double t0 = integrator_.step_start();
        for (int k = 1; k <= 4; ++k) {
            const double t = t0 + (end - t0) * k / 4;
            const double* const x = integrator_.at(t);
            if (x == nullptr) return false;
            append(t, x);
        }
        return true;
    }
    void begin_track() {
        track_.times.clear();
        track_.x.clear();
        append(time(), state().data());
        track_.implicit = integrator_.implicit();
    }
    double time() const { return integrator_.time(); }
    double step_start() { return integrator_.step_start(); }
    std::vector<double>& state() { return integrator_.state(); }
    const double* at(double t) { return integrator_.at(t); }
    const Track& track() const { return track_; }
    bool exhausted() const { return steps_ == most_steps; }

  private:
    static tx::IntegrateOptions options(double t0) {
        return {.t0 = t0, .rel_tol = 1e-8, .abs_tol = 1e-10};
    }
    void append(double t, const double* x) {
        track_.times.push_back(t);
        track_.x.insert(track_.x.end(), x, x + n_);
    }

    std::size_t n_;
    StiffIntegrator integrator_;
    Track track_;
    std::size_t steps_ = 0;
};

std::vector<double> ranges(const Track& track) {
    const std::size_t n = track.states;
    std::vector<double> low(track.x.begin(), track.x.begin() + static_cast<std::ptrdiff_t>(n));
    std::vector<double> high = low;
    for (std::size_t k = 0; k < track.x.size(); ++k) {
        low[k % n] = std::min(low[k % n], track.x[k]);
        high[k % n] = std::max(high[k % n], track.x[k]);
    }
    for (std::size_t a = 0; a < n; ++a) high[a] -= low[a];
    return high;
}

double largest_size(const Track& track) {
    double largest = 0;
    for (const double x : track.x) largest = std::max(largest, std::fabs(x));
    return largest;
}

// The track as an orbit of `intervals` pieces of equal length, in time over its duration and
// variables over their ranges together.
Orbit orbit_of(const Track& track, std::size_t intervals, std::size_t m, double t0) {
    const std::size_t n = track.states;
    const std::size_t points = track.times.size();
    const double duration = track.times.back() - track.times.front();
    const std::vector<double> range = ranges(track);
    const double floor = 1e-12 + 1e-9 * largest_size(track);
    std::vector<double> tau(points);
    std::vector<double> density(points - 1);
    for (std::size_t k = 0; k < points; ++k)
        tau[k] = (track.times[k] - track.times.front()) / duration;
    tau.back() = 1;
    for (std::size_t k = 0; k + 1 < points; ++k) {
        const double width = std::max(tau[k + 1] - tau[k], 1e-300);
        double square = 1;
        for (std::size_t a = 0; a < n; ++a) {
            const double moved = track.x[(k + 1) * n + a] - track.x[k * n + a];
            square += std::pow(moved / (width * (range[a] + floor)), 2);
        }
        density[k] = std::sqrt(square);
        if (track.implicit) density[k] += 5 / (static_cast<double>(points - 1) * width);
    }
    Orbit orbit;
    orbit.states = n;
    orbit.m = m;
    orbit.mesh = equidistributed(tau, density, intervals);
    orbit.period = duration;
    orbit.t0 = t0;
    orbit.x.resize(orbit.nodes() * n);
    std::size_t k = 0;
    for (std::size_t node = 0; node < orbit.nodes(); ++node) {
        const double at = orbit.time_of_node(node);
        while (k + 2 < points && tau[k + 1] < at) ++k;
        const double width = tau[k + 1] - tau[k];
        const double share = width > 0 ? std::clamp((at - tau[k]) / width, 0.0, 1.0) : 0;
        for (std::size_t a = 0; a < n; ++a) {
            const double from = track.x[k * n + a];
            orbit.x[node * n + a] = from + share * (track.x[(k + 1) * n + a] - from);
        }
    }
    return orbit;
}

// ---- Newton's method ----

PointData converged(const ModelPtr& model, CycleProblem& problem, const std::vector<double>& z) {
    PointData point;
    point.model = model;
    point.kind = model->forcing ? SolutionKind::forced_cycle : SolutionKind::cycle;
    point.description = problem.describe(z.data());
    std::vector<double> residual(problem.equations());
    if (problem.linearise(z.data(), residual.data())) problem.spectrum(point.spectrum);
    for (const double r : residual) point.residual = std::max(point.residual, std::fabs(r));
    complete(point);
    return point;
}

// Whether the solution moves at all: an equilibrium closes after any period.
bool moves(const Description& cycle) {
    double motion = 0;
    double size = 0;
    for (std::size_t a = 0; a < cycle.low.size(); ++a) {
        motion = std::max(motion, cycle.high[a] - cycle.low[a]);
        size = std::max({size, std::fabs(cycle.high[a]), std::fabs(cycle.low[a])});
    }
    return motion > rest * (size + 1e-3);
}

// The distance of an exponent from the nearest of another spectrum; angles are those of
// multipliers.
double distance_to(const Spectrum& spectrum, std::complex<double> value) {
    double least = std::numeric_limits<double>::infinity();
    for (const Exponent& exponent : spectrum) {
        const std::complex<double> apart = exponent.value - value;
        const double turned = std::remainder(apart.imag(), 2 * std::numbers::pi);
        least = std::min(least, std::hypot(apart.real(), turned));
    }
    return least;
}

// With every interval halved, and what the multipliers of that are still wrong by. They change by
// the errors of the mesh before, of which no more is left than of the solution's own; and by
// rounding, which shows, grown as much as it grows in them, when Newton's method is gone on with.
void halve_intervals(const CycleSettings& settings, const tx::Options& options, PointData& point) {
    constexpr std::size_t most_intervals = 1600;
    constexpr int repetitions = 3;
    constexpr double least_error = 1e-12;
    constexpr double margin = 3;
    const Orbit orbit = halved(*point.description.orbit);
    if (orbit.intervals() > most_intervals) return;
    CycleProblem problem(point.model->equations, timing_of(*point.model), {}, point.model->values,
                         settings, orbit);
    std::vector<double> z = problem.start();
    if (!correct_at_fixed_parameters(problem, z, options.tol)) return;
    PointData fine = converged(point.model, problem, z);
    const double left = std::min(1.0, fine.description.mesh_error / point.description.mesh_error);
    for (Exponent& exponent : fine.spectrum)
        exponent.error = std::max(least_error, left * distance_to(point.spectrum, exponent.value));
    Spectrum again;
    std::vector<double> residual(problem.equations());
    for (int k = 0; k < repetitions; ++k) {
        if (!correct_at_fixed_parameters(problem, z, options.tol) ||
            !problem.linearise(z.data(), residual.data()))
            break;
        problem.spectrum(again);
        for (Exponent& exponent : fine.spectrum)
            exponent.error = std::max(exponent.error, margin * distance_to(again, exponent.value));
    }
    point = std::move(fine);
}

// A single cycle costs little, and its period and multipliers are what one asks it for: once more
// on a mesh with the least error that pays. Where that fails the cycle is what it was.
void sharpen(CycleSettings settings, const tx::Options& options, PointData& point) {
    constexpr double fine = 1e-9;
    if (settings.mesh_tol <= fine) return;
    settings.mesh_tol = fine;
    CycleProblem problem(point.model->equations, timing_of(*point.model), {}, point.model->values,
                         settings, *point.description.orbit);
    std::vector<double> z = problem.start();
    if (!solve_cycle(problem, z, options.tol)) return;
    PointData better = converged(point.model, problem, z);
    halve_intervals(settings, options, better);
    constexpr double same = 1e-3;
    if (std::fabs(better.description.period - point.description.period) <=
        same * point.description.period)
        point = std::move(better);
}

PointData correct(const ModelPtr& model, const Track& track, const tx::Options& options) {
    const Timing timing = timing_of(*model);
    const CycleSettings settings = cycle_settings(options, {});
    const double guess = track.times.back() - track.times.front();
    std::string trouble;
    for (const std::size_t intervals : {40, 100, 200, 400}) {
        if (intervals > options.N_max || (intervals == 400 && !track.implicit)) break;
        CycleProblem problem(model->equations, timing, {}, model->values, settings,
                             orbit_of(track, intervals, settings.m, timing.t0));
        std::vector<double> z = problem.start();
        if (!solve_cycle(problem, z, options.tol)) {
            trouble = "Newton's method does not converge from the track of period " +
                      std::to_string(guess);
            continue;
        }
        PointData point = converged(model, problem, z);
        const double period = point.description.period;
        if (!model->forcing && !moves(point.description)) {
            trouble = "the search came to an equilibrium";
        } else if (!model->forcing && !(period > 0.5 * guess && period < 2 * guess)) {
            trouble = "the search left the neighbourhood of the track";
        } else {
            sharpen(settings, options, point);
            return point;
        }
    }
    return not_found(model, trouble);
}

// ---- Returns ----

/// The plane through a point of the trajectory, square to the flow in units of the ranges of the
/// variables.
struct Plane {
    std::vector<double> point, normal, scale;

    double side(const double* x) const {
        double sum = 0;
        for (std::size_t a = 0; a < point.size(); ++a) sum += normal[a] * (x[a] - point[a]);
        return sum;
    }
    double distance(const double* x) const {
        double largest = 0;
        for (std::size_t a = 0; a < point.size(); ++a)
            largest = std::max(largest, std::fabs(x[a] - point[a]) / scale[a]);
        return largest;
    }
};

Plane plane_here(const Model& model, Walk& walk, const Track& before) {
    Plane plane{walk.state(), std::vector<double>(walk.state().size()), ranges(before)};
    const double t = walk.time();
    ModelFlow{&model}(t, plane.point.data(), plane.normal.data());
    const double floor = 1e-12 + 1e-6 * largest_size(before);
    for (std::size_t a = 0; a < plane.point.size(); ++a) {
        plane.scale[a] = std::max(plane.scale[a], floor);
        plane.normal[a] /= plane.scale[a] * plane.scale[a];
    }
    return plane;
}

/// The time in the last step at which the plane is crossed.
double crossing_time(Walk& walk, const Plane& plane) {
    double lo = walk.step_start();
    double hi = walk.time();
    for (int k = 0; k < 60; ++k) {
        const double middle = 0.5 * (lo + hi);
        const double* const x = walk.at(middle);
        (x != nullptr && plane.side(x) < 0 ? lo : hi) = middle;
    }
    return hi;
}

enum class Lap { returned, lost, stopped };

// Walks on until the trajectory returns to the plane within `close` of where it was left.
Lap walk_lap(Walk& walk, const Plane& plane, double close) {
    walk.begin_track();
    double before = 0;
    bool left = false;
    std::size_t returns = 0;
    for (std::size_t k = 0; k < steps_of_lap; ++k) {
        if (!walk.step()) return Lap::stopped;
        const double side = plane.side(walk.state().data());
        const bool crosses = left && before < 0 && side >= 0;
        before = side;
        left = left || side < 0;
        if (!crosses) {
            if (!walk.keep(walk.time())) return Lap::stopped;
            continue;
        }
        const double time = crossing_time(walk, plane);
        const double* const x = walk.at(time);
        if (x != nullptr && plane.distance(x) < close) {
            return walk.keep(time) ? Lap::returned : Lap::stopped;
        }
        if (++returns == most_returns) return Lap::lost;
        if (!walk.keep(walk.time())) return Lap::stopped;
    }
    return Lap::lost;
}

bool at_rest(const Track& track) {
    const std::vector<double> range = ranges(track);
    return *std::max_element(range.begin(), range.end()) < rest * (largest_size(track) + 1e-3);
}

PointData find_autonomous(const ModelPtr& model, const std::vector<double>& state,
                          const tx::Options& options) {
    Walk walk(*model, state, 0);
    walk.begin_track();
    for (int k = 0; k < 200; ++k) {  // how far the variables range
        if (!walk.step() || !walk.keep(walk.time())) break;
    }
    PointData last = not_found(model, "the trajectory does not return to a point that it left");
    std::size_t returns = 0;
    std::size_t next_tried = 1;
    for (std::size_t lap = 0; lap < most_laps; ++lap) {
        const Track before = walk.track();
        if (at_rest(before))
            return not_found(model, "the trajectory comes to rest at an equilibrium");
        const Plane plane = plane_here(*model, walk, before);
        const double close = lap < 40 ? 1e-4 : lap < 100 ? 1e-3 : 1e-2;
        const Lap outcome = walk_lap(walk, plane, close);
        if (outcome == Lap::stopped) {
            return not_found(model,
                             walk.exhausted()
                                 ? last.reason + " within " + std::to_string(most_steps) + " steps"
                                 : "the trajectory cannot be integrated beyond t = " +
                                       std::to_string(walk.time()));
        }
        if (outcome == Lap::lost || ++returns < next_tried) continue;
        // Where Newton's method fails the trajectory has to come much nearer first.
        next_tried = returns + 1 + returns / 2;
        last = correct(model, walk.track(), options);
        if (last.status == "found") return last;
    }
    return last;
}

// Walks over one period. False: it cannot be integrated so far.
bool walk_period(Walk& walk, double period) {
    const double end = walk.time() + period;
    walk.begin_track();
    while (walk.time() < end) {
        if (!walk.step() || !walk.keep(std::min(walk.time(), end))) return false;
    }
    return true;
}

// Adds the integral over the track by the trapezoidal rule.
void add_integral(const Track& track, std::vector<double>& sum) {
    const std::size_t n = track.states;
    for (std::size_t k = 0; k + 1 < track.times.size(); ++k) {
        const double half = 0.5 * (track.times[k + 1] - track.times[k]);
        for (std::size_t a = 0; a < n; ++a)
            sum[a] += half * (track.x[k * n + a] + track.x[(k + 1) * n + a]);
    }
}

// The mean over the transient, which is added to `mean`, is where cycles are that a trajectory
// stays around and never comes to.
PointData from_one_period(const ModelPtr& model, const std::vector<double>& state, double period,
                          int transient, const tx::Options& options,
                          std::vector<double>* mean = nullptr) {
    const double t0 = model->forcing ? model->forcing->t0 : 0;
    std::vector<double> x = state;
    for (int k = 0;; ++k) {
        Walk walk(*model, x, t0);  // in each period the same times: the flow is that of the first
        if (!walk_period(walk, period)) {
            return not_found(model, "the trajectory cannot be integrated beyond t = " +
                                        std::to_string(walk.time()));
        }
        const Track& track = walk.track();
        if (k == transient) return correct(model, track, options);
        if (mean != nullptr) add_integral(track, *mean);
        x.assign(track.x.end() - static_cast<std::ptrdiff_t>(x.size()), track.x.end());
    }
}

// From a state that does not move.
PointData from_rest(const ModelPtr& model, const std::vector<double>& state, double period,
                    const tx::Options& options) {
    Track track{.states = state.size()};
    for (int k = 0; k <= 4; ++k) {
        track.times.push_back(k * period / 4);
        track.x.insert(track.x.end(), state.begin(), state.end());
    }
    return correct(model, track, options);
}

}  // namespace

PointData find_cycle(const ModelPtr& model, const std::vector<double>& state, double period,
                     const tx::Options& options) {
    check_state(*model, state, "the state");
    return from_one_period(model, state, period, 0, options);
}

PointData find_cycle(const ModelPtr& model, const Track& period, const tx::Options& options) {
    return correct(model, period, options);
}

PointData find_cycle(const ModelPtr& model, const std::vector<double>& state,
                     const tx::Options& options) {
    check_state(*model, state, "the state");
    if (!model->forcing) return find_autonomous(model, state, options);
    const Rate rate(model->equations, timing_of(*model), {}, model->values);
    const double period = rate.period();
    std::vector<double> mean(state.size(), 0.0);
    PointData settled = from_one_period(model, state, period, forced_transient, options, &mean);
    if (settled.status == "found") return settled;
    PointData direct = from_one_period(model, state, period, 0, options);
    if (direct.status == "found") return direct;
    for (double& x : mean) x /= forced_transient * period;
    direct = from_rest(model, mean, period, options);
    return direct.status == "found" ? direct : settled;
}

}  // namespace trajex

namespace tx {

namespace {

Point as_point(trajex::PointData data) {
    return Point(std::make_shared<const trajex::PointData>(std::move(data)));
}

}  // namespace

Point System::cycle(const std::vector<double>& state, const Options& options) const {
    return as_point(trajex::find_cycle(model_, state, options));
}

Point System::cycle(const std::vector<double>& state, double period, const Options& options) const {
    if (!(period > 0) || !std::isfinite(period))
        throw Error("the period is " + std::to_string(period) + "; it must be positive");
    return as_point(trajex::find_cycle(model_, state, period, options));
}

Point System::cycle(const std::vector<double>& times,
                    const std::vector<std::vector<double>>& states, const Options& options) const {
    trajex::Track track{.states = model_->states.size(), .times = times};
    if (times.size() != states.size() || times.size() < 4)
        throw Error("a table of a cycle has at least 4 times and a state for each; it has " +
                    std::to_string(times.size()) + " and " + std::to_string(states.size()));
    for (std::size_t k = 0; k < times.size(); ++k) {
        trajex::check_state(*model_, states[k], "a state of the table");
        if (!std::isfinite(times[k]) || (k > 0 && !(times[k] > times[k - 1])))
            throw Error("the times of a table increase from one to the next");
        track.x.insert(track.x.end(), states[k].begin(), states[k].end());
    }
    return as_point(trajex::find_cycle(model_, track, options));
}

Point ForcedSystem::cycle(const std::vector<double>& state, const Options& options) const {
    return as_point(trajex::find_cycle(model_, state, options));
}

}  // namespace tx
