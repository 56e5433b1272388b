// What can be done with points and special points: the operations behind the public classes. Each
// one runs on data of its own and may be called from different threads at once.
#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <span>
#include <vector>

#include "branches/data.hpp"

namespace trajex {

using BranchPtr = std::shared_ptr<const BranchData>;

/// The problem of which `point` is a solution, with the given parameters free (one, or two for the
/// problem that a curve stands on), and its unknowns z at that point. The one place that knows
/// which kind of solution is which kind of problem.
std::unique_ptr<Problem> make_problem(const PointData& point, std::span<const std::size_t> vary,
                                      std::span<const tx::Window> windows,
                                      const tx::Options& options, std::vector<double>& z);

/// The branch through a point, in the directions that the options ask for.
BranchPtr follow(const PointData& point, std::size_t parameter, tx::Window window,
                 const tx::Options& options);

/// Gives the point number `index` of a branch of cycles its orbit, computed from those kept around
/// it where it was not kept itself. False: what is found there is another cycle.
bool restore_orbit(const BranchData& branch, std::size_t index, PointData& point);

/// The branches that leave `branch` at its special point number `special`.
std::vector<BranchPtr> switch_branch(const BranchPtr& branch, std::size_t special,
                                     const tx::Options& options);

/// The branch in one parameter from a special point: the cycles of H, the doubled ones of PD, else
/// the branch through the point. The parameter need not be the one of `branch`.
BranchPtr follow_from(const BranchPtr& branch, std::size_t special, std::size_t parameter,
                      tx::Window window, const tx::Options& options);

/// The curve in two parameters of points of the special point's type.
BranchPtr follow_curve(const BranchPtr& branch, std::size_t special,
                       std::array<std::size_t, 2> vary, std::array<tx::Window, 2> windows,
                       const tx::Options& options);

}  // namespace trajex
