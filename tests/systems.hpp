// Test systems with closed forms. Each has its flow, where useful its Jacobian and its divergence,
// and its parameters as variables, which a test that changes them puts back (trajex::Temporarily).
#pragma once

#include <cmath>
#include <numbers>

namespace testing_support {

inline constexpr double pi = std::numbers::pi;

/// y' = c y: y = y0 e^(c t), dy/dc = t y.
struct Growth {
    static inline double c = 1;
    static void flow(double, double* y, double* f) { f[0] = c * y[0]; }
    static void jacobian(double, double*, double** J) { J[0][0] = c; }
    static void parameter_jacobian(double, double* y, double** P) { P[0][0] = y[0]; }
};

/// Two uncoupled equations y0' = a y0, y1' = b y1 + d with three parameters.
struct Uncoupled {
    static inline double a = 0.5;
    static inline double b = -0.25;
    static inline double d = 2;
    static void flow(double, double* y, double* f) {
        f[0] = a * y[0];
        f[1] = b * y[1] + d;
    }
    static void jacobian(double, double*, double** J) {
        J[0][0] = a;
        J[0][1] = J[1][0] = 0;
        J[1][1] = b;
    }
    static void parameter_jacobian(double, double* y, double** P) {
        P[0][0] = y[0];
        P[0][1] = P[0][2] = P[1][0] = 0;
        P[1][1] = y[1];
        P[1][2] = 1;
    }
};

/// y'' = -y: turns by the angle t, clockwise.
struct Oscillator {
    static void flow(double, double* y, double* f) {
        f[0] = y[1];
        f[1] = -y[0];
    }
    static void jacobian(double, double*, double** J) {
        J[0][0] = J[1][1] = 0;
        J[0][1] = 1;
        J[1][0] = -1;
    }
};

struct Lorenz {
    static inline double sigma = 10;
    static inline double rho = 28;
    static inline double beta = 8.0 / 3;
    static void flow(double, double* y, double* f) {
        f[0] = sigma * (y[1] - y[0]);
        f[1] = rho * y[0] - y[1] - y[0] * y[2];
        f[2] = y[0] * y[1] - beta * y[2];
    }
    static void jacobian(double, double* y, double** J) {
        J[0][0] = -sigma;
        J[0][1] = sigma;
        J[0][2] = 0;
        J[1][0] = rho - y[2];
        J[1][1] = -1;
        J[1][2] = -y[0];
        J[2][0] = y[1];
        J[2][1] = y[0];
        J[2][2] = -beta;
    }
    static double divergence() { return -(sigma + 1 + beta); }
};

/// x'' - mu (1 - x^2) x' + x = 0.
struct VanDerPol {
    static inline double mu = 1;
    static void flow(double, double* y, double* f) {
        f[0] = y[1];
        f[1] = mu * (1 - y[0] * y[0]) * y[1] - y[0];
    }
    static void jacobian(double, double* y, double** J) {
        J[0][0] = 0;
        J[0][1] = 1;
        J[1][0] = -2 * mu * y[0] * y[1] - 1;
        J[1][1] = mu * (1 - y[0] * y[0]);
    }
    static void parameter_jacobian(double, double* y, double** P) {
        P[0][0] = 0;
        P[1][0] = (1 - y[0] * y[0]) * y[1];
    }
    /// The flow with the integral of its divergence as a third component.
    static void flow_and_divergence(double t, double* y, double* f) {
        flow(t, y, f);
        f[2] = mu * (1 - y[0] * y[0]);
    }
};

/// The normal form of a Hopf bifurcation: a stable cycle of radius sqrt(a) that turns with angular
/// velocity w, so T = 2 pi / w; its second multiplier is e^(-2 a T).
struct Cycle {
    static inline double a = 1;
    static inline double w = 1;
    static void flow(double, double* y, double* f) {
        const double growth = a - y[0] * y[0] - y[1] * y[1];
        f[0] = growth * y[0] - w * y[1];
        f[1] = w * y[0] + growth * y[1];
    }
};

/// x' = A + x^2 y - (B + 1) x, y' = B x - x^2 y: equilibrium (A, B / A), a cycle for B > 1 + A^2
/// born with the period 2 pi / A.
struct Brusselator {
    static inline double A = 1;
    static inline double B = 3;
    static void flow(double, double* y, double* f) {
        const double reaction = y[0] * y[0] * y[1];
        f[0] = A + reaction - (B + 1) * y[0];
        f[1] = B * y[0] - reaction;
    }
};

/// y' = -y + cos t: the periodic solution is (cos t + sin t) / 2.
struct ForcedDecay {
    static void flow(double t, double* y, double* f) { f[0] = -y[0] + std::cos(t); }
};

/// x'' + damping x' + stiffness x = cos t. The periodic solution is p cos t + q sin t.
struct ForcedOscillator {
    static inline double damping = 0.3;
    static inline double stiffness = 2;
    static void flow(double t, double* y, double* f) {
        f[0] = y[1];
        f[1] = std::cos(t) - damping * y[1] - stiffness * y[0];
    }
    static double in_phase() { return (stiffness - 1) / squared_gain(); }  // p, at t = 0 also x
    static double out_of_phase() { return damping / squared_gain(); }      // q, at t = 0 also x'

  private:
    static double squared_gain() { return (stiffness - 1) * (stiffness - 1) + damping * damping; }
};

/// Cut function: the second component.
inline double second_component(double, double* y) {
    return y[1];
}

/// Cut function: the first component.
inline double first_component(double, double* y) {
    return y[0];
}

// ---- Systems whose parameters are variables of the thread, for tests in several threads
// -----------

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
