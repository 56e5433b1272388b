// What is known of special points of a family of cycles: that they are what they are called, by two
// indicators that have nothing in common, where they are on a finer mesh, and the coefficients of
// their normal forms.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <numbers>
#include <string>
#include <utility>

#include "branches/switching.hpp"
#include "cycles/cycle_forms.hpp"
#include "cycles/cycle_points.hpp"
#include "cycles/cycle_problem.hpp"
#include "cycles/fold_form.hpp"
#include "cycles/refine.hpp"
#include "cycles/shooting_check.hpp"
#include "cycles/symmetry.hpp"

namespace trajex {

namespace {

void reject(Finding& finding, std::string reason) {
    finding.status = "unresolved";
    finding.reason = std::move(reason);
}

std::string text_of(double x) {
    char text[32];
    std::snprintf(text, sizeof text, "%.3g", x);
    return text;
}

/// The distance of the real multipliers from 1, as a logarithm.
double distance_from_one(const Finding& finding) {
    double least = std::numeric_limits<double>::infinity();
    for (const Exponent& exponent : finding.spectrum)
        if (exponent.kind == Exponent::Kind::real)
            least = std::min(least, std::fabs(exponent.value.real()));
    return least;
}

std::string indicators(const Finding& finding, const FoldForm& form) {
    return "log of the critical multiplier " + text_of(distance_from_one(finding)) +
           ", scaled psi' F_p " + text_of(form.transversality);
}

// The multiplier that an event is made of must be where it belongs.
bool is_critical(const Finding& finding, Exponent::Kind kind) {
    for (const Exponent& exponent : finding.spectrum) {
        const double tolerance = std::max(1e-6, 100 * exponent.error);
        if (exponent.kind == kind && std::fabs(exponent.value.real()) <= tolerance) return true;
    }
    return false;
}

}  // namespace

// ---- On a finer mesh ----

// The problem with every interval halved, with the finding's cycle and tangent there; null: the
// finding has none.
std::unique_ptr<CycleProblem> CycleProblem::halved(const Finding& finding, std::vector<double>& z,
                                                   std::vector<double>& tangent) const {
    Rate rate = segments_.rate();
    if (finding.tangent.size() != unknowns() || !rate.set(finding.z.data() + state_size()))
        return nullptr;
    CycleSettings settings = settings_;
    settings.sizes = scale_;
    const Orbit orbit = trajex::halved(this->orbit(finding.z.data()));
    auto fine = std::make_unique<CycleProblem>(equations_, timing_, vary_, rate.parameters(),
                                               settings, orbit);
    z = fine->start();
    tangent = transfer_points(segments_.mesh(), orbit.mesh, n_, orbit.m, finding.tangent.data());
    tangent.insert(tangent.end(), finding.tangent.data() + state_size(),
                   finding.tangent.data() + unknowns());
    return fine;
}

// A better place is taken over, with a bound of its error; the finding keeps the present mesh. What
// would move further than the bracket, or the error of the cycle, lets it is not believed.
bool CycleProblem::take_refined(Finding& finding, const RefinedPoint& refined) const {
    double& p = finding.z.back();
    const double width = settings_.widths[0];
    if (!refined.found) {
        finding.error += mesh_error() * width;
        return false;
    }
    const double moved = std::fabs(refined.parameter - p);
    const double margin = finding.bracket[1] - finding.bracket[0] + 1e-9 * width;
    const bool inside = refined.parameter >= finding.bracket[0] - margin &&
                        refined.parameter <= finding.bracket[1] + margin;
    // However narrow the window, the mesh moves the parameter by parts of what matters to the
    // equations.
    const double effect = parameter_effect(*this);
    const double unit = std::max({width, std::fabs(p), std::min(1 / effect, 1e6 * width)});
    if (!inside && moved > mesh_error_of(finding.z.data()) * unit) {
        finding.error += moved;
        return false;
    }
    // Where intervals end the order is 2 m: what halving them has left of the error is known.
    constexpr double remaining = 0.05;
    const double left = 1 / (std::pow(4.0, segments_.inner_points()) - 1);
    const auto extrapolated = [left](double fine, double coarse) {
        return fine + left * (fine - coarse);
    };
    p = extrapolated(refined.parameter, p);
    finding.bracket[0] = std::min(finding.bracket[0], p);
    finding.bracket[1] = std::max(finding.bracket[1], p);
    if (timing_.autonomous()) {
        double& T = finding.z[state_size()];
        T = extrapolated(refined.period, T);
    }
    finding.error = remaining * moved + 1e-13 * (width + std::fabs(p));
    finding.spectrum = refined.spectrum;
    return true;
}

// Intervals are halved, and halved again where that has moved the point by more than the last
// digits. The result is the problem on the finest mesh, with the cycle z there; null: there is
// nothing finer.
std::unique_ptr<CycleProblem> CycleProblem::refine(Finding& finding, std::vector<double>& z) const {
    constexpr int levels = 2;
    constexpr double settled = 1e-8;   // halving intervals divides errors by 2^(2 m), 256 say
    constexpr double of_period = 0.1;  // which moves along the branch, too
    constexpr double noticed = 1e-9;
    constexpr std::size_t most_intervals = 1600;
    std::unique_ptr<CycleProblem> finest;
    Finding place = finding;  // with the mesh of the level
    RefinedPoint refined;
    double before = HUGE_VAL;
    for (int level = 0; level < levels; ++level) {
        const CycleProblem& coarse = finest ? *finest : *this;
        if (2 * coarse.segments_.intervals() > most_intervals) break;
        std::vector<double> start;
        std::vector<double> tangent;
        std::unique_ptr<CycleProblem> fine = coarse.halved(place, start, tangent);
        if (!fine) break;
        refined = refine_event(*fine, start, tangent, finding, refined);
        finding.work += refined.work;
        const double p = finding.z.back();
        const double T = period(finding.z.data());
        if (!take_refined(finding, refined)) {
            if (level == 0) reject(finding, "it is not found again on a finer mesh");
            break;
        }
        finest = std::move(fine);
        z = place.z = refined.z;
        place.tangent = refined.tangent;
        const double moved =
            std::fabs(refined.parameter - p) / (settings_.widths[0] + std::fabs(p));
        if (moved > 0.5 * before && moved > noticed)
            reject(finding, "it is in different places on finer and finer meshes");
        before = moved;
        const double stretched = std::fabs(refined.period - T) / T;
        if (std::max(moved, of_period * stretched) <= settled) break;
    }
    return finest;
}

// A branch point on the finer mesh is polished like the one on this mesh, of which the coefficients
// are there already.
void CycleProblem::refine_branch_point(Finding& finding) const {
    std::vector<double> z;
    std::vector<double> tangent;
    const std::unique_ptr<CycleProblem> fine = halved(finding, z, tangent);
    if (!fine) return;
    const Crossing crossing = cross(*fine, z, tangent);
    RefinedPoint refined;
    std::vector<double> residual(fine->equations());
    if (crossing.reason.empty() && !crossing.phi.empty() &&
        fine->linearise(crossing.z.data(), residual.data())) {
        refined.found = true;
        refined.parameter = crossing.z.back();
        refined.period = fine->period(crossing.z.data());
        fine->spectrum(refined.spectrum);
    }
    if (!take_refined(finding, refined)) return;
    for (Finding::Coefficient& known : finding.coefficients) {
        const bool slope = known.name == "slope";
        if (!slope && known.name != "k") continue;
        const double value = slope ? crossing.slope : crossing.curvature;
        // The sign of the slope is that of phi, which is a matter of convention.
        const double change = slope ? std::fabs(std::fabs(value) - std::fabs(known.value))
                                    : std::fabs(value - known.value);
        known.value = slope ? std::copysign(value, known.value) : value;
        known.error = std::max(change, slope ? crossing.slope_error : crossing.curvature_error);
    }
}

// ---- What the points are ----

void CycleProblem::examine(Finding& finding) {
    classify(finding);
    if (settings_.verify && finding.status == "located") check_by_shooting(*this, finding);
}

void CycleProblem::classify(Finding& finding) {
    if (finding.type == "LPC") examine_fold(finding);
    if (finding.type == "BPC") examine_branch_point(finding);
    if (finding.type == "PD") examine_doubling(finding);
    if (finding.type == "NS") examine_torus(finding);
}

void CycleProblem::examine_doubling(Finding& finding) {
    std::vector<double> z = finding.z;
    const std::unique_ptr<CycleProblem> fine = refine(finding, z);
    if (finding.status != "located") return;
    if (!is_critical(finding, Exponent::Kind::alternating))
        return reject(finding, "no multiplier is -1");
    describe_coefficient(finding, "c", doubling_coefficient(fine ? *fine : *this, z));
}

void CycleProblem::examine_torus(Finding& finding) {
    std::vector<double> z = finding.z;
    const std::unique_ptr<CycleProblem> fine = refine(finding, z);
    if (finding.status != "located") return;
    if (!is_critical(finding, Exponent::Kind::pair))
        return reject(finding, "no pair of multipliers has modulus 1");
    const double theta = critical_angle(finding);
    finding.coefficients.push_back({"theta", theta, mesh_error()});
    finding.coefficients.push_back({"rotation", theta / (2 * std::numbers::pi), mesh_error()});
    constexpr double least_sine = 1e-4;
    if (std::sin(theta) < least_sine)
        return reject(finding, "the pair of multipliers is nearly real");
    describe_coefficient(finding, "d", torus_coefficient(fine ? *fine : *this, z, theta));
}

// At a fold the parameter moves the singular equations out of their range: psi' F_p is not 0.
void CycleProblem::examine_fold(Finding& finding) {
    constexpr double least = 1e-4;
    std::vector<double> z = finding.z;
    const std::unique_ptr<CycleProblem> fine = refine(finding, z);
    if (finding.status != "located") return;
    if (!is_critical(finding, Exponent::Kind::real)) return reject(finding, "no multiplier is 1");
    const FoldForm form = fold_form(fine ? *fine : *this, z, true);
    if (!form.known) {
        finding.reason = "the coefficient is not computable";
        return;
    }
    if (form.transversality < least)
        return reject(
            finding, "the branch turns where branches seem to cross: " + indicators(finding, form));
    const double relative = 10 * mesh_error();
    const auto put = [&](const char* name, double value, double error) {
        finding.coefficients.push_back({name, value, error + relative * std::fabs(value)});
    };
    put("k", form.curvature, form.curvature_error);
    put("a", form.a, form.curvature_error * form.unfolding);
    put("psi F_p", form.unfolding, 0);
    const double nu = note_symmetry(finding, fine ? *fine : *this, z, form.v);
    if (nu < 0)
        reject(finding,
               "the branch turns where the symmetry of the cycle breaks: multiplier of "
               "the half map " +
                   text_of(nu) + ", " + indicators(finding, form));
}

// Where branches cross psi' F_p is 0. Multipliers do not say so before the point is polished:
// Newton's method for points of one branch is inexact there.
void CycleProblem::examine_branch_point(Finding& finding) {
    constexpr double most = 1e-2;
    const FoldForm form = fold_form(*this, finding.z, false);
    // Where more branches than two cross there are more null vectors than these.
    const bool simple = finding.subtype != "multiple";
    if (simple && form.known && form.transversality > most)
        return reject(finding, "no branch seems to cross: " + indicators(finding, form));
    // The equations of the mesh have the symmetry that makes branches cross up to their error only.
    const double apart = std::max(1e-6, 0.1 * std::sqrt(mesh_error()));
    name_branch_point(*this, finding, {.apart = apart});
    std::vector<double> residual(equations());
    if (linearise(finding.z.data(), residual.data())) spectrum(finding.spectrum);
    if (finding.null_vectors.size() == 2) refine_branch_point(finding);
    if (!is_critical(finding, Exponent::Kind::real)) return reject(finding, "no multiplier is 1");
    if (!finding.null_vectors.empty())
        note_symmetry(finding, *this, finding.z, finding.null_vectors.front());
}

// For a symmetric cycle the multiplier of the half map that belongs to the critical solution v; 0:
// the cycle has no symmetry, or v none of the half map's.
double CycleProblem::note_symmetry(Finding& finding, const CycleProblem& problem,
                                   const std::vector<double>& z, const std::vector<double>& v) {
    constexpr double sure = 0.99;
    const std::vector<int> signs = problem.symmetry(z.data());
    if (signs.empty()) return 0;
    const double nu = half_period_multiplier(
        problem.orbit(z.data()), {v.data(), problem.state_size()}, problem.scale_, signs);
    if (std::fabs(nu) < sure) return 0;
    finding.coefficients.push_back({"half-map multiplier", nu, 1 - std::fabs(nu)});
    return nu;
}

std::vector<int> CycleProblem::symmetry(const double* z) const {
    Rate rate = segments_.rate();
    if (!rate.set(z + state_size())) return {};
    const double tolerance = std::max(1e-6, 10 * mesh_error_of(z));
    return half_period_symmetry(rate, orbit(z), scale_, tolerance);
}

std::vector<int> CycleProblem::mirror(const double* z, const double* a, const double* b) const {
    constexpr double close = 0.02;  // of their distance
    std::vector<int> signs = symmetry(z);
    if (signs.empty()) return {};
    const Orbit image = mirror_image(orbit(a), signs);
    const Orbit other = orbit(b);
    const double apart = orbit_distance(orbit(a), other, scale_, timing_);
    if (!(orbit_distance(image, other, scale_, timing_) <= close * apart)) return {};
    return signs;
}

// The angle of the pair nearest the unit circle.
double CycleProblem::critical_angle(const Finding& finding) {
    double angle = 0;
    double nearest = HUGE_VAL;
    for (const Exponent& exponent : finding.spectrum) {
        const double away = std::fabs(exponent.value.real());
        if (exponent.kind != Exponent::Kind::pair || away >= nearest) continue;
        nearest = away;
        angle = std::fabs(exponent.value.imag());
    }
    return angle;
}

void CycleProblem::describe_coefficient(Finding& finding, const char* name,
                                        const CycleCoefficient& coefficient) const {
    finding.subtype = "undetermined";
    if (!coefficient.known) {
        finding.reason = "the coefficient is not computable";
        return;
    }
    const bool exact = equations_->has_exact_jacobian();
    const double relative = std::max(10 * mesh_error(), exact ? 1e-8 : 1e-5);
    const double error = relative * (std::fabs(coefficient.value) + 1e-3);
    finding.coefficients.push_back({name, coefficient.value, error});
    if (timing_.autonomous())
        finding.coefficients.push_back({"a", coefficient.a, relative * std::fabs(coefficient.a)});
    if (std::fabs(coefficient.value) <= error) {
        finding.reason = "the coefficient is zero within its error";
        return;
    }
    finding.subtype = coefficient.value < 0 ? "supercritical" : "subcritical";
}

}  // namespace trajex
