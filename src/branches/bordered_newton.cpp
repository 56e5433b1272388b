// Newton's method on
//
//     [ F_z ]        [ F                ]
//     [ row ] dz = - [ <row, z> - value ]
//
// with the full matrix at every step, or, where it is dear, with that of the first step as long as
// the corrections shrink fast enough. Converged: |dz| <= tol in the problem's norm. Where rounding
// does not allow that, a |dz| that no longer falls and is small enough is what can be had. H. B.
// Keller 1977.

#include "branches/bordered_newton.hpp"

#include <algorithm>
#include <cmath>

#include "linalg/vectors.hpp"

namespace trajex {
namespace {

constexpr int most_iterations = 8;
constexpr double slow = 0.5;               // contraction that is too slow, twice
constexpr double certain = 0.1;            // of the tolerance: what convergence at the present rate
                                           // leaves, and it is faster than that
constexpr double small_correction = 0.02;  // corrections that factors are kept after the first of,
constexpr double fast_contraction = 0.05;  // and contraction that keeps them
constexpr double stagnation = 0.3;         // |dz_k| / |dz_{k-1}| at rounding level,
constexpr double rounding_level = 1e-8;    // which is below this

}  // namespace

bool BorderedNewton::factor(const double* row) {
    if (!problem_.factor({0, row, nullptr})) return factors_ = 0, false;
    factors_ = problem_.kept_factors();
    if (factors_ != 0) factored_row_.assign(row, row + problem_.unknowns());
    return true;
}

bool BorderedNewton::has_factors(const double* row) const {
    return factors_ != 0 && factors_ == problem_.kept_factors() &&
           std::equal(factored_row_.begin(), factored_row_.end(), row);
}

BorderedNewton::Outcome BorderedNewton::step(std::vector<double>& z, const double* row,
                                             double value, bool keep_factors, Report& report) {
    const std::size_t n = problem_.unknowns();
    step_.resize(n);
    const bool computed = keep_factors ? problem_.residual(z.data(), step_.data())
                                       : problem_.linearise(z.data(), step_.data());
    if (!computed) return Outcome::not_computable;
    report.residual = largest(step_.data(), n - 1);
    double along = -value;
    for (std::size_t i = 0; i < n; ++i) along += row[i] * z[i];
    step_[n - 1] = along;
    if (!keep_factors && !factor(row)) return Outcome::singular;
    problem_.solve(step_.data());
    for (std::size_t i = 0; i < n; ++i) z[i] -= step_[i];
    return Outcome::converged;
}

BorderedNewton::Report BorderedNewton::correct(std::vector<double>& z, const double* row,
                                               double value, const Metric& metric, bool again) {
    if (again && has_factors(row)) {
        start_ = z;
        const Report report = iterate(z, row, value, metric, true);
        if (report) return report;
        z = start_;
    }
    return iterate(z, row, value, metric, false);
}

// With factors that are kept from the beginning they have to serve to the end.
BorderedNewton::Report BorderedNewton::iterate(std::vector<double>& z, const double* row,
                                               double value, const Metric& metric, bool kept) {
    Report report;
    double before = 0;
    int slow_steps = 0;
    bool keep_factors = kept;
    for (int k = 1; k <= most_iterations; ++k) {
        report.outcome = step(z, row, value, keep_factors, report);
        report.iterations = k;
        if (report.outcome != Outcome::converged) return report;
        const double size = metric.norm(step_.data());
        report.correction = size;
        if (!std::isfinite(size)) return report.outcome = Outcome::not_computable, report;
        if (k == 2) report.contraction = size / before;
        if (size <= tol_) return report;
        if (k > 1 && size * (size / before) <= certain * tol_) {
            report.correction = size * (size / before);
            return report;
        }
        if (k > 1 && size >= stagnation * before && size < rounding_level) return report;
        if (k > 1 && size > slow * before && ++slow_steps == 2) break;
        keep_factors = problem_.kept_factors() != 0 &&
                       (k == 1 ? size < small_correction : size < fast_contraction * before);
        if (kept && !keep_factors) break;
        before = size;
    }
    report.outcome = Outcome::diverged;
    return report;
}

BorderedNewton::Outcome BorderedNewton::tangent(const double* z, const double* row,
                                                const Metric& metric, std::vector<double>& t,
                                                double& residual) {
    const std::size_t n = problem_.unknowns();
    step_.resize(n);
    if (!problem_.linearise(z, step_.data())) return Outcome::not_computable;
    residual = largest(step_.data(), n - 1);
    if (!factor(row)) return Outcome::singular;
    std::fill(step_.begin(), step_.end(), 0.0);
    step_[n - 1] = 1;
    problem_.solve(step_.data());
    t.assign(step_.begin(), step_.end());
    return metric.normalise(t.data()) ? Outcome::converged : Outcome::singular;
}

}  // namespace trajex
