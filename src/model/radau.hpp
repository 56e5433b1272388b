// Implicit steps for stiff systems: collocation at the three Radau points, order 5, L-stable. The
// verbs are those of the explicit Integrator.
#pragma once

#include <array>
#include <complex>
#include <cstddef>
#include <vector>

#include "linalg/dense.hpp"
#include "model/equations.hpp"
#include "tx/trajectory.hpp"

namespace trajex {

/// The eigenvalues of the inverse of the method's matrix, one real and a pair, and the vectors that
/// belong to them: left and right ones, with products 1.
struct RadauBasis {
    using Complex = std::complex<double>;

    RadauBasis();

    double real;
    std::array<double, 3> real_left{}, real_right{};
    Complex pair;
    std::array<Complex, 3> pair_left, pair_right;
};

class Radau {
  public:
    /// From `state` at options.t0; `towards` says in which direction of time. The equations and
    /// their parameters outlive the integrator.
    Radau(const Equations& equations, const double* parameters, const std::vector<double>& state,
          double towards, const tx::IntegrateOptions& options);
    Radau(const Radau&) = delete;
    Radau& operator=(const Radau&) = delete;
    ~Radau() = default;

    /// One step. False when none can be made that moves the time.
    bool step();

    double time() const { return t_; }
    double step_start() const { return start_; }
    /// The state, which may be changed between steps.
    std::vector<double>& state() { return y_; }
    /// The state inside the last step, of order 3; null where it is not finite.
    const double* at(double t);

  private:
    static constexpr std::size_t stages = 3;

    void renew_slope(bool jacobian);
    bool factor();
    void predict(bool extrapolate);
    bool solve_stages();
    double improve_stages();
    double error(bool again);
    double norm(const double* x) const;
    void accept(double error);
    double factor_after(double error) const;
    void set_step(double h);

    const Equations& equations_;
    const double* c_;
    RadauBasis basis_;
    std::size_t n_;
    double rel_tol_, abs_tol_, h_max_;
    double newton_tol_;
    std::vector<double> y_;
    double t_, start_;
    double h_ = 0;       // of the next step, with the sign of its direction
    double h_last_ = 0;  // of the last accepted step; 0: none
    double error_last_ = 0;

    std::vector<double> f_;         // at the beginning of the step
    std::vector<double> jacobian_;  // there, or at an earlier step
    bool jacobian_made_ = false;
    bool jacobian_fresh_ = false;
    double rate_ = 1;         // of convergence of Newton's method
    double contraction_ = 1;  // rate / (1 - rate), kept for the first iteration of the next step
    std::size_t iterations_ = 0;
    double h_factored_ = 0;  // 0: nothing is
    DenseLu real_lu_;
    ComplexLu pair_lu_;

    // Three rows of n: stages less the state, of this step and of the last accepted one.
    std::vector<double> z_, last_z_;
    std::vector<double> first_;  // the state at the beginning of the last step
    std::vector<double> stage_states_, stage_slopes_;
    std::vector<double> real_part_;
    std::vector<std::complex<double>> pair_part_;
    std::vector<double> scale_, work_, inside_;
};

}  // namespace trajex
