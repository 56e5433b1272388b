// Between two accepted points: solutions at chosen places of the step, roots of test functions
// bracketed on them, and all events of the step found one by one.
#pragma once

#include <algorithm>
#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "branches/bordered_newton.hpp"
#include "branches/events.hpp"
#include "branches/metric.hpp"
#include "branches/problem.hpp"

namespace trajex {

/// |dp/ds|, scaled, below which a point keeps the sign of the one before.
constexpr double kept_sign = 1e-8;

/// A solution on the branch, and all that decides what lies between two of them.
struct Sample {
    double s = 0;  ///< coordinate along the tangent of the step's first point
    std::vector<double> z, tangent;
    Spectrum spectrum;
    std::vector<double> rates;  ///< real parts of the exponents, the largest first
    std::vector<Test> tests;
    Marks marks;
    double pdot = 0;  ///< scaled component of the tangent along the first active parameter
    BorderedNewton::Report newton;
};

/// Computes samples of one problem, on the present step or anywhere.
class Sampler {
  public:
    Sampler(Problem& problem, double tol)
        : problem_(problem), newton_(problem, tol), names_(problem.event_names()) {}

    Problem& problem() { return problem_; }
    const Metric& metric() const { return metric_; }
    const EventNames& names() const { return names_; }
    std::size_t evaluations() const { return evaluations_; }
    /// Unknowns of the linear systems solved.
    double work() const { return work_; }
    void refresh() { metric_.refresh(problem_); }

    /// p is known to `moved` only, in units of its window, when steps are h long.
    void set_noise(double moved, double h) { noise_ = std::max(2 * moved / h, 0.7 * noise_); }

    /// The step goes from a to b; both must live as long as samples are taken.
    void set_step(const Sample& a, const Sample& b) { a_ = &a, b_ = &b, factored_at_ = b.s; }
    /// Whether samples close together may be corrected with the factors of the one before: not
    /// around a branch point, near which the equations are singular.
    void share_factors(bool yes) { share_factors_ = yes; }

    /// Corrects out.z in the hyperplane <row, z> = value.
    bool correct(Sample& out, const double* row, double value, bool again = false);
    /// Corrects out.z with <direction, z - from> = s.
    bool correct_along(Sample& out, const std::vector<double>& direction,
                       const std::vector<double>& from, double s, bool again = false);
    /// Tangent (oriented by `direction`), exponents, tests, marks of the solution out.z. Where
    /// dp/ds vanishes its sign is that of `sigma`. False: F_z is singular there.
    bool complete(Sample& out, const std::vector<double>& direction, int sigma,
                  double sure = kept_sign);
    /// The point that the next samples are near; how large its exponents must be to tell the sign
    /// of a multiplier there.
    void remember(const Sample& sample, double from) {
        known_ = sample.spectrum;
        known_pdot_ = sample.pdot;
        known_from_ = from;
    }
    /// The signs of a sample once more, where those of a later one have shown what is true on this
    /// branch.
    void mark_again(Sample& sample) const {
        if (invariant_ != 0) reconcile(sample.marks, invariant_);
    }
    /// The solution at s of the present step, predicted from its ends or from two samples around s.
    bool at(double s, Sample& out) { return between(*a_, *b_, s, out); }
    bool between(const Sample& lo, const Sample& hi, double s, Sample& out);
    /// The distance of the last of these from what was predicted.
    double missed() const { return missed_; }
    /// The same, or beside it where the equations are singular at s.
    bool near(const Sample& lo, const Sample& hi, double s, double shift, Sample& out);
    /// One more correction, for the last digits: newton.correction is what was left.
    bool refine(Sample& sample);
    /// What lies between two samples.
    Decoded decode(const Sample& a, const Sample& b) const {
        return trajex::decode(a.marks, b.marks, a.tests, b.tests, names_);
    }

  private:
    void count(int solves);
    void mark_signs(Sample& out, int sigma, double sure);

    Problem& problem_;
    BorderedNewton newton_;
    Metric metric_;
    EventNames names_;
    const Sample* a_ = nullptr;
    const Sample* b_ = nullptr;
    bool share_factors_ = false;
    double factored_at_ = 0;  // place of the step where the equations were factored last
    std::vector<double> row_, predicted_;
    Spectrum known_;
    double known_pdot_ = 0;
    double known_from_ = 0;
    double missed_ = 0;
    std::size_t evaluations_ = 0;
    double work_ = 0;
    int invariant_ = 0;     // sigma beta (-1)^P of the branch; 0: no sample yet,
    double noise_ = 0;      // of dp/ds, from what changes of the discretisation do to p
    bool certain_ = false;  // and whether a sample has shown it clearly
};

/// A function of a sample with a simple root.
using SampleFunction = std::function<double(const Sample&)>;

/// A root of `phi` on the step, between a and b where its signs differ.
struct Root {
    bool found = false;
    double s = 0;
    double error = 0;  ///< in s
    Sample at{};       ///< empty: the root is at an end of the step
};
/// `tol`: in s. `quick`: found as soon as the next step would be less than that, although the signs
/// have not closed in on it from both sides.
Root find_root(Sampler& sampler, const SampleFunction& phi, const Sample& a, const Sample& b,
               double tol, bool quick = false);

/// An event with the samples at and around it.
struct Located {
    Decoded what;
    Sample at, before, after;
    double error = 0;    ///< in s
    std::string reason;  ///< why it is not resolved; empty: it is
};

/// All events between a and b in any order; those that could not be separated or located are
/// there with the interval that holds them and the reason.
void find_events(Sampler& sampler, const Sample& a, const Sample& b,
                 const std::function<void(Located&)>& sink);

/// The least size of a function of which three values are known, where two roots may hide.
struct Extremum {
    double s[3];  ///< places, growing
    double f[3];
    double lo, hi;  ///< where to look

    /// Where the parabola through the values has its extremum, if that is between lo and hi and its
    /// value is of the other sign, or small; NaN: nothing is suspected.
    double suspect() const;
    /// Takes the value at a new place in. False: the function is not smallest inside.
    bool narrow(double place, double value);
};

}  // namespace trajex
