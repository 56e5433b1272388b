// A family of cycles begins at a Hopf point as x0 + 2 xi Re(q e^{2 pi i tau}), at a period doubling
// as the cycle run twice plus and minus xi v, v the antiperiodic solution of the linearised
// equations. Each first cycle is corrected on the hyperplane <direction, z - z0> = xi: the
// equilibrium, or the cycle run twice, has xi = 0 and is excluded.
#include "cycles/starts.hpp"

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>
#include <utility>

#include "branches/bordered_newton.hpp"
#include "branches/metric.hpp"
#include "cycles/cycle_forms.hpp"
#include "linalg/dense.hpp"

namespace trajex {

namespace {

using Complex = std::complex<double>;

constexpr std::size_t first_intervals = 20;
constexpr double first_amplitude = 0.02;

// A q = i omega q, |q| = 1, by two steps of inverse iteration.
bool hopf_vector(const Equations& equations, const HopfPoint& hopf, std::vector<Complex>& q) {
    const std::size_t n = equations.states();
    std::vector<double> f(n);
    std::vector<double> A(n * n);
    const double t = 0;
    equations.jacobians(1, &t, hopf.state.data(), hopf.parameters.data(), f.data(), A.data());
    ComplexLu lu(n);
    Complex* const matrix = lu.matrix(n);
    for (std::size_t k = 0; k < n * n; ++k) matrix[k] = A[k];
    for (std::size_t a = 0; a < n; ++a) matrix[a * n + a] -= Complex(0, hopf.omega);
    if (!lu.decompose_in_place()) return false;
    q.resize(n);
    for (std::size_t a = 0; a < n; ++a) q[a] = Complex(1, 0.3 * static_cast<double>(a));
    for (int i = 0; i < 3; ++i) {
        lu.solve(q.data());
        double norm = 0;
        for (const Complex& component : q) norm = std::hypot(norm, std::abs(component));
        if (!std::isfinite(norm) || norm == 0) return false;
        for (Complex& component : q) component /= norm;
    }
    return true;
}

// 2 Re(q e^{2 pi i tau}) at the points of a chain.
std::vector<double> harmonic(const std::vector<Complex>& q, std::size_t points) {
    std::vector<double> wave;
    for (std::size_t k = 0; k < points; ++k) {
        const double angle =
            2 * std::numbers::pi * static_cast<double>(k) / static_cast<double>(points);
        for (const Complex& component : q)
            wave.push_back(2 * std::real(component * std::polar(1.0, angle)));
    }
    return wave;
}

// Moves z0 + xi direction to the branch; false: Newton's method fails, or falls back to xi = 0.
bool correct_beside(Problem& problem, const std::vector<double>& z0,
                    const std::vector<double>& direction, double xi, std::vector<double>& z,
                    std::vector<double>& tangent) {
    const Metric metric(problem);
    BorderedNewton newton(problem, 1e-10);
    std::vector<double> row(z0.size());
    metric.row(direction.data(), row.data());
    double value = 0;
    z = z0;
    for (std::size_t k = 0; k < z.size(); ++k) {
        z[k] += xi * direction[k];
        value += row[k] * z[k];
    }
    if (!newton.correct(z, row.data(), value, metric)) return false;
    double residual = 0;
    return newton.tangent(z.data(), row.data(), metric, tangent, residual) ==
           BorderedNewton::Outcome::converged;
}

}  // namespace

CycleStart start_from_hopf(const std::shared_ptr<const Equations>& equations, const HopfPoint& hopf,
                           const std::vector<std::size_t>& vary, const CycleSettings& given) {
    CycleStart start;
    const std::size_t n = equations->states();
    std::vector<Complex> q;
    if (n == 0 || !hopf_vector(*equations, hopf, q)) {
        start.trouble = "the eigenvector of the Hopf point is not computable";
        return start;
    }
    // Sizes of the equilibrium, or 1 for one at 0, say what is a small amplitude.
    double largest = 0;
    for (const double x : hopf.state) largest = std::max(largest, std::fabs(x));
    double reach = 0;  // of 2 q in these sizes
    for (std::size_t a = 0; a < n; ++a) {
        const double size = largest < 1e-6 ? 1 : std::max(std::fabs(hopf.state[a]), 1e-2 * largest);
        reach = std::max(reach, 4 * std::abs(q[a]) / size);
    }
    const std::vector<double> wave = harmonic(q, first_intervals * given.m);
    const auto circle = [&](double xi) {
        Orbit orbit{.states = n,
                    .m = given.m,
                    .mesh = uniform_mesh(first_intervals),
                    .x = wave,
                    .period = 2 * std::numbers::pi / hopf.omega};
        orbit.x.insert(orbit.x.end(), wave.begin(), wave.begin() + static_cast<std::ptrdiff_t>(n));
        for (std::size_t k = 0; k < orbit.x.size(); ++k)
            orbit.x[k] = hopf.state[k % n] + xi * orbit.x[k];
        return orbit;
    };
    for (const double factor : {1.0, 0.5, 0.25, 0.125, 2.0, 4.0, 0.03, 0.01}) {
        const double xi = factor * first_amplitude / reach;
        CycleSettings settings = given;
        settings.sizes.assign(n, 0.0);
        const auto attempt = [&] {
            start.problem = std::make_unique<CycleProblem>(equations, Timing{}, vary,
                                                           hopf.parameters, settings, circle(xi));
            std::vector<double> z0 = start.problem->start();
            for (std::size_t k = 0; k < wave.size(); ++k) z0[k] = hopf.state[k % n];
            std::vector<double> direction = wave;
            direction.resize(z0.size(), 0.0);
            return correct_beside(*start.problem, z0, direction, xi, start.z, start.tangent);
        };
        if (!attempt()) continue;
        // p - p0 = k xi^2: cycles of the size at which the window is crossed are not small.
        const double change = std::fabs(start.z[wave.size() + 1] - hopf.parameters[vary[0]]);
        const double natural =
            xi * std::sqrt(std::min(1e4, settings.widths[0] / std::max(change, 1e-300)));
        for (std::size_t a = 0; a < n; ++a) settings.sizes[a] = 0.5 * std::abs(q[a]) * natural;
        if (attempt()) return start;
    }
    start.problem.reset();
    start.trouble = "no small cycle was found beside the Hopf point";
    return start;
}

namespace {

/// Whether a multiplier is still near 1, where the doubled cycle began with it: farther on, the
/// branch may have passed its next bifurcation already.
bool barely_doubled(CycleProblem& problem, const std::vector<double>& z) {
    constexpr double far = 0.3;
    Spectrum spectrum;
    std::vector<double> residual(z.size());
    if (!problem.linearise(z.data(), residual.data())) return false;
    problem.spectrum(spectrum);
    return std::any_of(spectrum.begin(), spectrum.end(),
                       [](const Exponent& exponent) { return std::abs(exponent.value) < far; });
}

}  // namespace

CycleStart start_doubled(CycleProblem& problem, const std::vector<double>& z) {
    CycleStart start;
    const std::size_t size = problem.segments().equations();
    LinearisedCycle<double> half;
    if (!half.prepare_singular(problem, -1.0)) {
        start.trouble = "the antiperiodic solution is not computable";
        return start;
    }
    const Orbit once = problem.orbit(z.data());
    Orbit twice = once;
    twice.period *= 2;
    twice.mesh.clear();
    for (const double shift : {0.0, 1.0}) {
        for (std::size_t i = 0; i < once.intervals(); ++i)
            twice.mesh.push_back(0.5 * (once.mesh[i] + shift));
    }
    twice.mesh.push_back(1);
    twice.x.resize(size);
    twice.x.insert(twice.x.end(), once.x.begin(), once.x.end());
    start.problem = problem.doubled(twice, z);
    const std::vector<double> z0 = start.problem->start();
    std::vector<double> direction = half.solution();
    for (const double component : half.solution()) direction.push_back(-component);
    direction.resize(z0.size(), 0.0);
    const Metric metric(*start.problem);
    if (metric.normalise(direction.data())) {
        bool found = false;
        for (const double xi : {0.01, 0.005, 0.0025, 1.2e-3, 6e-4, 3e-4, 0.02, 0.04}) {
            if (found && xi > 0.01) break;
            if (!correct_beside(*start.problem, z0, direction, xi, start.z, start.tangent))
                continue;
            found = true;
            if (barely_doubled(*start.problem, start.z)) break;
        }
        if (found) return start;
    }
    start.problem.reset();
    start.trouble = "no doubled cycle was found beside the point";
    return start;
}

}  // namespace trajex
