// Branch points: which branches meet at a point where F_z has a kernel of more than one dimension,
// what they are called, and points on them to go on from. For any problem with d = 1: F_z and its
// derivatives in directions are differences of the residual and of F_z.
//
// At a simple branch point the kernel is spanned by two vectors, psi spans the left kernel, and a
// direction t = alpha n1 + beta n2 is that of a branch if psi^T F_zz(t, t) = 0: two branches if the
// quadratic form is indefinite. Where the kernel is larger (symmetry), or where the form vanishes,
// branches are searched for by Newton's method with deflation on a small sphere around the point.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "branches/problem.hpp"

namespace trajex {

/// Where another branch begins: a point on it beside the branch point.
struct HalfBranch {
    std::vector<double> z;
    std::vector<double> tangent;  ///< of scaled length 1, away from the branch point
    double distance = 0;          ///< scaled, from the branch point
};

/// What is known of a branch point.
struct Crossing {
    std::vector<double> z;       ///< polished where the point is simple
    std::vector<double> along;   ///< direction of the branch that it was found on, scaled length 1
    std::vector<double> across;  ///< direction of the other branch, scaled length 1
    std::vector<double> phi;     ///< null vector without parameter component, length 1
    std::vector<double> psi;     ///< left null vector
    std::vector<std::vector<double>> basis;  ///< of the kernel of F_z, orthonormal in the metric
    std::size_t kernel = 0;                  ///< its dimension: 2 for a simple branch point
    double error = 0;                        ///< scaled, of z
    bool curved_is_along = false;  ///< whether the branch that is vertical there is the one at hand
    double imperfection =
        0;  ///< scaled size of the perturbation that would make it a true crossing
    double slope = 0,
           slope_error = 0;  ///< the curved branch is p = p0 + slope xi + curvature xi^2,
    double curvature = 0, curvature_error = 0;  ///< xi its component along phi
    std::string reason;                         ///< why directions are not known; empty: they are

    const std::vector<double>& curved() const { return curved_is_along ? along : across; }
    const std::vector<double>& trunk() const { return curved_is_along ? across : along; }
};

struct SwitchSettings {
    double step = 0.01;   ///< scaled distance of first points from the branch point
    double tol = 1e-10;   ///< of Newton's method, scaled
    double apart = 1e-6;  ///< scaled distance by which branches that cross may miss each other
    std::size_t starts =
        64;  ///< searches for a kernel of two dimensions; twice as many for each more
    std::size_t most_branches = 32;  ///< half branches after which they end
};

/// The directions of the branches through the branch point near `z`. `tangent` is that of the
/// branch that it was found on, there or at a point nearby.
Crossing cross(Problem& problem, const std::vector<double>& z, const std::vector<double>& tangent,
               const SwitchSettings& settings = {});

/// Points on the half branches that leave the branch at hand (of direction crossing.along): two at
/// a simple branch point; `note` says how many were found, how hard they were looked for, and what
/// failed.
std::vector<HalfBranch> half_branches(Problem& problem, const Crossing& crossing, std::string& note,
                                      const SwitchSettings& settings = {});

/// Names a located branch point: polishes finding.z, fills subtype ("pitchfork", "transcritical",
/// "imperfect", "multiple" or "undetermined"), criticality, coefficients, null vectors; or makes it
/// unresolved. finding.z, tangent and bracket are given.
void name_branch_point(Problem& problem, Finding& finding, const SwitchSettings& settings = {});

}  // namespace trajex
