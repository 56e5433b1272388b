// Equations made of what the application gave.
#pragma once

#include <memory>

#include "model/equations.hpp"
#include "tx/right_hand_side.hpp"

namespace trajex {

/// Derivatives are those that were given, else by Taylor numbers, else by differences.
std::shared_ptr<const Equations> make_equations(std::shared_ptr<const RightHandSide> rhs);

/// A right-hand side that calls C functions.
std::shared_ptr<const RightHandSide> make_right_hand_side(std::size_t states,
                                                          std::size_t parameters,
                                                          const tx::CFunctions& functions);

}  // namespace trajex
