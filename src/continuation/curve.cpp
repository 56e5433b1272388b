// The driver of two-parameter continuation. From a bifurcation that the record holds, it follows
// the curve  residual = 0, criterion = 0  by predictions along the last secant and corrections
// orthogonal to it,
//
//     [ d(residual)  ]   [  dy  ]     [ residual  ]
//     [ d(criterion) ] * [ dc   ] = - [ criterion ]
//     [      v       ]   [ (dT) ]     [     0     ].
//
// The first direction is the null vector of the rows above the last one.
#include "continuation/curve.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <optional>

#include "continuation/corrector.hpp"
#include "core/errors.hpp"
#include "core/guards.hpp"
#include "core/workspace.hpp"
#include "linalg/linear_system.hpp"

namespace trajex {

namespace {

double length_of(const double* v, std::size_t size) {
    double squares = 0;
    for (std::size_t j = 0; j < size; ++j) squares += v[j] * v[j];
    return std::sqrt(squares);
}

class Curve {
  public:
    Curve(const Run& run, CurveProblem& problem)
        : run_(run),
          problem_(problem),
          tx_(problem.tx),
          n_(problem.n),
          size_(problem.size),
          unknowns_(problem.unknowns()),
          step_(problem.tx, run.dc, run.where),
          accepted_(problem.record(), unknowns_, size_),
          work_({{&r_, size_}, {&v_, size_}, {&w_, size_}, {&solver_, solver_work(size_)}},
                {{&A_, size_, size_}}) {}

    /// However a run ends, exceptions of callbacks included, it is at the last accepted point then.
    ~Curve() {
        if (accepted_.taken()) accepted_.restore();
    }
    Curve(const Curve&) = delete;
    Curve& operator=(const Curve&) = delete;

    int follow();

  private:
    // One step, in the order in which it happens.
    void start();
    bool advance();
    void predict();
    Correction correct();
    void accept();
    void look_for_codimension_two();

    double residual_norm();
    double newton_step();
    bool at_finite_point() const;
    void take_secant();
    void turn();
    void report_point();

    const Run& run_;
    CurveProblem& problem_;
    Trajex& tx_;
    std::size_t n_;
    std::size_t size_;
    double* const* unknowns_;
    StepLength step_;
    int steps_ = 0;

    AcceptedPoint accepted_;
    double* r_ = nullptr;
    double* v_ = nullptr;  // tangent of the curve
    double* w_ = nullptr;  // the next one
    double* solver_ = nullptr;
    double** A_ = nullptr;  // matrix of each linear system
    double length_ = 0;     // of v
    Workspace work_;
};

int Curve::follow() {
    problem_.record().steps = steps_;
    accepted_.take();
    run_.out.point(tx_);
    start();
    do {
        if (!advance()) return 0;
        accept();
        look_for_codimension_two();
        ++steps_;
    } while (steps_ < tx_.MaxContSteps);
    return 1;
}

/// The tangent of the curve at the start, to the side that the sign of the step length names.
void Curve::start() {
    const Temporarily recording(tx_.TerminateOnFatalError, 0);
    const std::size_t order = problem_.tangent_system(A_, v_);
    if (TXLinZero(&tx_, static_cast<int>(order), A_, v_, solver_) != 1) {
        std::fill_n(v_, size_, NAN);
    }
    for (std::size_t j = order; j < size_; ++j) v_[j] = 1;
    length_ = length_of(v_, size_);
    if (step_.value() < 0) {
        for (std::size_t j = 0; j < size_; ++j) v_[j] = -v_[j];
    }
    step_.set(std::fabs(step_.value()));
}

/// Predictions and corrections from the last accepted point, with smaller steps until one
/// converges. Whatever fails on the way is the run's to handle: it must not end the process.
bool Curve::advance() {
    for (;;) {
        Correction correction;
        {
            const Temporarily recording(tx_.TerminateOnFatalError, 0);
            predict();
            correction = correct();
        }
        run_.out.text("\n");
        if (correction == Correction::converged) return true;
        if (!step_.halve()) return false;
    }
}

void Curve::predict() {
    const double s = step_.value() / length_;
    for (std::size_t j = 0; j < size_; ++j) {
        *unknowns_[j] = accepted_.values()[j] + s * v_[j];
    }
    if (at_finite_point()) problem_.settle();
    run_.out.step_size(step_.value());
}

Correction Curve::correct() {
    if (!at_finite_point()) return Correction::failed;  // no direction to predict along
    return correct_point(
        tx_, run_.out, 2 * step_.largest(), [this] { return std::optional(residual_norm()); },
        [this] { return newton_step(); });
}

/// The tolerances of bifurcation parameters weigh every term, the criterion as a number of size 1.
double Curve::residual_norm() {
    if (!problem_.residual(r_)) return NAN;
    WeightedNorm norm(tx_.LambdaNewtRelTol, tx_.LambdaNewtAbsTol);
    for (std::size_t i = 0; i < n_; ++i) norm.add(r_[i], *unknowns_[i]);
    norm.add(r_[n_], 1);
    return norm.value();
}

/// Returns the distance from the last accepted point; NaN where the system has no solution.
double Curve::newton_step() {
    problem_.newton_rows(A_);
    std::copy_n(v_, size_, A_[size_ - 1]);
    std::fill(r_ + n_ + 1, r_ + size_, 0.0);
    if (TXLinZero(&tx_, static_cast<int>(size_), A_, r_, solver_) != 1) return NAN;
    for (std::size_t j = 0; j < size_; ++j) *unknowns_[j] += r_[j];
    if (!at_finite_point()) return NAN;
    problem_.settle();
    return distance_from(accepted_.values(), unknowns_, n_, 2);
}

/// Callbacks are not asked about points that are none.
bool Curve::at_finite_point() const {
    return std::all_of(unknowns_, unknowns_ + size_,
                       [](const double* unknown) { return std::isfinite(*unknown); });
}

void Curve::accept() {
    take_secant();
    report_point();
    step_.set(std::min(1.25 * step_.value(), step_.largest()));
}

/// v becomes the step from the last accepted point to the current one. A step of no length has no
/// direction: the last one stays.
void Curve::take_secant() {
    for (std::size_t j = 0; j < size_; ++j) {
        w_[j] = *unknowns_[j] - accepted_.values()[j];
    }
    const double length = length_of(w_, size_);
    if (length == 0) return;
    length_ = length;
    std::swap(v_, w_);
}

/// The current point becomes the accepted one.
void Curve::report_point() {
    record_parameters(tx_, problem_.record());
    problem_.record().steps = steps_;
    accepted_.take();
    run_.out.point(tx_);
}

void Curve::look_for_codimension_two() {
    bool found = false;
    {
        const Temporarily recording(tx_.TerminateOnFatalError, 0);
        found = problem_.find_codimension_two(steps_, run_.out);
    }
    if (!found) {
        accepted_.restore();
        return;
    }
    run_.out.text(" ---- CO-DIMENSION 2 ----\n");
    turn();
    report_point();
}

/// At a point of codimension two, d away from the last accepted one: the direction of arrival v is
/// reflected, 2 d / |d| - v / |v|.
void Curve::turn() {
    for (std::size_t j = 0; j < size_; ++j) {
        w_[j] = *unknowns_[j] - accepted_.values()[j];
    }
    const double distance = length_of(w_, size_);
    if (distance == 0) return;
    for (std::size_t j = 0; j < size_; ++j) v_[j] = 2 * w_[j] / distance - v_[j] / length_;
    length_ = length_of(v_, size_);
}

}  // namespace

bool CurveProblem::find_parameters() {
    return c1 != c2 && find_parameter(tx, c1, &place1_) && find_parameter(tx, c2, &place2_);
}

void CurveProblem::activate() {
    TrajexBif& bif = record();
    bif.cindi[1] = place1_;
    bif.cindi[2] = place2_;
    for (int q = 0; q < tx.nparam; ++q) tx.cp[q] = q == place1_ || q == place2_ ? 1 : 0;
    for (std::size_t i = 0; i < n; ++i) unknowns_[i] = &bif.y[i];
    unknowns_[first_column()] = c1;
    unknowns_[second_column()] = c2;
    for (std::size_t j = n + 2; j < size; ++j) unknowns_[j] = &bif.T;
}

std::size_t CurveProblem::tangent_system(double** A, double* v) {
    starting_rows(A);
    for (std::size_t j = 0; j + 1 < size; ++j) v[j] = -A[j][size - 1];
    return size - 1;
}

int follow_curve(const Run& run, CurveProblem& problem) {
    Trajex& tx = problem.tx;
    if (!std::isfinite(*run.dc)) return report(&tx, Error::minimum_step, run.where);
    Curve curve(run, problem);
    if (!problem.find_parameters()) return report(&tx, Error::wrong_parameters, run.where);
    const Error missing = problem.missing();
    if (missing != Error::none) return report(&tx, missing, run.where);
    problem.record().cindi[0] = problem.kind();
    problem.activate();
    return curve.follow();
}

}  // namespace trajex
