// Searches over eigenvalues and multipliers.
#include "bifurcation/criteria.hpp"

namespace trajex {

void move_trivial_last(double* er, double* ei, std::size_t n) {
    const auto distance = [&](std::size_t i) { return (er[i] - 1) * (er[i] - 1) + ei[i] * ei[i]; };
    std::size_t best = 0;
    double best_distance = distance(0);
    for (std::size_t i = 1; i < n; ++i) {
        const double d = distance(i);
        if (d < best_distance) {
            best = i;
            best_distance = d;
        }
    }
    std::swap(er[best], er[n - 1]);
    std::swap(ei[best], ei[n - 1]);
}

Critical critical_multiplier(const double* er, const double* ei, std::size_t count) {
    Critical best{0, modulus(er, ei, 0)};
    for (std::size_t j = 1; j < count; ++j) {
        const double r = modulus(er, ei, j);
        if (std::fabs(r - 1) < std::fabs(best.value - 1)) best = {j, r};
    }
    return best;
}

Critical critical_eigenvalue(const double* er, std::size_t n) {
    Critical best{0, er[0]};
    for (std::size_t j = 1; j < n; ++j) {
        if (std::fabs(er[j]) < std::fabs(best.value)) best = {j, er[j]};
    }
    return best;
}

double distance_from_units(const double* er, const double* ei, std::size_t i) {
    const double x = er[i];
    const double y = ei[i];
    const double plus = std::sqrt((x - 1) * (x - 1) + y * y);
    const double minus = std::sqrt((x + 1) * (x + 1) + y * y);
    return plus <= minus ? plus : minus;
}

namespace {

template <class Measure>
CriticalPair two_smallest(const double* er, const double* ei, std::size_t n, Measure&& measure) {
    Critical smallest{0, measure(std::size_t{0})};
    for (std::size_t j = 1; j < n; ++j) {
        const double value = measure(j);
        if (value < smallest.value) smallest = {j, value};
    }
    if (n == 1) return {0, 0, INFINITY};  // there is no second one
    const std::size_t start = smallest.index == 0 ? 1 : 0;
    Critical next{start, measure(start)};
    for (std::size_t j = start + 1; j < n; ++j) {
        if (j == smallest.index) continue;
        const double value = measure(j);
        if (value < next.value) next = {j, value};
    }
    CriticalPair pair{smallest.index, next.index, next.value};
    const auto greater = [&](std::size_t i, std::size_t j) {
        return er[i] > er[j] || (er[i] == er[j] && ei[i] > ei[j]);
    };
    if (!greater(pair.first, pair.second)) std::swap(pair.first, pair.second);
    return pair;
}

}  // namespace

CriticalPair critical_multipliers(const double* er, const double* ei, std::size_t n) {
    return two_smallest(er, ei, n, [&](std::size_t i) { return distance_from_units(er, ei, i); });
}

CriticalPair smallest_real_parts(const double* er, const double* ei, std::size_t n) {
    return two_smallest(er, ei, n, [&](std::size_t i) { return er[i]; });
}

int stable_multipliers(const double* er, const double* ei, std::size_t count) {
    int stable = 0;
    for (std::size_t i = 0; i < count; ++i) stable += er[i] * er[i] + ei[i] * ei[i] < 1;
    return stable;
}

int stable_eigenvalues(const double* er, std::size_t n) {
    int stable = 0;
    for (std::size_t i = 0; i < n; ++i) stable += er[i] < 0;
    return stable;
}

}  // namespace trajex
