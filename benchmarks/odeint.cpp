// Boost.Odeint: Dormand-Prince 5(4), controlled, and its dense output.
#include <array>
#include <boost/numeric/odeint.hpp>
#include <cmath>
#include <vector>

#include "peers.hpp"
#include "systems.hpp"

namespace odeint = boost::numeric::odeint;

namespace benchmarks {

namespace {

using State = std::vector<double>;
using Point = std::array<double, 3>;

void lorenz_at(const Point& y, Point& f, double t) {
    lorenz(t, const_cast<double*>(y.data()), f.data());
}

/// Classical Gram-Schmidt on the rows; returns their lengths.
Point orthonormalise(std::array<Point, 3>& v) {
    Point lengths;
    for (std::size_t i = 0; i < 3; ++i) {
        Point x = v[i];
        for (std::size_t j = 0; j < i; ++j) {
            const double dot = v[i][0] * v[j][0] + v[i][1] * v[j][1] + v[i][2] * v[j][2];
            for (std::size_t k = 0; k < 3; ++k) x[k] -= dot * v[j][k];
        }
        lengths[i] = std::sqrt(x[0] * x[0] + x[1] * x[1] + x[2] * x[2]);
        for (std::size_t k = 0; k < 3; ++k) v[i][k] = x[k] / lengths[i];
    }
    return lengths;
}

using Linearised = std::array<double, 12>;

/// Lorenz, then three directions v' = A v.
void linearised_lorenz(const Linearised& y, Linearised& f, double t) {
    lorenz(t, const_cast<double*>(y.data()), f.data());
    for (std::size_t p = 3; p < 12; p += 3) {
        const double* const v = y.data() + p;
        double* const dv = f.data() + p;
        dv[0] = 10 * (v[1] - v[0]);
        dv[1] = (28 - y[2]) * v[0] - v[1] - y[0] * v[2];
        dv[2] = y[1] * v[0] + y[0] * v[1] - 8.0 / 3 * v[2];
    }
}

template <class Value>
Value integrate(const Problem& problem, Value y, double tolerance) {
    const auto f = [&](const Value& state, Value& derivative, double t) {
        problem.f(t, const_cast<double*>(state.data()), derivative.data());
    };
    odeint::integrate_adaptive(
        odeint::make_controlled<odeint::runge_kutta_dopri5<Value>>(tolerance, tolerance), f, y, 0.0,
        problem.end, 1e-3);
    return y;
}

}  // namespace

std::vector<double> odeint_solve(const Problem& problem, double tolerance) {
    const State& start = problem.start;
    if (start.size() != 3) return integrate(problem, start, tolerance);
    const Point end = integrate(problem, Point{start[0], start[1], start[2]}, tolerance);
    return {end.begin(), end.end()};
}

std::vector<double> odeint_samples(const Problem& problem, double tolerance) {
    std::vector<double> samples;
    Point y{problem.start[0], problem.start[1], problem.start[2]};
    odeint::integrate_const(
        odeint::make_dense_output<odeint::runge_kutta_dopri5<Point>>(tolerance, tolerance),
        lorenz_at, y, 0.0, problem.end, problem.end / 1000, [&](const Point& state, double) {
            samples.insert(samples.end(), state.begin(), state.end());
        });
    samples.resize(3003);
    return samples;
}

void exponents_with_odeint(double interval, int intervals, double tolerance, double* exponents) {
    constexpr double eps = 1e-6;
    const auto stepper =
        odeint::make_controlled<odeint::runge_kutta_dopri5<Point>>(tolerance, tolerance);
    Point y{1, 1, 20};
    std::array<Point, 3> v{Point{1, 0, 0}, Point{0, 1, 0}, Point{0, 0, 1}};
    Point sums{};
    for (int l = 0; l < intervals; ++l) {
        const double t = l * interval;
        std::array<Point, 3> near = v;
        for (Point& p : near) {
            for (std::size_t i = 0; i < 3; ++i) p[i] = eps * p[i] + y[i];
        }
        odeint::integrate_adaptive(stepper, lorenz_at, y, t, t + interval, 1e-2);
        for (std::size_t p = 0; p < 3; ++p) {
            odeint::integrate_adaptive(stepper, lorenz_at, near[p], t, t + interval, 1e-2);
            for (std::size_t i = 0; i < 3; ++i) v[p][i] = (near[p][i] - y[i]) / eps;
        }
        const Point lengths = orthonormalise(v);
        for (std::size_t p = 0; p < 3; ++p) sums[p] += std::log(lengths[p]);
    }
    for (std::size_t p = 0; p < 3; ++p)
        exponents[p] = sums[p] / (std::log(2) * interval * intervals);
}

std::vector<double> odeint_divergence(const Problem& problem, double tolerance) {
    auto stepper =
        odeint::make_controlled<odeint::runge_kutta_dopri5<Linearised>>(tolerance, tolerance);
    Linearised y{};
    for (std::size_t i = 0; i < 3; ++i) y[i] = problem.start[i], y[3 + 4 * i] = 1;
    double t = 0;
    double h = 1e-3;
    double sum = 0;
    double measured = 0;
    for (long steps = 1; t < problem.end; ++steps) {
        while (stepper.try_step(linearised_lorenz, y, t, h) == odeint::fail) {
        }
        if (steps % 4 != 0) continue;
        std::array<Point, 3> v;
        std::copy(y.begin() + 3, y.end(), v[0].data());
        for (const double length : orthonormalise(v)) sum += std::log(length);
        std::copy_n(v[0].data(), 9, y.begin() + 3);
        stepper.reset();  // it kept the derivatives of the directions as they were
        measured = t;
    }
    return {sum / measured};
}

}  // namespace benchmarks
