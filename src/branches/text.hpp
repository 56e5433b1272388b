// Results as text: one line for a point, a special point or a branch, a table for a diagram.
#pragma once

#include <string>

#include "branches/data.hpp"

namespace trajex {

/// A number with so many significant digits, whatever the locale; 0: as many as give it back
/// exactly.
std::string number_text(double value, int digits = 0);

std::string point_text(const PointData& point);
std::string special_text(const SpecialData& special, const BranchData& branch);
std::string branch_text(const BranchData& branch);
std::string diagram_text(const tx::Diagram& diagram);

}  // namespace trajex
