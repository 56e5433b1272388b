// Segments by integration: x_{i+1} - phi_i(x_i; q) = 0 with the flow phi_i of dx/dtau = G(tau, x;
// q) over interval i, by the library's own step. Nothing is shared with collocation but the
// equations, so that one checks the other. One point per segment: J = I, K = -dphi/dx, C =
// -dphi/dq.
#pragma once

#include <cstddef>
#include <vector>

#include "cycles/rate.hpp"
#include "cycles/segment.hpp"
#include "integration/step_memory.hpp"
#include "integration/verner.hpp"

namespace trajex {

struct ShootingSettings {
    double tolerance = 1e-11;        ///< of a step, relative to the scales
    std::size_t most_steps = 20000;  ///< of all segments together: stiff systems need more
};

class Shooting final : public Segments {
  public:
    /// Errors are measured in x / scale.
    Shooting(Rate rate, const std::vector<double>& mesh, std::vector<double> scale,
             const ShootingSettings& settings = {});

    std::size_t states() const override { return n_; }
    std::size_t inner_points() const override { return 1; }
    std::size_t scalars() const override { return rate_.scalars(); }
    const std::vector<double>& mesh() const override { return mesh_; }
    void set_mesh(const std::vector<double>& mesh) override;

    bool residual(const double* x, const double* q, double* r) override;
    bool linearise(const double* x, const double* q, double* r) override;
    void blocks(std::size_t i, const double* scale, std::size_t stride, double* inner,
                double* first) const override;
    const double* scalar_columns() const override { return columns_.data(); }
    void apply(const double* v, double* out) const override;
    void apply_transposed(const double* w, double* out) const override;
    const double* velocities() override { return velocities_.data(); }
    double divergence() const override { return divergence_; }
    void growth_rates(double* out) override;

    const Rate& rate() const { return rate_; }

  private:
    const double* map(std::size_t i) const { return maps_.data() + i * n_ * n_; }
    bool shoot(const double* x, const double* q, double* r, bool with_derivatives);
    bool integrate(std::size_t i, std::size_t size);
    void state_rates(double tau, const double* u, double* out);
    void extended_rates(double tau, const double* u, double* out);
    void keep_derivatives(std::size_t i);

    Rate rate_;
    std::size_t n_;
    std::vector<double> mesh_, scale_;
    ShootingSettings settings_;
    std::size_t steps_ = 0;  // left
    StepMemory<Verner65> memory_;
    std::vector<double> u_;  // of one segment: [x, Phi, S] in scaled variables, trace
    std::vector<double> state_, rates_, jacobian_, by_scalar_;
    std::vector<double> maps_;  // Phi, scaled
    std::vector<double> columns_, velocities_;
    double divergence_ = 0;
};

}  // namespace trajex
