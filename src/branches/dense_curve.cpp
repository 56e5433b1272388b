// Curves of equilibria with a scalar, and their bordered dense systems.

#include "branches/dense_curve.hpp"

#include <algorithm>
#include <utility>

#include "linalg/vectors.hpp"

namespace trajex {

DenseCurve::DenseCurve(std::unique_ptr<EquilibriumProblem> base)
    : base_(std::move(base)),
      n_(base_->equations()),
      derivatives_(*base_),
      base_z_(n_ + 2),
      matrix_((n_ + 2) * (n_ + 3)),
      factors_(n_ + 4) {}

std::unique_ptr<EquilibriumProblem> DenseCurve::clone_base() const {
    std::unique_ptr<Problem> below = base_->clone();
    return std::unique_ptr<EquilibriumProblem>(dynamic_cast<EquilibriumProblem*>(below.release()));
}

const std::vector<double>& DenseCurve::without_scalar(const double* z) {
    std::copy_n(z, n_, base_z_.begin());
    base_z_[n_] = z[n_ + 1];
    base_z_[n_ + 1] = z[n_ + 2];
    return base_z_;
}

void DenseCurve::metric(std::span<double> weights) const {
    const std::vector<double>& w = derivatives_.metric().weights();
    std::copy_n(w.begin(), n_, weights.begin());
    weights[n_] = 1 / (scale_ * scale_);
    weights[n_ + 1] = w[n_];
    weights[n_ + 2] = w[n_ + 1];
}

void DenseCurve::accept_below(const double* z) {
    std::vector<double> x = without_scalar(z);
    base_->accepted(x, {});
    derivatives_.metric().refresh(*base_);
}

// [ f_x  column  f_p1  f_p2 ]
void DenseCurve::fill_rows_of_states(const double* column) {
    for (std::size_t i = 0; i < n_; ++i) {
        std::copy_n(base_->jacobian() + i * n_, n_, row(i));
        row(i)[n_] = column[i];
        row(i)[n_ + 1] = base_->parameter_jacobian()[i];
        row(i)[n_ + 2] = base_->parameter_jacobian()[n_ + i];
    }
}

void DenseCurve::apply(const double* v, double* out) const {
    const std::size_t u = unknowns();
    for (std::size_t i = 0; i < equations(); ++i) out[i] = dot(v, &matrix_[i * u], u);
}

void DenseCurve::apply_transposed(const double* w, double* out) const {
    const std::size_t u = unknowns();
    std::fill(out, out + u, 0.0);
    for (std::size_t i = 0; i < equations(); ++i)
        for (std::size_t j = 0; j < u; ++j) out[j] += w[i] * matrix_[i * u + j];
}

bool DenseCurve::factor(const Border& border) {
    const std::size_t rows = equations();
    const std::size_t u = unknowns();
    const std::size_t n = u + border.extra;
    double* m = factors_.matrix(n);
    std::fill(m, m + n * n, 0.0);
    for (std::size_t i = 0; i < rows; ++i) {
        std::copy_n(&matrix_[i * u], u, m + i * n);
        for (std::size_t j = 0; j < border.extra; ++j)
            m[i * n + u + j] = border.columns[j * rows + i];
    }
    for (std::size_t i = 0; i <= border.extra; ++i)
        std::copy_n(border.rows + i * u, u, m + (rows + i) * n);
    return factors_.decompose_in_place() && !factors_.singular();
}

}  // namespace trajex
