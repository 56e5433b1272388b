// The driver of one-parameter continuation. Each step predicts along the tangent, corrects by
// Newton's method on the residual extended by one row that keeps the correction orthogonal to the
// prediction (pseudo-arclength; H. B. Keller, 1977),
//
//     [     dr/dy       dr/dc   ... ] [ dy ]   [ -r ]
//     [ s tangent_y       s      0  ] [ dc ] = [  0 ]
//     [      ...                    ] [ .. ]   [ .. ],
//
// and judges the corrected point: where the number of stable eigenvalues changed or the tangent
// turned round, a bifurcation lies between, and is located before the point is accepted.
#include "continuation/branch.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <optional>

#include "continuation/corrector.hpp"
#include "core/errors.hpp"
#include "core/guards.hpp"
#include "core/newton.hpp"
#include "core/workspace.hpp"
#include "linalg/linear_system.hpp"

namespace trajex {

namespace {

/// A point that has been analysed.
struct Analysis {
    double* tangent = nullptr;  // (dy/dc, 1, d(period)/dc)
    double length = 0;          // of the tangent, as it measures the step
    bool stands_still = false;  // the solution does not move with the parameter
    Stability stability;
};

/// The record of the last accepted point while a search works on it: put back unless the search
/// located a bifurcation, which then is what the record holds.
class [[nodiscard]] RecordInSearch {
  public:
    explicit RecordInSearch(const AcceptedPoint& accepted) : accepted_(accepted) {}
    ~RecordInSearch() {
        if (!kept_) accepted_.restore_record();
    }
    RecordInSearch(const RecordInSearch&) = delete;
    RecordInSearch& operator=(const RecordInSearch&) = delete;

    void keep() { kept_ = true; }

  private:
    const AcceptedPoint& accepted_;
    bool kept_ = false;
};

enum class Search { located, located_last, rejected, failed };

class Branch {
  public:
    Branch(const Run& run, BranchProblem& problem)
        : run_(run),
          problem_(problem),
          tx_(problem.tx),
          n_(problem.n),
          size_(problem.size),
          unknowns_(problem.unknowns()),
          step_(problem.tx, run.dc, run.where),
          work_({{&r_, size_},
                 {&solver_, solver_work(size_)},
                 {&er_, n_},
                 {&ei_, n_},
                 {&now_.tangent, size_},
                 {&last_.tangent, size_}},
                {{&A_, size_, size_}}),
          accepted_(problem.record(), unknowns_, size_) {}

    int follow();

  private:
    bool go_on();

    // One step, in the order in which it happens.
    void predict();
    Correction correct();
    bool advance();
    void analyse();
    bool stands_still(const double* slope, double length) const;
    bool suspects_bifurcation();
    Search search();
    bool located_in_step(double current) const;
    void adapt_step();
    void accept();
    bool finished();

    std::optional<double> residual_norm();
    double newton_step();
    double turning_angle_factor() const;
    int report_nested() const;

    const Run& run_;
    BranchProblem& problem_;
    Trajex& tx_;
    std::size_t n_;
    std::size_t size_;
    double* const* unknowns_;
    StepLength step_;

    int steps_ = 0;
    int bifurcations_ = 0;
    double reversal_ = 0;
    double prediction_ = 0;  // factor of the tangent in the last prediction

    double* r_ = nullptr;
    double* solver_ = nullptr;
    double* er_ = nullptr;
    double* ei_ = nullptr;
    double** A_ = nullptr;  // matrix of each linear system
    Analysis now_;
    Analysis last_;
    Workspace work_;
    AcceptedPoint accepted_;
};

/// A run that fails leaves everything at the last accepted point.
int Branch::follow() {
    if (!problem_.converge_start()) return report_nested();
    analyse();
    accept();
    if (go_on()) return 1;
    accepted_.restore();
    return 0;
}

bool Branch::go_on() {
    while (!finished()) {
        if (!advance()) return false;
        analyse();
        if (!suspects_bifurcation()) {
            adapt_step();
            accept();
            continue;
        }
        switch (search()) {
            case Search::located:
                accept();
                break;
            case Search::located_last:
                return true;
            case Search::rejected:
                if (!step_.halve()) return false;
                break;
            case Search::failed:
                report_nested();
                return false;
        }
    }
    return true;
}

/// Predictions and corrections from the last accepted point, with smaller steps until one
/// converges.
bool Branch::advance() {
    for (;;) {
        predict();
        const Correction correction = correct();
        if (correction == Correction::lost) {
            report_nested();
            return false;
        }
        run_.out.text("\n");
        if (correction == Correction::converged) return step_.check();
        if (!step_.halve()) return false;
    }
}

void Branch::predict() {
    // The tangent is that of the point analysed last, which after a search in vain is not the
    // accepted one. A solution that does not move with the parameter gives no direction in the
    // state: the step is then taken in the parameter alone.
    const double dc = step_.value();
    prediction_ = now_.length == 0 ? dc : dc / now_.length;
    for (std::size_t j = 0; j < size_; ++j) {
        *unknowns_[j] = accepted_.values()[j] + prediction_ * now_.tangent[j];
    }
    run_.out.step_size(dc);
}

Correction Branch::correct() {
    return correct_point(
        tx_, run_.out, 2 * step_.largest(), [this] { return residual_norm(); },
        [this] { return newton_step(); });
}

std::optional<double> Branch::residual_norm() {
    if (!problem_.residual(r_)) return std::nullopt;
    WeightedNorm norm(tx_.NewtRelTol, tx_.NewtAbsTol);
    for (std::size_t i = 0; i < n_; ++i) norm.add(r_[i], problem_.y[i]);
    problem_.linearise();
    return norm.value();
}

/// Returns the distance from the last accepted point.
double Branch::newton_step() {
    problem_.newton_rows(A_);
    std::fill_n(A_[n_], size_, 0.0);
    for (std::size_t j = 0; j <= n_; ++j) A_[n_][j] = prediction_ * now_.tangent[j];
    std::fill_n(r_ + n_, size_ - n_, 0.0);
    TXLinZero(&tx_, static_cast<int>(size_), A_, r_, solver_);  // see the next residual
    for (std::size_t j = 0; j < size_; ++j) *unknowns_[j] += r_[j];
    return distance_from(accepted_.values(), unknowns_, n_, 1);
}

void Branch::analyse() {
    now_.stability = problem_.stability(A_, er_, ei_);
    double* const tangent = now_.tangent;
    const std::size_t order = problem_.tangent_system(A_, tangent);
    std::copy_n(tangent, n_, r_);
    // Under the policy to record, a run goes on with what a singular system leaves.
    TXLinZero(&tx_, static_cast<int>(order), A_, tangent, solver_);
    if (order > n_) tangent[n_ + 1] = tangent[n_];
    tangent[n_] = 1;
    double squares = 0;
    for (std::size_t i = 0; i < n_; ++i) squares += tangent[i] * tangent[i];
    now_.length = problem_.tangent_length(squares);
    now_.stands_still = problem_.tangent_length(0) == 0 && stands_still(r_, now_.length);
    if (!now_.stands_still) return;
    std::fill_n(tangent, n_, 0.0);
    now_.length = 0;
}

/// Whether the tangent, of this length in the state, is that of a solution that does not move with
/// the parameter, but for what the tolerance cannot tell: a step measured in the state would then
/// take the parameter far away. On such a branch the tangent says nothing where the linearisation
/// is singular; there `slope`, the derivative of the residual by the parameter, decides.
bool Branch::stands_still(const double* slope, double length) const {
    const auto negligible = [&](const double* change) {
        return within_tolerance(change, problem_.y, n_, tx_.NewtRelTol, tx_.NewtAbsTol);
    };
    constexpr double far = 10;
    const bool leads_far = std::fabs(step_.value()) > far * (1 + std::fabs(*problem_.c)) * length;
    return (leads_far && negligible(now_.tangent)) || (last_.stands_still && negligible(slope));
}

bool Branch::suspects_bifurcation() {
    reversal_ = problem_.reversal(now_.tangent, last_.tangent);
    return reversal_ > 1 || now_.stability.stable != last_.stability.stable;
}

/// Looks for the bifurcation between the last accepted and the current point. A search that fails
/// is part of the run, which then takes a smaller step: it must not end the process. Only one that
/// had no memory says nothing about the step.
Search Branch::search() {
    RecordInSearch record(accepted_);
    run_.out.text("Searching for bifurcation ");
    std::copy_n(problem_.y, n_, problem_.record().y);
    problem_.record_guess();
    const double current = *problem_.c;
    bool located = false;
    {
        const Temporarily recording(tx_.TerminateOnFatalError, 0);
        located = problem_.locate(run_.out.state) == 1 && located_in_step(current) &&
                  problem_.classify(now_.tangent, step_.value(), run_.out);
    }
    if (located) {
        record.keep();
        ++bifurcations_;
        run_.out.bifurcation(tx_);
        if (bifurcations_ == run_.bifurcations) return Search::located_last;
    }
    *problem_.c = current;
    if (located) return Search::located;
    return recorded_error(tx_) == Error::no_memory ? Search::failed : Search::rejected;
}

/// Whether the located bifurcation lies in the step that was taken to the parameter value
/// `current`: within one step length of both its ends, in the parameter and in the state each, the
/// lengths being those of the step as it was predicted, as it came out, and as it would be
/// predicted now. (Round a fold each end by itself may be nearer to it than the other one.) A state
/// is located no better than to the root of its tolerance. One that lies elsewhere is another
/// bifurcation than the one that was passed.
bool Branch::located_in_step(double current) const {
    constexpr double margin = 1.05;
    const double dc = std::fabs(step_.value());
    const double last = accepted_.values()[n_];
    const double by_current_tangent = now_.length == 0 ? dc : dc / now_.length;
    const double parameter_step =
        std::max({std::fabs(current - last), std::fabs(prediction_), by_current_tangent});
    const auto in_step = [&](double distance, double step) { return distance <= margin * step; };
    if (!in_step(std::fabs(*problem_.c - last), parameter_step) ||
        !in_step(std::fabs(*problem_.c - current), parameter_step)) {
        return false;
    }
    const auto distance = [&](const double* from, const double* to) {
        double squares = 0;
        for (std::size_t i = 0; i < n_; ++i) squares += (from[i] - to[i]) * (from[i] - to[i]);
        return std::sqrt(squares);
    };
    const double* const located = problem_.record().y;
    double squares = 0;
    for (std::size_t i = 0; i < n_; ++i) squares += located[i] * located[i];
    const double blur = std::sqrt(tx_.NewtRelTol * squares) + std::sqrt(tx_.NewtAbsTol);
    const double state_step = std::max(dc, distance(problem_.y, accepted_.values())) + blur;
    return in_step(distance(located, accepted_.values()), state_step) &&
           in_step(distance(located, problem_.y), state_step);
}

/// 0.05 over the tangent of the angle between the last two tangents (dy/dc, 1): the step grows
/// where the branch is straight.
double Branch::turning_angle_factor() const {
    double product = 1;
    for (std::size_t i = 0; i < n_; ++i) product += now_.tangent[i] * last_.tangent[i];
    const double cosine =
        product / (problem_.space_length(now_.length) * problem_.space_length(last_.length));
    return 0.05 / std::fabs(std::tan(std::acos(std::clamp(cosine, -1.0, 1.0))));
}

void Branch::adapt_step() {
    const double critical = now_.stability.critical;
    const double last_critical = last_.stability.critical;
    const double change =
        std::fabs(critical - last_critical) / (1 + std::fabs(1 - (critical + last_critical) / 2));
    const double by_angle = turning_angle_factor();
    const double by_criterion = 0.05 / change;
    const double factor = std::min(by_angle, by_criterion);
    const double smallest_growth = 0.7071;
    const double largest_growth = problem_.largest_growth();
    const bool defined = !std::isnan(by_angle) && !std::isnan(by_criterion);
    const double dc = step_.value() * (defined ? std::clamp(factor, smallest_growth, largest_growth)
                                               : smallest_growth);
    const double size = std::max(std::min(std::fabs(dc), step_.largest()), step_.smallest());
    step_.set(dc < 0 ? -size : size);
}

void Branch::accept() {
    if (reversal_ > 1) step_.set(-step_.value());  // past a turning point the parameter runs back
    for (std::size_t j = 0; j < size_; ++j) {
        last_.tangent[j] = now_.tangent[j];
    }
    last_.length = now_.length;
    last_.stands_still = now_.stands_still;
    last_.stability = now_.stability;

    TrajexBif& record = problem_.record();
    record_parameters(tx_, record);
    std::copy_n(problem_.y, n_, record.y);
    std::copy_n(er_, n_, record.er);
    std::copy_n(ei_, n_, record.ei);
    record.steps = steps_;
    problem_.record_point();
    accepted_.take();
    run_.out.point(tx_);
}

bool Branch::finished() {
    ++steps_;
    return steps_ >= tx_.MaxContSteps ||
           (run_.bifurcations != 0 && bifurcations_ >= run_.bifurcations);
}

/// Passes the failure of a nested operation on under the name of the run. Losing the section
/// records no code of its own.
int Branch::report_nested() const {
    const Error nested = recorded_error(tx_);
    return report(&tx_, nested != Error::none ? nested : Error::section_not_bracketed, run_.where);
}

/// The handle's bifurcation record, made when there is none or when it has too little room. False:
/// not enough memory.
bool ensure_record(Trajex& tx) {
    if (usable(tx, tx.txb)) return true;
    TXDestroyBif(&tx, tx.txb);
    tx.txb = TXCreateBif(&tx);
    return tx.txb != nullptr;
}

}  // namespace

CallerState::CallerState(Trajex& tx, double* y, double* T)
    : n_(order_of(tx)), y_(y), T_(T), work_({{&y_copy_, n_}}) {
    if (tx.txb == nullptr) return;
    const BifRecord& record = private_part(*tx.txb);
    const bool stays = usable(tx, tx.txb);
    if (record.contains(y)) {
        std::copy_n(y, n_, y_copy_);
        y_ = y_copy_;
        if (stays && y != record.y) y_home_ = y;
    }
    if (T != nullptr && record.contains(T)) {
        T_copy_ = *T;
        T_ = &T_copy_;
        if (stays && T != &record.T) T_home_ = T;
    }
}

CallerState::~CallerState() {
    if (y_home_ != nullptr) std::copy_n(y_, n_, y_home_);
    if (T_home_ != nullptr) *T_home_ = *T_;
}

BranchProblem::BranchProblem(Trajex& handle, double* state, double* parameter, std::size_t unknowns)
    : ContinuationProblem(handle, unknowns), y(state), c(parameter) {
    for (std::size_t i = 0; i < n; ++i) unknowns_[i] = &y[i];
    unknowns_[n] = c;
}

double BranchProblem::reversal(const double* tangent, const double* previous) const {
    double change = 0;
    for (std::size_t i = 0; i < n; ++i) {
        if (!(tangent[i] * previous[i] < 0)) return 0;
        change += std::fabs(tangent[i] - previous[i]);
    }
    return change / static_cast<double>(2 * n);
}

double BranchProblem::tangent_length(double squares) const {
    return std::sqrt(squares);
}

double BranchProblem::space_length(double tangent_length) const {
    return std::sqrt(1 + tangent_length * tangent_length);
}

int follow_branch(const Run& run, BranchProblem& problem) {
    Trajex& tx = problem.tx;
    if (!std::isfinite(*run.dc)) return report(&tx, Error::minimum_step, run.where);
    if (!ensure_record(tx)) return report(&tx, Error::no_memory, run.where);
    Branch branch(run, problem);
    TrajexBif& record = problem.record();
    record.biftype = not_determined;
    record.cindi[0] = problem.kind();
    if (activate_parameter(tx, problem.c, &record.cindi[1]) != 1) {
        return report(&tx, Error::wrong_parameters, run.where);
    }
    return branch.follow();
}

}  // namespace trajex
