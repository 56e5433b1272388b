// What curves share whose unknowns are those of equilibria and a scalar s, z = (x, s, p1, p2): the
// equilibria below, and F_z kept whole, bordered, factored.
#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <vector>

#include "branches/derivatives.hpp"
#include "branches/equilibrium_problem.hpp"
#include "branches/problem.hpp"
#include "linalg/dense.hpp"

namespace trajex {

class DenseCurve : public Problem {
  public:
    std::size_t equations() const override { return n_ + 2; }
    std::size_t unknowns() const override { return n_ + 3; }
    std::size_t active_parameters() const override { return 2; }
    void metric(std::span<double> weights) const override;
    double length(const double* v) const override { return base_->length(v); }

    void apply(const double* v, double* out) const override;
    void apply_transposed(const double* w, double* out) const override;
    bool factor(const Border& border) override;
    void solve(double* rhs) const override { factors_.solve(rhs); }
    void solve_transposed(double* rhs) const override { factors_.solve_transposed(rhs); }
    int determinant_sign() const override { return factors_.sign_det(); }

  protected:
    explicit DenseCurve(std::unique_ptr<EquilibriumProblem> base);

    EquilibriumProblem& base() const { return *base_; }
    std::unique_ptr<EquilibriumProblem> clone_base() const;
    std::size_t states() const { return n_; }
    Derivatives& derivatives() { return derivatives_; }
    /// (x, p1, p2) of z, kept until the next call.
    const std::vector<double>& without_scalar(const double* z);
    const std::vector<double>& last_without_scalar() const { return base_z_; }
    /// The scalar counts in units of `scale`.
    void set_scale(double scale) { scale_ = scale; }
    double scale() const { return scale_; }
    /// The equilibrium of z is accepted below.
    void accept_below(const double* z);

    /// Row i of F_z, N + 1 numbers, for `linearise` to fill.
    double* row(std::size_t i) { return &matrix_[i * (n_ + 3)]; }
    /// The rows of the equilibrium that was linearised last, with the column of the scalar.
    void fill_rows_of_states(const double* column);

  private:
    std::unique_ptr<EquilibriumProblem> base_;
    std::size_t n_;
    Derivatives derivatives_;
    double scale_ = 1;
    std::vector<double> base_z_;  // (x, p1, p2)
    std::vector<double> matrix_;
    DenseLu factors_;
};

}  // namespace trajex
