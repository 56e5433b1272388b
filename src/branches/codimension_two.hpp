// What is said of special points of curves of equilibria: coefficients and verdicts, the same
// whichever curve they are found on.
#pragma once

#include "branches/problem.hpp"
#include "model/forms.hpp"

namespace trajex {

// The forms are at the point. Each adds coefficients and the subtype to the finding.
void name_cusp(Forms& forms, Finding& finding);
void name_takens_bogdanov(Forms& forms, Finding& finding);
void name_bautin(Forms& forms, double omega, Finding& finding);

/// |Im| of the pair that is nearest to the imaginary axis; 0: none.
double least_frequency(const Spectrum& spectrum);

/// Takes the exponent that is zero on the curve out. Of the two smallest, real or a pair by
/// rounding, one is zero, and the other is their sum, which is smooth even where both vanish.
void remove_zero(Spectrum& spectrum);

}  // namespace trajex
