// The diagram of a system in one parameter.
#pragma once

#include <cstddef>

#include "branches/data.hpp"

namespace trajex {

/// All branches reached from options.start, or from an equilibrium that is found by integration
/// where there is none, and what was not followed.
tx::Diagram make_diagram(const ModelPtr& model, std::size_t parameter, tx::Window window,
                         const tx::Options& options);

}  // namespace trajex
