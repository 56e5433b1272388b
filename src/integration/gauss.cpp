// Gauss points by Newton's method on the Legendre recurrence; the Lagrange polynomials of
// equidistant nodes by their products, which for m <= 7 lose no digits worth mention.
#include "integration/gauss.hpp"

#include <array>
#include <cmath>
#include <iterator>
#include <numbers>

namespace trajex {

namespace {

struct Legendre {
    double value;
    double slope;
};

// P_m and P_m' on [-1, 1]: k P_k = (2k - 1) x P_{k-1} - (k - 1) P_{k-2}.
Legendre legendre(std::size_t m, double x) {
    double previous = 1;
    double value = x;
    for (std::size_t k = 2; k <= m; ++k) {
        const auto d = static_cast<double>(k);
        const double next = ((2 * d - 1) * x * value - (d - 1) * previous) / d;
        previous = value;
        value = next;
    }
    return {value, static_cast<double>(m) * (x * value - previous) / (x * x - 1)};
}

double legendre_zero(std::size_t m, std::size_t index) {
    const auto d = static_cast<double>(m);
    double x = -std::cos(std::numbers::pi * (static_cast<double>(index) + 0.75) / (d + 0.5));
    for (int i = 0; i < 8; ++i) {
        const Legendre p = legendre(m, x);
        x -= p.value / p.slope;
    }
    return x;
}

double node(std::size_t m, std::size_t j) {
    return static_cast<double>(j) / static_cast<double>(m);
}

}  // namespace

// With u = m s the nodes are 0 ... m: l_j = prod_{k<j} (u - k) prod_{k>j} (u - k) / (j! (m-j)!
// (-1)^(m-j)).
void lagrange_values(std::size_t m, double s, double* values) {
    constexpr double factorial[] = {1, 1, 2, 6, 24, 120, 720, 5040};
    static_assert(std::size(factorial) == GaussRule::m_max + 1);
    const double u = s * static_cast<double>(m);
    double product = 1;
    for (std::size_t j = 0; j <= m; ++j) {
        values[j] = product / ((m - j) % 2 == 0 ? factorial[m - j] : -factorial[m - j]);
        product *= u - static_cast<double>(j);
    }
    product = 1;
    for (std::size_t j = m + 1; j-- > 0;) {
        values[j] *= product / factorial[j];
        product *= u - static_cast<double>(j);
    }
}

void lagrange_slopes(std::size_t m, double s, double* slopes) {
    for (std::size_t j = 0; j <= m; ++j) {
        slopes[j] = 0;
        for (std::size_t left_out = 0; left_out <= m; ++left_out) {
            if (left_out == j) continue;
            double product = 1 / (node(m, j) - node(m, left_out));
            for (std::size_t k = 0; k <= m; ++k) {
                if (k == j || k == left_out) continue;
                product *= (s - node(m, k)) / (node(m, j) - node(m, k));
            }
            slopes[j] += product;
        }
    }
}

GaussRule::GaussRule(std::size_t order)
    : m(order), zeta{}, weight{}, value{}, slope{}, node_weight{} {
    for (std::size_t c = 0; c < m; ++c) {
        const double x = legendre_zero(m, c);
        const double p = legendre(m, x).slope;
        zeta[c] = 0.5 * (1 + x);
        weight[c] = 1 / ((1 - x * x) * p * p);
        lagrange_values(m, zeta[c], value[c]);
        lagrange_slopes(m, zeta[c], slope[c]);
        for (std::size_t j = 0; j <= m; ++j) node_weight[j] += weight[c] * value[c][j];
    }
}

const GaussRule& gauss_rule(std::size_t m) {
    static const std::array<GaussRule, GaussRule::m_max> rules{
        GaussRule(1), GaussRule(2), GaussRule(3), GaussRule(4),
        GaussRule(5), GaussRule(6), GaussRule(7)};
    return rules[m - 1];
}

}  // namespace trajex
