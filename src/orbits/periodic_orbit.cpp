// Periodic orbits by shooting: Newton's method for a start point x that the flow brings back to
// itself, with M the monodromy matrix,
//
//     forced, period T known:   (M - I) dx = x - phi_T(x);
//
//                               [   M - I    f(end) ] [ dx ]   [ x - phi_T(x) ]
//     autonomous, T unknown:    [ f(start)^T   0    ] [ dT ] = [      0       ].
//
// The last row keeps the correction orthogonal to the flow; after each correction the start point
// is moved along its trajectory back onto the Poincare section.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>

#include "core/errors.hpp"
#include "core/guards.hpp"
#include "core/handle.hpp"
#include "core/newton.hpp"
#include "core/workspace.hpp"
#include "integration/section.hpp"
#include "integration/trajectory.hpp"
#include "linalg/linear_system.hpp"
#include "linalg/matrix.hpp"
#include "orbits/period_border.hpp"
#include "orbits/period_map.hpp"
#include "orbits/section_walk.hpp"
#include "variational/extended.hpp"

namespace trajex {

namespace {

/// What both searches share: the start point, its image after one period in the caller's y, and the
/// monodromy matrix in the caller's Phi. The start point is kept where applications find it.
class Shooting {
  protected:
    Shooting(Trajex& handle, double* state, double** monodromy)
        : tx(handle),
          n(order_of(handle)),
          y(state),
          Phi(monodromy),
          start(handle.TX->istate),
          work_({{&gap, n + 1}, {&end_flow, n}, {&entry_, n}, {&solver_, solver_work(n + 1)}}) {
        std::copy_n(y, n, start);
        std::copy_n(y, n, entry_);
    }

    /// gap = start - image, and its norm with the weights of the start point.
    double closing_distance() {
        WeightedNorm norm(tx.NewtRelTol, tx.NewtAbsTol);
        for (std::size_t i = 0; i < n; ++i) {
            gap[i] = start[i] - y[i];
            norm.add(gap[i], start[i]);
        }
        return norm.value();
    }

    /// Solves a system of the given order for the corrections, which replace the gap, and corrects
    /// the start point. A singular matrix shows in the next distance. Whether the point is still
    /// one to integrate from.
    bool correct_start(double** matrix, std::size_t order) {
        TXLinZero(&tx, static_cast<int>(order), matrix, gap, solver_);
        for (std::size_t i = 0; i < n; ++i) start[i] += gap[i];
        return !ran_away(start, entry_, n);
    }

    Trajex& tx;
    const std::size_t n;
    double* const y;
    double** const Phi;
    double* const start;
    double* gap = nullptr;       // n + 1 entries
    double* end_flow = nullptr;  // scratch
    PeriodSteps period_steps;

  private:
    double* entry_ = nullptr;  // the guess
    double* solver_ = nullptr;
    Workspace work_;
};

class ForcedOrbit : Shooting {
  public:
    static constexpr const char* where = "TXNonAutoOrbit";

    ForcedOrbit(Trajex& handle, double time, double* state, double** monodromy, double period)
        : Shooting(handle, state, monodromy), t_(time), T_(period) {}

    int find() {
        const NewtonEnd end = newton(
            {tx.MaxNewtSteps}, [this](double) { return distance_after_period(); },
            [this](double, double) {
                subtract_identity(Phi, n);
                return correct_start(Phi, n);
            });
        if (end == NewtonEnd::converged) return 1;
        return failed_ ? 0 : report(&tx, Error::newton_not_converged, where);
    }

  private:
    double distance_after_period() {
        double t = t_;
        period_steps.begin();
        if (integrate_period(tx, &t, T_, start, y, Phi, period_steps) == 1) {
            return closing_distance();
        }
        failed_ = recorded_error(tx) != Error::none;
        return std::numeric_limits<double>::quiet_NaN();
    }

    const double t_;
    const double T_;
    bool failed_ = false;  // in an integration, whose code is recorded
};

/// Two times on a trajectory and the side of the section at each: positive before it, negative
/// beyond it.
struct Bracket {
    double t1, side1;
    double t2, side2;

    bool one_sided() const { return (side1 > 0 && side2 > 0) || (side1 < 0 && side2 < 0); }
    bool defined() const { return !std::isnan(side1) && !std::isnan(side2); }
};

class AutonomousOrbit : Shooting {
  public:
    static constexpr const char* where = "TXAutoOrbit";

    AutonomousOrbit(Trajex& handle, double time, double* state, double** monodromy,
                    int multiplicity, double& period)
        : Shooting(handle, state, monodromy), t_(time), p_(multiplicity), T_(period) {}

    int find() {
        if (!reach_section() || !complete_first_period()) return 0;
        if (!possible_period(t_start_, T_)) return not_converged();
        sign_ = cut_value(tx, t_, y) < 0 ? 1 : -1;
        // The first period, which was walked, is no iteration of the search.
        const NewtonEnd end = newton(
            {tx.MaxNewtSteps + 3LL}, [this](double) { return closing_distance(); },
            [this](double, double) { return improve(); });
        if (failed_) return 0;
        if (end != NewtonEnd::converged) return not_converged();
        std::copy_n(start, n, y);
        return stands_still() ? report(&tx, Error::equilibrium_found, where) : 1;
    }

  private:
    bool reach_section();
    bool complete_first_period();
    bool improve();
    bool correct();
    bool return_to_section();
    bool follow_to_section(const Bracket& bracket);
    bool integrate();
    bool stands_still();
    bool near_start(const double* displacement) const {
        return within_tolerance(displacement, start, n, tx.NewtRelTol, tx.NewtAbsTol);
    }
    void see(const double* state);
    double side(double t) { return sign_ * cut_value(tx, t, start); }
    long long crossings() const { return 2LL * p_; }
    long long most_steps() const { return static_cast<long long>(p_) * tx.MaxPeriodSteps + 1; }
    int not_converged() { return report(&tx, Error::newton_not_converged, where); }

    double t_;  // at y
    const int p_;
    double& T_;
    double t_start_ = 0;       // at the start point
    double sign_ = 0;          // that makes the cut value negative beyond the section
    bool failed_ = false;      // on the way of an iteration: its code, if any, is recorded
    bool left_start_ = false;  // whether the last period had a point that is not the start point
};

/// Moves the guess along its trajectory to the section, unless it lies there already.
bool AutonomousOrbit::reach_section() {
    const double t_guess = t_;
    StateFlow flow{tx, y};
    if (flow.section_step(&t_) == 1) return true;
    if (section_step_failed(tx)) return false;
    if (std::fabs(cut_value(tx, t_guess, start)) < tx.CutEps) {
        std::copy_n(start, n, y);
        t_ = t_guess;
        return true;
    }
    return walk_to_section(flow, &t_, 1, tx.MaxPeriodSteps);
}

/// Counts crossings to get the first period: from here on the search trusts T.
bool AutonomousOrbit::complete_first_period() {
    std::copy_n(y, n, start);
    t_start_ = t_;
    set_identity(Phi, n, n);
    ExtendedFlow flow(tx, y, Phi);
    const auto count_and_see = [this](const double* state) {
        period_steps(state);
        see(state);
    };
    if (!walk_to_section(flow, &t_, crossings(), most_steps(), count_and_see)) return false;
    T_ = t_ - t_start_;
    return true;
}

/// The next iterate and its period.
bool AutonomousOrbit::improve() {
    if (!correct()) return false;
    failed_ = !return_to_section();
    return !failed_ && integrate();
}

/// One Newton correction of start point and period. False: it leads nowhere.
bool AutonomousOrbit::correct() {
    double** const matrix = tx.TX->j;
    copy_block(Phi, n, n, matrix);
    subtract_identity(matrix, n);
    tx.fcn(t_, y, end_flow);
    tx.fcn(t_start_, start, matrix[n]);
    border_with_period(matrix, n, n, end_flow);
    gap[n] = 0;
    const bool near_by = correct_start(matrix, n + 1);
    T_ += gap[n];
    return near_by && possible_period(t_start_, T_);
}

/// Moves the corrected start point just beyond the section. It is looked for in one step from that
/// point, then in up to four steps' lengths before or behind it, where the step is extrapolated;
/// only then along the trajectory.
bool AutonomousOrbit::return_to_section() {
    constexpr int extrapolations = 4;
    std::copy_n(start, n, y);  // the corrected point, for a walk from there
    t_ = t_start_;
    const double side_at_start = side(t_start_);
    if (TXStep(&tx, &t_start_, start) != 1) return false;
    Bracket bracket{t_, side_at_start, t_start_, side(t_start_)};

    StateFlow flow{tx, start};
    CutOnStep<StateFlow> cut_at(flow, t_start_);
    for (int i = 0; i < extrapolations && bracket.one_sided(); ++i) {
        const double length = bracket.t2 - bracket.t1;
        if (bracket.side2 > 0) {
            bracket.t1 = bracket.t2;
            bracket.t2 += length;
            bracket.side2 = sign_ * cut_at(bracket.t2);
        } else {
            bracket.t2 = bracket.t1;
            bracket.t1 -= length;
            bracket.side1 = sign_ * cut_at(bracket.t1);
        }
    }
    if (bracket.one_sided()) return follow_to_section(bracket);
    return bracket.defined() &&
           bisect_crossing(tx, bracket.t1, bracket.t2, sign_, &t_start_, cut_at);
}

/// From the corrected point to the section: to the next crossing when the point lies before it, all
/// the way round when it lies beyond.
bool AutonomousOrbit::follow_to_section(const Bracket& bracket) {
    std::copy_n(y, n, start);
    t_start_ = t_;
    StateFlow flow{tx, start};
    if (bracket.side1 > 0) return walk_to_section(flow, &t_start_, 1, tx.MaxPeriodSteps);
    return walk_to_section(flow, &t_start_, crossings(), most_steps());
}

/// False without a failure: the period has too many steps.
bool AutonomousOrbit::integrate() {
    t_ = t_start_;
    left_start_ = false;
    period_steps.begin();
    const auto watch = [this](const double* state) {
        see(state);
        return period_steps(state);
    };
    if (integrate_period(tx, &t_, T_, start, y, Phi, watch) == 1) return true;
    failed_ = recorded_error(tx) != Error::none;
    return false;
}

/// An equilibrium closes over any period. Next to one, the flow does not get away from the start
/// point by more than the tolerance, neither by its speed there nor by any point of the period.
bool AutonomousOrbit::stands_still() {
    tx.fcn(t_start_, start, end_flow);
    for (std::size_t i = 0; i < n; ++i) end_flow[i] *= T_;
    return near_start(end_flow) || !left_start_;
}

/// Takes note of a point of the period.
void AutonomousOrbit::see(const double* state) {
    if (left_start_) return;
    for (std::size_t i = 0; i < n; ++i) end_flow[i] = state[i] - start[i];
    left_start_ = !near_start(end_flow);
}

}  // namespace

}  // namespace trajex

using namespace trajex;

int TXNonAutoOrbit(Trajex* handle, double t, double* y, double** Phi, double T) {
    Trajex& tx = enter_variational(handle, ForcedOrbit::where);
    if (!possible_period(t, T)) {
        return report(&tx, Error::negative_time_step, ForcedOrbit::where);
    }
    const Temporarily no_sensitivities(tx.nparam, 0);
    return with_work_memory(tx, ForcedOrbit::where,
                            [&] { return ForcedOrbit(tx, t, y, Phi, T).find(); });
}

int TXAutoOrbit(Trajex* handle, double t, double* y, double** Phi, int p, double* T) {
    Trajex& tx = enter_variational(handle, AutonomousOrbit::where);
    const Temporarily no_sensitivities(tx.nparam, 0);
    return with_work_memory(tx, AutonomousOrbit::where,
                            [&] { return AutonomousOrbit(tx, t, y, Phi, p, *T).find(); });
}
