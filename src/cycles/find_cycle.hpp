// Cycles found from trajectories, from a guess of state and period, from tables.
#pragma once

#include <vector>

#include "branches/data.hpp"

namespace trajex {

/// States at increasing times over one period, one point of n numbers after another.
struct Track {
    std::size_t states = 0;
    std::vector<double> times{};
    std::vector<double> x{};
    bool implicit = false;  ///< the times are dense where the solution is steep
};

/// The cycle that the trajectory from `state` comes to. Status "not found" and a reason where there
/// is none.
PointData find_cycle(const ModelPtr& model, const std::vector<double>& state,
                     const tx::Options& options);
/// The cycle near the trajectory from `state` over `period`.
PointData find_cycle(const ModelPtr& model, const std::vector<double>& state, double period,
                     const tx::Options& options);
/// The cycle near a table of one period; of forced systems the table begins at their t0.
PointData find_cycle(const ModelPtr& model, const Track& period, const tx::Options& options);

}  // namespace trajex
