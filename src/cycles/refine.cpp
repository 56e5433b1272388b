// The secant method in the coordinate s along the tangent, for dp/ds at a fold and else for the
// logarithm of the modulus of the critical multiplier. Each value is a cycle corrected with
// <tangent, z - z0> = s.
#include "cycles/refine.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "branches/bordered_newton.hpp"
#include "branches/metric.hpp"
#include "linalg/vectors.hpp"

namespace trajex {

namespace {

class EventFunction {
  public:
    EventFunction(CycleProblem& problem, std::vector<double> start, std::vector<double> tangent,
                  const Finding& finding, bool by_slope)
        : problem_(problem),
          metric_(problem),
          newton_(problem, 1e-11),
          z0_(std::move(start)),
          tangent_(std::move(tangent)),
          by_slope_(by_slope),
          kind_(finding.type == "PD"   ? Exponent::Kind::alternating
                : finding.type == "NS" ? Exponent::Kind::pair
                                       : Exponent::Kind::real) {}

    bool prepare() {
        row_.resize(z0_.size());
        unit_ = metric_.norm(tangent_.data());
        if (!metric_.normalise(tangent_.data())) return false;
        metric_.row(tangent_.data(), row_.data());
        value_ = dot(row_, z0_);
        return true;
    }

    bool at(double s, double& phi) {
        z = z0_;
        for (std::size_t k = 0; k < z.size(); ++k) z[k] += s * tangent_[k];
        const BorderedNewton::Report report =
            newton_.correct(z, row_.data(), value_ + s, metric_, true);
        work += static_cast<double>(report.iterations + 1) * static_cast<double>(z.size());
        if (!report) return false;
        double residual = 0;
        if (newton_.tangent(z.data(), row_.data(), metric_, direction_, residual) !=
            BorderedNewton::Outcome::converged) {
            return false;
        }
        problem_.spectrum(spectrum);
        phi = by_slope_ ? direction_.back() * std::sqrt(metric_.weights().back()) : critical();
        return std::isfinite(phi);
    }

    /// Turns a slope along the tangent as it was given into one by s. The function dp/ds becomes
    /// smaller, too, where the unit of length does.
    double in_this_metric(double slope) const {
        return slope / (by_slope_ ? unit_ * unit_ : unit_);
    }
    void step_along(double s) {
        for (std::size_t k = 0; k < z.size(); ++k) z[k] += s * direction_[k];
    }
    const std::vector<double>& tangent() const { return direction_; }
    double period() const { return problem_.period(z.data()); }
    /// The logarithm of the modulus of the critical multiplier; NaN: there is none of its kind.
    double critical() const {
        double nearest = std::numeric_limits<double>::quiet_NaN();
        for (const Exponent& exponent : spectrum) {
            if (exponent.kind != kind_) continue;
            const double rate = exponent.value.real();
            if (!(std::fabs(rate) >= std::fabs(nearest))) nearest = rate;
        }
        return nearest;
    }
    std::vector<double> z;
    Spectrum spectrum;
    double work = 0;

  private:
    CycleProblem& problem_;
    Metric metric_;
    BorderedNewton newton_;
    std::vector<double> z0_, tangent_, row_, direction_;
    double value_ = 0;
    double unit_ = 1;  // length of the tangent as it was given
    bool by_slope_;
    Exponent::Kind kind_;
};

constexpr double near_crossing = 1e-6;  // what a cycle of the given accuracy may miss 0 by

/// What is known of the slope of an event function.
struct Slope {
    double value = 0;       ///< 0: nothing
    bool measured = false;  ///< by two cycles of a refined mesh, not of the branch's own one

    /// Relative. Where the first cycle of a refined mesh is not at the root, that of the branch
    /// is not relied on any longer.
    double error() const { return measured ? 1e-3 : 3e-4; }
};

// False: no root nearby. The last step, from where the next one would be less than rounding or is
// not less than the one before, is made along the tangent; not while the multiplier, which may be
// steep, is still away from where it belongs. The slope is that of a secant long enough for the
// noise of the function, which next to a canard is large.
bool find_root(EventFunction& event, double first_step, Slope& slope) {
    constexpr double farthest = 1e-2;
    constexpr double straight = 1e-6;  // steps along which the branch is so
    constexpr double close = 1e-11;
    constexpr int most_steps = 15;
    constexpr int most_stagnant = 3;
    double s = 0;
    double f = 0;
    double before = farthest;
    int stagnant = 0;
    if (!event.at(s, f)) return false;
    for (int i = 0; i < most_steps; ++i) {
        const double step = slope.value != 0 ? -f / slope.value : first_step;
        const bool stagnates = slope.value != 0 && std::fabs(step) > 0.5 * before;
        if (slope.value != 0 && std::fabs(step) <= straight &&
            (stagnates || slope.error() * std::fabs(step) <= close) &&
            std::fabs(event.critical()) <= near_crossing) {
            event.step_along(step);
            return true;
        }
        if (stagnates && ++stagnant == most_stagnant) return false;
        double next = 0;
        if (!(std::fabs(s + step) <= farthest) || !event.at(s + step, next)) return false;
        if (slope.value == 0 || !slope.measured || std::fabs(step) >= straight)
            slope = {(next - f) / step, true};
        before = slope.value != 0 ? std::fabs(step) : before;
        s += step;
        f = next;
    }
    return false;
}

// False: not by this function from this first step.
bool find_by(EventFunction& event, double first_step, Slope slope, RefinedPoint& result) {
    if (!event.prepare()) return false;
    slope.value = event.in_this_metric(slope.value);
    result.found =
        find_root(event, first_step, slope) && std::fabs(event.critical()) <= near_crossing;
    result.work += event.work;
    result.slope = slope.value;
    if (!result.found) return false;
    result.parameter = event.z.back();
    result.period = event.period();
    result.spectrum = event.spectrum;
    result.z = event.z;
    result.tangent = event.tangent();
    return true;
}

}  // namespace

// Where dp/ds is small all around a fold, as next to a canard, its zero says little of the place:
// there the multiplier passes 1 the more sharply.
RefinedPoint refine_event(CycleProblem& fine, const std::vector<double>& z,
                          const std::vector<double>& tangent, const Finding& finding,
                          const RefinedPoint& coarser) {
    RefinedPoint result;
    const bool fold = finding.type == "LPC";
    for (const bool by_slope : {true, false}) {
        if (by_slope && !fold) continue;
        if (coarser.found && coarser.by_slope != by_slope) continue;
        result.by_slope = by_slope;
        Slope slope{by_slope == fold ? finding.slope : 0, false};
        if (coarser.found) slope = {coarser.slope, true};
        for (const double first_step : {1e-4, 1e-6, 1e-8}) {
            EventFunction event(fine, z, tangent, finding, by_slope);
            if (find_by(event, first_step, slope, result)) return result;
            if (by_slope) break;
            slope = {};
        }
    }
    return result;
}

}  // namespace trajex
