// Continuation of periodic orbits phi_T(y; c) = y in one parameter. With e the image of y after one
// period, the linearisation is the monodromy matrix M, whose eigenvalues are the Floquet
// multipliers, beside the derivative de/dc with respect to the parameter. A point is stable where
// all multipliers that are not trivial lie inside the unit circle. The period of an autonomous
// system is one of the unknowns,
//
//     [   M - I    de/dc   f(e) ] [ dy ]   [ y - e ]
//     [ s tangent_y  s      0   ] [ dc ] = [   0   ]
//     [   f(y)*      0      0   ] [ dT ]   [   0   ],
//
// and its orbit is represented by a point of the Poincare section.
#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstddef>
#include <limits>

#include "bifurcation/multipliers.hpp"
#include "continuation/branch.hpp"
#include "core/errors.hpp"
#include "core/guards.hpp"
#include "core/workspace.hpp"
#include "integration/section.hpp"
#include "linalg/matrix.hpp"
#include "orbits/period_border.hpp"
#include "orbits/period_map.hpp"
#include "orbits/section_walk.hpp"

namespace trajex {

namespace {

/// How far the critical multiplier is from the unit circle, as a modulus: the first one is folded
/// to the outside of the circle and the others to the inside, and the one nearest to it is taken.
/// The choice of the side is arbitrary, but the step sizes of all runs depend on it: they follow
/// the change of this number, and would be others if it were folded to one side throughout.
double folded_modulus(const double* er, const double* ei, std::size_t count) {
    const double first = modulus(er, ei, 0);
    double critical = first < 1 ? 1 / first : first;
    for (std::size_t i = 1; i < count; ++i) {
        const double r = modulus(er, ei, i);
        const double folded = r > 1 ? 1 / r : r;
        if (std::fabs(1 - folded) < std::fabs(1 - critical)) critical = folded;
    }
    return critical;
}

/// What both kinds of orbit have in common: one period of variational integration from y, and what
/// is read off it.
class OrbitBranch : public BranchProblem {
  public:
    PathKind kind() const override { return orbit_path; }

    Stability stability(double** A, double* er, double* ei) override {
        copy_block(Phi_, n, n, A);
        find_multipliers(tx, A, er, ei, trivial_);
        return {stable_multipliers_of(tx, er, ei, trivial_), folded_modulus(er, ei, n - trivial_)};
    }
    std::size_t tangent_system(double** A, double* v) override {
        closing_rows(A);
        for (std::size_t i = 0; i < n; ++i) v[i] = -Phi_[i][n];
        return n;
    }
    void newton_rows(double** A) override { closing_rows(A); }

    void record_point() const override { record().T = T_; }
    void record_guess() const override {
        record().t = t_;
        record().T = T_;
    }
    int locate(FILE* state) override { return TXLocateBif(&tx, tx.txb, c, turns_, state); }
    bool classify(const double* tangent, double dc, const Outputs& out) override {
        std::copy_n(tangent, n, record().intang);
        if (tx.CheckBifs == 0) return true;
        out.text(" Checking bifurcation ");
        return TXCheckBif(&tx, tx.txb, c, dc, static_cast<int>(trivial_), out.state) == 1;
    }

  protected:
    /// `turns`: half the number of section crossings in a period; 0 for a forced orbit.
    OrbitBranch(Trajex& handle, const CallerState& state, double* parameter, double time, int turns,
                std::size_t trivial)
        : BranchProblem(handle, state.y(), parameter, order_of(handle) + 1 + trivial),
          t_(time),
          T_(state.T()),
          turns_(turns),
          trivial_(trivial),
          work_({{&image_, n}, {&end_flow_, n}}, {{&Phi_, n, n + 1}}) {}

    /// One period from y; the running time moves on with it. Where that fails there is no image: a
    /// residual formed from it fails the correction, and the run takes a smaller step, so that the
    /// failure must not end the process.
    bool integrate() {
        const Temporarily recording(tx.TerminateOnFatalError, 0);
        steps_.begin();
        if (possible_period(t_, T_) &&
            integrate_period(tx, &t_, T_, y, image_, Phi_, steps_) == 1) {
            return true;
        }
        forget_image();
        return false;
    }
    void forget_image() { std::fill_n(image_, n, std::numeric_limits<double>::quiet_NaN()); }
    void closing_residual(double* r) const {
        for (std::size_t i = 0; i < n; ++i) r[i] = y[i] - image_[i];
    }
    /// Rows [M - I | de/dc].
    void closing_rows(double** A) const {
        copy_block(Phi_, n, n + 1, A);
        subtract_identity(A, n);
    }

    double t_;
    double& T_;
    const int turns_;
    const std::size_t trivial_;
    double* image_ = nullptr;
    double* end_flow_ = nullptr;
    double** Phi_ = nullptr;
    PeriodSteps steps_;
    Workspace work_;
};

class ForcedBranch final : public OrbitBranch {
  public:
    ForcedBranch(Trajex& handle, const CallerState& state, double* parameter, double time)
        : OrbitBranch(handle, state, parameter, time, 0, forced_orbit) {}

    bool converge_start() override {
        return TXNonAutoOrbit(&tx, t_, y, Phi_, T_) != 0 && integrate();
    }
    bool residual(double* r) override {
        integrate();
        closing_residual(r);
        return true;
    }
};

class AutonomousBranch final : public OrbitBranch {
  public:
    AutonomousBranch(Trajex& handle, const CallerState& state, double* parameter, double time,
                     int turns)
        : OrbitBranch(handle, state, parameter, time, turns, autonomous_orbit) {
        unknowns_[n + 1] = &T_;
    }

    bool converge_start() override {
        return TXAutoOrbit(&tx, t_, y, Phi_, turns_, &T_) != 0 && move_to_section(tx, &t_, y) &&
               integrate();
    }
    /// A section that is not met ends the run; where not even a step to it can be made, there is no
    /// image either.
    bool residual(double* r) override {
        const Temporarily recording(tx.TerminateOnFatalError, 0);
        if (move_to_section(tx, &t_, y)) {
            integrate();
        } else if (section_step_failed(tx)) {
            forget_image();
        } else {
            return false;
        }
        closing_residual(r);
        return true;
    }

    std::size_t tangent_system(double** A, double* v) override {
        OrbitBranch::tangent_system(A, v);
        tx.fcn(t_, y, A[n]);
        border_with_period(A, n, n, A[n]);
        v[n] = 0;
        return n + 1;
    }
    void newton_rows(double** A) override {
        closing_rows(A);
        tx.fcn(t_, image_, end_flow_);
        tx.fcn(t_, y, A[n + 1]);
        border_with_period(A, n, n + 1, end_flow_);
    }

    /// A point of the section has a component less to turn round: one may keep its sign.
    double reversal(const double* tangent, const double* previous) const override {
        double change = 0;
        int kept = 0;
        for (std::size_t i = 0; i < n; ++i) {
            const double product = tangent[i] * previous[i];
            if (product < 0) change += std::fabs(tangent[i] - previous[i]);
            if (product > 0 && ++kept == 2) return 0;
        }
        return change / static_cast<double>(2 * n);
    }
    /// Steps are measured in state and parameter: the tangent is (dy/dc, 1).
    double tangent_length(double squares) const override { return std::sqrt(1 + squares); }
    double space_length(double tangent_length) const override { return tangent_length; }
    double largest_growth() const override { return 1.41; }
};

}  // namespace

}  // namespace trajex

using namespace trajex;

int TXAutoCont(Trajex* handle, double t, double* y, int p, double* T, double* c, double* dc,
               int nrbif, int mode, ...) {
    constexpr const char* where = "TXAutoCont";
    Trajex& tx = enter_variational(handle, where);
    std::va_list extras;
    va_start(extras, mode);
    const Run run{where, dc, Outputs::read(mode, extras), nrbif};
    va_end(extras);
    return follow_branch<AutonomousBranch>(run, tx, y, T, c, t, p);
}

int TXNonAutoCont(Trajex* handle, double t, double* y, double T, double* c, double* dc, int nrbif,
                  int mode, ...) {
    constexpr const char* where = "TXNonAutoCont";
    Trajex& tx = enter_variational(handle, where);
    std::va_list extras;
    va_start(extras, mode);
    const Run run{where, dc, Outputs::read(mode, extras), nrbif};
    va_end(extras);
    return follow_branch<ForcedBranch>(run, tx, y, &T, c, t);
}
