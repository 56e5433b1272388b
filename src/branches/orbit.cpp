// Evaluation of piecewise polynomials by their Lagrange form. An extreme value is looked for around
// the best of several samples of each interval by steps of parabolic interpolation.
#include "branches/orbit.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "integration/gauss.hpp"

namespace trajex {

namespace {

// Sum over j of basis_j x_ij, for one component.
double combine(const double* basis, std::size_t m, const double* first, std::size_t stride) {
    double sum = 0;
    for (std::size_t j = 0; j <= m; ++j) sum += basis[j] * first[j * stride];
    return sum;
}

struct Place {
    std::size_t interval;
    double s;  // within it, 0 to 1
    double length;
};

Place locate(const Orbit& orbit, double tau) {
    tau -= std::floor(tau);
    const std::size_t i = interval_of(orbit.mesh, tau);
    const double length = orbit.mesh[i + 1] - orbit.mesh[i];
    return {i, (tau - orbit.mesh[i]) / length, length};
}

// The largest value of sign * (component) on one interval.
double interval_maximum(const double* first, std::size_t m, std::size_t stride, double sign) {
    const auto value = [&](double s) {
        double basis[GaussRule::m_max + 1];
        lagrange_values(m, s, basis);
        return sign * combine(basis, m, first, stride);
    };
    // Nodes are sampled, not the polynomial between them, unless a node is above its neighbours.
    std::size_t best = 0;
    for (std::size_t j = 1; j <= m; ++j) {
        if (sign * first[j * stride] > sign * first[best * stride]) best = j;
    }
    const double d = 1 / static_cast<double>(m);
    double s = std::clamp(static_cast<double>(best) * d, 0.5 * d, 1 - 0.5 * d);
    double h = 0.5 * d;
    double highest = sign * first[best * stride];
    for (int i = 0; i < 4; ++i, h *= 0.25) {
        const double left = value(s - h);
        const double middle = value(s);
        const double right = value(s + h);
        highest = std::max({highest, left, middle, right});
        const double curvature = left - 2 * middle + right;
        if (!(curvature < 0)) break;
        const double shift = 0.5 * h * (left - right) / curvature;
        s = std::clamp(s + std::clamp(shift, -2 * h, 2 * h), 0.25 * h, 1 - 0.25 * h);
    }
    return highest;
}

}  // namespace

std::size_t interval_of(const std::vector<double>& mesh, double tau) {
    const auto after = std::upper_bound(mesh.begin() + 1, mesh.end() - 1, tau);
    return static_cast<std::size_t>(after - mesh.begin()) - 1;
}

double Orbit::time_of_node(std::size_t k) const {
    const std::size_t i = std::min(k / m, intervals() - 1);
    const double s = static_cast<double>(k - i * m) / static_cast<double>(m);
    return mesh[i] + s * (mesh[i + 1] - mesh[i]);
}

void Orbit::at(double tau, double* out) const {
    const Place place = locate(*this, tau);
    double basis[GaussRule::m_max + 1];
    lagrange_values(m, place.s, basis);
    const double* const first = x.data() + place.interval * m * states;
    for (std::size_t a = 0; a < states; ++a) out[a] = combine(basis, m, first + a, states);
}

std::vector<double> Orbit::sampled(std::size_t count, double shift) const {
    std::vector<double> points(count * states);
    for (std::size_t k = 0; k < count; ++k)
        at(static_cast<double>(k) / static_cast<double>(count) + shift, &points[k * states]);
    return points;
}

void Orbit::derivative_at(double tau, double* out) const {
    const Place place = locate(*this, tau);
    double basis[GaussRule::m_max + 1];
    lagrange_slopes(m, place.s, basis);
    const double* const first = x.data() + place.interval * m * states;
    for (std::size_t a = 0; a < states; ++a) {
        out[a] = combine(basis, m, first + a, states) / place.length;
    }
}

void Orbit::extremes(double* low, double* high) const {
    for (std::size_t a = 0; a < states; ++a) {
        low[a] = high[a] = x[a];
        for (std::size_t k = 0; k < nodes(); ++k) {
            low[a] = std::min(low[a], x[k * states + a]);
            high[a] = std::max(high[a], x[k * states + a]);
        }
        // Between the nodes only intervals can go beyond the extreme node that come near it for how
        // much they are bent.
        const double lowest = low[a];
        const double highest = high[a];
        for (std::size_t i = 0; i < intervals(); ++i) {
            const double* const first = x.data() + i * m * states + a;
            double least = first[0];
            double most = first[0];
            double near = 0;
            for (std::size_t j = 1; j <= m; ++j) {
                least = std::min(least, first[j * states]);
                most = std::max(most, first[j * states]);
                if (j == m) continue;
                const double bend =
                    first[(j + 1) * states] - 2 * first[j * states] + first[(j - 1) * states];
                near = std::max(near, std::fabs(bend));
            }
            if (most >= highest - near)
                high[a] = std::max(high[a], interval_maximum(first, m, states, 1));
            if (least <= lowest + near)
                low[a] = std::min(low[a], -interval_maximum(first, m, states, -1));
        }
    }
}

double Orbit::means(double* mean) const {
    const GaussRule& rule = gauss_rule(m);
    std::fill_n(mean, states, 0.0);
    double square = 0;
    for (std::size_t i = 0; i < intervals(); ++i) {
        const double h = mesh[i + 1] - mesh[i];
        for (std::size_t j = 0; j <= m; ++j) {
            const double* const point = x.data() + (i * m + j) * states;
            for (std::size_t a = 0; a < states; ++a) {
                mean[a] += h * rule.node_weight[j] * point[a];
                square += h * rule.node_weight[j] * point[a] * point[a];
            }
        }
    }
    return std::sqrt(square);
}

std::complex<double> Orbit::harmonic(std::size_t a, int k) const {
    const GaussRule& rule = gauss_rule(m);
    std::complex<double> sum = 0;
    for (std::size_t i = 0; i < intervals(); ++i) {
        const double h = mesh[i + 1] - mesh[i];
        const double* const first = x.data() + i * m * states + a;
        for (std::size_t c = 0; c < m; ++c) {
            const double tau = mesh[i] + h * rule.zeta[c];
            sum += h * rule.weight[c] * combine(rule.value[c], m, first, states) *
                   std::polar(1.0, -2 * std::numbers::pi * k * tau);
        }
    }
    return sum;
}

Orbit::Response Orbit::response(std::size_t a) const {
    const std::complex<double> part = 2.0 * harmonic(a, periods);
    const double passed = 2 * std::numbers::pi * periods * t0 / period;  // omega t0
    return {std::abs(part), std::remainder(passed - std::arg(part), 2 * std::numbers::pi)};
}

}  // namespace trajex
