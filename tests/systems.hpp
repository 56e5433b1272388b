// Test systems with closed forms or published figures. Each has its flow, where useful its
// Jacobians, and its parameters as variables, which a test that changes them puts back
// (trajex::Temporarily). A probe makes any flow count its calls, and fail.
#pragma once

#include <cmath>
#include <limits>
#include <numbers>

namespace testing_support {

inline constexpr double pi = std::numbers::pi;
inline constexpr double infinity = std::numeric_limits<double>::infinity();
inline constexpr double not_a_number = std::numeric_limits<double>::quiet_NaN();

using Flow = void (*)(double t, double* y, double* f);
using Cut = double (*)(double t, double* y);

/// Counts the calls of this thread. When its calls are used up, every further one throws or, if
/// so set, is no number.
struct Probe {
    struct Thrown {};
    static constexpr long never = std::numeric_limits<long>::max();
    static inline thread_local long calls = 0;
    static inline thread_local long left = never;
    static inline thread_local bool throws = true;

    static void set(long calls_granted, bool throwing = true) {
        calls = 0, left = calls_granted, throws = throwing;
    }
    static bool used_up() {
        ++calls;
        if (left == never || --left >= 0) return false;
        if (throws) throw Thrown();
        return true;
    }
    template <Flow Flow>
    static void flow(double t, double* y, double* f) {
        Flow(t, y, f);
        if (used_up()) f[0] = not_a_number;
    }
};

/// Two uncoupled equations y0' = a y0, y1' = b y1 + d with three parameters.
struct Uncoupled {
    static inline double a = 0.5, b = -0.25, d = 2;
    static void flow(double, double* y, double* f) { f[0] = a * y[0], f[1] = b * y[1] + d; }
    static void jacobian(double, double*, double** J) {
        J[0][0] = a, J[1][1] = b, J[0][1] = J[1][0] = 0;
    }
    static void parameter_jacobian(double, double* y, double** P) {
        P[0][0] = y[0], P[0][1] = P[0][2] = 0;
        P[1][0] = 0, P[1][1] = y[1], P[1][2] = 1;
    }
};

/// y'' = -y: turns by the angle t, clockwise.
struct Oscillator {
    static void flow(double, double* y, double* f) { f[0] = y[1], f[1] = -y[0]; }
    static void jacobian(double, double*, double** J) {
        J[0][0] = J[1][1] = 0, J[0][1] = 1, J[1][0] = -1;
    }
};

struct Lorenz {
    static inline double sigma = 10, rho = 28, beta = 8.0 / 3;
    static void flow(double, double* y, double* f) {
        f[0] = sigma * (y[1] - y[0]);
        f[1] = rho * y[0] - y[1] - y[0] * y[2];
        f[2] = y[0] * y[1] - beta * y[2];
    }
    static void jacobian(double, double* y, double** J) {
        J[0][0] = -sigma, J[0][1] = sigma, J[0][2] = 0;
        J[1][0] = rho - y[2], J[1][1] = -1, J[1][2] = -y[0];
        J[2][0] = y[1], J[2][1] = y[0], J[2][2] = -beta;
    }
};

/// x'' - mu (1 - x^2) x' + x = 0.
struct VanDerPol {
    static inline double mu = 1;
    static void flow(double, double* y, double* f) {
        f[0] = y[1], f[1] = mu * (1 - y[0] * y[0]) * y[1] - y[0];
    }
    static void jacobian(double, double* y, double** J) {
        J[0][0] = 0, J[0][1] = 1;
        J[1][0] = -2 * mu * y[0] * y[1] - 1, J[1][1] = mu * (1 - y[0] * y[0]);
    }
    static void parameter_jacobian(double, double* y, double** P) {
        P[0][0] = 0, P[1][0] = (1 - y[0] * y[0]) * y[1];
    }
};

/// With s the square of the distance r from the equilibrium (1 + c1, 0):
/// r' = (c1 + c2 s - s^2) r / 20, turning with the angular velocity w. A Hopf bifurcation at c1 =
/// 0, circles where s^2 = c1 + c2 s with the multiplier exp(pi s (c2 - 2 s) / (5 w)), which meet
/// where c1 = -c2^2 / 4, s = c2 / 2. The parameters belong to the thread.
struct Circles {
    static inline thread_local double c1 = 1, c2 = 0, w = 1;
    static void flow(double, double* y, double* f) {
        const double u = y[0] - 1 - c1, v = y[1], s = u * u + v * v, g = growth(s);
        f[0] = g * u - w * v, f[1] = w * u + g * v;
    }
    static void jacobian(double, double* y, double** J) {
        const double u = y[0] - 1 - c1, v = y[1], s = u * u + v * v, g = growth(s);
        const double slope = (c2 - 2 * s) / 10;
        J[0][0] = g + slope * u * u, J[0][1] = slope * u * v - w;
        J[1][0] = slope * u * v + w, J[1][1] = g + slope * v * v;
    }
    /// By c1 and c2.
    static void parameter_jacobian(double t, double* y, double** P) {
        const double u = y[0] - 1 - c1, v = y[1], s = u * u + v * v;
        jacobian(t, y, P);
        P[0][0] = u / 20 - P[0][0], P[0][1] = s * u / 20;
        P[1][0] = v / 20 - P[1][0], P[1][1] = s * v / 20;
    }
    static double growth(double s) { return (c1 + c2 * s - s * s) / 20; }
};

/// A stable cycle of radius sqrt(a) that turns with unit velocity.
struct Cycle {
    static inline double a = 1;
    static void flow(double, double* y, double* f) {
        const double growth = a - y[0] * y[0] - y[1] * y[1];
        f[0] = growth * y[0] - y[1], f[1] = y[0] + growth * y[1];
    }
};

/// x' = A + x^2 y - (B + 1) x, y' = B x - x^2 y: equilibrium (A, B / A), a cycle for B > 1 + A^2.
struct Brusselator {
    static inline double A = 1, B = 3;
    static void flow(double, double* y, double* f) {
        const double reaction = y[0] * y[0] * y[1];
        f[0] = A + reaction - (B + 1) * y[0], f[1] = B * y[0] - reaction;
    }
};

/// x' = -y - z, y' = x + a y, z' = b + z (x - c).
struct Roessler {
    static inline double a = 0.2, b = 0.2, c = 5.7;
    static void flow(double, double* y, double* f) {
        f[0] = -y[1] - y[2], f[1] = y[0] + a * y[1], f[2] = b + y[2] * (y[0] - c);
    }
};

/// x'' + damping x' + stiffness x + x^3 = force cos omega t. The time is rescaled, so that the
/// period is 2 pi whatever omega is.
struct Duffing {
    static inline double damping = 0.2, stiffness = 1, force = 0.5, omega = 0.9;
    static void flow(double t, double* y, double* f) {
        const double spring = stiffness * y[0] + y[0] * y[0] * y[0];
        f[0] = y[1] / omega, f[1] = (force * std::cos(t) - damping * y[1] - spring) / omega;
    }
};

/// A cycle r = z = lambda / 2 that turns with angular velocity c where b is
/// 3 lambda / 2 + d (1 - lambda^2 / 4): there it becomes a torus.
struct Langford {
    static inline double lambda = 1.9, b = 3, c = 0.25, d = 0.2;
    static void flow(double, double* y, double* f) {
        const double growth = lambda - b + y[2] + d * (1 - y[2] * y[2]);
        f[0] = growth * y[0] - c * y[1], f[1] = growth * y[1] + c * y[0];
        f[2] = lambda * y[2] - (y[0] * y[0] + y[1] * y[1] + y[2] * y[2]);
    }
};

/// Cut functions: a component.
inline constexpr Cut first_component = [](double, double* y) { return y[0]; };
inline constexpr Cut second_component = [](double, double* y) { return y[1]; };

}  // namespace testing_support
