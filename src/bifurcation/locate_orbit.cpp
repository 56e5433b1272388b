// Location of a bifurcation of a periodic orbit: Newton's method on
//
//     phi_T(y; c) = y,    g(y, c) = 1,
//
//     [ M - I   de/dc   f ] [ dy ]   [ y - e ]
//     [ dg/dy   dg/dc   0 ] [ dc ] = [ 1 - g ]
//     [  f*       0     0 ] [ dT ]   [   0   ],
//
// e = phi_T(y) and g the modulus of the multiplier nearest to the unit circle, with the row of g by
// forward differences over further periods; the last row and column are there for autonomous
// systems only. A period is integrated in two halves: an orbit whose half is an orbit already, on
// its way to a period doubling, is recognised by them and halved.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <limits>

#include "bifurcation/multipliers.hpp"
#include "bifurcation/record.hpp"
#include "core/errors.hpp"
#include "core/guards.hpp"
#include "core/newton.hpp"
#include "core/workspace.hpp"
#include "integration/section.hpp"
#include "linalg/linear_system.hpp"
#include "linalg/matrix.hpp"
#include "orbits/period_border.hpp"
#include "orbits/period_map.hpp"
#include "orbits/section_walk.hpp"
#include "variational/extended.hpp"

namespace trajex {

namespace {

/// What the first half of a period says about the orbit.
struct HalfPeriod {
    double critical_re = 0;  // critical multiplier of the half-period map
    double critical_im = 0;
    double alignment = 0;  // |cosine| of the displacement after it to the eigenvector of that
};

class OrbitLocation {
  public:
    /// `turns`: half the number of section crossings in a period; 0 for a forced orbit.
    OrbitLocation(Trajex& tx, TrajexBif& bif, double* c, int turns)
        : tx_(tx),
          bif_(bif),
          turns_(turns),
          trivial_(turns > 0 ? autonomous_orbit : forced_orbit),
          n_(order_of(tx)),
          size_(n_ + 1 + trivial_),
          t_(bif.t),
          T_(bif.T),
          work_({{&u_, n_},
                 {&entry_, n_ + 1},
                 {&right_, size_},
                 {&samples_, n_ + 1},
                 {&solver_, solver_work(size_)}},
                {{&M_, n_, n_ + 1}, pointer_list(&unknowns_, n_ + 2)}) {
        std::copy_n(bif.y, n_, u_);
        for (std::size_t i = 0; i < n_; ++i) unknowns_[i] = &u_[i];
        unknowns_[n_] = c;
        unknowns_[n_ + 1] = &T_;
        for (std::size_t j = 0; j <= n_; ++j) entry_[j] = *unknowns_[j];
    }

    /// Whether the iteration converged; the record then holds the located orbit. Not to find one is
    /// an answer, whatever failed on the way: it must not end the process.
    bool run(FILE* state) {
        const Temporarily recording(tx_.TerminateOnFatalError, 0);
        if (!converge(state)) return false;
        std::copy_n(u_, n_, bif_.y);
        copy_block(M_, n_, n_ + 1, bif_.Phi);
        bif_.T = T_;
        return true;
    }

  private:
    /// Newton's method, which begins anew with the half of an orbit that was a doubled copy.
    bool converge(FILE* state) {
        const auto print = [state](char progress) {
            if (state != nullptr) std::fputc(progress, state);
        };
        NewtonLimit limit{tx_.MaxNewtSteps + 2LL};
        for (;;) {
            bool doubled = false;
            const auto norm = [&](double) {
                if (!evaluate()) return std::numeric_limits<double>::quiet_NaN();
                doubled = is_doubled_copy();
                if (doubled) print('%');
                return distance();
            };
            const NewtonEnd end = newton(
                limit, norm, [&](double, double) { return !doubled && correct(); },
                [&](double dist, double previous) { print(progress_mark(dist, previous)); });
            if (end == NewtonEnd::failed || !doubled) return end == NewtonEnd::converged;
            if (!correct()) return false;
            halve_period();
        }
    }

    /// The image and the linearisation of the period at the iterate, its multipliers and g.
    bool evaluate() {
        if (!possible_period(t_, T_ / 2)) return false;
        steps_.begin();
        std::copy_n(u_, n_, bif_.y);
        set_identity(bif_.Phi, n_, n_ + 1);
        if (!integrate_half() || !judge_half() || !integrate_half()) return false;
        copy_block(bif_.Phi, n_, n_ + 1, M_);
        if (find_multipliers(tx_, bif_.Phi, bif_.er, bif_.ei, trivial_) != 1) return false;
        critical_ = critical_multiplier_of(tx_, bif_.er, bif_.ei, trivial_);
        for (std::size_t i = 0; i < n_; ++i) right_[i] = u_[i] - bif_.y[i];
        right_[n_] = 1 - critical_.value;
        if (trivial_ > 0) right_[n_ + 1] = 0;
        return true;
    }

    /// Half a period on from the current time, state and matrix: by the crossings of the section
    /// where their number can be halved, by time otherwise.
    bool integrate_half() {
        if (turns_ > 0 && turns_ % 2 == 0) {
            ExtendedFlow flow(tx_, bif_.y, bif_.Phi);
            const long long limit = static_cast<long long>(turns_) * tx_.MaxPeriodSteps + 1;
            return walk_to_section(flow, &t_, turns_, limit, steps_);
        }
        return integrate_watched(tx_, &t_, t_ + T_ / 2, bif_.y, bif_.Phi, steps_) == 1;
    }

    bool judge_half() {
        copy_block(bif_.Phi, n_, n_, M_);
        if (find_multipliers(tx_, M_, bif_.er, bif_.ei, trivial_) != 1) return false;
        const std::size_t k = critical_multiplier_of(tx_, bif_.er, bif_.ei, trivial_).index;
        half_ = {bif_.er[k], bif_.ei[k], 0};
        copy_block(bif_.Phi, n_, n_, M_);
        double* const eigenvector = bif_.er;  // the multipliers of the whole period come later
        TXEigenVector(&tx_, tx_.order, M_, half_.critical_re, eigenvector, solver_);
        double product = 0;
        double eigenvector_squares = 0;
        double squares = 0;
        for (std::size_t i = 0; i < n_; ++i) {
            const double displacement = bif_.y[i] - u_[i];
            product += eigenvector[i] * displacement;
            eigenvector_squares += eigenvector[i] * eigenvector[i];
            squares += displacement * displacement;
        }
        half_.alignment =
            std::fabs(product / (std::sqrt(eigenvector_squares) * std::sqrt(squares)));
        return true;
    }

    /// Near a period doubling, the doubled orbit lies along the eigenvector of the multiplier -1 of
    /// the orbit that it branches from, and its own multiplier is near +1.
    /// How near to is a matter of experience: the multiplier of the whole period is about the
    /// square of that of the half, and the direction is exact at the doubling only.
    bool is_doubled_copy() const {
        constexpr double least_multiplier = 0.9;
        constexpr double largest_of_half = -0.75;
        constexpr double least_alignment = 0.95;
        const std::size_t k = critical_.index;
        return bif_.ei[k] == 0 && bif_.er[k] > least_multiplier && half_.critical_im == 0 &&
               half_.critical_re < largest_of_half && half_.alignment > least_alignment;
    }

    void halve_period() {
        T_ /= 2;
        turns_ /= 2;
    }

    /// The state terms weigh with the roots of the Newton tolerances: a located orbit is asked for
    /// the criterion first, and for closing no more than that needs.
    double distance() const {
        WeightedNorm norm(std::sqrt(tx_.NewtRelTol), std::sqrt(tx_.NewtAbsTol));
        norm.add_weighted(critical_.value - 1, tx_.LambdaNewtRelTol + tx_.LambdaNewtAbsTol);
        for (std::size_t i = 0; i < n_; ++i) norm.add(right_[i], u_[i]);
        return norm.value();
    }

    /// g at the iterate as it stands, perturbed; not a number where it cannot be computed.
    double modulus_after_period() {
        steps_.begin();
        const bool found = integrate_period(tx_, &t_, T_, u_, bif_.y, bif_.Phi, steps_) == 1 &&
                           find_multipliers(tx_, bif_.Phi, bif_.er, bif_.ei, trivial_) == 1;
        return found ? critical_multiplier_of(tx_, bif_.er, bif_.ei, trivial_).value
                     : std::numeric_limits<double>::quiet_NaN();
    }

    bool correct() {
        const Temporarily without_sensitivities(tx_.nparam, 0);
        const double h = tx_.LambdaPert;
        sample_criterion(
            unknowns_, n_ + 1, h, [this] { return modulus_after_period(); }, samples_);
        double** const A = tx_.TX->j;
        copy_block(M_, n_, n_ + 1, A);
        subtract_identity(A, n_);
        difference_row(samples_, n_ + 1, critical_.value, h, A[n_]);
        if (!all_finite(A[n_], n_ + 1)) return false;
        if (trivial_ > 0) {
            tx_.fcn(t_, bif_.y, A[n_ + 1]);
            border_with_period(A, n_, n_ + 1, A[n_ + 1]);
        }
        TXLinZero(&tx_, static_cast<int>(size_), A, right_, solver_);
        if (!all_finite(right_, size_)) return false;
        for (std::size_t j = 0; j < size_; ++j) *unknowns_[j] += right_[j];
        for (std::size_t j = 0; j <= n_; ++j) {
            if (ran_away(*unknowns_[j], entry_[j])) return false;
        }
        return trivial_ == 0 || move_to_section(tx_, &t_, u_);
    }

    Trajex& tx_;
    TrajexBif& bif_;
    int turns_;
    std::size_t trivial_;
    std::size_t n_;
    std::size_t size_;  // of the Newton system
    double t_;
    double T_;
    double* u_ = nullptr;      // start point; the record's state is where it is integrated
    double* entry_ = nullptr;  // start point and parameter at first
    double* right_ = nullptr;  // right-hand side; the correction once solved
    double* samples_ = nullptr;
    double* solver_ = nullptr;
    double** M_ = nullptr;  // [M | de/dc] at the iterate
    double** unknowns_ = nullptr;
    HalfPeriod half_;
    Critical critical_;
    PeriodSteps steps_;
    Workspace work_;
};

}  // namespace

}  // namespace trajex

using namespace trajex;

int TXLocateBif(Trajex* handle, TrajexBif* txb, double* c, int mode, FILE* state) {
    constexpr const char* where = "TXLocateBif";
    Trajex& tx = enter_variational(handle, where);
    if (!usable(tx, txb)) return report(&tx, Error::no_bifurcation_record, where);
    int index = 0;
    if (activate_parameter(tx, c, &index) != 1) return 0;
    return with_work_memory(tx, where, [&] {
        OrbitLocation location(tx, *txb, c, mode);
        if (!location.run(state)) return report_missing_section(tx, where);
        record_location(tx, *txb);
        return 1;
    });
}
