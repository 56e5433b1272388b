// Equilibria from guesses: f(x; c) = 0 by damped Newton, and all of them in a box by deflation.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "branches/data.hpp"
#include "linalg/dense.hpp"
#include "tx/system.hpp"

namespace trajex {

/// Newton's method for f(x) = 0 at the parameter values of a model. Work memory is taken once.
class EquilibriumNewton {
  public:
    EquilibriumNewton(const Model& model, double tol, double floor);

    /// For searches in a box, which outlives them: solutions to keep away from. f is multiplied by
    /// prod (1 + 1 / |x - r|^2), which has no zero at any of them, with lengths in units of the
    /// box. A step is at most half a box long, and a search ends that is a whole one outside.
    void deflate(const std::vector<std::vector<double>>* known, const tx::Box* box);

    /// Moves x to a solution. False, and `reason` says why, when none is reached.
    bool solve(std::vector<double>& x);
    /// The same by following the flow in time steps that grow, which does not stop at the minima of
    /// |f| that are no solutions, and comes to equilibria that are stable.
    bool settle(std::vector<double>& x);

    const std::string& reason() const { return reason_; }
    /// Largest |f_i| at the solution.
    double residual() const { return residual_; }

  private:
    enum class Step { made, none, singular, not_finite };

    bool evaluate(const std::vector<double>& x, bool with_jacobian);
    bool factor(double inverse_time_step);
    Step damped_step(std::vector<double>& x);
    bool fail(const char* reason);
    bool far_outside(const std::vector<double>& x) const;
    bool polish(std::vector<double>& x);
    bool solved(const std::vector<double>& x) const;
    double length(const std::vector<double>& step, const std::vector<double>& x) const;
    double log_deflation(const std::vector<double>& x, std::vector<double>* gradient) const;

    const Equations& equations_;
    const std::vector<double>& c_;
    std::size_t n_;
    double tol_;
    double floor_;
    const std::vector<std::vector<double>>* known_ = nullptr;
    const tx::Box* box_ = nullptr;
    std::vector<double> widths_;
    std::vector<double> f_, jacobian_, step_, trial_, trial_step_, gradient_;
    DenseLu lu_;
    double damping_ = 1;
    double step_length_ = 0;
    double residual_ = 0;
    std::string reason_;
};

/// The equilibrium near a guess; its status says whether one was found. Callers have checked sizes.
PointData find_equilibrium(const ModelPtr& model, const std::vector<double>& guess,
                           const tx::Options& options);

/// The record of an equilibrium.
PointData equilibrium_point(const ModelPtr& model, const std::vector<double>& x, double residual);

}  // namespace trajex
