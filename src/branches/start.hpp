// Where a diagram begins.
#pragma once

#include <cstddef>
#include <vector>

#include "branches/data.hpp"

namespace trajex {

/// An equilibrium with the parameter in its window: from the guess options.start by Newton's
/// method; without a guess, or where that fails, from the end of a trajectory, then from scattered
/// guesses. Of a forced system a cycle, from the end of a trajectory. Status "not found" and what
/// was tried where all fails.
PointData find_start(const ModelPtr& model, std::size_t parameter, tx::Window window,
                     const tx::Options& options);

}  // namespace trajex
