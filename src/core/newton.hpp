// What every Newton iteration of the library shares: the weighted norm that says "converged", the
// watch that says "diverging", and difference quotients of a scalar criterion.
#pragma once

#include <cmath>
#include <cstddef>
#include <limits>

#include "core/guards.hpp"

namespace trajex {

/// Root of the sum of (r / (relative |scale| + absolute))^2; at most 1 means converged. A term
/// whose weight is empty (no absolute tolerance, and nothing for the relative one to act on) is
/// left out. The sum is not divided by the number of terms. A residual that is not finite makes
/// the norm not a number, whatever its weight: no tolerance reaches it.
class WeightedNorm {
  public:
    WeightedNorm(double relative, double absolute) : relative_(relative), absolute_(absolute) {}

    void add(double residual, double scale) {
        if (relative_ * scale == 0 && absolute_ == 0 && std::isfinite(residual)) return;
        add_weighted(residual, std::fabs(scale) * relative_ + absolute_);
    }
    /// A term with a weight of its own.
    void add_weighted(double residual, double weight) {
        const double term =
            std::isfinite(residual) ? residual / weight : std::numeric_limits<double>::quiet_NaN();
        sum_ += term * term;
    }
    double value() const { return std::sqrt(sum_); }

  private:
    double relative_;
    double absolute_;
    double sum_ = 0;
};

/// Whether a displacement is too small for the tolerance to tell the point from `scale`. Where
/// there is no tolerance, the smallest one can be told.
inline bool within_tolerance(const double* displacement, const double* scale, std::size_t n,
                             double relative, double absolute) {
    WeightedNorm norm(relative, absolute);
    for (std::size_t i = 0; i < n; ++i) {
        if (displacement[i] == 0) continue;
        norm.add_weighted(displacement[i], std::fabs(scale[i]) * relative + absolute);
    }
    return norm.value() <= 1;
}

/// Whether a residual norm says that a Newton iteration is going away from the solution: it more
/// than doubled, or it is not a number. `previous` is 0 in the first iteration.
inline bool diverging(double norm, double previous) {
    return std::isnan(norm) || (previous != 0 && norm > 2 * previous);
}

/// Whether an iterate that began at `entry` has run away: where it is now there is no solution that
/// was meant, and an integration may never end. Not a number is nowhere near.
inline bool ran_away(double value, double entry) {
    return !(std::fabs(value) <= 1e4 * (1 + std::fabs(entry)));
}
inline bool ran_away(const double* values, const double* entry, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        if (ran_away(values[i], entry[i])) return true;
    }
    return false;
}

/// The progress character of an iteration: `down` when the residual norm went down, '!' otherwise.
inline char progress_mark(double norm, double previous, char down = '.') {
    return previous == 0 || norm < previous ? down : '!';
}

/// How often a search may form its residual, and what the last time is good for: in the convention
/// of most searches for nothing, it ends the search even where the residual is small enough; or it
/// still counts; or even the step from there is taken before the search ends.
struct NewtonLimit {
    enum class Last { in_vain, counts, improves };
    long long left = 0;
    Last last = Last::in_vain;
};

enum class NewtonEnd { converged, failed, abandoned };

/// Newton's method. norm(previous) forms the residual at the iterate and returns its norm, not a
/// number where it cannot be formed; improve(norm, previous) takes a step, or abandons the search
/// by returning false. `previous` is the norm of the iterate before, 0 for the first one.
/// observe(norm, previous) sees each iterate that the search has not given up.
template <class Norm, class Improve, class Observe>
NewtonEnd newton(NewtonLimit& limit, Norm&& norm, Improve&& improve, Observe&& observe) {
    double previous = 0;
    for (;;) {
        const double dist = norm(previous);
        if (std::isnan(dist)) return NewtonEnd::failed;
        const bool over = --limit.left <= 0 || diverging(dist, previous);
        if (over && limit.last == NewtonLimit::Last::in_vain) return NewtonEnd::failed;
        observe(dist, previous);
        if (dist <= 1) return NewtonEnd::converged;
        if (over && limit.last == NewtonLimit::Last::counts) return NewtonEnd::failed;
        if (!improve(dist, previous)) return NewtonEnd::abandoned;
        if (over) return NewtonEnd::failed;
        previous = dist;
    }
}
template <class Norm, class Improve>
NewtonEnd newton(NewtonLimit limit, Norm&& norm, Improve&& improve) {
    return newton(limit, norm, improve, [](double, double) {});
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
