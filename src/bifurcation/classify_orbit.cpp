// Classification of a located bifurcation of a periodic orbit from four orbits near it: two
// displaced along the eigenvector of the critical multiplier, with the parameter free to follow
// (top and bottom), and two on the branch itself, at a lower and at a higher parameter (left and
// right). All four are found by shooting; with a free parameter the correction is kept orthogonal
// to the eigenvector v, so that it cannot lead back to where the search started:
//
//     [ M - I   de/dc   f ] [ dy ]   [ y - e ]
//     [  v*       0     0 ] [ dc ] = [   0   ]
//     [  f*       0     0 ] [ dT ]   [   0   ].
//
// On which side of the bifurcation they settle and how many of their multipliers are stable tells
// the types apart.
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

namespace trajex {

namespace {

/// One of the four orbits: its place in the record, and what the classification asks of it.
struct TestOrbit {
    double* y;
    double& c;
    double& T;
    int stable = 0;
};

enum class Parameter { fixed, free };
enum class Attempt { found, fell_back, failed, lost_section };

class OrbitCheck {
  public:
    OrbitCheck(Trajex& tx, TrajexBif& bif, double* c, double amplitude, std::size_t trivial,
               FILE* state)
        : tx_(tx),
          bif_(bif),
          c_(*c),
          c0_(*c),
          amplitude_(amplitude),
          trivial_(trivial),
          state_(state),
          n_(order_of(tx)),
          top_{bif.top, bif.ctop, bif.Ttop},
          bottom_{bif.bot, bif.cbot, bif.Tbot},
          left_{bif.left, bif.cleft, bif.Tleft},
          right_{bif.right, bif.cright, bif.Tright},
          work_({{&v_, n_},
                 {&u_, n_},
                 {&d_, n_ + 2},
                 {&er_, n_},
                 {&ei_, n_},
                 {&solver_, solver_work(n_ + 2)}},
                {{&matrix_, n_ + 2, n_ + 2}}) {}

    /// Whether the test orbits were found; the record is then complete.
    bool run() {
        if (!possible_period(bif_.t, bif_.T)) return false;
        const double given = amplitude_;
        find_critical_direction();
        if (!find_displaced_orbits()) return false;
        restore_parameters(tx_, bif_);
        const BifType type = classify();
        if (type != saddle_node) {
            amplitude_ = given;
            if (!find_neighbours()) return false;
            restore_parameters(tx_, bif_);
        }
        describe(type);
        bif_.indir = incoming_direction(type);
        bif_.biftype = type;
        return true;
    }

  private:
    void find_critical_direction();
    bool find_displaced_orbits();
    bool find_neighbours();
    BifType classify() const;

    template <class Start>
    bool search(Parameter parameter, Start&& start, TestOrbit& orbit);
    Attempt attempt(Parameter parameter);
    bool correct(Parameter parameter, double t);
    Attempt judge(Parameter parameter);
    double distance_after_period(double* t);
    double residual_norm();
    void mark(char progress) const {
        if (state_ != nullptr) std::fputc(progress, state_);
    }

    void describe(BifType type);
    void set_tangent();
    void set_transversal(const double* direction, bool forward);
    void negate_direction() {
        for (std::size_t i = 0; i < n_; ++i) v_[i] = -v_[i];
    }
    bool opens_upward() const { return bif_.ctop > c0_; }
    int incoming_direction(BifType type) const;
    double incoming_cosine(const TestOrbit& orbit) const;

    double critical_re() const { return bif_.er[critical_]; }
    double critical_im() const { return bif_.ei[critical_]; }
    bool doubles_period() const { return critical_re() < 0 && std::fabs(critical_im()) < 1e-10; }

    Trajex& tx_;
    TrajexBif& bif_;
    double& c_;
    double c0_;
    double amplitude_;  // of the displacements; it carries over from one orbit to the next
    std::size_t trivial_;
    FILE* state_;
    std::size_t n_;
    std::size_t critical_ = 0;
    TestOrbit top_, bottom_, left_, right_;

    double* v_ = nullptr;  // eigenvector of the critical multiplier
    double* u_ = nullptr;  // start point of the orbit in search; its period is T_
    double T_ = 0;
    double* d_ = nullptr;  // image, then residual, then correction
    double* er_ = nullptr;
    double* ei_ = nullptr;
    double* solver_ = nullptr;
    double** matrix_ = nullptr;
    PeriodSteps steps_;
    Workspace work_;
};

void OrbitCheck::find_critical_direction() {
    if (trivial_ > 0) move_trivial_last(bif_.er, bif_.ei, n_);
    critical_ = critical_multiplier_of(tx_, bif_.er, bif_.ei, trivial_).index;
    copy_block(bif_.Phi, n_, n_, matrix_);
    TXEigenVector(&tx_, tx_.order, matrix_, critical_re(), v_, solver_);
}

/// Top and bottom. Along the eigenvector of a multiplier near -1 orbits close after two periods.
bool OrbitCheck::find_displaced_orbits() {
    const Temporarily period(bif_.T, doubles_period() ? 2 * bif_.T : bif_.T);
    const auto displaced = [this] {
        for (std::size_t i = 0; i < n_; ++i) u_[i] = bif_.y[i] + amplitude_ * v_[i];
    };
    for (TestOrbit* orbit : {&top_, &bottom_}) {
        if (!search(Parameter::free, displaced, *orbit)) return false;
        negate_direction();  // the second time, back to the eigenvector itself
    }
    return true;
}

/// Left and right.
bool OrbitCheck::find_neighbours() {
    const auto beside = [this](double side) {
        return [this, side] {
            std::copy_n(bif_.y, n_, u_);
            c_ = c0_ + side * std::fabs(amplitude_);
        };
    };
    return search(Parameter::fixed, beside(-1), left_) &&
           search(Parameter::fixed, beside(+1), right_);
}

/// Attempts from `start` until one finds an orbit: from nearer by after one that failed, from
/// farther away after one that fell back to the bifurcation itself.
template <class Start>
bool OrbitCheck::search(Parameter parameter, Start&& start, TestOrbit& orbit) {
    for (int tries = 0; tries <= tx_.MaxNewtSteps; ++tries) {
        restore_parameters(tx_, bif_);
        T_ = bif_.T;
        start();
        switch (attempt(parameter)) {
            case Attempt::found:
                std::copy_n(u_, n_, orbit.y);
                orbit.c = c_;
                orbit.T = T_;
                orbit.stable = stable_multipliers_of(tx_, er_, ei_, trivial_);
                return true;
            case Attempt::fell_back:
                amplitude_ *= 2;
                mark('^');
                break;
            case Attempt::failed:
                amplitude_ /= 2;
                mark('v');
                break;
            case Attempt::lost_section:
                return false;
        }
    }
    return false;
}

/// Newton's method from the start point in u_. Whatever fails on the way fails the attempt, after
/// which there may be another: it must not end the process.
Attempt OrbitCheck::attempt(Parameter parameter) {
    const Temporarily recording(tx_.TerminateOnFatalError, 0);
    double t = bif_.t;
    bool lost = false;
    const NewtonEnd end = newton(
        {tx_.MaxNewtSteps + 2LL},
        [&](double) {
            t = bif_.t;
            return distance_after_period(&t);
        },
        [&](double, double) {
            if (!correct(parameter, t)) return false;
            lost = trivial_ > 0 && !move_to_section(tx_, &t, u_);
            return !lost;
        });
    if (lost) return Attempt::lost_section;
    return end == NewtonEnd::converged ? judge(parameter) : Attempt::failed;
}

double OrbitCheck::distance_after_period(double* t) {
    steps_.begin();
    const int ended = integrate_period(tx_, t, T_, u_, d_, matrix_, steps_);
    return ended == 1 ? residual_norm() : std::numeric_limits<double>::quiet_NaN();
}

/// d becomes start minus end.
double OrbitCheck::residual_norm() {
    WeightedNorm norm(tx_.NewtRelTol, tx_.NewtAbsTol);
    for (std::size_t i = 0; i < n_; ++i) {
        d_[i] = u_[i] - d_[i];
        norm.add(d_[i], u_[i]);
    }
    return norm.value();
}

/// One correction; `t` is the time at the end of the period. False when it leads nowhere.
bool OrbitCheck::correct(Parameter parameter, double t) {
    const bool free = parameter == Parameter::free;
    std::size_t size = n_;
    subtract_identity(matrix_, n_);
    if (free) {
        std::copy_n(v_, n_, matrix_[size]);
        matrix_[size][n_] = 0;
        d_[size++] = 0;
    }
    if (trivial_ > 0) {
        tx_.fcn(t, u_, matrix_[size]);
        border_with_period(matrix_, n_, size, matrix_[size]);
        d_[size++] = 0;
    }
    TXLinZero(&tx_, static_cast<int>(size), matrix_, d_, solver_);
    if (!all_finite(d_, size)) return false;
    for (std::size_t i = 0; i < n_; ++i) u_[i] += d_[i];
    if (free) c_ += d_[n_];
    if (trivial_ > 0) T_ += d_[size - 1];
    return possible_period(bif_.t, T_) && !ran_away(u_, bif_.y, n_) && !ran_away(c_, c0_);
}

/// A closed orbit, with M in the matrix.
Attempt OrbitCheck::judge(Parameter parameter) {
    const bool same = std::fabs(c_ - c0_) < std::fabs(c_ * tx_.NewtRelTol) + tx_.NewtAbsTol;
    if (parameter == Parameter::free && same) return Attempt::fell_back;
    return find_multipliers(tx_, matrix_, er_, ei_, trivial_) == 1 ? Attempt::found
                                                                   : Attempt::failed;
}

BifType OrbitCheck::classify() const {
    if (critical_im() != 0) return torus;
    if (critical_re() < 0) return period_doubling;
    if (top_.stable == bottom_.stable) return pitchfork;
    return (c0_ - top_.c) * (c0_ - bottom_.c) < 0 ? transcritical : saddle_node;
}

/// The direction vectors and the text of the report.
void OrbitCheck::describe(BifType type) {
    char* const text = bif_.btype;
    constexpr std::size_t room = sizeof bif_.btype;
    const char* const icon = (opens_upward() ? TrajexBifIconLeft : TrajexBifIconRight)[type];
    const bool top_is_stabler = top_.stable > bottom_.stable;
    if (type != saddle_node) set_tangent();
    if (type == saddle_node) {
        set_transversal(v_, top_is_stabler);
        std::snprintf(text, room, " %d %s %d", top_.stable, icon, bottom_.stable);
    } else if (type == transcritical) {
        for (std::size_t i = 0; i < n_; ++i) {
            d_[i] = (top_.y[i] - bottom_.y[i]) / (top_.c - bottom_.c);
        }
        set_transversal(d_, top_is_stabler);
        const bool upward = opens_upward();
        std::snprintf(text, room, " %s (%d %d)", icon, upward ? top_.stable : left_.stable,
                      upward ? bottom_.stable : right_.stable);
    } else {
        set_transversal(v_, true);
        std::snprintf(text, room, " %d %s %d", left_.stable, icon, right_.stable);
    }
}

void OrbitCheck::set_transversal(const double* direction, bool forward) {
    for (std::size_t i = 0; i < n_; ++i) bif_.trans[i] = forward ? direction[i] : -direction[i];
}

/// Along the branch, towards the side where it is more stable.
void OrbitCheck::set_tangent() {
    const bool forward = right_.stable > left_.stable;
    for (std::size_t i = 0; i < n_; ++i) {
        const double slope = (right_.y[i] - left_.y[i]) / (right_.c - left_.c);
        bif_.tang[i] = forward ? slope : -slope;
    }
}

/// The test orbit that lies against the incoming tangent: 1 top, 2 bottom, 3 left, 4 right. Orbits
/// that say nothing about the branches of this type count as lying across it.
int OrbitCheck::incoming_direction(BifType type) const {
    const TestOrbit* const orbits[] = {&top_, &bottom_, &left_, &right_};
    int nearest = 1;
    double smallest = std::numeric_limits<double>::infinity();
    for (int k = 0; k < 4; ++k) {
        const bool displaced = k < 2;
        const bool across = type == (displaced ? torus : saddle_node);
        const double cosine = across ? 0 : incoming_cosine(*orbits[k]);
        const double distance = std::fabs(cosine + 1);
        if (distance < smallest) {
            smallest = distance;
            nearest = k + 1;
        }
    }
    return nearest;
}

/// Cosine of the angle, in the space of state and parameter, of the orbit seen from the bifurcation
/// to the incoming tangent (intang, 1).
double OrbitCheck::incoming_cosine(const TestOrbit& orbit) const {
    const double change = orbit.c - c0_;
    double product = change;
    double squares = change * change;
    double tangent_squares = 1;
    for (std::size_t i = 0; i < n_; ++i) {
        const double difference = orbit.y[i] - bif_.y[i];
        product += bif_.intang[i] * difference;
        squares += difference * difference;
        tangent_squares += bif_.intang[i] * bif_.intang[i];
    }
    return product / std::sqrt(squares) / std::sqrt(tangent_squares);
}

}  // namespace

}  // namespace trajex

using namespace trajex;

int TXCheckBif(Trajex* handle, TrajexBif* txb, double* c, double thedc, int mode, FILE* state) {
    constexpr const char* where = "TXCheckBif";
    Trajex& tx = enter_variational(handle, where);
    if (txb != nullptr) txb->biftype = not_determined;
    if (!usable(tx, txb)) return report(&tx, Error::no_bifurcation_record, where);
    int index = 0;
    if (activate_parameter(tx, c, &index) != 1) return 0;
    return with_work_memory(tx, where, [&] {
        OrbitCheck check(tx, *txb, c, thedc, mode > 0 ? autonomous_orbit : forced_orbit, state);
        return check.run() ? 1 : report_missing_section(tx, where);
    });
}
