// The systems that are integrated.
#pragma once

#include <cmath>
#include <cstddef>
#include <string>
#include <vector>

namespace benchmarks {

using RightHandSide = void (*)(double t, double* y, double* f);

/// An initial-value problem on [0, end].
struct Problem {
    std::string name;
    RightHandSide f;
    std::vector<double> start;
    double end;
};

/// Number of components of the systems below that may have any.
inline std::size_t components = 0;

inline void lorenz(double, double* y, double* f) {
    f[0] = 10 * (y[1] - y[0]);
    f[1] = y[0] * (28 - y[2]) - y[1];
    f[2] = y[0] * y[1] - 8.0 / 3 * y[2];
}

inline void roessler(double, double* y, double* f) {
    f[0] = -y[1] - y[2];
    f[1] = y[0] + 0.2 * y[1];
    f[2] = 0.2 + y[2] * (y[0] - 5.7);
}

/// Oscillators that go on for ever: the right-hand side that costs least, so that what is measured
/// is the method. One component is left alone where their number is odd.
inline void rotation(double, double* y, double* f) {
    const std::size_t half = components / 2;
    f[components - 1] = 0;
    for (std::size_t i = 0; i < half; ++i) {
        f[i] = y[half + i];
        f[half + i] = -y[i];
    }
}

/// A ring of masses on linear springs, each held by a cubic one: positions, then velocities.
inline void chain(double, double* y, double* f) {
    const std::size_t masses = components / 2;
    const double* q = y;
    const double* v = y + masses;
    for (std::size_t i = 0; i < masses; ++i) {
        const double left = q[i == 0 ? masses - 1 : i - 1];
        const double right = q[i + 1 == masses ? 0 : i + 1];
        f[i] = v[i];
        f[masses + i] = left - 2 * q[i] + right - q[i] * q[i] * q[i];
    }
}

/// Units coupled to their neighbour and to the mean of all: a dense Jacobian.
inline void coupled(double, double* y, double* f) {
    double mean = 0;
    for (std::size_t i = 0; i < components; ++i) mean += y[i];
    mean /= static_cast<double>(components);
    for (std::size_t i = 0; i < components; ++i) {
        const double next = y[i + 1 == components ? 0 : i + 1];
        f[i] = mean + next - y[i] * y[i] * y[i];
    }
}

inline void coupled_jacobian(double, double* y, double** J) {
    const double share = 1 / static_cast<double>(components);
    for (std::size_t i = 0; i < components; ++i) {
        for (std::size_t k = 0; k < components; ++k) J[i][k] = share;
        J[i][i] -= 3 * y[i] * y[i];
        J[i][i + 1 == components ? 0 : i + 1] += 1;
    }
}

inline std::vector<double> waves(std::size_t n) {
    std::vector<double> y(n);
    for (std::size_t i = 0; i < n; ++i) {
        const double phase = 6.283185307179586 * static_cast<double>(i) / static_cast<double>(n);
        y[i] = std::sin(phase) + 0.3 * std::cos(2 * phase);
    }
    return y;
}

}  // namespace benchmarks
