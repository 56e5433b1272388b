// Newton's method for the ends of the segments, the period and the parameter, on the chain
//
//     [ R_x   R_T  R_p ]    segments by integration
//     [ f_0    0    0  ]    phase: the first point stays in the plane across the velocity
//     [ t_x   t_T  t_p ]    the distance along the branch stays 0
//
// from the cycle found by collocation. The last row keeps the matrix regular at folds.
#include "cycles/shooting_check.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

#include "cycles/shooting.hpp"

namespace trajex {

namespace {

constexpr int most_iterations = 8;
constexpr double small_step = 1e-9;
constexpr double good_enough = 1e-7;  // where rounding, or growth along the chain, allows no more
constexpr double agreement = 1e-6;    // asked of any system

class CycleByShooting {
  public:
    CycleByShooting(const CycleProblem& problem, const Finding& finding);

    bool solve();
    bool spectrum(Spectrum& out);
    double moved() const { return moved_; }

  private:
    bool step(double& size);

    std::size_t n_, N_, scalars_;
    std::vector<double> scale_;
    Shooting shooting_;
    std::vector<double> x_, q_, x0_, q0_, q_scale_;
    std::vector<double> residual_, rows_, corner_, side_;
    Condensation condensation_;
    ChainFactors chain_;
    BorderedChain<double> bordered_;
    double moved_ = 0;
};

CycleByShooting::CycleByShooting(const CycleProblem& problem, const Finding& finding)
    : n_(problem.segments().states()),
      N_(problem.segments().intervals()),
      scalars_(problem.segments().scalars()),
      scale_(problem.scale()),
      shooting_(problem.segments().rate(), problem.segments().mesh(), scale_) {
    const Segments& segments = problem.segments();
    const double* const z = finding.z.data();
    for (std::size_t i = 0; i < N_; ++i) {
        const double* const end = z + i * segments.inner_points() * n_;
        x_.insert(x_.end(), end, end + n_);
    }
    q_.assign(z + segments.equations(), z + segments.equations() + scalars_);
    x0_ = x_;
    q0_ = q_;
    std::vector<double> weights(problem.unknowns());
    problem.metric(weights);
    for (std::size_t k = 0; k < scalars_; ++k)
        q_scale_.push_back(1 / std::sqrt(weights[segments.equations() + k]));
    residual_.resize(N_ * n_);
    side_.resize(scalars_);
    const std::size_t skip = segments.inner_points() * n_;
    rows_.assign(scalars_ * N_ * n_, 0.0);
    corner_.assign(scalars_ * scalars_, 0.0);
    double* const along = rows_.data() + (scalars_ - 1) * N_ * n_;
    const double share = 1 / static_cast<double>(N_ * n_);
    for (std::size_t k = 0; k < N_ * n_; ++k) {
        const double s = scale_[k % n_];
        along[k] = share * finding.tangent[k / n_ * skip + k % n_] / (s * s);
    }
    for (std::size_t k = 0; k < scalars_; ++k) {
        corner_[(scalars_ - 1) * scalars_ + k] =
            finding.tangent[segments.equations() + k] * weights[segments.equations() + k];
    }
}

bool CycleByShooting::step(double& size) {
    if (!shooting_.linearise(x_.data(), q_.data(), residual_.data())) return false;
    std::fill(side_.begin(), side_.end(), 0.0);
    if (scalars_ == 2) {  // the phase
        for (std::size_t a = 0; a < n_; ++a)
            rows_[a] = shooting_.velocities()[a] / (scale_[a] * scale_[a]);
    }
    for (std::size_t row = 0; row < scalars_; ++row) {
        for (std::size_t k = 0; k < N_ * n_; ++k)
            side_[row] += rows_[row * N_ * n_ + k] * (x_[k] - x0_[k]);
        for (std::size_t k = 0; k < scalars_; ++k)
            side_[row] += corner_[row * scalars_ + k] * (q_[k] - q0_[k]);
    }
    if (!condensation_.factor(shooting_, scale_)) return false;
    chain_.factor(condensation_);
    if (!bordered_.factor(condensation_, chain_, 1.0, scalars_, nullptr, rows_.data(),
                          corner_.data(), scalars_)) {
        return false;
    }
    bordered_.solve(residual_.data(), side_.data());
    size = moved_ = 0;
    for (std::size_t k = 0; k < x_.size(); ++k) {
        x_[k] -= residual_[k];
        size = std::max(size, std::fabs(residual_[k]) / scale_[k % n_]);
        moved_ = std::max(moved_, std::fabs(x_[k] - x0_[k]) / scale_[k % n_]);
    }
    for (std::size_t k = 0; k < scalars_; ++k) {
        q_[k] -= side_[k];
        size = std::max(size, std::fabs(side_[k]) / q_scale_[k]);
        moved_ = std::max(moved_, std::fabs(q_[k] - q0_[k]) / q_scale_[k]);
    }
    return std::isfinite(size);
}

bool CycleByShooting::solve() {
    double size = 0;
    for (int k = 0; k < most_iterations; ++k) {
        if (!step(size)) return false;
        if (size <= small_step) return true;
    }
    return size <= good_enough;
}

bool CycleByShooting::spectrum(Spectrum& out) {
    if (!shooting_.linearise(x_.data(), q_.data(), residual_.data())) return false;
    if (!condensation_.factor(shooting_, scale_)) return false;
    std::vector<double> velocities(shooting_.velocities(), shooting_.velocities() + N_ * n_);
    for (std::size_t k = 0; k < velocities.size(); ++k) velocities[k] /= scale_[k % n_];
    Multipliers multipliers;
    return multipliers.compute(n_, N_, condensation_.transfer(0),
                               scalars_ == 2 ? velocities.data() : nullptr, shooting_.divergence(),
                               out);
}

// How far the critical multiplier is from the unit circle, and its error in `stated`.
double critical_distance(const Finding& finding, const Spectrum& spectrum, double& stated) {
    const Exponent::Kind kind = finding.type == "PD"   ? Exponent::Kind::alternating
                                : finding.type == "NS" ? Exponent::Kind::pair
                                                       : Exponent::Kind::real;
    double nearest = std::numeric_limits<double>::infinity();
    for (const Exponent& exponent : spectrum) {
        const double distance = std::fabs(exponent.value.real());
        if (exponent.kind != kind || distance >= nearest) continue;
        nearest = distance;
        stated = exponent.error;
    }
    return nearest;
}

}  // namespace

void check_by_shooting(const CycleProblem& problem, Finding& finding) {
    const auto say = [&finding](const char* reason) {
        finding.reason += finding.reason.empty() ? "" : "; ";
        finding.reason += reason;
    };
    const std::size_t expected = problem.timing().autonomous() ? 2 : 1;
    if (finding.tangent.size() != problem.unknowns() || problem.segments().scalars() != expected)
        return say("not verified by integration");
    CycleByShooting cycle(problem, finding);
    Spectrum spectrum;
    if (!cycle.solve() || !cycle.spectrum(spectrum))
        return say("not verified: integration does not find the cycle, or takes too many steps");
    double stated = 0;
    critical_distance(finding, finding.spectrum, stated);
    double error = 0;  // of the multipliers by integration
    const double distance = critical_distance(finding, spectrum, error);
    const double difference = std::max(cycle.moved(), distance);
    finding.coefficients.push_back({"shooting error", difference, std::max(small_step, error)});
    if (difference <= std::max({agreement, 10 * problem.mesh_error(), 100 * stated})) return;
    finding.status = "unresolved";
    say("integration over the period disagrees");
}

}  // namespace trajex
