// Results as JSON and CSV.
#pragma once

#include <string>

#include "branches/data.hpp"

namespace trajex {

std::string branch_json(const BranchData& branch, bool orbits_inline);
std::string diagram_json(const tx::Diagram& diagram);
std::string branch_csv(const BranchData& branch);

}  // namespace trajex
