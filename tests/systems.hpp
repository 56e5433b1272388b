// Systems with known answers. Parameters are variables of the thread, so that tests in several
// threads do not share them.
#pragma once

#include <cmath>

namespace testing_support {

/// y'' = -y: circles with the period 2 pi.
inline void oscillator(double, double* y, double* f) {
    f[0] = y[1];
    f[1] = -y[0];
}

/// A rotation whose speed is the squared radius, and, beside it, y' = -2 t y^2. Not linear, not
/// autonomous, and all in closed form.
inline void twist_and_decay(double t, double* y, double* f) {
    const double speed = y[0] * y[0] + y[1] * y[1];
    f[0] = -speed * y[1];
    f[1] = speed * y[0];
    f[2] = -2 * t * y[2] * y[2];
}

/// Its state at t1 from `start` at t0.
inline void twist_and_decay_solution(double t0, const double* start, double t1, double* end) {
    const double angle = (start[0] * start[0] + start[1] * start[1]) * (t1 - t0);
    end[0] = std::cos(angle) * start[0] - std::sin(angle) * start[1];
    end[1] = std::sin(angle) * start[0] + std::cos(angle) * start[1];
    end[2] = 1 / (1 / start[2] + t1 * t1 - t0 * t0);
}

/// Lorenz equations, sigma = 10, beta = 8/3. The origin loses its stability at rho = 1, the other
/// two equilibria, (+-r, +-r, rho - 1) with r^2 = beta (rho - 1), in a Hopf bifurcation.
inline thread_local double lorenz_rho = 0;
inline constexpr double lorenz_hopf = 470.0 / 19;

inline void lorenz(double, double* y, double* f) {
    f[0] = 10 * (y[1] - y[0]);
    f[1] = lorenz_rho * y[0] - y[1] - y[0] * y[2];
    f[2] = y[0] * y[1] - 8.0 / 3 * y[2];
}

/// Brusselator: the equilibrium (A, B/A) has a Hopf bifurcation at B = 1 + A^2, and a periodic
/// orbit around it beyond.
inline thread_local double brusselator_A = 1;
inline thread_local double brusselator_B = 0;

inline void brusselator(double, double* y, double* f) {
    const double reaction = y[0] * y[0] * y[1];
    f[0] = brusselator_A - (brusselator_B + 1) * y[0] + reaction;
    f[1] = brusselator_B * y[0] - reaction;
}

inline void brusselator_jacobian(double, double* y, double** J) {
    const double xy = 2 * y[0] * y[1];
    const double xx = y[0] * y[0];
    J[0][0] = xy - brusselator_B - 1, J[0][1] = xx;
    J[1][0] = brusselator_B - xy, J[1][1] = -xx;
}

/// Derivatives with respect to A and B.
inline void brusselator_parameter_jacobian(double, double* y, double** J) {
    J[0][0] = 1, J[0][1] = -y[0];
    J[1][0] = 0, J[1][1] = y[0];
}

}  // namespace testing_support
