// The table of what begins at special points, and the two operations that look it up.
#include <string>

#include "branches/curves.hpp"
#include "cycles/cycle_branches.hpp"
#include "tx/error.hpp"

namespace trajex {
namespace {

constexpr Starter table[] = {
    // type, branches in the parameter of the branch, curves in two parameters
    {"BP", branches_from_branch_point, branch_point_curve},
    {"LP", nullptr, fold_curve},
    {"CP", nullptr, fold_curve},
    {"H", cycles_from_hopf, hopf_curve},
    {"GH", cycles_from_hopf, hopf_curve},
    {"HH", nullptr, hopf_curve},
    {"BT", nullptr, other_curve},
    {"ZH", nullptr, other_curve},
    {"BPC", branches_from_branch_point, nullptr},
    {"PD", cycles_from_doubling, nullptr},
};

const Starter* starter(std::string_view type) {
    for (const Starter& row : starters())
        if (row.type == type) return &row;
    return nullptr;
}

}  // namespace

std::span<const Starter> starters() {
    return table;
}

std::vector<BranchPtr> switch_branch(const BranchPtr& branch, std::size_t special,
                                     const tx::Options& options) {
    const Starter* row = starter(branch->specials[special].finding.type);
    if (row == nullptr || row->branches == nullptr) return {};
    return row->branches(branch, special, options);
}

BranchPtr follow_curve(const BranchPtr& branch, std::size_t special,
                       std::array<std::size_t, 2> vary, std::array<tx::Window, 2> windows,
                       const tx::Options& options) {
    const SpecialData& point = branch->specials[special];
    const Starter* row = starter(point.finding.type);
    if (row != nullptr && row->curve != nullptr)
        return row->curve(branch, special, vary, windows, options);
    return branch_without_points(
        point.point, {vary[0], vary[1]}, {windows[0], windows[1]},
        "no curve in two parameters is known from points of type " + point.finding.type);
}

}  // namespace trajex
