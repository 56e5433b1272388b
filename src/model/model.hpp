// A system of equations with its names and parameter values: what tx::System is a handle of.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "model/equations.hpp"
#include "tx/system.hpp"

namespace trajex {

/// Immutable.
struct Model {
    std::shared_ptr<const Equations> equations;
    std::vector<std::string> states;
    std::vector<std::string> parameters;
    std::vector<double> values;          ///< of the parameters
    std::optional<tx::Forcing> forcing;  ///< set for forced systems
    std::string text;                    ///< the equations, where they were given as text

    std::size_t parameter(std::string_view name) const;  ///< its index; tx::Error if unknown
    std::size_t state(std::string_view name) const;
};
using ModelPtr = std::shared_ptr<const Model>;

/// "a, b, c".
std::string listed(const std::vector<std::string>& names);

/// tx::Error unless there is one finite number for each variable; `what` says whose numbers they
/// are.
void check_state(const Model& model, std::span<const double> x, std::string_view what);

/// tx::Error unless lo < hi, both finite; `what` names the window.
void check_window(tx::Window window, std::string_view what);

}  // namespace trajex
