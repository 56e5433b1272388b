// Which elementary events lie between two points of a branch, decoded from signs and counts: of
// dp/ds, of the determinant of [F_z; t^T], of unstable exponents. Counts ignore neutral saddles and
// see what a determinant misses where a symmetry makes two exponents cross at once; determinants
// tell folds from branch points, which counts cannot. The same for equilibria, maps, cycles and
// curves.
#pragma once

#include <cstddef>
#include <vector>

#include "branches/problem.hpp"

namespace trajex {

/// What is compared between two points.
struct Marks {
    int sigma = 1;     ///< sign of dp/ds
    int beta = 1;      ///< sign of det [F_z; t^T]: flips at simple branch points only
    int unstable = 0;  ///< exponents with positive real part
    int real = 0;      ///< of them real, of the first kind
    int flip = 0;      ///< of them alternating
    double reach = 0;  ///< least |Re| of the real and alternating ones, stable or not
    std::size_t exponents = 0;
    bool real_nearest = false;     ///< the one of least |Re| is of the first kind,
    bool nearest_counted = false;  ///< and among the unstable ones
    bool seen = true;              ///< sigma is beyond the noise of dp/ds

    /// Whether no real exponent is 0 within its error; whether no multiplier is so far from what
    /// can cross that its sign is not sure, as on canards and near homoclinic orbits.
    bool parity_known() const { return reach > 1e-9; }
    bool kinds_known() const { return reach < 3; }
};

/// Gives multipliers, largest first, the sign that those of a neighbour are known to have, whose
/// logarithm is beyond `from`; -1 where it has changed that of 1 - mu for an odd number of them,
/// else 1.
int keep_kinds(const Spectrum& known, double from, Spectrum& spectrum);

/// sigma beta (-1)^real, by Cramer's rule the same at all points of a branch.
int invariant(const Marks& marks);

/// Where the invariant is not the one of the branch, the least certain of the signs gives way; what
/// is certain all over is left as the contradiction it is.
void reconcile(Marks& marks, int branch_invariant);

/// Counts the unstable exponents: those beyond their error.
void count_unstable(const Spectrum& spectrum, Marks& marks);

/// Elementary events between two points.
struct Decoded {
    bool fold = false;
    bool branch = false;  ///< a branch point on a branch that passes through
    bool curved =
        false;     ///< a branch point where this branch turns, the curved side of a pitchfork
    int real = 0;  ///< a real exponent crosses, where that is none of the above
    int flip = 0;
    int pairs = 0;            ///< so many pairs cross, upwards if positive
    bool real_pairs = false;  ///< what crosses in pairs are real exponents
    unsigned tests = 0;       ///< bit j: test function j changes sign
    bool consistent = true;   ///< false: determinant, tangent and exponents contradict one another

    int count() const;
};

Decoded decode(const Marks& a, const Marks& b, const std::vector<Test>& tests_a,
               const std::vector<Test>& tests_b, const EventNames& names);

}  // namespace trajex
