// From half branches to branches: both directions run and joined, the results filed.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "branches/continuer.hpp"
#include "branches/data.hpp"
#include "branches/runs.hpp"

namespace trajex {

/// What a branch carries beside its points.
struct BranchHead {
    ModelPtr model;
    SolutionKind solution = SolutionKind::equilibrium;
    std::vector<std::size_t> vary;    ///< indices of the parameters
    std::vector<tx::Window> windows;  ///< of them
    tx::Options options;
    std::string parent{};  ///< id of the special point that it starts from
    std::string image{};   ///< the branch that it stands for too, in words
    std::vector<int> image_signs{};
    /// The name of the known branch that a point belongs to; empty: none.
    std::function<std::string(const TracePoint&)> known{};
};

/// The branch through the solution z, in the directions that the options ask for, without throwing
/// where nothing can be followed: one point and a reason then.
BranchPtr run_through(const BranchHead& head, Problem& problem, const std::vector<double>& z);

/// The half branch from z along the tangent; `beginning` and its detail tell why it begins there.
BranchPtr run_half(const BranchHead& head, Problem& problem, const std::vector<double>& z,
                   const std::vector<double>& tangent,
                   tx::StopReason beginning = tx::StopReason::branch_point,
                   const std::string& detail = {});

}  // namespace trajex
