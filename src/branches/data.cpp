// What is kept of a branch: one array for each number that all its points have, in the order
//
//     s | varied parameters | variables | numbers of the point | of cycles: min of each | max of
//     each | of forced cycles: amplitude of each first harmonic | phase of each
//
// so that a column is one contiguous array and a point is read across.
#include "branches/data.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "branches/orbit.hpp"

namespace trajex {

namespace {

constexpr const char* point_numbers[] = {
    "norm",     "period",     "n_unstable",       "stable", "pdot", "newton_iterations",
    "residual", "mesh_error", "multiplier_error",
};

/// By SolutionKind.
constexpr const char* kind_names[] = {"equilibria", "cycles", "forced cycles"};

bool is_one_of(const std::string& name, const std::vector<std::string>& names) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

/// The name of a column of our own: with "_" behind it where a variable or parameter has that name.
std::string own_name(std::string name, const Model& model) {
    while (is_one_of(name, model.states) || is_one_of(name, model.parameters)) name += '_';
    return name;
}

/// An exponent that was kept as its value only.
Exponent::Kind kind_of(std::complex<double> value, bool multiplier) {
    if (value.imag() == 0) return Exponent::Kind::real;
    const bool negative = multiplier && std::abs(value.imag()) == std::numbers::pi;
    return negative ? Exponent::Kind::alternating : Exponent::Kind::pair;
}

/// The orbit of what was the last point, where it can be computed again.
void forget_last_orbit(BranchData& branch) {
    constexpr std::size_t every = 10;
    constexpr double flat =
        0.2;  // least share of the parameter in the tangent: near a fold it has less
    if (branch.orbits.empty() || branch.options.keep_all) return;
    const std::size_t last = branch.size() - 1;
    const auto pdot = std::find(branch.column_names.begin(), branch.column_names.end(),
                                own_name("pdot", *branch.model));
    const double slope =
        branch.columns[static_cast<std::size_t>(pdot - branch.column_names.begin())][last];
    const tx::Window& window = branch.windows[0];
    if (last % every == 0 || std::abs(slope) <= flat * (window.hi - window.lo)) return;
    branch.orbits[last].reset();
}

/// Of those that are not so small that their sizes say little.
double largest_error(const Spectrum& spectrum) {
    constexpr double negligible = -14;
    double largest = 0;
    for (const Exponent& exponent : spectrum) {
        largest = std::max(largest, exponent.error);
        if (exponent.mesh_error > largest && exponent.value.real() > negligible)
            largest = exponent.mesh_error;
    }
    return largest;
}

}  // namespace

void begin_columns(BranchData& branch) {
    const Model& model = *branch.model;
    std::vector<std::string>& names = branch.column_names;
    names = {own_name("s", model)};
    for (const std::size_t p : branch.vary) names.push_back(model.parameters[p]);
    names.insert(names.end(), model.states.begin(), model.states.end());
    for (const char* name : point_numbers) names.push_back(own_name(name, model));
    if (branch.solution != SolutionKind::equilibrium) {
        for (const char* extreme : {"min ", "max "}) {
            for (const std::string& state : model.states) names.push_back(extreme + state);
        }
    }
    if (branch.solution == SolutionKind::forced_cycle) {
        for (const char* part : {"amplitude ", "phase "}) {
            for (const std::string& state : model.states) names.push_back(part + state);
        }
    }
    branch.columns.assign(names.size(), {});
}

void append_point(BranchData& branch, const Description& description, const Spectrum& spectrum,
                  const PointRecord& record) {
    forget_last_orbit(branch);
    auto column = branch.columns.begin();
    const auto put = [&](double value) { (column++)->push_back(value); };
    put(record.s);
    for (const std::size_t p : branch.vary) put(description.parameters[p]);
    for (const double x : description.state) put(x);
    const std::size_t unstable = unstable_exponents(spectrum);
    for (const double value :
         {description.norm, description.period, static_cast<double>(unstable),
          unstable == 0 ? 1.0 : 0.0, record.pdot, static_cast<double>(record.newton_iterations),
          record.residual, description.mesh_error, largest_error(spectrum)}) {
        put(value);
    }
    if (branch.solution != SolutionKind::equilibrium) {
        for (const double x : description.low) put(x);
        for (const double x : description.high) put(x);
    }
    if (branch.solution == SolutionKind::forced_cycle) {
        std::vector<Orbit::Response> responses;
        for (std::size_t a = 0; a < description.state.size(); ++a)
            responses.push_back(description.orbit->response(a));
        for (const Orbit::Response& response : responses) put(response.amplitude);
        for (const Orbit::Response& response : responses) put(response.phase);
    }
    if (branch.orbits.empty()) {  // what only this kind of branch knows of its points
        for (const auto& [name, value] : description.more) {
            branch.column_names.push_back(own_name(std::string(name), *branch.model));
            branch.columns.emplace_back();
        }
        column = branch.columns.end() - static_cast<std::ptrdiff_t>(description.more.size());
    }
    for (const auto& [name, value] : description.more) put(value);
    std::vector<std::complex<double>>& exponents = branch.exponents.emplace_back();
    exponents.reserve(spectrum.size());
    for (const Exponent& exponent : spectrum) exponents.push_back(exponent.value);
    branch.orbits.push_back(description.orbit);
}

std::shared_ptr<BranchData> branch_without_points(const PointData& start,
                                                  std::vector<std::size_t> vary,
                                                  std::vector<tx::Window> windows,
                                                  const std::string& reason) {
    auto branch = std::make_shared<BranchData>();
    branch->kind = kind_names[static_cast<std::size_t>(start.kind)];
    branch->model = start.model;
    branch->solution = start.kind;
    for (const std::size_t p : vary) branch->vary_names.push_back(start.model->parameters[p]);
    branch->vary = std::move(vary);
    branch->windows = std::move(windows);
    begin_columns(*branch);
    for (const int end : {0, 1}) {
        branch->stop[end] = tx::StopReason::not_computable;
        branch->stop_detail[end] = reason;
    }
    return branch;
}

PointData point_of(const BranchData& branch, std::size_t index) {
    const Model& model = *branch.model;
    const std::size_t n = model.states.size();
    PointData point;
    point.model = branch.model;
    point.kind = branch.solution;
    auto column = branch.columns.begin() + 1;
    const auto take = [&] { return (*column++)[index]; };
    Description& description = point.description;
    description.parameters = model.values;
    for (const std::size_t p : branch.vary) description.parameters[p] = take();
    for (std::size_t i = 0; i < n; ++i) description.state.push_back(take());
    description.norm = take();
    description.period = take();
    column += 4;  // n_unstable, stable, pdot, newton_iterations
    point.residual = take();
    description.mesh_error = take();
    const double error = take();
    if (branch.solution != SolutionKind::equilibrium) {
        for (std::size_t i = 0; i < n; ++i) description.low.push_back(take());
        for (std::size_t i = 0; i < n; ++i) description.high.push_back(take());
    }
    description.orbit = branch.orbits[index];
    const bool multipliers = branch.solution != SolutionKind::equilibrium;
    for (const std::complex<double>& value : branch.exponents[index]) {
        point.spectrum.push_back({value, error, kind_of(value, multipliers)});
    }
    complete(point);
    return point;
}

void complete(PointData& point) {
    point.state = point.description.state;
    if (point.description.orbit != nullptr) point.description.orbit->at(0, point.state.data());
    point.exponents.clear();
    point.multipliers.clear();
    for (const Exponent& exponent : point.spectrum) {
        point.exponents.push_back(exponent.value);
        if (point.kind == SolutionKind::equilibrium) continue;
        const double modulus = std::exp(exponent.value.real());
        // What is real stays so: exp(i pi) would leave 1e-16, and infinity times 0 is no number.
        if (exponent.kind == Exponent::Kind::pair)
            point.multipliers.push_back(std::polar(modulus, exponent.value.imag()));
        else
            point.multipliers.emplace_back(exponent.kind == Exponent::Kind::alternating ? -modulus
                                                                                        : modulus);
    }
}

std::size_t unstable_exponents(const Spectrum& spectrum) {
    return static_cast<std::size_t>(
        std::count_if(spectrum.begin(), spectrum.end(),
                      [](const Exponent& exponent) { return exponent.value.real() > 0; }));
}

}  // namespace trajex
