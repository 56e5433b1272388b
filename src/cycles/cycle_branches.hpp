// Branches of cycles: how they enter the table of what begins at special points, and the problem
// that a point on them is a solution of.
#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <vector>

#include "branches/runs.hpp"
#include "cycles/cycle_problem.hpp"

namespace trajex {

/// Where the period of a model's cycles comes from.
Timing timing_of(const Model& model);

CycleSettings cycle_settings(const tx::Options& options, std::span<const tx::Window> windows);

/// The problem of which the cycle `point` (with its orbit) is a solution, and its unknowns there.
std::unique_ptr<Problem> make_cycle_problem(const PointData& point,
                                            std::span<const std::size_t> vary,
                                            std::span<const tx::Window> windows,
                                            const tx::Options& options, std::vector<double>& z);

/// The cycles that are born at a Hopf point; those of twice the period at a period doubling.
std::vector<BranchPtr> cycles_from_hopf(const BranchPtr& branch, std::size_t special,
                                        const tx::Options& options);
std::vector<BranchPtr> cycles_from_doubling(const BranchPtr& branch, std::size_t special,
                                            const tx::Options& options);

}  // namespace trajex
