// Starts from special points of equilibria: the point's state and parameters make a problem with
// one parameter free (branches) or two (curves), a curve stands on it, and the driver follows that.
#include "branches/curves.hpp"

#include <algorithm>
#include <cmath>
#include <memory>
#include <string>
#include <utility>

#include "branches/branch_curve.hpp"
#include "branches/codimension_two.hpp"
#include "branches/equilibrium_problem.hpp"
#include "branches/fold_curve.hpp"
#include "branches/follow.hpp"
#include "branches/hopf_curve.hpp"
#include "branches/switching.hpp"
#include "tx/error.hpp"

namespace trajex {
namespace {

using Indices = std::array<std::size_t, 2>;
using Windows = std::array<tx::Window, 2>;

BranchHead head_of(const SpecialData& special, std::vector<std::size_t> vary,
                   std::vector<tx::Window> windows, const tx::Options& options) {
    return {.model = special.point.model,
            .solution = special.point.kind,
            .vary = std::move(vary),
            .windows = std::move(windows),
            .options = options,
            .parent = special.id};
}

BranchPtr nothing(const SpecialData& special, const Indices& vary, const Windows& windows,
                  const std::string& reason) {
    return branch_without_points(special.point, {vary[0], vary[1]}, {windows[0], windows[1]},
                                 reason);
}

/// The problem with two parameters free at a special point, and z = (x, p1, p2).
std::unique_ptr<EquilibriumProblem> equilibrium_below(const SpecialData& special,
                                                      const Indices& vary, const Windows& windows,
                                                      const tx::Options& options,
                                                      std::vector<double>& z) {
    std::unique_ptr<Problem> problem = make_problem(special.point, vary, windows, options, z);
    auto* equilibria = dynamic_cast<EquilibriumProblem*>(problem.get());
    if (equilibria == nullptr) return nullptr;
    static_cast<void>(problem.release());  // is `equilibria`
    return std::unique_ptr<EquilibriumProblem>(equilibria);
}

/// (x, p1, p2) with one more unknown behind x.
std::vector<double> with_unknown(const std::vector<double>& z, double value) {
    std::vector<double> out(z);
    out.insert(out.end() - 2, value);
    return out;
}

void check_windows(const SpecialData& special, const Indices& vary, const Windows& windows) {
    for (std::size_t j = 0; j < 2; ++j) {
        const tx::Window& window = windows[j];
        check_window(window, "window of " + special.point.model->parameters[vary[j]]);
        const double value = special.point.description.parameters[vary[j]];
        const double margin = 1e-9 * (window.hi - window.lo);
        if (value >= window.lo - margin && value <= window.hi + margin) continue;
        throw tx::Error(
            "the start is outside the window: " + special.point.model->parameters[vary[j]] + " = " +
            std::to_string(value) + ", the window is [" + std::to_string(window.lo) + ", " +
            std::to_string(window.hi) + "]");
    }
}

template <class Curve>
BranchPtr run_curve(const SpecialData& special, const Indices& vary, const Windows& windows,
                    const tx::Options& options, Curve& curve, const std::vector<double>& z) {
    check_windows(special, vary, windows);
    if (!curve.begin(z.data()))
        return nothing(special, vary, windows, "the curve's equations are singular at its start");
    return run_through(head_of(special, {vary[0], vary[1]}, {windows[0], windows[1]}, options),
                       curve, z);
}

/// "(-x, -y, z)".
std::string reflection_text(const std::vector<int>& signs, const std::vector<std::string>& names) {
    std::string text = "(";
    for (std::size_t a = 0; a < signs.size(); ++a) {
        if (a > 0) text += ", ";
        if (signs[a] < 0) text += '-';
        text += names[a];
    }
    return text + ")";
}

/// What is known of a point on a curve of folds of equilibria.
void examine_fold(FoldCurve& curve, Finding& finding) {
    auto& equilibria = dynamic_cast<EquilibriumProblem&>(curve.base());
    Forms forms(equilibria.system());
    const double* z = finding.z.data();
    if (!forms.move_to(z, equilibria.parameters_at(z).data())) return;
    if (finding.type == "CP") name_cusp(forms, finding);
    if (finding.type == "BT") name_takens_bogdanov(forms, finding);
    if (finding.type == "ZH")
        finding.coefficients.push_back({"omega", least_frequency(finding.spectrum), 0});
}

/// omega^2 of the Hopf pair that a curve from this point is to keep: of HH the one that it was not
/// found by.
double start_kappa(const SpecialData& special) {
    const Finding& finding = special.finding;
    if (finding.type == "BT") return 0;
    const std::string_view name = finding.type == "HH" ? "omega2" : "omega";
    for (const Finding::Coefficient& c : finding.coefficients)
        if (c.name == name) return c.value * c.value;
    const double omega = least_frequency(special.point.spectrum);
    return omega * omega;
}

}  // namespace

std::vector<BranchPtr> branches_from_branch_point(const BranchPtr& branch, std::size_t special,
                                                  const tx::Options& options) {
    const SpecialData& point = branch->specials[special];
    std::vector<tx::Window> windows = branch->windows;
    if (options.window.lo < options.window.hi) windows.assign(1, options.window);
    if (branch->vary.size() != 1)
        return {branch_without_points(point.point, branch->vary, branch->windows,
                                      "branches of curves are not followed from branch points")};
    std::vector<double> z;
    const std::unique_ptr<Problem> problem =
        make_problem(point.point, branch->vary, windows, options, z);
    const Crossing crossing = cross(*problem, z, point.finding.tangent);
    std::string note;
    std::vector<BranchPtr> out;
    BranchHead head = head_of(point, branch->vary, windows, options);
    const std::vector<HalfBranch> halves = half_branches(*problem, crossing, note);
    std::vector<bool> is_image(halves.size(), false);
    for (std::size_t i = 0; i < halves.size(); ++i) {
        if (is_image[i]) continue;
        head.image.clear();
        head.image_signs.clear();
        for (std::size_t k = i + 1; k < halves.size(); ++k) {
            const std::vector<int> signs =
                problem->mirror(crossing.z.data(), halves[i].z.data(), halves[k].z.data());
            if (signs.empty()) continue;
            is_image[k] = true;
            head.image_signs = signs;
            head.image = "the other half, its mirror image under " +
                         reflection_text(signs, branch->model->states) + ", is not computed";
        }
        const std::unique_ptr<Problem> own = problem->clone();
        out.push_back(run_half(head, *own, halves[i].z, halves[i].tangent,
                               tx::StopReason::branch_point, "leaves " + point.id + ": " + note));
    }
    if (out.empty())
        out.push_back(branch_without_points(point.point, branch->vary, windows,
                                            crossing.reason.empty() ? note : crossing.reason));
    return out;
}

BranchPtr fold_curve(const BranchPtr& branch, std::size_t special, Indices vary, Windows windows,
                     const tx::Options& options) {
    const SpecialData& point = branch->specials[special];
    std::vector<double> z;
    FoldCurve curve(
        make_problem(point.point, vary, windows, options, z),
        {.kind = "LP curve", .cusp = "CP", .double_zero = "BT", .pair = "ZH", .flip = {}},
        examine_fold);
    return run_curve(point, vary, windows, options, curve, z);
}

BranchPtr hopf_curve(const BranchPtr& branch, std::size_t special, Indices vary, Windows windows,
                     const tx::Options& options) {
    const SpecialData& point = branch->specials[special];
    std::vector<double> z;
    auto below = equilibrium_below(point, vary, windows, options, z);
    if (!below) return nothing(point, vary, windows, "not a point of an equilibrium");
    HopfCurve curve(std::move(below), options.past_bt);
    return run_curve(point, vary, windows, options, curve, with_unknown(z, start_kappa(point)));
}

BranchPtr branch_point_curve(const BranchPtr& branch, std::size_t special, Indices vary,
                             Windows windows, const tx::Options& options) {
    const SpecialData& point = branch->specials[special];
    std::vector<double> z;
    auto below = equilibrium_below(point, vary, windows, options, z);
    if (!below) return nothing(point, vary, windows, "not a point of an equilibrium");
    const std::size_t which = branch->vary[0] == vary[1] ? 1 : 0;
    BranchPointCurve curve(std::move(below), which);
    return run_curve(point, vary, windows, options, curve, with_unknown(z, 0));
}

BranchPtr other_curve(const BranchPtr& branch, std::size_t special, Indices vary, Windows windows,
                      const tx::Options& options) {
    return branch->kind == "LP curve" ? hopf_curve(branch, special, vary, windows, options)
                                      : fold_curve(branch, special, vary, windows, options);
}

}  // namespace trajex
