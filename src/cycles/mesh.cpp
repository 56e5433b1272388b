// The error of collocation inside an interval is c_m h^(m+1) |x^(m+1)|, with
//     c_m = max |P_{m+1} - P_{m-1}| / (2 (2m + 1) binom(2m, m) m!).
#include "cycles/mesh.hpp"

#include <algorithm>
#include <cmath>

#include "integration/gauss.hpp"

namespace trajex {

namespace {

constexpr double error_constants[] = {0, 0, 8.0e-3, 5.2e-4, 2.5e-5, 1.0e-6, 3.6e-8, 1.1e-9};
constexpr double least_density = 0.05;  // of the mean: quiet stretches keep some intervals

double binomial(std::size_t m, std::size_t j) {
    double value = 1;
    for (std::size_t k = 1; k <= j; ++k) {
        value *= static_cast<double>(m - j + k) / static_cast<double>(k);
    }
    return value;
}

// y_i = the m-th derivative on interval i: sum_j (-1)^(m-j) binom(m,j) (m/h)^m x_ij.
std::vector<double> highest_derivatives(const std::vector<double>& mesh, std::size_t n,
                                        std::size_t m, const double* x, const double* scale) {
    const std::size_t N = mesh.size() - 1;
    std::vector<double> y(N * n, 0.0);
    for (std::size_t i = 0; i < N; ++i) {
        const double power =
            std::pow(static_cast<double>(m) / (mesh[i + 1] - mesh[i]), static_cast<double>(m));
        for (std::size_t j = 0; j <= m; ++j) {
            const double factor = ((m - j) % 2 == 0 ? 1 : -1) * binomial(m, j) * power;
            const double* const point = x + (i * m + j) % (N * m) * n;
            for (std::size_t a = 0; a < n; ++a) y[i * n + a] += factor * point[a] / scale[a];
        }
    }
    return y;
}

}  // namespace

void monitor_mesh(const std::vector<double>& mesh, std::size_t n, std::size_t m, const double* x,
                  const double* scale, MeshMonitor& out) {
    const std::size_t N = mesh.size() - 1;
    const auto length = [&](std::size_t i) { return mesh[i + 1] - mesh[i]; };
    const std::vector<double> y = highest_derivatives(mesh, n, m, x, scale);
    // |x^(m+1)| at the end of interval i, from the jump to the next one.
    std::vector<double> at_end(N, 0.0);
    for (std::size_t i = 0; i < N; ++i) {
        const std::size_t next = (i + 1) % N;
        for (std::size_t a = 0; a < n; ++a) {
            at_end[i] = std::max(at_end[i], std::fabs(y[next * n + a] - y[i * n + a]));
        }
        at_end[i] /= 0.5 * (length(i) + length(next));
    }
    out.density.resize(N);
    out.error = 0;
    const double order = static_cast<double>(m) + 1;
    double mean = 0;
    for (std::size_t i = 0; i < N; ++i) {
        const double J = 0.5 * (at_end[(i + N - 1) % N] + at_end[i]);
        out.error = std::max(out.error, error_constants[m] * J * std::pow(length(i), order));
        out.density[i] = std::pow(J, 1 / order);
        mean += out.density[i] * length(i);
    }
    for (double& density : out.density) density += mean > 0 ? least_density * mean : 1;
}

double integral(const std::vector<double>& mesh, const std::vector<double>& density) {
    double sum = 0;
    for (std::size_t i = 0; i < density.size(); ++i) sum += density[i] * (mesh[i + 1] - mesh[i]);
    return sum;
}

double intervals_for(double total, double tolerance, std::size_t m) {
    return total * std::pow(error_constants[m] / tolerance, 1 / (static_cast<double>(m) + 1));
}

double balanced_error(double total, double intervals, std::size_t m) {
    return error_constants[m] * std::pow(total / intervals, static_cast<double>(m) + 1);
}

std::vector<double> equidistributed(const std::vector<double>& mesh,
                                    const std::vector<double>& density, std::size_t intervals) {
    const std::size_t N = mesh.size() - 1;
    const double total = integral(mesh, density);
    std::vector<double> result(intervals + 1, 0.0);
    std::size_t i = 0;
    double before = 0;  // integral up to the beginning of interval i
    for (std::size_t k = 1; k < intervals; ++k) {
        const double share = total * static_cast<double>(k) / static_cast<double>(intervals);
        while (i + 1 < N && before + density[i] * (mesh[i + 1] - mesh[i]) < share) {
            before += density[i] * (mesh[i + 1] - mesh[i]);
            ++i;
        }
        result[k] = mesh[i] + (share - before) / density[i];
    }
    result[intervals] = 1;
    return result;
}

std::vector<double> transfer_points(const std::vector<double>& from, const std::vector<double>& to,
                                    std::size_t n, std::size_t m, const double* x) {
    Orbit old;
    old.states = n;
    old.m = m;
    old.mesh = from;
    old.x.assign(x, x + (from.size() - 1) * m * n);
    old.x.insert(old.x.end(), x, x + n);
    Orbit places;
    places.m = m;
    places.mesh = to;
    std::vector<double> result((places.nodes() - 1) * n);
    for (std::size_t k = 0; k + 1 < places.nodes(); ++k) {
        old.at(places.time_of_node(k), &result[k * n]);
    }
    return result;
}

Orbit halved(const Orbit& orbit) {
    Orbit fine = orbit;
    fine.mesh.assign(1, orbit.mesh.front());
    for (std::size_t i = 0; i < orbit.intervals(); ++i) {
        fine.mesh.push_back(0.5 * (orbit.mesh[i] + orbit.mesh[i + 1]));
        fine.mesh.push_back(orbit.mesh[i + 1]);
    }
    fine.x = transfer_points(orbit.mesh, fine.mesh, orbit.states, orbit.m, orbit.x.data());
    fine.x.insert(fine.x.end(), orbit.x.data(), orbit.x.data() + orbit.states);
    return fine;
}

std::vector<double> uniform_mesh(std::size_t intervals) {
    std::vector<double> mesh(intervals + 1);
    for (std::size_t i = 0; i <= intervals; ++i) {
        mesh[i] = static_cast<double>(i) / static_cast<double>(intervals);
    }
    return mesh;
}

}  // namespace trajex
