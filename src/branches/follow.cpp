// Both directions from a start, joined to one branch. A start where an exponent vanishes, or where
// the branch turns, cannot be told from its neighbours by signs: then the run begins a little
// beside it and passes through, so that what happens there is found like anything else.

#include "branches/follow.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <utility>

#include "branches/bordered_newton.hpp"
#include "branches/equilibrium_problem.hpp"
#include "branches/known.hpp"
#include "branches/metric.hpp"
#include "cycles/cycle_branches.hpp"
#include "tx/error.hpp"

namespace trajex {
namespace {

constexpr double critical = 1e-7;  // |Re| over the largest exponent; scaled dp/ds

PointData point_data(const BranchHead& head, const Description& description,
                     const Spectrum& spectrum, double residual) {
    PointData point;
    point.model = head.model;
    point.kind = head.solution;
    point.description = description;
    point.spectrum = spectrum;
    point.residual = residual;
    complete(point);
    return point;
}

tx::Point public_point(const BranchHead& head, const TracePoint& point) {
    return tx::Point(std::make_shared<const PointData>(
        point_data(head, point.description, point.spectrum, point.residual)));
}

// Two points in a row on a known branch: the run is on it.
std::function<std::string(const TracePoint&)> known_branches(const BranchHead& head) {
    if (!head.options.known) return {};
    return [&head, last = KnownBranch()](const TracePoint& point) mutable {
        const KnownBranch branch =
            head.options.known->branch_through(head.solution, head.vary, point.description);
        const bool again = branch && branch == last;
        last = branch;
        return again ? branch.name() : std::string();
    };
}

RunSettings settings_of(const BranchHead& head) {
    RunSettings settings = run_settings(head.options, head.windows);
    for (const tx::Monitor& monitor : head.options.monitors)
        settings.watched.push_back({monitor.name,
                                    [&head, &monitor](const TracePoint& point) {
                                        return monitor.value(public_point(head, point));
                                    },
                                    monitor.stops});
    if (head.options.on_point)
        settings.on_point = [&head](const TracePoint& point) {
            return head.options.on_point(public_point(head, point));
        };
    settings.known = known_branches(head);
    return settings;
}

// ---- Joining ----

class Assembly {
  public:
    Assembly(const BranchHead& head, std::string_view kind) : head_(head) {
        branch_.kind = kind;
        branch_.model = head.model;
        branch_.solution = head.solution;
        branch_.vary = head.vary;
        for (const std::size_t p : head.vary)
            branch_.vary_names.push_back(head.model->parameters[p]);
        branch_.windows = head.windows;
        branch_.options = head.options;
        branch_.parent = head.parent;
        branch_.image = head.image;
        branch_.image_signs = head.image_signs;
        begin_columns(branch_);
    }

    void end(int which, tx::StopReason reason, std::string detail) {
        branch_.stop[which] = reason;
        branch_.stop_detail[which] = std::move(detail);
    }

    /// A half branch in its own direction, or backwards; without its first point where that is
    /// there.
    void add(Trace& trace, bool backwards, bool first) {
        branch_.work += trace.work;
        const std::size_t begin = first ? 0 : 1;
        if (trace.points.size() < begin) return;
        const std::size_t count = trace.points.size() - begin;
        const std::size_t before = branch_.size();
        for (std::size_t i = 0; i < count; ++i)
            add_point(trace.points[backwards ? begin + count - 1 - i : begin + i], backwards);
        const std::size_t specials = trace.specials.size();
        for (std::size_t i = 0; i < specials; ++i) {
            TraceSpecial& special = trace.specials[backwards ? specials - 1 - i : i];
            // Trace point j became point before + j - begin, or before + last - j.
            const std::size_t last = trace.points.size() - 1;
            const std::size_t after =
                backwards ? last - std::min(last, special.after + 1) : special.after - begin;
            add_special(special, backwards, before + after);
        }
    }

    BranchPtr finish() { return std::make_shared<const BranchData>(std::move(branch_)); }

  private:
    void add_point(const TracePoint& point, bool backwards) {
        PointRecord record;
        record.s = backwards ? -point.s : point.s;
        const double pdot =
            point.tangent.empty() ? 0 : point.tangent[point.z.size() - head_.vary.size()];
        record.pdot = backwards ? -pdot : pdot;
        record.newton_iterations = point.newton_iterations;
        record.residual = point.correction;
        append_point(branch_, point.description, point.spectrum, record);
    }

    void add_special(TraceSpecial& special, bool backwards, std::size_t after) {
        if (backwards)
            for (double& component : special.finding.tangent) component = -component;
        SpecialData data;
        data.id = special.finding.type + std::to_string(++numbers_[special.finding.type]);
        data.point = point_data(head_, special.description, special.finding.spectrum, 0);
        data.finding = std::move(special.finding);
        data.after = after;
        branch_.specials.push_back(std::move(data));
    }

    const BranchHead& head_;
    BranchData branch_;
    std::map<std::string, int> numbers_;
};

// ---- Starts ----

struct Start {
    std::vector<double> z, tangent;
    std::string trouble;  ///< empty: there is a tangent
};

bool is_critical(Problem& problem, const Start& start) {
    const Metric metric(problem);
    const std::size_t p = start.z.size() - problem.active_parameters();
    const bool folds = !problem.event_names().fold.empty();
    if (folds && std::abs(start.tangent[p]) * std::sqrt(metric.weights()[p]) < critical)
        return true;
    std::vector<double> f(problem.equations());
    if (!problem.linearise(start.z.data(), f.data())) return false;
    Spectrum spectrum;
    problem.spectrum(spectrum);
    double largest = 0;
    for (const Exponent& exponent : spectrum) largest = std::max(largest, std::abs(exponent.value));
    return std::any_of(spectrum.begin(), spectrum.end(), [largest](const Exponent& exponent) {
        return exponent.resolved && std::abs(exponent.value.real()) <= critical * largest;
    });
}

// One short step along the tangent, or against it.
bool step_aside(Problem& problem, const RunSettings& settings, Start& start, double direction) {
    RunSettings quiet = settings;
    quiet.detect = tx::Detect::none();
    quiet.watched.clear();
    quiet.on_point = {};
    quiet.known = {};
    quiet.max_points = 2;
    quiet.h_first *= 0.618;
    std::vector<double> tangent = start.tangent;
    for (double& component : tangent) component *= direction;
    const auto fresh = problem.clone();
    const Trace trace = follow_half(*fresh, start.z, tangent, quiet);
    if (trace.points.size() < 2) return false;
    start.z = trace.points[1].z;
    start.tangent = trace.points[1].tangent;
    for (double& component : start.tangent) component *= direction;
    return true;
}

// At a branch point there is more than one tangent: a solution at another value of the parameter
// then.
bool move_parameter(Problem& problem, const RunSettings& settings, Start& start) {
    const Metric metric(problem);
    const std::size_t p = start.z.size() - problem.active_parameters();
    const tx::Window& window = settings.windows[0];
    std::vector<double> row(start.z.size(), 0.0);
    row[p] = 1;
    BorderedNewton newton(problem, settings.tol);
    for (const double part : {1e-3, -1e-3, 1e-2, -1e-2}) {
        const double value = start.z[p] + part * (window.hi - window.lo);
        if (value < window.lo || value > window.hi) continue;
        Start moved = start;
        moved.z[p] = value;
        if (!newton.correct(moved.z, row.data(), value, metric)) continue;
        if (!first_tangent(problem, moved.z, true, moved.tangent)) continue;
        start = moved;
        return true;
    }
    return false;
}

Start settle(Problem& problem, const std::vector<double>& z, const BranchHead& head,
             const RunSettings& settings) {
    Start start{z, {}, {}};
    if (!first_tangent(problem, z, true, start.tangent) &&
        !move_parameter(problem, settings, start)) {
        start.trouble = "the tangent at the start is not determined";
        return start;
    }
    // Special points of curves are zeros of test functions, which do not say how small is zero.
    const bool is_curve = problem.active_parameters() > 1;
    if (!is_curve && !is_critical(problem, start)) return start;
    const double back = head.options.direction == tx::Direction::down ? 1 : -1;
    if (!step_aside(problem, settings, start, back)) step_aside(problem, settings, start, -back);
    return start;
}

// The first point alone, where no run can begin.
TracePoint lone_point(Problem& problem, const std::vector<double>& z) {
    TracePoint point;
    point.z = z;
    std::vector<double> f(problem.equations());
    if (problem.linearise(z.data(), f.data())) problem.spectrum(point.spectrum);
    point.description = problem.describe(z.data());
    return point;
}

void note_watched_start(const RunSettings& settings, Trace& trace) {
    for (const Watched& watched : settings.watched) {
        const TracePoint& point = trace.points.front();
        if (watched.value(point) != 0) continue;
        TraceSpecial special;
        special.finding.type = "UZ";
        special.finding.subtype = watched.name;
        special.finding.z = point.z;
        special.finding.tangent = point.tangent;
        special.finding.spectrum = point.spectrum;
        special.description = point.description;
        trace.specials.insert(trace.specials.begin(), std::move(special));
    }
}

}  // namespace

BranchPtr run_through(const BranchHead& head, Problem& problem, const std::vector<double>& z) {
    RunSettings settings = settings_of(head);
    Assembly assembly(head, problem.kind());
    const Start start = settle(problem, z, head, settings);
    const auto nothing = [&](tx::StopReason reason, const std::string& detail) {
        Trace trace;
        trace.points.push_back(lone_point(problem, start.z));
        assembly.add(trace, false, true);
        assembly.end(0, reason, detail);
        assembly.end(1, reason, detail);
        return assembly.finish();
    };
    if (!start.trouble.empty()) return nothing(tx::StopReason::not_computable, start.trouble);
    if (settings.on_point && !settings.on_point(lone_point(problem, start.z)))
        return nothing(tx::StopReason::cancelled, "by the application");

    const tx::Direction wanted = head.options.direction;
    std::vector<double> backwards = start.tangent;
    for (double& component : backwards) component = -component;
    Trace up, down;
    bool done = false;  // closed or cancelled
    if (wanted != tx::Direction::down) {
        const auto own = problem.clone();
        up = follow_half(*own, start.z, start.tangent, settings);
        note_watched_start(settings, up);
        done = up.stop == tx::StopReason::closed || up.stop == tx::StopReason::cancelled;
    }
    if (wanted != tx::Direction::up && !done) {
        const auto own = problem.clone();
        settings.max_work -= std::min(up.work, 0.5 * settings.max_work);
        down = follow_half(*own, start.z, backwards, settings);
        if (wanted == tx::Direction::down) note_watched_start(settings, down);
    }
    if (!down.points.empty()) assembly.add(down, true, up.points.empty());
    if (!up.points.empty()) assembly.add(up, false, true);
    const auto end = [&](int which, const Trace& trace) {
        if (!trace.points.empty()) return assembly.end(which, trace.stop, trace.stop_detail);
        if (done) return assembly.end(which, up.stop, up.stop_detail);
        assembly.end(which, tx::StopReason::start, "only the other direction was wanted");
    };
    end(0, down);
    end(1, up);
    return assembly.finish();
}

BranchPtr run_half(const BranchHead& head, Problem& problem, const std::vector<double>& z,
                   const std::vector<double>& tangent, tx::StopReason beginning,
                   const std::string& detail) {
    const RunSettings settings = settings_of(head);
    Assembly assembly(head, problem.kind());
    Trace trace = follow_half(problem, z, tangent, settings);
    assembly.end(0, beginning, detail);
    assembly.end(1, trace.stop, trace.stop_detail);
    assembly.add(trace, false, true);
    return assembly.finish();
}

std::unique_ptr<Problem> make_problem(const PointData& point, std::span<const std::size_t> vary,
                                      std::span<const tx::Window> windows,
                                      const tx::Options& options, std::vector<double>& z) {
    if (point.kind != SolutionKind::equilibrium)
        return make_cycle_problem(point, vary, windows, options, z);
    z = point.state.empty() ? point.description.state : point.state;
    const std::vector<double> x = z;
    for (const std::size_t p : vary) z.push_back(point.description.parameters[p]);
    return std::make_unique<EquilibriumProblem>(
        point.model->equations, point.description.parameters, vary, windows, x,
        EquilibriumProblem::Settings{options.tol, options.floor, options.norm_bound});
}

BranchPtr follow(const PointData& point, std::size_t parameter, tx::Window window,
                 const tx::Options& options) {
    BranchHead head{point.model, point.kind, {parameter}, {window}, options};
    if (point.status != "found") {
        Assembly assembly(head, "equilibria");
        assembly.end(0, tx::StopReason::not_computable, point.reason);
        assembly.end(1, tx::StopReason::not_computable, point.reason);
        return assembly.finish();
    }
    const double value = point.description.parameters[parameter];
    const double margin = 1e-12 * (window.hi - window.lo);
    if (!(value >= window.lo - margin && value <= window.hi + margin))
        throw tx::Error("the start is outside the window: " + point.model->parameters[parameter] +
                        " = " + std::to_string(value) + ", the window is [" +
                        std::to_string(window.lo) + ", " + std::to_string(window.hi) + "]");
    std::vector<double> z;
    const std::array<std::size_t, 1> vary{parameter};
    const std::array<tx::Window, 1> windows{window};
    const auto problem = make_problem(point, vary, windows, options, z);
    return run_through(head, *problem, z);
}

}  // namespace trajex
