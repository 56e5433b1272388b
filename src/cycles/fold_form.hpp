// A cycle where p does not change along the branch, or where branches cross: how the parameter
// enters, and the coefficient of the fold.
#pragma once

#include <cstddef>
#include <vector>

#include "cycles/cycle_problem.hpp"

namespace trajex {

/// At a point where F_y (F_z without its parameter column) is singular, F_y v = 0, psi' F_y = 0.
struct FoldForm {
    bool known = false;
    /// |psi' F_p| over the lengths of psi and F_p, from 0 (branches cross) to 1: not small at a
    /// fold.
    double transversality = 0;
    std::vector<double> v;  ///< the integral of |v|^2 is 1, no parameter component
    /// The branch is p = p0 + curvature xi^2 with xi v the change of the cycle, curvature =
    /// -a / unfolding, unfolding = psi' F_p > 0, where the integral of |psi|^2 is 1.
    double curvature = 0, curvature_error = 0;
    double a = 0;
    double unfolding = 0;
};

/// The root mean square of T f_p over the sizes of the variables, for the cycle linearised last: by
/// how much of themselves a unit of the parameter p would move them in a period.
double parameter_effect(const CycleProblem& problem);

/// `coefficients`: also the curvature and a, where branches do not cross.
FoldForm fold_form(CycleProblem& problem, const std::vector<double>& z, bool coefficients);

/// The root of the integral of |v|^2 over scaled time, of the values v at the points of a chain.
double root_mean_square(const Collocation& segments, const double* v);

}  // namespace trajex
