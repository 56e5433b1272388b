// First cycles of branches: those born at a Hopf point, the doubled ones of a period doubling.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "cycles/cycle_points.hpp"
#include "cycles/cycle_problem.hpp"

namespace trajex {

/// A cycle and the direction in which its branch leaves the point where it begins.
struct CycleStart {
    std::unique_ptr<CycleProblem> problem;  ///< null: no cycle was found
    std::vector<double> z;
    std::vector<double> tangent;
    std::string trouble;
};

/// The family of small cycles around a Hopf point, with the first of `vary` free.
CycleStart start_from_hopf(const std::shared_ptr<const Equations>& equations, const HopfPoint& hopf,
                           const std::vector<std::size_t>& vary, const CycleSettings& given);

/// The cycles of twice the period beside a period doubling z of `problem` (linearised there).
CycleStart start_doubled(CycleProblem& problem, const std::vector<double>& z);

}  // namespace trajex
