// Work and precision: the time that an integrator needs for a given error at the end, whatever
// tolerance that takes.
#pragma once

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <vector>

#include "measure.hpp"
#include "systems.hpp"

namespace benchmarks {

using Solve = std::function<std::vector<double>(const Problem&, double tolerance)>;

inline double largest_difference(const std::vector<double>& x, const std::vector<double>& y) {
    double largest = 0;
    for (std::size_t i = 0; i < x.size(); ++i) {
        const double difference = std::fabs(x[i] - y[i]);
        if (!(difference <= largest)) largest = difference;
    }
    return largest;
}

/// Two tolerances, half a decade or more apart, whose errors enclose the one wanted.
struct Bracket {
    double tolerances[2];
    double errors[2];
};

inline Bracket enclose(const Solve& solve, const Problem& problem,
                       const std::vector<double>& reference, double wanted) {
    Bracket bracket{};
    for (double exponent = -3; exponent > -13; exponent -= 0.5) {
        const double tolerance = std::pow(10, exponent);
        const double error = largest_difference(solve(problem, tolerance), reference);
        const int side = error > wanted ? 0 : 1;
        bracket.tolerances[side] = tolerance;
        bracket.errors[side] = error;
        if (side == 1 && bracket.errors[0] > 0) break;
    }
    return bracket;
}

/// For each solver but the first, the first one's time over its time, for an error of `wanted` at
/// the end: times interpolated, logarithm against logarithm, between two tolerances of each solver,
/// all of them timed in the same rounds.
inline std::vector<double> ratios_at_error(const std::vector<Solve>& solvers,
                                           const Problem& problem,
                                           const std::vector<double>& reference, double wanted) {
    std::vector<Bracket> brackets;
    std::vector<Work> runs;
    brackets.reserve(solvers.size());
    for (const Solve& solve : solvers) {
        brackets.push_back(enclose(solve, problem, reference, wanted));
        for (const double tolerance : brackets.back().tolerances) {
            runs.emplace_back([&solve, &problem, tolerance] { solve(problem, tolerance); });
        }
    }
    const auto interpolated = [&](auto seconds, std::size_t s) {
        const Bracket& b = brackets[s];
        const double along = std::log(wanted / b.errors[0]) / std::log(b.errors[1] / b.errors[0]);
        return seconds(2 * s) * std::pow(seconds(2 * s + 1) / seconds(2 * s), along);
    };
    const Rounds rounds(runs, 0.002, 61);
    std::vector<double> ratios;
    for (std::size_t s = 1; s < solvers.size(); ++s) {
        ratios.push_back(rounds.median_of(
            [&](auto seconds) { return interpolated(seconds, 0) / interpolated(seconds, s); }));
    }
    return ratios;
}

}  // namespace benchmarks
