// Equilibria f(x; c) = 0 with one or two free parameters: unknowns z = (x, p) or (x, p1, p2), dense
// linear algebra.
#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include "branches/problem.hpp"
#include "linalg/dense.hpp"
#include "model/equations.hpp"
#include "tx/options.hpp"

namespace trajex {

class Forms;

class EquilibriumProblem : public Problem {
  public:
    struct Settings {
        double tol = 1e-10;
        double floor = 0;         ///< variables smaller than this count as zero; 0: automatic
        double norm_bound = 1e9;  ///< times the largest of 1 and the first sizes
    };

    /// `parameters`: values of all of the system; `vary`: indices of the free ones, `windows`
    /// theirs. `x`: an equilibrium nearby, for the scales.
    EquilibriumProblem(std::shared_ptr<const Equations> equations, std::vector<double> parameters,
                       std::span<const std::size_t> vary, std::span<const tx::Window> windows,
                       std::span<const double> x, const Settings& settings);
    EquilibriumProblem(std::shared_ptr<const Equations> equations, std::vector<double> parameters,
                       std::span<const std::size_t> vary, std::span<const tx::Window> windows,
                       std::span<const double> x)
        : EquilibriumProblem(std::move(equations), std::move(parameters), vary, windows, x,
                             Settings{}) {}

    // What curves need to know of the system behind.
    const Equations& system() const { return *equations_; }
    std::size_t states() const { return n_; }
    /// All parameters at z (those of the last call).
    const std::vector<double>& parameters_at(const double* z);
    /// df/dx of the last linearise, row-major.
    const double* jacobian() const { return A_.data(); }
    /// df/dp_j of the last linearise, n numbers for each free parameter.
    const double* parameter_jacobian() const { return Fp_.data(); }

    std::size_t equations() const override { return n_; }
    std::size_t unknowns() const override { return n_ + vary_.size(); }
    std::size_t active_parameters() const override { return vary_.size(); }
    void metric(std::span<double> weights) const override;

    bool residual(const double* z, double* f) override;
    bool linearise(const double* z, double* f) override;
    void apply(const double* v, double* out) const override;
    void apply_transposed(const double* w, double* out) const override;
    bool factor(const Border& border) override;
    void solve(double* rhs) const override { lu_.solve(rhs); }
    void solve_transposed(double* rhs) const override { lu_.solve_transposed(rhs); }
    int determinant_sign() const override { return lu_.sign_det(); }

    EventNames event_names() const override { return {"LP", "BP", {}, {}, "H"}; }
    void spectrum(Spectrum& out) override;

    bool accepted(std::vector<double>& z, Directions directions) override;
    std::string_view end(const double* z, Finding& finding) override;

    Description describe(const double* z) override;
    void examine(Finding& finding) override;
    std::unique_ptr<Problem> clone() const override;
    std::string_view kind() const override { return "equilibria"; }

  private:
    void set_scales(double share);
    void examine_fold(Forms& forms, Finding& finding) const;

    std::shared_ptr<const Equations> equations_;
    std::vector<double> parameters_;
    std::vector<std::size_t> vary_;
    std::vector<tx::Window> windows_;
    Settings settings_;
    std::size_t n_;

    std::vector<double> scale_;    ///< X_i
    std::vector<double> largest_;  ///< max |x_i| seen
    double bound_ = 0;             ///< on |x_i|
    std::size_t points_ = 0;       ///< accepted since the scales were set
    std::vector<double> first_;    ///< the x that the scales were begun with

    std::vector<double> A_, Fp_;  ///< of the last linearise; Fp_ one column after another
    std::vector<double> work_, re_, im_;
    DenseLu lu_;
    DenseEigen eigen_;
};

}  // namespace trajex
