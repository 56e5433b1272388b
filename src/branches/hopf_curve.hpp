// Curves of Hopf points of equilibria in two parameters: unknowns z = (x, kappa, p1, p2), equations
// f(x; p) = 0 and the rank of A^2 + kappa I is n - 2. kappa = omega^2 at Hopf points; the curve is
// smooth through Bogdanov-Takens points, kappa = 0, beyond which two real eigenvalues
// +-sqrt(-kappa) have the sum zero (neutral saddles).
#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <string_view>
#include <vector>

#include "branches/dense_curve.hpp"
#include "branches/derivatives.hpp"
#include "branches/equilibrium_problem.hpp"
#include "model/forms.hpp"

namespace trajex {

class HopfCurve : public DenseCurve {
  public:
    /// `past_bt`: goes on beyond Bogdanov-Takens points.
    HopfCurve(std::unique_ptr<EquilibriumProblem> base, bool past_bt);

    /// Finds the null spaces at z = (x, kappa, p1, p2) near a Hopf or Bogdanov-Takens point.
    bool begin(const double* z);

    double kappa(const double* z) const { return z[n_]; }

    bool residual(const double* z, double* f) override;
    bool linearise(const double* z, double* f) override;

    EventNames event_names() const override;
    void spectrum(Spectrum& out) override;
    void add_critical(const double* z, Spectrum& out) const override;
    void tests(std::vector<Test>& out) override;
    bool accepted(std::vector<double>& z, Directions directions) override;
    std::string_view end(const double* z, Finding& finding) override;

    Description describe(const double* z) override;
    void examine(Finding& finding) override;
    std::unique_ptr<Problem> clone() const override;
    std::string_view kind() const override { return "H curve"; }

  private:
    double bautin_test();
    bool move_forms(const double* z);
    bool solve_borders(const double* z, double* f);
    void renew_borders();
    void combine(const std::vector<double>& E, double* g) const;
    void left_combinations(std::size_t b);
    void multiply(const double* v, double* out, bool transposed) const;

    bool past_bt_;
    std::size_t n_;
    Forms forms_;

    Spectrum others_;
    double c1_size_ = 0;     // of Re c1 lately, where its sign was beyond doubt
    std::vector<double> z_;  // of the last linearise
    std::vector<double> beside_;
    std::vector<double> A_;
    std::vector<double> B_, C_;       // borders, two columns of n each
    std::vector<double> V_, W_, AV_;  // two columns of n (AV_: of n + 2, the last two zero)
    std::array<double, 4> G_{}, E1_{}, E2_{};  // 2 x 2; the equations are E1 : G = 0, E2 : G = 0
    DenseLu bordered_;
    std::vector<double> rhs_, left_, direction_, gradients_;
};

}  // namespace trajex
