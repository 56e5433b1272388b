// Branch points in two parameters. With w the left null vector that belongs to b, the gradients are
// those of other minimally augmented systems, dg_j = -w' F_zz(n_j, .).

#include "branches/branch_curve.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

#include "branches/codimension_two.hpp"
#include "branches/kernel.hpp"
#include "linalg/vectors.hpp"

namespace trajex {
namespace {

void scale_to_one(double* v, std::size_t n) {
    const double size = std::sqrt(dot(v, v, n));
    for (std::size_t i = 0; i < n; ++i) v[i] /= size;
}

}  // namespace

BranchPointCurve::BranchPointCurve(std::unique_ptr<EquilibriumProblem> base, std::size_t which)
    : DenseCurve(std::move(base)),
      which_(which),
      n_(states()),
      b_(n_),
      R_(2 * (n_ + 1)),
      N_(2 * (n_ + 1)),
      w_(n_),
      bordered_(n_ + 2),
      rhs_(n_ + 2),
      direction_(n_ + 2),
      gradient_(n_ + 2) {}

// Near the point w' F is c11 a^2 + 2 c12 a b + c22 b^2 = -mu on a n1 + b n2: hyperbolas whose
// distance from their centre is sqrt(mu / sqrt(c12^2 - c11 c22)) in units of n1, n2. The strength
// is the mu that pulls the branches apart by their scaled unit; mu counts in units of it.
double BranchPointCurve::strength(const double* z) {
    std::vector<double> f(n_ + 2);
    if (!linearise(z, f.data())) return 1;
    double c[2][2];
    double longest = 0;
    for (std::size_t j = 0; j < 2; ++j) {
        const double* n = &N_[j * (n_ + 1)];
        for (std::size_t k = 0; k < 2; ++k) {
            const double* g = row(n_ + k);
            c[k][j] = dot(g, n, n_) + g[n_ + 1 + which_] * n[n_];
        }
        std::copy_n(n, n_, direction_.begin());
        direction_[n_] = direction_[n_ + 1] = 0;
        direction_[n_ + which_] = n[n_];
        longest = std::max(longest, derivatives().metric().norm(direction_.data()));
    }
    const double discriminant = std::abs(c[0][1] * c[1][0] - c[0][0] * c[1][1]);
    const double result = std::sqrt(discriminant) / (longest * longest);
    return std::isfinite(result) && result > 0 ? result : 1;
}

bool BranchPointCurve::solve_borders(const double* z, double* f) {
    if (!base().linearise(without_scalar(z).data(), f)) return false;
    const std::size_t size = n_ + 2;
    double* m = bordered_.matrix(size);
    std::fill(m, m + size * size, 0.0);
    for (std::size_t i = 0; i < n_; ++i) {
        std::copy_n(base().jacobian() + i * n_, n_, m + i * size);
        m[i * size + n_] = base().parameter_jacobian()[which_ * n_ + i];
        m[i * size + n_ + 1] = b_[i];
    }
    for (std::size_t j = 0; j < 2; ++j) std::copy_n(&R_[j * (n_ + 1)], n_ + 1, m + (n_ + j) * size);
    if (!bordered_.decompose_in_place() || bordered_.singular()) return false;
    for (std::size_t j = 0; j < 2; ++j) {
        std::fill(rhs_.begin(), rhs_.end(), 0.0);
        rhs_[n_ + j] = 1;
        bordered_.solve(rhs_.data());
        std::copy_n(rhs_.begin(), n_ + 1, &N_[j * (n_ + 1)]);
        g_[j] = rhs_[n_ + 1];
    }
    std::fill(rhs_.begin(), rhs_.end(), 0.0);
    rhs_[n_ + 1] = 1;
    bordered_.solve_transposed(rhs_.data());
    std::copy_n(rhs_.begin(), n_, w_.begin());
    return std::isfinite(g_[0] + g_[1]);
}

void BranchPointCurve::renew_borders() {
    b_ = w_;
    scale_to_one(b_.data(), n_);
    R_ = N_;
    double* first = R_.data();
    double* second = R_.data() + n_ + 1;
    scale_to_one(first, n_ + 1);
    const double overlap = dot(first, second, n_ + 1);
    for (std::size_t i = 0; i <= n_; ++i) second[i] -= overlap * first[i];
    scale_to_one(second, n_ + 1);
}

bool BranchPointCurve::begin(const double* z) {
    constexpr int refinements = 3;
    Sequence sequence;
    for (double& x : b_) x = sequence.next();
    for (double& x : R_) x = sequence.next();
    std::vector<double> f(n_);
    for (int i = 0; i < refinements; ++i) {
        if (!solve_borders(z, f.data())) return false;
        renew_borders();
    }
    set_scale(strength(z));
    return true;
}

bool BranchPointCurve::residual(const double* z, double* f) {
    if (!solve_borders(z, f)) return false;
    for (std::size_t i = 0; i < n_; ++i) f[i] += z[n_] * b_[i];
    f[n_] = g_[0];
    f[n_ + 1] = g_[1];
    return true;
}

bool BranchPointCurve::linearise(const double* z, double* f) {
    if (!residual(z, f)) return false;
    const std::vector<double> at = last_without_scalar();
    for (std::size_t j = 0; j < 2; ++j) {
        std::copy_n(&N_[j * (n_ + 1)], n_, direction_.begin());
        direction_[n_] = direction_[n_ + 1] = 0;
        direction_[n_ + which_] = N_[j * (n_ + 1) + n_];
        if (!derivatives().second(at.data(), direction_.data(), 1, w_.data(), gradient_.data()))
            return false;
        double* out = row(n_ + j);
        for (std::size_t i = 0; i < n_; ++i) out[i] = -gradient_[i];
        out[n_] = 0;
        out[n_ + 1] = -gradient_[n_];
        out[n_ + 2] = -gradient_[n_ + 1];
    }
    fill_rows_of_states(b_.data());
    return true;
}

void BranchPointCurve::spectrum(Spectrum& out) {
    base().spectrum(out);
    remove_zero(out);
}

bool BranchPointCurve::accepted(std::vector<double>& z, Directions) {
    std::vector<double> f(n_ + 2);
    if (residual(z.data(), f.data())) renew_borders();
    accept_below(z.data());
    return false;
}

double BranchPointCurve::imperfection(const double* z) const {
    return std::sqrt(std::abs(z[n_]) / scale());
}

std::string_view BranchPointCurve::end(const double* z, Finding& finding) {
    constexpr double crossing = 1e-4;
    if (imperfection(z) > crossing) {
        finding.reason = "the branches do not cross in both parameters";
        return "inconsistent";
    }
    return base().end(without_scalar(z).data(), finding);
}

Description BranchPointCurve::describe(const double* z) {
    return base().describe(without_scalar(z).data());
}

void BranchPointCurve::examine(Finding& finding) {
    (void)finding;
}

std::unique_ptr<Problem> BranchPointCurve::clone() const {
    auto copy = std::make_unique<BranchPointCurve>(clone_base(), which_);
    copy->b_ = b_;
    copy->R_ = R_;
    copy->set_scale(scale());
    return copy;
}

}  // namespace trajex
