// Explicit steps along a model that turn to implicit ones where it is stiff, or implicit ones from
// the beginning.
#pragma once

#include <cstddef>
#include <optional>
#include <vector>

#include "linalg/dense.hpp"
#include "model/integrator.hpp"
#include "model/model.hpp"
#include "model/radau.hpp"

namespace trajex {

/// The right-hand side of a model, for integration.
struct ModelFlow {
    const Model* model;
    void operator()(double t, const double* x, double* f) const {
        model->equations->values(1, &t, x, model->values.data(), f);
    }
};

/// Counts how often the length of an explicit step is limited by stability, not by accuracy: where
/// it is, h |Re lambda| of the fastest decay stays at the edge of the region of stability.
class StiffnessWatch {
  public:
    explicit StiffnessWatch(std::size_t n) : jacobian_(n * n), f_(n), re_(n), im_(n), eigen_(n) {}

    /// Whether the system is stiff, after a step of length h to this state.
    bool stiff(const Model& model, double t, const double* x, double h);

  private:
    std::vector<double> jacobian_, f_, re_, im_;
    DenseEigen eigen_;
    std::size_t steps_ = 0;
    int score_ = 0;
};

class StiffIntegrator {
  public:
    /// explicit_only: whatever the system is; watched: until it shows itself to be stiff.
    enum class Kind { explicit_only, watched, implicit_only };

    /// As the Integrator and Radau; the model outlives it.
    StiffIntegrator(const Model& model, const std::vector<double>& state, double towards,
                    const tx::IntegrateOptions& options, Kind kind);
    StiffIntegrator(const StiffIntegrator&) = delete;
    StiffIntegrator& operator=(const StiffIntegrator&) = delete;
    ~StiffIntegrator() = default;

    bool step();
    double time() const { return implicit_ ? implicit_->time() : explicit_->time(); }
    double step_start() { return implicit_ ? implicit_->step_start() : explicit_->step_start(); }
    std::vector<double>& state() { return implicit_ ? implicit_->state() : explicit_->state(); }
    const double* at(double t) { return implicit_ ? implicit_->at(t) : explicit_->at(t); }
    bool implicit() const { return implicit_.has_value(); }

  private:
    const Model& model_;
    tx::IntegrateOptions options_;
    std::optional<Integrator<ModelFlow>> explicit_;
    std::optional<StiffnessWatch> watch_;
    std::optional<Radau> implicit_;
    bool turn_ = false;  // before the next step
};

}  // namespace trajex
