// Systems whose branches and curves are known, for the tests of runs.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "branches/data.hpp"
#include "tx.hpp"

namespace trajex::systems {

/// A point to start from, as it would be found.
inline tx::Point point_at(const tx::System& system, std::vector<double> x) {
    PointData data;
    data.model = system.model();
    data.state = x;
    data.description.state = std::move(x);
    data.description.parameters = system.model()->values;
    return tx::Point(std::make_shared<const PointData>(std::move(data)));
}

inline tx::System predator_prey() {
    return {{"u", "v"}, {{"p", 0.1}}, [](auto, const auto& x, const auto& c, auto& dx) {
                using std::exp;
                dx[0] = 3.0 * x[0] * (1.0 - x[0]) - x[0] * x[1] - c[0] * (1.0 - exp(-5.0 * x[0]));
                dx[1] = -x[1] + 3.0 * x[0] * x[1];
            }};
}

inline tx::System lorenz84() {
    return {{"X", "Y", "Z", "U"},
            {{"F", 3.0}, {"T", 0.04}, {"G", 0.25}},
            [](auto, const auto& x, const auto& c, auto& dx) {
                dx[0] =
                    -x[1] * x[1] - x[2] * x[2] - 0.25 * x[0] + 0.25 * c[0] - 0.987 * x[3] * x[3];
                dx[1] = x[0] * x[1] - x[0] * x[2] - x[1] + c[2];
                dx[2] = x[0] * x[1] + x[0] * x[2] - x[2];
                dx[3] = -1.04 * x[3] + 0.987 * x[0] * x[3] + c[1];
            }};
}

inline tx::System co_oxidation() {
    return {{"x", "y", "s"},
            {{"q2", 1.0}, {"k", 0.4}},
            [](auto, const auto& v, const auto& c, auto& dv) {
                const auto z = 1.0 - v[0] - v[1] - v[2];
                dv[0] = 5.0 * z * z - 2.0 * v[0] * v[0] - 10.0 * v[0] * v[1];
                dv[1] = c[0] * z - 0.1 * v[1] - 10.0 * v[0] * v[1];
                dv[2] = 0.0675 * (z - c[1] * v[2]);
            }};
}

/// x' = b1 + b2 x - x^3
inline tx::System cusp() {
    return {{"x"}, {{"b1", 0.0}, {"b2", 1.0}}, [](auto, const auto& x, const auto& b, auto& dx) {
                dx[0] = b[0] + b[1] * x[0] - x[0] * x[0] * x[0];
            }};
}

/// x' = y, y' = b1 + b2 x + x^2 - x y: folds at b1 = b2^2 / 4, Hopf points at b1 = 0, b2 < 0.
inline tx::System takens_bogdanov() {
    return {
        {"x", "y"}, {{"b1", -0.1}, {"b2", -1.0}}, [](auto, const auto& x, const auto& b, auto& dx) {
            dx[0] = x[1];
            dx[1] = b[0] + b[1] * x[0] + x[0] * x[0] - x[0] * x[1];
        }};
}

/// The Brusselator with its own Hopf line B = 1 + A^2.
inline tx::System brusselator() {
    return {{"x", "y"}, {{"A", 0.8}, {"B", 1.0}}, [](auto, const auto& x, const auto& c, auto& dx) {
                dx[0] = c[0] - (c[1] + 1.0) * x[0] + x[0] * x[0] * x[1];
                dx[1] = c[1] * x[0] - x[0] * x[0] * x[1];
            }};
}

/// x' = m + c x + s x^2 + k x y - d x^3, y' = -y + e x^2 + c: with m = 0 a pitchfork (s = 0) or a
/// transcritical point whose curvature has a part from the coupling.
inline tx::System coupled(double m, double s, double k, double d, double e) {
    return {{"x", "y"}, {{"c", -1.0}, {"m", m}}, [=](auto, const auto& x, const auto& c, auto& dx) {
                dx[0] =
                    c[1] + c[0] * x[0] + s * x[0] * x[0] + k * x[0] * x[1] - d * x[0] * x[0] * x[0];
                dx[1] = -x[1] + e * x[0] * x[0] + c[0];
            }};
}

/// x_i' = c x_i - x_i (x_i^2 + g sum of the other squares), and a quadratic term that turns the
/// symmetry of the square of two variables into that of the triangle.
template <int n>
tx::System symmetric(double g, double triangle = 0) {
    return {n == 2 ? std::vector<std::string>{"x", "y"} : std::vector<std::string>{"x", "y", "z"},
            {{"c", -1.0}},
            [=](auto, const auto& x, const auto& c, auto& dx) {
                auto sum = 0.0 * c[0];
                for (int i = 0; i < n; ++i) sum = sum + x[i] * x[i];
                for (int i = 0; i < n; ++i)
                    dx[i] = c[0] * x[i] - x[i] * (g * sum + (1.0 - g) * x[i] * x[i]);
                dx[0] = dx[0] + triangle * (x[0] * x[0] - x[1] * x[1]);
                dx[1] = dx[1] - 2.0 * triangle * x[0] * x[1];
            }};
}

}  // namespace trajex::systems
