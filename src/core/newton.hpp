// What every Newton iteration of the library shares: the weighted norm that says "converged", the
// watch that says "diverging", and difference quotients of a scalar criterion.
#pragma once

#include <cmath>
#include <cstddef>

#include "core/guards.hpp"

namespace trajex {

/// Root of the sum of (r / (relative |scale| + absolute))^2; at most 1 means converged. A term
/// whose weight is empty (no absolute tolerance, and nothing for the relative one to act on) is
/// left out. The sum is not divided by the number of terms.
class WeightedNorm {
  public:
    WeightedNorm(double relative, double absolute) : relative_(relative), absolute_(absolute) {}

    void add(double residual, double scale) {
        if (relative_ * scale == 0 && absolute_ == 0) return;
        add_weighted(residual, std::fabs(scale) * relative_ + absolute_);
    }
    /// A term with a weight of its own.
    void add_weighted(double residual, double weight) {
        const double term = residual / weight;
        sum_ += term * term;
    }
    double value() const { return std::sqrt(sum_); }

  private:
    double relative_;
    double absolute_;
    double sum_ = 0;
};

/// Whether a residual norm says that a Newton iteration is going away from the solution: it more
/// than doubled, or it is not a number. `previous` is 0 in the first iteration.
inline bool diverging(double norm, double previous) {
    return std::isnan(norm) || (previous != 0 && norm > 2 * previous);
}

/// The progress character of an iteration: `down` when the residual norm went down, '!' otherwise.
inline char progress_mark(double norm, double previous, char down = '.') {
    return previous == 0 || norm < previous ? down : '!';
}

/// Calls visit(j) with each of the unknowns in turn raised by h.
template <class Visit>
void raise_each(double* const* unknowns, std::size_t count, double h, Visit&& visit) {
    for (std::size_t j = 0; j < count; ++j) {
        const Temporarily raised(*unknowns[j], *unknowns[j] + h);
        visit(j);
    }
}

/// Evaluates a scalar criterion with each of the unknowns in turn raised by h: the raw material of
/// a gradient row by forward differences.
template <class Criterion>
void sample_criterion(double* const* unknowns, std::size_t count, double h, Criterion&& criterion,
                      double* samples) {
    raise_each(unknowns, count, h, [&](std::size_t j) { samples[j] = criterion(); });
}

/// The gradient row itself: row[j] = (samples[j] - base) / h.
inline void difference_row(const double* samples, std::size_t count, double base, double h,
                           double* row) {
    for (std::size_t j = 0; j < count; ++j) row[j] = (samples[j] - base) / h;
}

}  // namespace trajex
