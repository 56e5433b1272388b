// Cycles to start from, made by plain integration.
#pragma once

#include <cmath>
#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

#include "cycles/cycle_points.hpp"
#include "cycles/cycle_problem.hpp"
#include "model/compiled_equations.hpp"

namespace trajex::cycles_test {

using EquationsPtr = std::shared_ptr<const Equations>;
using State = std::vector<double>;

template <class F>
EquationsPtr equations(std::size_t n, std::size_t m, F f) {
    return make_equations(std::make_shared<const Callable<F>>(n, m, std::move(f)));
}

/// r' = r (mu - (r - 1)^2), angle' = 1 + s (r - 1): cycles at r = 1 +- sqrt(mu).
inline const auto ring_rates = [](auto, auto& x, auto& c, auto& dx) {
    using std::sqrt;
    const auto r = sqrt(x[0] * x[0] + x[1] * x[1]);
    const auto growth = c[0] - (r - 1) * (r - 1);
    const auto turn = 1 + c[1] * (r - 1);
    dx[0] = growth * x[0] - turn * x[1];
    dx[1] = growth * x[1] + turn * x[0];
};

/// The state after a time T, by classical Runge-Kutta steps.
inline State integrate(const Equations& f, const State& c, double t, State x, double T,
                       std::size_t steps) {
    constexpr double nodes[] = {0, 0.5, 0.5, 1};
    constexpr double weights[] = {1.0 / 6, 1.0 / 3, 1.0 / 3, 1.0 / 6};
    const double h = T / static_cast<double>(steps);
    State k(x.size(), 0.0), y(x.size()), sum(x.size());
    for (std::size_t s = 0; s < steps; ++s) {
        std::fill(sum.begin(), sum.end(), 0.0);
        for (std::size_t stage = 0; stage < 4; ++stage) {
            const double at = t + (static_cast<double>(s) + nodes[stage]) * h;
            for (std::size_t a = 0; a < x.size(); ++a) y[a] = x[a] + nodes[stage] * h * k[a];
            f.values(1, &at, y.data(), c.data(), k.data());
            for (std::size_t a = 0; a < x.size(); ++a) sum[a] += weights[stage] * k[a];
        }
        for (std::size_t a = 0; a < x.size(); ++a) x[a] += h * sum[a];
    }
    return x;
}

/// An orbit through x, as it is, of the given period.
inline Orbit trace(const Equations& f, const State& c, State x, double T, std::size_t N,
                   double t0 = 0, std::size_t m = 4, std::size_t steps = 50) {
    Orbit orbit{
        .states = x.size(), .m = m, .mesh = uniform_mesh(N), .x = {}, .period = T, .t0 = t0};
    const double h = T / static_cast<double>(N * m);
    for (std::size_t k = 0; k < N * m; ++k) {
        orbit.x.insert(orbit.x.end(), x.begin(), x.end());
        x = integrate(f, c, t0 + static_cast<double>(k) * h, x, h, steps);
    }
    orbit.x.insert(orbit.x.end(), orbit.x.begin(),
                   orbit.x.begin() + static_cast<std::ptrdiff_t>(x.size()));
    return orbit;
}

}  // namespace trajex::cycles_test
