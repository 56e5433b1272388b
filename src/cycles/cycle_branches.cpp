// A point on a branch of cycles carries its orbit, whose mesh is that of the new problem.
#include "cycles/cycle_branches.hpp"

#include <cmath>
#include <limits>
#include <numbers>
#include <string>
#include <utility>

#include "branches/follow.hpp"
#include "cycles/cycle_points.hpp"
#include "cycles/cycle_problem.hpp"
#include "cycles/starts.hpp"
#include "tx/error.hpp"

namespace trajex {

CycleSettings cycle_settings(const tx::Options& options, std::span<const tx::Window> windows) {
    CycleSettings settings;
    for (const tx::Window& window : windows) settings.widths.push_back(window.hi - window.lo);
    settings.mesh_tol = options.mesh_tol;
    settings.m = static_cast<std::size_t>(options.m);
    settings.most_intervals = options.N_max;
    settings.max_period = options.max_period;
    settings.norm_bound = options.norm_bound;
    settings.floor = options.floor;
    settings.verify = options.verify;
    return settings;
}

Timing timing_of(const Model& model) {
    Timing timing;
    if (!model.forcing) return timing;
    const tx::Forcing& forcing = *model.forcing;
    timing.periods = forcing.periods;
    timing.t0 = forcing.t0;
    if (!forcing.frequency.empty()) {
        timing.period = Timing::Period::frequency;
        timing.parameter = model.parameter(forcing.frequency);
    } else if (!forcing.period.empty()) {
        timing.period = Timing::Period::parameter;
        timing.parameter = model.parameter(forcing.period);
    } else {
        timing.period = Timing::Period::fixed;
        timing.value = forcing.fixed;
    }
    return timing;
}

namespace {

std::unique_ptr<CycleProblem> problem_at(const PointData& point, std::span<const std::size_t> vary,
                                         std::span<const tx::Window> windows,
                                         const tx::Options& options) {
    const Description& description = point.description;
    if (!description.orbit) throw tx::Error("the point has no orbit to start from");
    CycleSettings settings = cycle_settings(options, windows);
    settings.m = description.orbit->m;
    Timing timing = timing_of(*point.model);
    timing.periods = description.orbit->periods;  // doubled, perhaps
    return std::make_unique<CycleProblem>(point.model->equations, timing,
                                          std::vector<std::size_t>(vary.begin(), vary.end()),
                                          description.parameters, settings, *description.orbit);
}

/// What both kinds of branches need: the branch's parameter with its window.
struct Departure {
    const SpecialData& special;
    std::vector<std::size_t> vary;
    std::vector<tx::Window> windows;
    const tx::Options& options;

    Departure(const BranchPtr& branch, std::size_t index, const tx::Options& given)
        : special(branch->specials[index]),
          vary(branch->vary),
          windows(branch->windows),
          options(given) {
        if (given.window.lo < given.window.hi) windows.assign(1, given.window);
    }
    std::vector<BranchPtr> nothing(const std::string& reason) const {
        return {branch_without_points(special.point, vary, windows, reason)};
    }
    std::vector<BranchPtr> run(CycleStart& start) const {
        if (!start.problem) return nothing(start.trouble);
        const SolutionKind kind =
            special.point.model->forcing ? SolutionKind::forced_cycle : SolutionKind::cycle;
        const BranchHead head{.model = special.point.model,
                              .solution = kind,
                              .vary = vary,
                              .windows = windows,
                              .options = options,
                              .parent = special.id};
        return {run_half(head, *start.problem, start.z, start.tangent, tx::StopReason::branch_point,
                         "leaves " + special.id)};
    }
};

}  // namespace

std::unique_ptr<Problem> make_cycle_problem(const PointData& point,
                                            std::span<const std::size_t> vary,
                                            std::span<const tx::Window> windows,
                                            const tx::Options& options, std::vector<double>& z) {
    std::unique_ptr<CycleProblem> problem = problem_at(point, vary, windows, options);
    z = problem->start();
    // A single cycle is computed to more digits, on a finer mesh, than a family asks for.
    constexpr double much_finer = 0.01;
    std::vector<double> residual(problem->equations());
    if (point.description.mesh_error > much_finer * options.mesh_tol ||
        !problem->linearise(z.data(), residual.data())) {
        return problem;
    }
    std::vector<double> moved = z;
    if (!problem->adapt_mesh(moved, {}, true) ||
        !correct_at_fixed_parameters(*problem, moved, options.tol)) {
        return problem_at(point, vary, windows, options);
    }
    PointData start = point;
    start.description.orbit = std::make_shared<Orbit>(problem->orbit(moved.data()));
    z = std::move(moved);
    return problem_at(start, vary, windows, options);
}

namespace {

/// The orbit that lies between two on a branch, at a fraction r of the way.
Orbit between(const Orbit& a, const Orbit& b, double r) {
    Orbit orbit = a;
    std::vector<double> x(a.states);
    for (std::size_t k = 0; k < a.nodes(); ++k) {
        b.at(a.time_of_node(k), x.data());
        for (std::size_t i = 0; i < a.states; ++i)
            orbit.x[k * a.states + i] += r * (x[i] - orbit.x[k * a.states + i]);
    }
    return orbit;
}

/// Whether two cycles have the same period and extremes. A variable may be at rest: then its value,
/// or where that is 0 the size of the others, says what is small. Their meshes may differ, which
/// the other side of a fold does more: near folds orbits are kept.
bool agree(const Description& a, const Description& b) {
    constexpr double same = 1e-4;
    for (std::size_t i = 0; i < a.state.size(); ++i) {
        const double range = a.high[i] - a.low[i];
        const double rest = 1e-3 * std::max(a.norm, std::fabs(a.state[i]));
        const double size = same * std::max(range, rest);
        if (!(std::fabs(a.low[i] - b.low[i]) <= size && std::fabs(a.high[i] - b.high[i]) <= size))
            return false;
    }
    return std::fabs(a.period - b.period) <= same * a.period;
}

}  // namespace

bool restore_orbit(const BranchData& branch, std::size_t index, PointData& point) {
    if (point.description.orbit != nullptr) return true;
    std::size_t before = index;
    std::size_t after = index;
    while (before > 0 && branch.orbits[before] == nullptr) --before;
    while (after + 1 < branch.size() && branch.orbits[after] == nullptr) ++after;
    if (branch.orbits[before] == nullptr || branch.orbits[after] == nullptr) return false;
    // Beside a fold Newton's method may go to the cycle on its other side: then from elsewhere.
    const std::vector<double>& s = branch.columns[0];
    const double part = (s[index] - s[before]) / (s[after] - s[before]);
    PointData guess = point;
    for (const double r : {part, 0.0, 1.0, 0.5 * part, 0.5 * (1 + part)}) {
        auto orbit =
            std::make_shared<Orbit>(between(*branch.orbits[before], *branch.orbits[after], r));
        orbit->period = point.description.period;
        guess.description.orbit = std::move(orbit);
        const std::unique_ptr<CycleProblem> problem =
            problem_at(guess, branch.vary, branch.windows, branch.options);
        std::vector<double> z = problem->start();
        if (!solve_cycle(*problem, z, branch.options.tol)) continue;
        const Description found = problem->describe(z.data());
        if (!agree(found, point.description)) continue;
        point.description.orbit = found.orbit;
        complete(point);
        return true;
    }
    return false;
}

std::vector<BranchPtr> cycles_from_hopf(const BranchPtr& branch, std::size_t special,
                                        const tx::Options& options) {
    const Departure place(branch, special, options);
    if (place.vary.size() != 1) return place.nothing("cycles are followed in one parameter");
    const PointData& point = place.special.point;
    HopfPoint hopf{.state = point.state.empty() ? point.description.state : point.state,
                   .parameters = point.description.parameters};
    double nearest = std::numeric_limits<double>::infinity();
    for (const Exponent& exponent : place.special.finding.spectrum) {
        if (!(exponent.value.imag() > 0) || std::fabs(exponent.value.real()) >= nearest) continue;
        nearest = std::fabs(exponent.value.real());
        hopf.omega = exponent.value.imag();
    }
    if (!(hopf.omega > 0)) return place.nothing("the point has no frequency");
    const double width = place.windows[0].hi - place.windows[0].lo;
    if (!solve_hopf(*point.model->equations, 0, place.vary[0], width, hopf)) {
        return place.nothing("the Hopf point is not found in this parameter");
    }
    CycleStart start = start_from_hopf(point.model->equations, hopf, place.vary,
                                       cycle_settings(options, place.windows));
    return place.run(start);
}

std::vector<BranchPtr> cycles_from_doubling(const BranchPtr& branch, std::size_t special,
                                            const tx::Options& options) {
    const Departure place(branch, special, options);
    if (place.vary.size() != 1) return place.nothing("cycles are followed in one parameter");
    const std::unique_ptr<CycleProblem> problem =
        problem_at(place.special.point, place.vary, place.windows, options);
    const std::vector<double> z = problem->start();
    std::vector<double> residual(problem->equations());
    if (!problem->linearise(z.data(), residual.data())) {
        return place.nothing("the cycle is not computable at the doubling");
    }
    CycleStart start = start_doubled(*problem, z);
    return place.run(start);
}

}  // namespace trajex
