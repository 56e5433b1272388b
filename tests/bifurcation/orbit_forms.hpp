// Forced orbits with exact bifurcations: y = q(t; c) + z, where q is an orbit of the period 2 pi
// that moves with the parameter and z' = F(z; c - 0.3) is a normal form. Orbits of that period are
// the equilibria of the form; z = 0 is q itself.
#pragma once

#include <cmath>

namespace orbit_forms {

inline constexpr double bifurcation_at = 0.3;
inline double c = bifurcation_at;

inline double orbit(double t, double parameter) {
    return (1 + parameter / 2) * std::cos(t + 1);
}
inline const double slope = std::cos(1.0) / 2;  // dq/dc at t = 0

inline double pitchfork(double mu, double z) {
    return mu * z - z * z * z;
}
inline double transcritical(double mu, double z) {
    return mu * z - z * z;
}
inline double saddle_node(double mu, double z) {
    return mu - z * z;
}

template <double (*Form)(double, double)>
void forced(double t, double* y, double* f) {
    f[0] = -(1 + c / 2) * std::sin(t + 1) + Form(c - bifurcation_at, y[0] - orbit(t, c));
}

}  // namespace orbit_forms
