// Starts for tests that follow equilibria.
#pragma once

#include <memory>
#include <string_view>
#include <vector>

#include "branches/bordered_newton.hpp"
#include "branches/equilibrium_problem.hpp"
#include "branches/runs.hpp"
#include "model/model.hpp"
#include "tx.hpp"

namespace testing_support {

/// The equilibrium near a guess, at the system's values of its parameters.
inline tx::Point equilibrium(const tx::System& system, std::vector<double> guess) {
    using namespace trajex;
    const std::vector<std::size_t> vary{0};
    const double value = system.model()->values[0];
    const std::vector<tx::Window> windows{{value - 1, value + 1}};
    EquilibriumProblem problem(system.model()->equations, system.model()->values, vary, windows,
                               guess);
    std::vector<double> row(guess.size() + 1, 0.0), z = guess, f(guess.size());
    row.back() = 1;
    z.push_back(value);
    guess.push_back(value);
    PointData point;
    point.model = system.model();
    if (!BorderedNewton(problem).correct(z, row.data(), value, Metric(problem))) {
        z = guess;  // exact where the Jacobian is singular
        if (!problem.residual(z.data(), f.data()) || f != std::vector<double>(f.size(), 0.0))
            point.status = "not found";
    }
    point.description = problem.describe(z.data());
    complete(point);
    return tx::Point(std::make_shared<const PointData>(std::move(point)));
}

}  // namespace testing_support
