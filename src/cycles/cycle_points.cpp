// Shifts in time are searched on a grid and refined by a parabola; a Hopf point by the secant
// method on the real part of the pair of eigenvalues near the given frequency.
#include "cycles/cycle_points.hpp"

#include <algorithm>
#include <cmath>
#include <complex>
#include <limits>

#include "branches/metric.hpp"
#include "linalg/dense.hpp"
#include "linalg/vectors.hpp"

namespace trajex {

namespace {

constexpr std::size_t samples = 64;

std::vector<double> sample(const Orbit& orbit, const std::vector<double>& scale, double shift) {
    std::vector<double> points = orbit.sampled(samples, shift);
    for (std::size_t i = 0; i < points.size(); ++i) points[i] /= scale[i % orbit.states];
    return points;
}

// With a shift by whole samples.
double mean_square(const std::vector<double>& a, const std::vector<double>& b, std::size_t shift) {
    const std::size_t offset = a.size() / samples * shift;
    double sum = 0;
    for (std::size_t k = 0; k < b.size(); ++k) {
        const double d = a[(k + offset) % a.size()] - b[k];
        sum += d * d;
    }
    return sum / static_cast<double>(a.size());
}

}  // namespace

double orbit_distance(const Orbit& a, const Orbit& b, const std::vector<double>& scale,
                      const Timing& timing) {
    const std::vector<double> at_b = sample(b, scale, 0);
    const auto squared = [&](double shift) {
        return mean_square(sample(a, scale, shift), at_b, 0);
    };
    double best = std::numeric_limits<double>::infinity();
    if (!timing.autonomous()) {
        for (int k = 0; k < timing.periods; ++k) {
            best = std::min(best, squared(static_cast<double>(k) / timing.periods));
        }
        return std::sqrt(best);
    }
    const std::vector<double> at_a = sample(a, scale, 0);
    std::size_t nearest = 0;
    for (std::size_t k = 0; k < samples; ++k) {
        const double value = mean_square(at_a, at_b, k);
        if (value < best) best = value, nearest = k;
    }
    double shift = static_cast<double>(nearest) / samples;
    double h = 0.5 / samples;
    for (int i = 0; i < 6; ++i, h *= 0.2) {
        const double left = squared(shift - h);
        const double middle = squared(shift);
        const double right = squared(shift + h);
        best = std::min({best, left, middle, right});
        const double curvature = left - 2 * middle + right;
        if (!(curvature > 0)) break;
        shift += std::clamp(0.5 * h * (left - right) / curvature, -2 * h, 2 * h);
    }
    return std::sqrt(best);
}

namespace {

// The equilibrium near point.state at its parameters, and the eigenvalue there nearest i omega.
class HopfResidual {
  public:
    HopfResidual(const Equations& equations, double t)
        : equations_(equations),
          t_(t),
          n_(equations.states()),
          f_(n_),
          A_(n_ * n_),
          re_(n_),
          im_(n_) {}

    bool evaluate(HopfPoint& point, double& growth) {
        if (!settle(point)) return false;
        if (!eigen_.eigenvalues(n_, A_.data(), re_.data(), im_.data())) return false;
        std::size_t best = n_;
        double least = std::numeric_limits<double>::infinity();
        for (std::size_t k = 0; k < n_; ++k) {
            const double away = std::hypot(re_[k], im_[k] - point.omega);
            if (im_[k] > 0 && away < least) least = away, best = k;
        }
        if (best == n_ || least > 0.5 * point.omega) return false;
        growth = re_[best];
        frequency = im_[best];
        return true;
    }
    double frequency = 0;

  private:
    bool settle(HopfPoint& point) {
        double size = 0;
        for (int i = 0; i < 20; ++i) {
            equations_.jacobians(1, &t_, point.state.data(), point.parameters.data(), f_.data(),
                                 A_.data());
            if (!lu_.decompose(A_.data(), n_) || lu_.singular()) return false;
            lu_.solve(f_.data());
            size = 0;
            double norm = 0;
            for (std::size_t a = 0; a < n_; ++a) {
                point.state[a] -= f_[a];
                size = std::max(size, std::fabs(f_[a]));
                norm = std::max(norm, std::fabs(point.state[a]));
            }
            if (size <= 1e-13 * (norm + 1e-3)) break;
        }
        return std::isfinite(size);
    }

    const Equations& equations_;
    double t_;
    std::size_t n_;
    std::vector<double> f_, A_, re_, im_;
    DenseLu lu_;
    DenseEigen eigen_;
};

}  // namespace

bool solve_hopf(const Equations& equations, double t, std::size_t parameter, double width,
                HopfPoint& point) {
    HopfResidual hopf(equations, t);
    double& p = point.parameters[parameter];
    double g0 = 0;
    double g1 = 0;
    double p0 = p;
    if (!hopf.evaluate(point, g0)) return false;
    p += 1e-6 * width;
    for (int i = 0; i < 30; ++i) {
        if (!hopf.evaluate(point, g1)) return false;
        const double step = g1 == g0 ? 0 : -g1 * (p - p0) / (g1 - g0);
        if (std::fabs(g1) <= 1e-12 * point.omega || std::fabs(step) <= 1e-14 * width) {
            point.omega = hopf.frequency;
            return std::fabs(g1) <= 1e-7 * point.omega;
        }
        p0 = p;
        g0 = g1;
        p += std::clamp(step, -0.05 * width, 0.05 * width);
    }
    return false;
}

// The matrix is bordered by the rows e_p, so that the parameters stay. Steps that do not lessen the
// residual are shortened; at the end full steps are taken until they do not get smaller any more.
bool correct_at_fixed_parameters(Problem& problem, std::vector<double>& z, double tolerance) {
    constexpr int most_steps = 40;
    const std::size_t N = problem.equations();
    const std::size_t size = problem.unknowns();
    const std::size_t d = size - N;
    std::vector<double> rows(d * size, 0.0);
    for (std::size_t k = 0; k < d; ++k) rows[k * size + N + k] = 1;
    const Metric metric(problem);
    std::vector<double> step(size);
    std::vector<double> trial(size);
    std::vector<double> f(N);
    double before = std::numeric_limits<double>::infinity();
    for (int i = 0; i < most_steps; ++i) {
        if (!problem.linearise(z.data(), f.data())) return false;
        const double residual = euclidean(f);
        if (!problem.factor({0, rows.data(), nullptr})) return false;
        std::fill(step.begin(), step.end(), 0.0);
        for (std::size_t k = 0; k < N; ++k) step[k] = -f[k];
        problem.solve(step.data());
        const double length = metric.norm(step.data());
        if (!std::isfinite(length)) return false;
        const auto improves = [&](double factor) {
            for (std::size_t k = 0; k < size; ++k) trial[k] = z[k] + factor * step[k];
            return problem.residual(trial.data(), f.data()) &&
                   (euclidean(f) <= residual * (1 - 0.1 * factor) || length < 1e-6);
        };
        double factor = std::min(1.0, 0.5 * (1 + metric.norm(z.data())) / length);
        while (factor > 1e-4 && !improves(factor)) factor *= 0.5;
        if (factor <= 1e-4) return false;
        z = trial;
        if (length <= tolerance || (length < 1e-8 && length >= 0.3 * before)) return true;
        before = length;
    }
    return false;
}

}  // namespace trajex
