// Normal forms of equilibria at bifurcations: critical vectors and the coefficients that decide
// what happens there. Everything is taken at the point (x, c) of a Forms object, where the caller
// has brought it. Eigenvectors are normalised <q, q> = 1, <p, q> = 1.
//
// Each coefficient comes with a bound of its error: from rounding where the forms are exact, else
// from differences with two steps. "Undetermined" is a coefficient whose sign lies within it.
#pragma once

#include <complex>
#include <cstddef>
#include <vector>

#include "model/forms.hpp"

namespace trajex {

struct Estimate {
    double value = 0;
    double error = 0;

    /// Whether the sign is beyond doubt.
    bool determined() const { return value > error || -value > error; }
};

/// A simple eigenvalue zero: A q = 0, A' p = 0. On the centre manifold, at the critical parameter,
///
///     w' = a w^2 + c w^3 + ...
///
/// Fold: a != 0. Cusp: a = 0, c != 0. At a branch point a != 0 means transcritical; a = 0 a
/// pitchfork, whose new branch is stable (in the direction of q) for c < 0.
struct ZeroForm {
    std::vector<double> q;
    std::vector<double> p;
    Estimate a;
    Estimate c;
};
/// Without c, which needs third derivatives.
ZeroForm fold_form(Forms& forms);
ZeroForm cusp_form(Forms& forms);

/// The derivative of the critical eigenvalue along a branch with the tangent (x_s, direction of the
/// parameters c_s): <p, (A_c c_s + B(., x_s)) q>. Complex for a Hopf point.
std::complex<double> eigenvalue_slope(Forms& forms, const std::vector<std::complex<double>>& q,
                                      const std::vector<std::complex<double>>& p,
                                      const std::vector<double>& x_s,
                                      const std::vector<double>& c_s);

/// A pair of eigenvalues +-i omega: A q = i omega q, A' p = -i omega p,
///
///     w' = i omega w + c1 w |w|^2 + ...,   l1 = Re c1 / omega.
///
/// Re c1 < 0: supercritical, the cycle is stable in the centre manifold.
struct HopfForm {
    double omega = 0;
    double real_part = 0;  ///< of the eigenvalue at the point, zero but for its inaccuracy
    std::vector<std::complex<double>> q;
    std::vector<std::complex<double>> p;
    std::vector<std::complex<double>> h11;  ///< -A^-1 B(q, conj q), real
    std::vector<std::complex<double>> h20;  ///< (2 i omega - A)^-1 B(q, q)
    Estimate re_c1;
    Estimate im_c1;
    Estimate l1;
};
/// For the pair nearest to +-i omega; without a positive omega, nearest to the imaginary axis. Its
/// omega is 0 where A has no complex pair.
HopfForm hopf_form(Forms& forms, double omega = 0);

/// How a Hopf point moves through the axis when parameter j is raised, and what its cycles do: to
/// second order in the amplitude xi, x = x0 + x_p (c_j - c_j0) + 2 xi Re(q e^{i omega t}) + xi^2
/// (h11 + Re(h20 e^{2 i omega t})), c_j = c_j0 + c_xx xi^2, frequency = omega + omega_xx xi^2.
struct HopfUnfolding {
    std::vector<double> x_p;
    std::complex<double> slope;  ///< d lambda / dc_j along the branch
    double c_xx = 0;             ///< -Re c1 / Re slope
    double omega_xx = 0;         ///< Im c1 - Im slope Re c1 / Re slope
};
HopfUnfolding hopf_unfolding(Forms& forms, const HopfForm& hopf, std::size_t j);

/// A double eigenvalue zero with one eigenvector: A q0 = 0, A q1 = q0, A' p1 = 0, A' p0 = p1,
///
///     w0' = w1,  w1' = a w0^2 + b w0 w1 + ...
///
/// The common sign of a and b is that of q0, whose largest component is positive.
struct TakensBogdanovForm {
    std::vector<double> q0, q1, p0, p1;
    Estimate a;
    Estimate b;
};
TakensBogdanovForm takens_bogdanov_form(Forms& forms);

/// A Hopf point with Re c1 = 0: w' = i omega w + c1 w |w|^2 + c2 w |w|^4. Not a number without
/// exact forms of fifth order.
struct BautinForm {
    double omega = 0;
    Estimate re_c2;  ///< Re G32 / 12
    Estimate l2;     ///< Re c2 / omega
};
BautinForm bautin_form(Forms& forms, double omega = 0);

}  // namespace trajex
