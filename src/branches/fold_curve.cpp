// Minimally augmented folds: with w the left solution of the bordered system, w' F_y = -g c', w' b
// = 1,
//
//     g_z = -w' F_zz(v, .),
//
// one difference of F_z along v for all unknowns at once. Borders become the null vectors after
// each accepted point, which keeps the bordered matrix far from singular and v, w oriented.
// Bordered systems of the curve are those of its problem with g_z as one more row.
// References: Griewank & Reddien 1984; Govaerts 2000; Beyn et al. 2002.

#include "branches/fold_curve.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

#include "branches/codimension_two.hpp"
#include "branches/kernel.hpp"
#include "linalg/vectors.hpp"

namespace trajex {

FoldCurve::FoldCurve(std::unique_ptr<Problem> base, const FoldNames& names, Examiner examiner)
    : base_(std::move(base)), names_(names), examiner_(std::move(examiner)), derivatives_(*base_) {
    resize();
}

void FoldCurve::resize() {
    const std::size_t n = base_->equations();
    const std::size_t u = base_->unknowns();
    z_.resize(u);
    b_.resize(n);
    rows_.assign(3 * u, 0.0);
    rows_[2 * u - 2] = rows_[3 * u - 1] = 1;
    v_.resize(u);
    w_.resize(n);
    gradient_.resize(u);
    second_.resize(u);
    work_.resize(u + 1);
}

// [ F_z  b ] [ v  ]   [ 0 ]
// [ c'   0 ] [ g  ] = [ 1 ]
// [ e_p1 0 ]          [ 0 ]
// [ e_p2 0 ]          [ 0 ]
bool FoldCurve::solve_borders(const double* z, double* f) {
    const std::size_t n = w_.size();
    const std::size_t u = v_.size();
    if (!base_->linearise(z, f)) return false;
    if (!base_->factor({.extra = 1, .rows = rows_.data(), .columns = b_.data()})) return false;
    std::fill(work_.begin(), work_.end(), 0.0);
    work_[n] = 1;
    base_->solve(work_.data());
    std::copy_n(work_.begin(), u, v_.begin());
    v_[u - 2] = v_[u - 1] = 0;
    g_ = work_[u];
    std::fill(work_.begin(), work_.end(), 0.0);
    work_[u] = 1;
    base_->solve_transposed(work_.data());
    std::copy_n(work_.begin(), n, w_.begin());
    return std::isfinite(g_) && std::isfinite(euclidean(v_)) && std::isfinite(euclidean(w_));
}

void FoldCurve::renew_borders() {
    const double b = dot(w_.data(), w_.data(), w_.size());
    const double c = dot(v_.data(), v_.data(), v_.size());
    for (std::size_t i = 0; i < w_.size(); ++i) b_[i] = w_[i] / std::sqrt(b);
    for (std::size_t i = 0; i < v_.size(); ++i) rows_[i] = v_[i] / std::sqrt(c);
}

bool FoldCurve::begin(const double* z) {
    constexpr int refinements = 3;
    Sequence sequence;
    for (double& x : b_) x = sequence.next();
    for (std::size_t i = 0; i + 2 < v_.size(); ++i)
        rows_[i] = sequence.next() * std::sqrt(derivatives_.metric().weights()[i]);
    std::vector<double> f(w_.size());
    for (int i = 0; i < refinements; ++i) {
        if (!solve_borders(z, f.data())) return false;
        renew_borders();
    }
    return true;
}

bool FoldCurve::residual(const double* z, double* f) {
    if (!solve_borders(z, f)) return false;
    f[w_.size()] = g_;
    return true;
}

bool FoldCurve::linearise(const double* z, double* f) {
    if (!residual(z, f)) return false;
    std::copy_n(z, z_.size(), z_.begin());
    if (!derivatives_.second(z, v_.data(), 1, w_.data(), gradient_.data())) return false;
    for (double& x : gradient_) x = -x;
    return true;
}

void FoldCurve::apply(const double* v, double* out) const {
    base_->apply(v, out);
    out[w_.size()] = dot(gradient_.data(), v, v_.size());
}

void FoldCurve::apply_transposed(const double* w, double* out) const {
    base_->apply_transposed(w, out);
    for (std::size_t i = 0; i < v_.size(); ++i) out[i] += w[w_.size()] * gradient_[i];
}

// The problem below takes border columns of N numbers, but those of a curve have one more, beside
// g_z:
//
//     [ F_z  C ]      row g + alpha' (rows of F),  alpha = -C (C'C)^{-1} d,      [ F_z  C ]
//     [ g_z  d ]      --------------------------------------------------->       [ ...  0 ]
bool FoldCurve::eliminate_corner(const Border& border) {
    const std::size_t n = w_.size();
    const std::size_t extra = border.extra;
    mix_.assign(n, 0.0);
    if (extra == 0) return true;
    const auto column = [&](std::size_t j) { return border.columns + j * (n + 1); };
    double* gram = gram_.matrix(extra);
    std::vector<double> d(extra);
    for (std::size_t i = 0; i < extra; ++i) {
        d[i] = column(i)[n];
        for (std::size_t j = 0; j < extra; ++j) gram[i * extra + j] = dot(column(i), column(j), n);
    }
    if (!gram_.decompose_in_place() || gram_.singular()) return false;
    gram_.solve(d.data());
    for (std::size_t j = 0; j < extra; ++j)
        for (std::size_t i = 0; i < n; ++i) mix_[i] -= d[j] * column(j)[i];
    return true;
}

bool FoldCurve::factor(const Border& border) {
    const std::size_t n = w_.size();
    const std::size_t u = v_.size();
    if (!eliminate_corner(border)) return false;
    border_rows_.resize((border.extra + 2) * u);
    base_->apply_transposed(mix_.data(), border_rows_.data());
    for (std::size_t i = 0; i < u; ++i) border_rows_[i] += gradient_[i];
    std::copy_n(border.rows, (border.extra + 1) * u, &border_rows_[u]);
    work_.resize(std::max(work_.size(), border.extra * n));
    for (std::size_t j = 0; j < border.extra; ++j)
        std::copy_n(border.columns + j * (n + 1), n, &work_[j * n]);
    return base_->factor(
        {.extra = border.extra, .rows = border_rows_.data(), .columns = work_.data()});
}

void FoldCurve::solve(double* rhs) const {
    const std::size_t n = w_.size();
    rhs[n] += dot(mix_.data(), rhs, n);
    base_->solve(rhs);
}

void FoldCurve::solve_transposed(double* rhs) const {
    base_->solve_transposed(rhs);
    for (std::size_t i = 0; i < w_.size(); ++i) rhs[i] += mix_[i] * rhs[w_.size()];
}

EventNames FoldCurve::event_names() const {
    return {.fold = {}, .branch = "BP", .real = {}, .flip = names_.flip, .pair = names_.pair};
}

void FoldCurve::spectrum(Spectrum& out) {
    base_->spectrum(out);
    remove_zero(out);
}

bool FoldCurve::quadratic(const double* z, double& a) {
    const bool done = derivatives_.second(z, v_.data(), 1, w_.data(), second_.data(), true);
    const double v = euclidean(v_);
    a = done ? dot(second_.data(), v_.data(), v_.size()) / (2 * v * v * euclidean(w_)) : NAN;
    return done;
}

void FoldCurve::tests(std::vector<Test>& out) {
    out.clear();
    if (!names_.cusp.empty()) {
        double a = NAN;
        quadratic(z_.data(), a);
        out.push_back({names_.cusp, a});
    }
    if (!names_.double_zero.empty()) {
        const double product = dot(w_.data(), v_.data(), w_.size());
        out.push_back({names_.double_zero, product / (euclidean(v_) * euclidean(w_))});
    }
}

// A change of the discretisation loses the orientation of w and v: that of the coefficient a is
// kept.
bool FoldCurve::accepted(std::vector<double>& z, Directions directions) {
    double before = NAN;
    std::vector<double> f(w_.size() + 1);
    if (residual(z.data(), f.data())) quadratic(z.data(), before);
    renew_borders();
    const bool changed = base_->accepted(z, directions);
    if (changed) {
        resize();
        if (!begin(z.data())) return changed;
        double after = NAN;
        if (quadratic(z.data(), after) && after * before < 0) {
            for (double& x : b_) x = -x;
        }
    }
    derivatives_.metric().refresh(*base_);
    return changed;
}

void FoldCurve::examine(Finding& finding) {
    if (examiner_) examiner_(*this, finding);
}

std::unique_ptr<Problem> FoldCurve::clone() const {
    auto copy = std::make_unique<FoldCurve>(base_->clone(), names_, examiner_);
    copy->b_ = b_;
    copy->rows_ = rows_;
    return copy;
}

}  // namespace trajex
