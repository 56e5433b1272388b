// Test systems with closed forms. Each has its flow, where useful its Jacobian and its divergence,
// and its parameters as variables, which a test that changes them puts back (trajex::Temporarily).
#pragma once

#include <cmath>
#include <limits>
#include <numbers>

namespace testing_support {

inline constexpr double pi = std::numbers::pi;
inline constexpr double infinity = std::numeric_limits<double>::infinity();
inline constexpr double not_a_number = std::numeric_limits<double>::quiet_NaN();

/// y' = c y: y = y0 e^(c t), dy/dc = t y.
struct Growth {
    static inline double c = 1;
    static void flow(double, double* y, double* f) { f[0] = c * y[0]; }
    static void jacobian(double, double*, double** J) { J[0][0] = c; }
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

struct CountedOscillator {
    static inline int evaluations = 0;
    static void flow(double t, double* y, double* f) {
        ++evaluations;
        Oscillator::flow(t, y, f);
    }
};

/// A rotation whose speed is the squared radius, and, beside it, y' = -2 t y^2: neither linear nor
/// autonomous, and all in closed form.
struct TwistAndDecay {
    static void flow(double t, double* y, double* f) {
        const double speed = y[0] * y[0] + y[1] * y[1];
        f[0] = -speed * y[1];
        f[1] = speed * y[0];
        f[2] = -2 * t * y[2] * y[2];
    }
    static void solution(double t0, const double* start, double t1, double* end) {
        const double angle = (start[0] * start[0] + start[1] * start[1]) * (t1 - t0);
        end[0] = std::cos(angle) * start[0] - std::sin(angle) * start[1];
        end[1] = std::sin(angle) * start[0] + std::cos(angle) * start[1];
        end[2] = 1 / (1 / start[2] + t1 * t1 - t0 * t0);
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

/// x' = -y - z, y' = x + a y, z' = b + z (x - c).
struct Roessler {
    static inline double a = 0.2;
    static inline double b = 0.2;
    static inline double c = 5.7;
    static void flow(double, double* y, double* f) {
        f[0] = -y[1] - y[2];
        f[1] = y[0] + a * y[1];
        f[2] = b + y[2] * (y[0] - c);
    }
};

/// x'' + damping x' + stiffness x + x^3 = force cos omega t. The time is rescaled, so that the
/// period is 2 pi whatever omega is.
struct Duffing {
    static inline double damping = 0.2;
    static inline double stiffness = 1;
    static inline double force = 0.5;
    static inline double omega = 0.9;
    static void flow(double t, double* y, double* f) {
        f[0] = y[1] / omega;
        f[1] =
            (force * std::cos(t) - damping * y[1] - stiffness * y[0] - y[0] * y[0] * y[0]) / omega;
    }
};

/// A cycle x^2 + y^2 = r^2 and constant z that turns with angular velocity c.
struct Langford {
    static inline double lambda = 1.9;
    static inline double b = 3;
    static inline double c = 0.25;
    static inline double d = 0.2;
    static void flow(double, double* y, double* f) {
        const double growth = lambda - b + y[2] + d * (1 - y[2] * y[2]);
        f[0] = growth * y[0] - c * y[1];
        f[1] = growth * y[1] + c * y[0];
        f[2] = lambda * y[2] - (y[0] * y[0] + y[1] * y[1] + y[2] * y[2]);
    }
};

/// A flow that fails when its calls are used up: it throws, or is no number.
struct Failing {
    struct Thrown {};
    static constexpr long never = std::numeric_limits<long>::max();
    static inline long calls_left = never;
    static inline bool throws = true;

    template <void (*Flow)(double, double*, double*)>
    static void flow(double t, double* y, double* f) {
        Flow(t, y, f);
        if (--calls_left >= 0) return;
        if (throws) throw Thrown();
        f[0] = not_a_number;
    }
};

/// Cut function: the second component.
inline double second_component(double, double* y) {
    return y[1];
}

/// Cut function: the first component.
inline double first_component(double, double* y) {
    return y[0];
}

}  // namespace testing_support
