// The turn from explicit to implicit steps. The boundary of stability of the explicit step on the
// negative axis is beyond 4, while steps limited by accuracy stay below 1 as a rule.
#include "model/stiff_integrator.hpp"

#include <algorithm>
#include <cmath>

namespace trajex {

namespace {

constexpr std::size_t steps_between = 20;  // looks at the eigenvalues
constexpr int enough = 6;                  // more looks that found it limited than others
constexpr double limited = 2.5;            // h |Re lambda|

}  // namespace

bool StiffnessWatch::stiff(const Model& model, double t, const double* x, double h) {
    if (++steps_ % steps_between != 0) return false;
    const std::size_t n = f_.size();
    model.equations->jacobians(1, &t, x, model.values.data(), f_.data(), jacobian_.data());
    if (!eigen_.eigenvalues(n, jacobian_.data(), re_.data(), im_.data())) return false;
    double fastest = 0;
    for (const double re : re_) fastest = std::max(fastest, h < 0 ? re : -re);
    score_ = std::max(0, score_ + (std::fabs(h) * fastest > limited ? 1 : -1));
    return score_ >= enough;
}

StiffIntegrator::StiffIntegrator(const Model& model, const std::vector<double>& state,
                                 double towards, const tx::IntegrateOptions& options, Kind kind)
    : model_(model), options_(options) {
    if (kind == Kind::implicit_only) {
        implicit_.emplace(*model.equations, model.values.data(), state, towards, options);
        return;
    }
    explicit_.emplace(ModelFlow{&model}, state, towards, options);
    if (kind == Kind::watched) watch_.emplace(state.size());
}

bool StiffIntegrator::step() {
    if (implicit_) return implicit_->step();
    if (turn_) {
        options_.t0 = explicit_->time();
        const double length = options_.t0 - explicit_->step_start();
        implicit_.emplace(*model_.equations, model_.values.data(), explicit_->state(),
                          options_.t0 + length, options_);
        return implicit_->step();
    }
    if (!explicit_->step()) return false;
    const double h = explicit_->time() - explicit_->step_start();
    turn_ = watch_ && watch_->stiff(model_, explicit_->time(), explicit_->state().data(), h);
    return true;
}

}  // namespace trajex
