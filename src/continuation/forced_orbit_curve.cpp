// Continuation of a bifurcation of a periodic orbit of a periodically forced system in two
// parameters. The period is that of the forcing.
//
// Where a second multiplier comes near +1 or -1 the curve may end, or meet another, in a point of
// codimension two. It is looked for by Newton's method on
//
//     phi(y; c1, c2) = y,    |mu| = 1,    Re(mu - nu) - Im(mu - nu)^2 = 0,
//
// mu and nu being the two multipliers: they coincide on the real axis there.
#include <cmath>
#include <cstdarg>
#include <cstddef>
#include <limits>

#include "continuation/floquet_curve.hpp"
#include "core/errors.hpp"
#include "core/newton.hpp"
#include "core/workspace.hpp"
#include "linalg/linear_system.hpp"
#include "orbits/period_map.hpp"

namespace trajex {

namespace {

/// How near to +1 or -1 both critical multipliers must be for a search: Newton's method seldom
/// comes from farther away. After a point that was found the curve stays that near to it for some
/// steps, in which it would only be found again.
constexpr double search_radius = 0.025;
constexpr int steps_apart = 10;

/// What a pair of critical multipliers must fulfil: `modulus` be 1, `difference` be 0.
struct Coincidence {
    double modulus = std::numeric_limits<double>::quiet_NaN();
    double difference = std::numeric_limits<double>::quiet_NaN();
};

class ForcedOrbitCurve final : public FloquetCurve {
  public:
    ForcedOrbitCurve(Trajex& handle, double* first, double* second)
        : FloquetCurve(handle, first, second, order_of(handle) + 2, forced_orbit),
          work_({{&r_, size}, {&solver_, solver_work(size)}}, {{&A_, size, size}}) {}

    void newton_rows(double** A) override {
        const double base = criterion();
        sample([this] { return criterion(); });
        finish_rows(A, base);
    }

    bool find_codimension_two(int step, const Outputs& out) override {
        const double apart = critical_multipliers(record().er, record().ei, n).value;
        if (!(apart < search_radius && last_found_ + steps_apart < step)) return false;
        out.text("Searching for Co-dimension 2\n");
        const bool found = search(out);
        out.text("\n");
        if (found) last_found_ = step;
        return found;
    }

  private:
    /// The tangent is taken from the plain modulus.
    void starting_rows(double** A) override {
        sample([this] { return critical().value; });
        const bool found = linearise();
        finish_rows(A, found ? critical().value : std::numeric_limits<double>::quiet_NaN());
    }
    void finish_rows(double** A, double base) const {
        closing_rows(A);
        difference_row(samples_, size, base, tx.LambdaPert, A[n]);
    }

    // The search for a point of codimension two; it begins where the orbit was linearised last.
    bool search(const Outputs& out);
    bool improve();
    double residual_norm();
    Coincidence coincidence() const;

    int last_found_ = -steps_apart;  // step number of the last point of codimension two
    double* r_ = nullptr;
    double* solver_ = nullptr;
    double** A_ = nullptr;
    Workspace work_;
};

bool ForcedOrbitCurve::search(const Outputs& out) {
    residual_norm();
    out.mark(':');
    const auto norm = [&](double) {
        const bool formed = improve() && linearise();
        return formed ? residual_norm() : std::numeric_limits<double>::quiet_NaN();
    };
    const auto go_on = [&](double dist, double previous) {
        out.mark(progress_mark(dist, previous, ':'));
        return true;
    };
    return newton({tx.MaxNewtSteps, NewtonLimit::Last::counts}, norm, go_on) ==
           NewtonEnd::converged;
}

/// Forms r, and its norm with weights twice as wide as those of the points of the curve, the two
/// conditions as numbers of size 1.
double ForcedOrbitCurve::residual_norm() {
    const Coincidence now = coincidence();
    WeightedNorm norm(2 * tx.LambdaNewtRelTol, 2 * tx.LambdaNewtAbsTol);
    for (std::size_t i = 0; i < n; ++i) {
        r_[i] = record().y[i] - image_[i];
        norm.add(r_[i], record().y[i]);
    }
    r_[n] = -(now.modulus - 1);
    r_[n + 1] = -now.difference;
    norm.add(r_[n], 1);
    norm.add(r_[n + 1], 1);
    return norm.value();
}

/// One Newton step. False: it leads nowhere.
bool ForcedOrbitCurve::improve() {
    closing_rows(A_);
    const double h = tx.LambdaPert;
    const Coincidence base = coincidence();
    visit_neighbours([&](std::size_t column, bool found) {
        const Coincidence near_by = found ? coincidence() : Coincidence{};
        A_[n][column] = (near_by.modulus - base.modulus) / h;
        A_[n + 1][column] = (near_by.difference - base.difference) / h;
    });
    if (TXLinZero(&tx, static_cast<int>(size), A_, r_, solver_) != 1) return false;
    if (!all_finite(r_, size)) return false;
    for (std::size_t j = 0; j < size; ++j) *unknowns_[j] += r_[j];
    return true;
}

Coincidence ForcedOrbitCurve::coincidence() const {
    const double* const er = record().er;
    const double* const ei = record().ei;
    const CriticalPair pair = critical_multipliers(er, ei, n);
    const double re = er[pair.first] - er[pair.second];
    const double im = ei[pair.first] - ei[pair.second];
    return {modulus(er, ei, pair.first), re - im * im};
}

}  // namespace

}  // namespace trajex

using namespace trajex;

int TXNonAuto2DCont(Trajex* handle, double* c1, double* c2, double* dc, int mode, ...) {
    constexpr const char* where = "TXNonAuto2DCont";
    Trajex& tx = enter_variational(handle, where);
    std::va_list extras;
    va_start(extras, mode);
    const Run run{where, dc, Outputs::read(mode, extras)};
    va_end(extras);
    return follow_curve<ForcedOrbitCurve>(run, tx, c1, c2);
}
