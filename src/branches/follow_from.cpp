// The branch in one parameter from a special point. From Hopf points and period doublings it is the
// branch of cycles born there, in any parameter: the point is examined anew as one of a branch in
// that parameter. From other points it is the branch through the point.
#include "branches/continuer.hpp"
#include "branches/runs.hpp"

namespace trajex {

namespace {

/// What a point gives birth to: "H" cycles, "PD" cycles of twice the period, "" neither. The
/// degenerate points of their curves do as well.
std::string_view birth(std::string_view type) {
    if (type == "H" || type == "GH") return "H";
    if (type == "PD" || type == "GPD") return "PD";
    return {};
}

/// A branch of no points in the parameter, whose only special point is the given one.
BranchPtr branch_at(const SpecialData& special, std::string_view type, std::size_t parameter,
                    tx::Window window, const tx::Options& options) {
    auto branch = std::make_shared<BranchData>();
    branch->model = special.point.model;
    branch->solution = special.point.kind;
    branch->vary = {parameter};
    branch->vary_names = {branch->model->parameters[parameter]};
    branch->windows = {window};
    branch->options = options;
    SpecialData& point = branch->specials.emplace_back();
    point.id = special.id;
    point.point = special.point;
    point.finding.type = type;
    Finding& finding = point.finding;
    const std::unique_ptr<Problem> problem =
        make_problem(special.point, branch->vary, branch->windows, options, finding.z);
    branch->kind = problem->kind();
    std::vector<double> residual(problem->equations());
    finding.bracket[0] = window.lo;
    finding.bracket[1] = window.hi;
    if (!problem->linearise(finding.z.data(), residual.data()) ||
        !first_tangent(*problem, finding.z, true, finding.tangent)) {
        finding.status = "unresolved";
        finding.reason = "there is no branch in this parameter";
        return branch;
    }
    problem->linearise(finding.z.data(), residual.data());
    problem->spectrum(finding.spectrum);
    problem->examine(finding);
    return branch;
}

}  // namespace

BranchPtr follow_from(const BranchPtr& branch, std::size_t special, std::size_t parameter,
                      tx::Window window, const tx::Options& options) {
    const SpecialData& point = branch->specials[special];
    const std::string_view type = birth(point.finding.type);
    if (type.empty()) return follow(point.point, parameter, window, options);
    tx::Options settings = options;
    settings.window = window;
    BranchPtr origin = branch;
    std::size_t index = special;
    if (branch->vary != std::vector{parameter}) {
        origin = branch_at(point, type, parameter, window, settings);
        index = 0;
    }
    const Finding& finding = origin->specials[index].finding;
    const auto nothing = [&](const std::string& reason) {
        return branch_without_points(point.point, {parameter}, {window}, reason);
    };
    if (finding.status == "unresolved") return nothing(finding.reason);
    const std::vector<BranchPtr> born = switch_branch(origin, index, settings);
    return born.empty() ? nothing("no cycle was found near the point") : born.front();
}

}  // namespace trajex
