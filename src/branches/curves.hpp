// What begins at special points: other branches, and curves in two parameters. One table says which
// type of point gives which.
#pragma once

#include <array>
#include <span>
#include <string_view>
#include <vector>

#include "branches/runs.hpp"

namespace trajex {

/// What a special point of a type gives birth to; null: nothing.
struct Starter {
    std::string_view type;
    std::vector<BranchPtr> (*branches)(const BranchPtr&, std::size_t special, const tx::Options&);
    BranchPtr (*curve)(const BranchPtr&, std::size_t special, std::array<std::size_t, 2> vary,
                       std::array<tx::Window, 2> windows, const tx::Options&);
};

/// All types, of equilibria and of cycles.
std::span<const Starter> starters();

// Equilibria.
std::vector<BranchPtr> branches_from_branch_point(const BranchPtr& branch, std::size_t special,
                                                  const tx::Options& options);
BranchPtr fold_curve(const BranchPtr& branch, std::size_t special, std::array<std::size_t, 2> vary,
                     std::array<tx::Window, 2> windows, const tx::Options& options);
BranchPtr hopf_curve(const BranchPtr& branch, std::size_t special, std::array<std::size_t, 2> vary,
                     std::array<tx::Window, 2> windows, const tx::Options& options);
BranchPtr branch_point_curve(const BranchPtr& branch, std::size_t special,
                             std::array<std::size_t, 2> vary, std::array<tx::Window, 2> windows,
                             const tx::Options& options);
/// The curve that a point where two of them meet was not found on: of folds from one on a Hopf
/// curve, of Hopf points from one on a fold curve.
BranchPtr other_curve(const BranchPtr& branch, std::size_t special, std::array<std::size_t, 2> vary,
                      std::array<tx::Window, 2> windows, const tx::Options& options);

}  // namespace trajex
