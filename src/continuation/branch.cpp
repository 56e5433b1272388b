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
    Stability stability;
};

/// The last accepted point, while a search works on the record: put back unless the search located
/// a bifurcation, which then is what the record holds.
class [[nodiscard]] RecordedPoint {
  public:
    /// `storage` holds 3 n + m doubles for the life of the guard, m being the number of parameters.
    RecordedPoint(TrajexBif& record, std::size_t n, std::size_t m, double* storage)
        : record_(record),
          fields_(record),
          y_(record.y, n, storage),
          er_(record.er, n, storage + n),
          ei_(record.ei, n, storage + 2 * n),
          c_(record.c, m, storage + 3 * n) {}
    ~RecordedPoint() {
        if (!kept_) record_ = fields_;
    }
    RecordedPoint(const RecordedPoint&) = delete;
    RecordedPoint& operator=(const RecordedPoint&) = delete;

    void replace() {
        kept_ = true;
        y_.keep();
        er_.keep();
        ei_.keep();
        c_.keep();
    }

  private:
    TrajexBif& record_;
    TrajexBif fields_;
    RestoreUnlessKept y_;
    RestoreUnlessKept er_;
    RestoreUnlessKept ei_;
    RestoreUnlessKept c_;
    bool kept_ = false;
};

enum class Search { located, located_last, rejected };

class Branch {
  public:
    Branch(const BranchRun& run, BranchProblem& problem)
        : run_(run),
          problem_(problem),
          tx_(problem.tx),
          n_(problem.n),
          size_(problem.unknowns()),
          step_(problem.tx, run.dc, run.where),
          work_({{&r_, size_},
                 {&solver_, solver_work(size_)},
                 {&accepted_, size_},
                 {&er_, n_},
                 {&ei_, n_},
                 {&recorded_, 3 * n_ + parameters_of(tx_)},
                 {&now_.tangent, size_},
                 {&last_.tangent, size_}},
                {pointer_list(&unknowns_, size_)}) {
        if (work_) problem.list_unknowns(unknowns_);
    }

    bool has_memory() const { return static_cast<bool>(work_); }
    int follow();

  private:
    // One step, in the order in which it happens.
    void predict();
    Correction correct();
    bool advance();
    void analyse();
    bool suspects_bifurcation();
    Search search();
    void adapt_step();
    void accept();
    bool finished();

    std::optional<double> residual_norm();
    double newton_step();
    double turning_angle_factor() const;
    int report_nested() const;

    const BranchRun& run_;
    BranchProblem& problem_;
    Trajex& tx_;
    std::size_t n_;
    std::size_t size_;
    StepLength step_;

    int steps_ = 0;
    int bifurcations_ = 0;
    double reversal_ = 0;
    double prediction_ = 0;  // factor of the tangent in the last prediction

    double* r_ = nullptr;
    double* solver_ = nullptr;
    double* accepted_ = nullptr;  // unknowns of the last accepted point
    double* er_ = nullptr;
    double* ei_ = nullptr;
    double* recorded_ = nullptr;  // of the record, while a search works there
    double** unknowns_ = nullptr;
    Analysis now_;
    Analysis last_;
    Workspace work_;
};

int Branch::follow() {
    if (!problem_.converge_start()) return report_nested();
    analyse();
    accept();
    while (!finished()) {
        if (!advance()) return 0;
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
                return 1;
            case Search::rejected:
                if (!step_.halve()) return 0;
        }
    }
    return 1;
}

/// Predictions and corrections from the last accepted point, with smaller steps until one
/// converges.
bool Branch::advance() {
    for (;;) {
        predict();
        const Correction correction = correct();
        if (correction == Correction::lost) return report_nested() == 1;
        run_.out.text("\n");
        if (correction == Correction::converged) return step_.check();
        if (!step_.halve()) return false;
    }
}

void Branch::predict() {
    // A solution that does not move with the parameter gives no direction in the state: the step is
    // then taken in the parameter alone.
    const double dc = step_.value();
    prediction_ = now_.length == 0 ? dc : dc / now_.length;
    for (std::size_t j = 0; j < size_; ++j) {
        *unknowns_[j] = accepted_[j] + prediction_ * now_.tangent[j];
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
    double** const A = problem_.record().Phi;
    problem_.newton_rows(A);
    std::fill_n(A[n_], size_, 0.0);
    for (std::size_t j = 0; j <= n_; ++j) A[n_][j] = prediction_ * now_.tangent[j];
    std::fill_n(r_ + n_, size_ - n_, 0.0);
    TXLinZero(&tx_, static_cast<int>(size_), A, r_, solver_);
    for (std::size_t j = 0; j < size_; ++j) *unknowns_[j] += r_[j];
    return distance_from(accepted_, unknowns_, n_, 1);
}

void Branch::analyse() {
    now_.stability = problem_.stability(er_, ei_);
    double** const A = problem_.record().Phi;
    double* const tangent = now_.tangent;
    const std::size_t order = problem_.tangent_system(A, tangent);
    TXLinZero(&tx_, static_cast<int>(order), A, tangent, solver_);
    if (order > n_) tangent[n_ + 1] = tangent[n_];
    tangent[n_] = 1;
    double squares = 0;
    for (std::size_t i = 0; i < n_; ++i) squares += tangent[i] * tangent[i];
    now_.length = problem_.tangent_length(squares);
}

bool Branch::suspects_bifurcation() {
    reversal_ = problem_.reversal(now_.tangent, last_.tangent);
    return reversal_ > 1 || now_.stability.stable != last_.stability.stable;
}

/// Looks for the bifurcation between the last accepted and the current point. A search that fails
/// is part of the run, which then takes a smaller step: it must not end the process.
Search Branch::search() {
    RecordedPoint recorded(problem_.record(), n_, parameters_of(tx_), recorded_);
    run_.out.text("Searching for bifurcation ");
    std::copy_n(problem_.y, n_, problem_.record().y);
    problem_.record_guess();
    const double current = *problem_.c;
    bool located = false;
    {
        const Temporarily recording(tx_.TerminateOnFatalError, 0);
        located = problem_.locate(run_.out.state) == 1 &&
                  problem_.classify(now_.tangent, step_.value(), run_.out);
    }
    if (located) {
        recorded.replace();
        ++bifurcations_;
        run_.out.bifurcation(tx_);
        if (bifurcations_ == run_.bifurcations) return Search::located_last;
    }
    *problem_.c = current;
    return located ? Search::located : Search::rejected;
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
        accepted_[j] = *unknowns_[j];
        last_.tangent[j] = now_.tangent[j];
    }
    last_.length = now_.length;
    last_.stability = now_.stability;

    TrajexBif& record = problem_.record();
    record_parameters(tx_, record);
    std::copy_n(problem_.y, n_, record.y);
    std::copy_n(er_, n_, record.er);
    std::copy_n(ei_, n_, record.ei);
    record.steps = steps_;
    problem_.record_point();
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

void BranchProblem::list_unknowns(double** list) const {
    for (std::size_t i = 0; i < n; ++i) list[i] = &y[i];
    list[n] = c;
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

int follow_branch(const BranchRun& run, BranchProblem& problem) {
    Trajex& tx = problem.tx;
    Branch branch(run, problem);
    if (!ensure_record(tx) || !problem.has_memory() || !branch.has_memory()) {
        return report(&tx, Error::no_memory, run.where);
    }
    TrajexBif& record = problem.record();
    record.biftype = not_determined;
    record.cindi[0] = problem.kind();
    if (activate_parameter(tx, problem.c, &record.cindi[1]) != 1) {
        return report(&tx, Error::wrong_parameters, run.where);
    }
    return branch.follow();
}

}  // namespace trajex
