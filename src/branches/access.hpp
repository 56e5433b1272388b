// From the public handles to the data behind them, and from names to numbers.
#pragma once

#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "branches/data.hpp"
#include "tx/results.hpp"

namespace tx {

struct Access {
    /// Throws for handles that were made without data.
    static const trajex::PointData& data(const Point& point);
    static const trajex::BranchData& data(const Branch& branch);
    static const trajex::SpecialData& data(const Special& special);
    static const std::shared_ptr<const trajex::BranchData>& pointer(const Branch& branch) {
        return branch.data_;
    }
};

}  // namespace tx

namespace trajex {

/// Throws tx::Error: "no column 'q'; the branch has s, F, X".
[[noreturn]] void throw_unknown(std::string_view what, std::string_view given,
                                std::string_view owner, std::span<const std::string> known);

/// The name of the branch number `index` of a diagram: "b1", "b2", ...
std::string branch_id(std::size_t index);

/// Throws tx::Error: "no branch 3; there are 2, counted from 0".
void check_index(std::size_t index, std::size_t count, std::string_view what);

/// A parameter, a variable, "norm" or "period" of a point.
double value_of(const PointData& point, std::string_view name);

/// Misuse of the settings of a run.
void check_options(const tx::Options& options);

}  // namespace trajex
