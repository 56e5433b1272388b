// The public handles: each looks names up in the data that a run has left, and hands out references
// into it. Wrong names and empty handles throw; nothing here computes.
#include "tx/results.hpp"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <limits>
#include <optional>

#include "branches/access.hpp"
#include "branches/json.hpp"
#include "branches/orbit.hpp"
#include "branches/runs.hpp"
#include "branches/text.hpp"
#include "tx/error.hpp"

namespace trajex {

void throw_unknown(std::string_view what, std::string_view given, std::string_view owner,
                   std::span<const std::string> known) {
    std::string message = "no ";
    message.append(what).append(" '").append(given).append("'; ").append(owner);
    throw tx::Error(message + " has " + listed({known.begin(), known.end()}));
}

std::string branch_id(std::size_t index) {
    std::string id = "b";
    return id += std::to_string(index + 1);
}

void check_index(std::size_t index, std::size_t count, std::string_view what) {
    if (index < count) return;
    throw tx::Error("no " + std::string(what) + " " + std::to_string(index) + "; there are " +
                    std::to_string(count) + ", counted from 0");
}

namespace {

std::optional<std::size_t> position(std::span<const std::string> names, std::string_view name) {
    const auto found = std::find(names.begin(), names.end(), name);
    if (found == names.end()) return std::nullopt;
    return static_cast<std::size_t>(found - names.begin());
}

}  // namespace

double value_of(const PointData& point, std::string_view name) {
    const Model& model = *point.model;
    if (const auto p = position(model.parameters, name)) return point.description.parameters[*p];
    if (const auto i = position(model.states, name)) return point.description.state[*i];
    if (name == "norm") return point.description.norm;
    if (name == "period") return point.description.period;
    std::vector<std::string> known = model.parameters;
    known.insert(known.end(), model.states.begin(), model.states.end());
    known.insert(known.end(), {"norm", "period"});
    throw_unknown("quantity", name, "a point", known);
}

void check_options(const tx::Options& options) {
    const auto require = [](bool fulfilled, const char* rule, double given) {
        if (!fulfilled) throw tx::Error(std::string(rule) + ", not " + number_text(given));
    };
    const auto points = static_cast<double>(options.max_points);
    require(options.max_points >= 1, "max_points is at least 1", points);
    require(options.h_max > 0 && options.h_max <= 1, "h_max is between 0 and 1", options.h_max);
    require(options.tol > 0 && options.tol < 1e-2, "tol is between 0 and 0.01", options.tol);
    require(options.mesh_tol > 0 && options.mesh_tol < 1, "mesh_tol is between 0 and 1",
            options.mesh_tol);
    require(options.m >= 2 && options.m <= 7, "m is 2 to 7", options.m);
    require(options.N_max >= 10, "N_max is at least 10", static_cast<double>(options.N_max));
    require(options.max_work > 0, "max_work is positive", options.max_work);
    require(options.max_period >= 0, "max_period is not negative", options.max_period);
    require(options.norm_bound > 1, "norm_bound is above 1", options.norm_bound);
    require(options.floor >= 0, "floor is not negative", options.floor);
    const tx::Window window = options.window;
    if (window.lo != 0 || window.hi != 0) check_window(window, "the options");
    for (const double x : options.start) {
        require(std::isfinite(x), "a start consists of finite numbers", x);
    }
    static const std::vector<std::string> types = {"LP", "BP",  "H",   "CP", "BT", "GH", "ZH",
                                                   "HH", "LPC", "BPC", "PD", "NS", "UZ"};
    for (const std::string& type : options.detect.types) {
        if (!position(types, type)) throw_unknown("type", type, "tx", types);
    }
    for (const tx::Monitor& monitor : options.monitors) {
        if (!monitor.value) throw tx::Error("monitor '" + monitor.name + "' has no function");
    }
}

}  // namespace trajex

namespace tx {

using trajex::BranchData;
using trajex::PointData;
using trajex::SpecialData;
using trajex::throw_unknown;

namespace {

bool is_cycle(const PointData& point) {
    return point.kind != trajex::SolutionKind::equilibrium;
}

std::vector<std::complex<double>> eigenvalues_of(const PointData& point) {
    if (is_cycle(point)) return {};
    return point.exponents;
}

std::vector<std::complex<double>> log_multipliers_of(const PointData& point) {
    if (!is_cycle(point)) return {};
    return point.exponents;
}

double parameter_of(const PointData& point, std::string_view name) {
    return point.description.parameters[point.model->parameter(name)];
}

std::vector<std::string> ids(const std::vector<Special>& specials) {
    std::vector<std::string> names;
    names.reserve(specials.size());
    for (const Special& special : specials) names.push_back(special.id());
    return names;
}

const Special& find(const std::vector<Special>& specials, std::string_view id,
                    std::string_view owner) {
    const auto found = std::find_if(specials.begin(), specials.end(),
                                    [&](const Special& special) { return special.id() == id; });
    if (found == specials.end()) throw_unknown("special point", id, owner, ids(specials));
    return *found;
}

/// The branch as a child of the special point that it was followed from.
Branch child_of(const trajex::BranchPtr& child, const trajex::BranchPtr& parent,
                std::size_t index) {
    auto data = std::make_shared<BranchData>(*child);
    data->parent = parent->specials[index].id;
    data->parent_branch = parent;
    data->parent_special = index;
    return Branch(std::move(data));
}

}  // namespace

const PointData& Access::data(const Point& point) {
    if (point.data_ == nullptr) throw Error("this Point is empty");
    return *point.data_;
}

const BranchData& Access::data(const Branch& branch) {
    if (branch.data_ == nullptr) throw Error("this Branch is empty");
    return *branch.data_;
}

const SpecialData& Access::data(const Special& special) {
    if (special.branch_ == nullptr) throw Error("this Special is empty");
    return special.branch_->specials[special.index_];
}

// ---- Options ----

// NOLINTNEXTLINE(performance-unnecessary-value-param): as declared, for temporaries
Options& Options::at(std::string_view what, std::vector<double> values) {
    for (const double value : values) {
        const std::string name = std::string(what) + " = " + trajex::number_text(value);
        when(name, [what = std::string(what), value](const Point& point) {
            return trajex::value_of(Access::data(point), what) - value;
        });
    }
    return *this;
}

Options& Options::when(std::string_view name, std::function<double(const Point&)> value) {
    monitors.push_back({std::string(name), std::move(value), false});
    return *this;
}

Options& Options::stop_when(std::string_view name, std::function<double(const Point&)> value) {
    monitors.push_back({std::string(name), std::move(value), true});
    return *this;
}

// ---- StopReason ----

std::string_view StopReason::text() const {
    switch (value_) {
        case parameter_bound:
            return "parameter_bound";
        case period_bound:
            return "period_bound";
        case norm_bound:
            return "norm_bound";
        case max_points:
            return "max_points";
        case user:
            return "user";
        case step_too_small:
            return "step_too_small";
        case closed:
            return "closed";
        case known_branch:
            return "known_branch";
        case hopf:
            return "hopf";
        case homoclinic_suspected:
            return "homoclinic_suspected";
        case not_computable:
            return "not_computable";
        case resolution:
            return "resolution";
        case cancelled:
            return "cancelled";
        case branch_point:
            return "branch_point";
        case start:
            return "start";
        case inconsistent:
            return "inconsistent";
        case work_bound:
            return "work_bound";
    }
    return "unknown";
}

// ---- Point ----

Point::operator bool() const {
    return data_ != nullptr && data_->status == "found";
}
std::string Point::status() const {
    return Access::data(*this).status;
}
std::string Point::reason() const {
    return Access::data(*this).reason;
}
double Point::parameter(std::string_view name) const {
    return parameter_of(Access::data(*this), name);
}
std::vector<double> Point::state() const {
    return Access::data(*this).state;
}
double Point::operator[](std::string_view name) const {
    const PointData& point = Access::data(*this);
    return point.state[point.model->state(name)];
}
double Point::norm() const {
    return Access::data(*this).description.norm;
}
double Point::period() const {
    return Access::data(*this).description.period;
}
std::vector<std::complex<double>> Point::eigenvalues() const {
    return eigenvalues_of(Access::data(*this));
}
std::vector<std::complex<double>> Point::multipliers() const {
    return Access::data(*this).multipliers;
}
std::vector<std::complex<double>> Point::log_multipliers() const {
    return log_multipliers_of(Access::data(*this));
}
std::vector<double> Point::log_multiplier_errors() const {
    std::vector<double> errors;
    const PointData& point = Access::data(*this);
    if (!is_cycle(point)) return errors;
    for (const trajex::Exponent& exponent : point.spectrum)
        errors.push_back(std::max(exponent.error, exponent.mesh_error));
    return errors;
}
bool Point::stable() const {
    return unstable() == 0;
}
std::size_t Point::unstable() const {
    return trajex::unstable_exponents(Access::data(*this).spectrum);
}
std::vector<double> Point::min() const {
    const PointData& point = Access::data(*this);
    return is_cycle(point) ? point.description.low : point.state;
}
std::vector<double> Point::max() const {
    const PointData& point = Access::data(*this);
    return is_cycle(point) ? point.description.high : point.state;
}
std::vector<double> Point::at(double t) const {
    const PointData& point = Access::data(*this);
    if (!is_cycle(point)) return point.state;
    const trajex::Orbit* const orbit = point.description.orbit.get();
    if (orbit == nullptr)
        throw Error("the orbit of this point was not kept, nor found again: see keep_all");
    std::vector<double> x(point.state.size());
    orbit->at(t / orbit->period, x.data());
    return x;
}
std::string Point::text() const {
    return trajex::point_text(Access::data(*this));
}

Branch Point::follow(std::string_view parameter, Window window, const Options& options) const {
    const PointData& point = Access::data(*this);
    const std::size_t index = point.model->parameter(parameter);
    trajex::check_window(window, parameter);
    trajex::check_options(options);
    if (!*this) {
        const std::string& reason = point.reason.empty() ? point.status : point.reason;
        return Branch(trajex::branch_without_points(point, {index}, {window}, reason));
    }
    return Branch(trajex::follow(point, index, window, options));
}

// ---- Special ----

std::string Special::id() const {
    return Access::data(*this).id;
}
std::string Special::type() const {
    return Access::data(*this).finding.type;
}
std::string Special::subtype() const {
    return Access::data(*this).finding.subtype;
}
std::string Special::criticality() const {
    return Access::data(*this).finding.criticality;
}
std::string Special::status() const {
    return Access::data(*this).finding.status;
}
std::string Special::reason() const {
    return Access::data(*this).finding.reason;
}
double Special::parameter(std::string_view name) const {
    return parameter_of(Access::data(*this).point, name);
}
std::vector<double> Special::state() const {
    return Access::data(*this).point.state;
}
double Special::operator[](std::string_view name) const {
    return point()[name];
}
double Special::period() const {
    return Access::data(*this).point.description.period;
}
std::vector<std::complex<double>> Special::eigenvalues() const {
    return eigenvalues_of(Access::data(*this).point);
}
std::vector<std::complex<double>> Special::multipliers() const {
    return Access::data(*this).point.multipliers;
}
std::vector<std::complex<double>> Special::log_multipliers() const {
    return log_multipliers_of(Access::data(*this).point);
}

namespace {

const trajex::Finding::Coefficient& coefficient_of(const SpecialData& special,
                                                   std::string_view name) {
    const auto& all = special.finding.coefficients;
    const auto found =
        std::find_if(all.begin(), all.end(), [&](const auto& one) { return one.name == name; });
    if (found != all.end()) return *found;
    std::vector<std::string> known;
    known.reserve(all.size());
    for (const auto& one : all) known.push_back(one.name);
    throw_unknown("coefficient", name, special.id, known);
}

}  // namespace

double Special::coefficient(std::string_view name) const {
    return coefficient_of(Access::data(*this), name).value;
}
double Special::coefficient_error(std::string_view name) const {
    return coefficient_of(Access::data(*this), name).error;
}
std::vector<std::string> Special::coefficients() const {
    std::vector<std::string> names;
    for (const auto& one : Access::data(*this).finding.coefficients) names.push_back(one.name);
    return names;
}
double Special::error() const {
    return Access::data(*this).finding.error;
}
std::array<double, 2> Special::bracket() const {
    const auto& bracket = Access::data(*this).finding.bracket;
    return {bracket[0], bracket[1]};
}
std::vector<double> Special::tangent() const {
    return Access::data(*this).finding.tangent;
}
std::vector<std::vector<double>> Special::null_vectors() const {
    return Access::data(*this).finding.null_vectors;
}
Point Special::point() const {
    return Point(std::shared_ptr<const PointData>(branch_, &Access::data(*this).point));
}
std::string Special::text() const {
    return trajex::special_text(Access::data(*this), *branch_);
}

std::vector<Branch> Special::switch_branch(const Options& options) const {
    static_cast<void>(Access::data(*this));  // throws where there is no point
    trajex::check_options(options);
    std::vector<Branch> branches;
    for (const trajex::BranchPtr& branch : trajex::switch_branch(branch_, index_, options)) {
        branches.push_back(child_of(branch, branch_, index_));
    }
    return branches;
}

Branch Special::follow(std::string_view parameter, Window window, const Options& options) const {
    const SpecialData& special = Access::data(*this);
    const std::size_t index = special.point.model->parameter(parameter);
    trajex::check_window(window, parameter);
    trajex::check_options(options);
    return child_of(trajex::follow_from(branch_, index_, index, window, options), branch_, index_);
}

Branch Special::follow(const ParameterPair& parameters, const WindowPair& windows,
                       const Options& options) const {
    const trajex::Model& model = *Access::data(*this).point.model;
    const std::array vary{model.parameter(parameters.first), model.parameter(parameters.second)};
    if (vary[0] == vary[1]) {
        throw Error("a curve varies two parameters, not '" + parameters.first + "' twice");
    }
    trajex::check_window(windows.first, parameters.first);
    trajex::check_window(windows.second, parameters.second);
    trajex::check_options(options);
    return child_of(
        trajex::follow_curve(branch_, index_, vary, {windows.first, windows.second}, options),
        branch_, index_);
}

// ---- Branch ----

std::string Branch::id() const {
    return Access::data(*this).id;
}
std::string Branch::kind() const {
    return Access::data(*this).kind;
}
std::vector<std::string> Branch::vary() const {
    return Access::data(*this).vary_names;
}
std::string Branch::parent() const {
    return Access::data(*this).parent;
}
std::size_t Branch::size() const {
    return data_ == nullptr ? 0 : data_->size();
}
std::array<StopReason, 2> Branch::stop() const {
    const BranchData& branch = Access::data(*this);
    return {branch.stop[0], branch.stop[1]};
}
std::array<std::string, 2> Branch::stop_detail() const {
    const BranchData& branch = Access::data(*this);
    return {branch.stop_detail[0], branch.stop_detail[1]};
}

std::span<const double> Branch::column(std::string_view name) const {
    const BranchData& branch = Access::data(*this);
    const auto find = [&](std::string_view wanted) {
        return std::find(branch.column_names.begin(), branch.column_names.end(), wanted);
    };
    auto found = find(name);
    // The extremes of an equilibrium are the equilibrium.
    const bool extreme = name.starts_with("min ") || name.starts_with("max ");
    if (found == branch.column_names.end() && extreme) found = find(name.substr(4));
    if (found == branch.column_names.end()) {
        throw_unknown("column", name, "the branch", branch.column_names);
    }
    return branch.columns[static_cast<std::size_t>(found - branch.column_names.begin())];
}

std::vector<std::string> Branch::columns() const {
    return Access::data(*this).column_names;
}

std::vector<std::complex<double>> Branch::eigenvalues(std::size_t point) const {
    const BranchData& branch = Access::data(*this);
    trajex::check_index(point, branch.size(), "point");
    return branch.exponents[point];
}

Point Branch::point(std::size_t index) const {
    const BranchData& branch = Access::data(*this);
    trajex::check_index(index, branch.size(), "point");
    PointData point = trajex::point_of(branch, index);
    // Without its orbit nothing is known of phase 0: the mean is another state.
    if (is_cycle(point) && !trajex::restore_orbit(branch, index, point))
        point.state.assign(point.state.size(), std::numeric_limits<double>::quiet_NaN());
    return Point(std::make_shared<const PointData>(std::move(point)));
}

std::vector<Special> Branch::specials() const {
    std::vector<Special> specials;
    const std::size_t count = Access::data(*this).specials.size();
    specials.reserve(count);
    for (std::size_t i = 0; i < count; ++i) specials.emplace_back(data_, i);
    return specials;
}

Special Branch::operator[](std::string_view id) const {
    return find(specials(), id, "the branch");
}
std::string Branch::text() const {
    return trajex::branch_text(Access::data(*this));
}
std::string Branch::csv() const {
    return trajex::branch_csv(Access::data(*this));
}
std::string Branch::json(bool orbits_inline) const {
    return trajex::branch_json(Access::data(*this), orbits_inline);
}

// ---- Diagram ----

namespace {

/// Whether a special point of this name is in one of the branches.
bool taken(const std::vector<Branch>& branches, std::string_view id) {
    return std::any_of(branches.begin(), branches.end(), [&](const Branch& branch) {
        const auto& specials = Access::data(branch).specials;
        return std::any_of(specials.begin(), specials.end(),
                           [&](const SpecialData& special) { return special.id == id; });
    });
}

/// Gives each special point of `added` the first free number of its type; the names that are free
/// already stay.
void rename_specials(const std::vector<Branch>& branches, BranchData& added) {
    for (std::size_t i = 0; i < added.specials.size(); ++i) {
        SpecialData& special = added.specials[i];
        const auto used = [&](const std::string& id) {
            const auto earlier = added.specials.begin();
            return id.empty() || taken(branches, id) ||
                   std::any_of(earlier, earlier + static_cast<std::ptrdiff_t>(i),
                               [&](const SpecialData& other) { return other.id == id; });
        };
        for (int number = 1; used(special.id); ++number) {
            special.id = special.finding.type + std::to_string(number);
        }
    }
}

/// The name that the parent point has in the diagram, if it is there.
std::string parent_name(const std::vector<Branch>& branches, const BranchData& child) {
    for (const Branch& branch : branches) {
        const trajex::BranchPtr& data = Access::pointer(branch);
        if (data == child.parent_branch || data->original == child.parent_branch) {
            return data->specials[child.parent_special].id;
        }
    }
    return child.parent;
}

}  // namespace

void Diagram::add(const Branch& branch) {
    auto data = std::make_shared<BranchData>(Access::data(branch));
    data->original = Access::pointer(branch);
    data->id = trajex::branch_id(branches_.size());
    if (data->parent_branch != nullptr) data->parent = parent_name(branches_, *data);
    rename_specials(branches_, *data);
    branches_.emplace_back(std::move(data));
}

Branch Diagram::branch(std::size_t index) const {
    trajex::check_index(index, branches_.size(), "branch");
    return branches_[index];
}

std::vector<Special> Diagram::specials() const {
    std::vector<Special> all;
    for (const Branch& branch : branches_) {
        const std::vector<Special> specials = branch.specials();
        all.insert(all.end(), specials.begin(), specials.end());
    }
    return all;
}

Special Diagram::operator[](std::string_view id) const {
    return find(specials(), id, "the diagram");
}
std::string Diagram::text() const {
    return trajex::diagram_text(*this);
}
std::string Diagram::json() const {
    return trajex::diagram_json(*this);
}

void Diagram::save(const std::string& path) const {
    const std::string text = json();
    std::ofstream file(path, std::ios::binary);
    file.write(text.data(), static_cast<std::streamsize>(text.size()));
    file.close();
    if (!file) throw std::runtime_error("cannot write " + path);
}

}  // namespace tx
