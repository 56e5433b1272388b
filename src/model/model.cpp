// Systems: names looked up and checked, values changed in copies.
#include "model/model.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <utility>

#include "model/compiled_equations.hpp"
#include "tx/error.hpp"

namespace trajex {

std::string listed(const std::vector<std::string>& names) {
    std::string list;
    for (const std::string& name : names) list += (list.empty() ? "" : ", ") + name;
    return list.empty() ? "none" : list;
}

namespace {

std::size_t find(const std::vector<std::string>& names, std::string_view name, const char* kind) {
    const auto found = std::find(names.begin(), names.end(), name);
    if (found == names.end()) {
        throw tx::Error(std::string("no ") + kind + " '" + std::string(name) +
                        "'; the system has " + listed(names));
    }
    return static_cast<std::size_t>(found - names.begin());
}

void check_finite(double value, const std::string& what) {
    if (!std::isfinite(value)) throw tx::Error(what + " is " + std::to_string(value));
}

/// Every name is there, and is there once among variables and parameters together.
void check_names(const Model& model) {
    std::vector<std::string> all = model.states;
    all.insert(all.end(), model.parameters.begin(), model.parameters.end());
    if (model.states.empty()) throw tx::Error("a system without variables");
    std::sort(all.begin(), all.end());
    if (all.front().empty()) throw tx::Error("a variable or parameter without a name");
    const auto twice = std::adjacent_find(all.begin(), all.end());
    if (twice != all.end()) throw tx::Error("the name '" + *twice + "' is given twice");
}

ModelPtr changed(const Model& model, const std::vector<tx::Parameter>& values) {
    auto copy = std::make_shared<Model>(model);
    for (const tx::Parameter& p : values) {
        check_finite(p.value, "the value of '" + p.name + "'");
        copy->values[model.parameter(p.name)] = p.value;
    }
    return copy;
}

/// One of the three ways to give a period, and one only.
void check_forcing(const Model& model, const tx::Forcing& forcing) {
    const int ways = !forcing.frequency.empty() + !forcing.period.empty() + (forcing.fixed != 0);
    if (ways != 1)
        throw tx::Error("a forcing has either a frequency, or a period, or a fixed period");
    if (!forcing.frequency.empty()) model.parameter(forcing.frequency);
    if (!forcing.period.empty()) model.parameter(forcing.period);
    check_finite(forcing.fixed, "the period of the forcing");
    check_finite(forcing.t0, "the phase t0 of the forcing");
    if (forcing.fixed < 0) throw tx::Error("the period of the forcing is negative");
    if (forcing.periods < 1)
        throw tx::Error("a forced cycle closes after 1 or more periods, not " +
                        std::to_string(forcing.periods));
}

double forcing_period(const Model& model) {
    const tx::Forcing& forcing = model.forcing.value();
    const double q = forcing.periods;
    if (!forcing.frequency.empty()) {
        return 2 * std::numbers::pi * q / model.values[model.parameter(forcing.frequency)];
    }
    if (!forcing.period.empty()) return q * model.values[model.parameter(forcing.period)];
    return q * forcing.fixed;
}

}  // namespace

std::size_t Model::parameter(std::string_view name) const {
    return find(parameters, name, "parameter");
}
std::size_t Model::state(std::string_view name) const {
    return find(states, name, "variable");
}

void check_state(const Model& model, std::span<const double> x, std::string_view what) {
    const std::size_t n = model.states.size();
    if (x.size() != n) {
        throw tx::Error(std::string(what) + " has " + std::to_string(x.size()) +
                        " numbers; the system has " + std::to_string(n) +
                        " variables: " + listed(model.states));
    }
    for (std::size_t i = 0; i < n; ++i) {
        check_finite(x[i], std::string(what) + ": '" + model.states[i] + "'");
    }
}

void check_window(tx::Window window, std::string_view what) {
    check_finite(window.lo, "the lower end of the window of " + std::string(what));
    check_finite(window.hi, "the upper end of the window of " + std::string(what));
    if (!(window.lo < window.hi)) {
        throw tx::Error("the window of " + std::string(what) + " is empty: from " +
                        std::to_string(window.lo) + " to " + std::to_string(window.hi));
    }
}

}  // namespace trajex

namespace tx {

using trajex::check_state;

System::System(const std::vector<std::string>& states, const std::vector<Parameter>& parameters,
               std::shared_ptr<const trajex::RightHandSide> rhs, std::string text) {
    auto model = std::make_shared<trajex::Model>();
    model->states = states;
    model->text = std::move(text);
    for (const Parameter& p : parameters) {
        model->parameters.push_back(p.name);
        model->values.push_back(p.value);
    }
    trajex::check_names(*model);
    for (const Parameter& p : parameters) {
        trajex::check_finite(p.value, "the value of '" + p.name + "'");
    }
    model->equations = trajex::make_equations(std::move(rhs));
    model_ = std::move(model);
}

System::System(const std::vector<std::string>& states, const std::vector<Parameter>& parameters,
               const CFunctions& functions, std::string text)
    : System(states, parameters,
             trajex::make_right_hand_side(states.size(), parameters.size(), functions),
             std::move(text)) {
    if (functions.f == nullptr && functions.block == nullptr) {
        throw Error("neither f nor its block form is given");
    }
}

const std::vector<std::string>& System::states() const {
    return model_->states;
}
const std::vector<std::string>& System::parameters() const {
    return model_->parameters;
}
double System::parameter(std::string_view name) const {
    return model_->values[model_->parameter(name)];
}

System System::with(std::string_view name, double value) const {
    return with({{std::string(name), value}});
}
System System::with(const std::vector<Parameter>& values) const {
    return System(trajex::changed(*model_, values));
}

std::vector<double> System::rhs(const std::vector<double>& x, double t) const {
    check_state(*model_, x, "the state");
    std::vector<double> f(x.size());
    model_->equations->values(1, &t, x.data(), model_->values.data(), f.data());
    return f;
}
std::vector<double> System::jacobian(const std::vector<double>& x, double t) const {
    check_state(*model_, x, "the state");
    std::vector<double> f(x.size());
    std::vector<double> A(x.size() * x.size());
    model_->equations->jacobians(1, &t, x.data(), model_->values.data(), f.data(), A.data());
    return A;
}

ForcedSystem System::forced(const Forcing& forcing) const {
    trajex::check_forcing(*model_, forcing);
    auto copy = std::make_shared<trajex::Model>(*model_);
    copy->forcing = forcing;
    return ForcedSystem(std::move(copy));
}

double ForcedSystem::parameter(std::string_view name) const {
    return model_->values[model_->parameter(name)];
}
ForcedSystem ForcedSystem::with(std::string_view name, double value) const {
    return with({{std::string(name), value}});
}
ForcedSystem ForcedSystem::with(const std::vector<Parameter>& values) const {
    return ForcedSystem(trajex::changed(*model_, values));
}
double ForcedSystem::period() const {
    return trajex::forcing_period(*model_);
}

}  // namespace tx
