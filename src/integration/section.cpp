// Poincare sections: settings, the hyperplane through a point across the flow, and the two ways to
// reach a section, by stepping until it is crossed and by secant steps from nearby.
#include "integration/section.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "core/finite.hpp"
#include "integration/trajectory.hpp"
#include "linalg/range.hpp"

namespace trajex {

bool move_to_section(Trajex& tx, double* t, double* y) {
    const double half_width = tx.CutEps * 0.5;
    double t1 = *t;
    const double before = cut_value(tx, t1, y);
    if (TXStep(&tx, t, y) != 1) return false;
    double t2 = *t;
    const double after = cut_value(tx, t2, y);
    const double sign = after > before ? 1 : -1;
    double g1 = sign * before - half_width;
    double g2 = sign * after - half_width;
    StateFlow flow{tx, y};
    CutOnStep<StateFlow> cut(flow, t2);
    for (int left = tx.MaxNewtSteps;; --left) {
        const double next = t2 - (t1 - t2) * g2 / (g1 - g2);
        if (!std::isfinite(next)) return false;  // the cut value stands still or is not a number
        t1 = t2;
        g1 = g2;
        t2 = next;
        g2 = sign * cut(next) - half_width;
        *t = cut.reached();
        if (cut.failed() || left < 0) return false;
        if (std::fabs(g2) <= half_width) return true;
    }
}

namespace {

double length_of(const double* v, std::size_t n) {
    double squares = 0;
    for (std::size_t i = 0; i < n; ++i) squares += v[i] * v[i];
    return std::sqrt(squares);
}

/// Divides v by its length; false, with v as it was, when that is 0 or not finite. Where the
/// squares leave the exponent range, v is first brought to a size that they have room for.
bool normalise(double* v, std::size_t n) {
    if (!in_middle_range(length_of(v, n))) {
        const double largest = largest_size(v, n);
        if (!(largest > 0) || !all_finite(v, n)) return false;
        scale_by_power(v, n, -std::ilogb(largest));
    }
    const double length = length_of(v, n);
    for (std::size_t i = 0; i < n; ++i) v[i] /= length;
    return true;
}

}  // namespace

}  // namespace trajex

using namespace trajex;

int TXSetCut(Trajex* handle, double (*cutfcn)(double t, double* y), double eps) {
    constexpr const char* where = "TXSetCut";
    Trajex& tx = enter(handle, where);
    if (!(eps > 0)) return report(&tx, Error::section_tolerance_not_positive, where);
    tx.CutEps = eps;
    tx.cut = cutfcn;
    return 1;
}

int TXSetAutoCut(Trajex* handle, double t, double* y) {
    constexpr const char* where = "TXSetAutoCut";
    Trajex& tx = enter(handle, where);
    const std::size_t n = order_of(tx);
    std::copy_n(y, n, tx.istate);
    tx.fcn(t, y, tx.ivector);
    if (!normalise(tx.ivector, n)) return report(&tx, Error::equilibrium_state, where);
    tx.CutSurfaceDefined = 1;
    return 1;
}

double TXAutoCut(Trajex* handle, double /*t*/, double* y) {
    constexpr const char* where = "TXAutoCut";
    Trajex& tx = enter(handle, where);
    if (tx.CutSurfaceDefined == 0) return report(&tx, Error::no_section, where);
    double distance = 0;
    for (std::size_t i = 0; i < order_of(tx); ++i) {
        distance += (y[i] - tx.istate[i]) * tx.ivector[i];
    }
    return distance;
}

int TXCutSurface(Trajex* handle, double* state, double* normal) {
    constexpr const char* where = "TXCutSurface";
    Trajex& tx = enter(handle, where);
    if (tx.CutSurfaceDefined == 0) return report(&tx, Error::no_section, where);
    std::copy_n(tx.istate, order_of(tx), state);
    std::copy_n(tx.ivector, order_of(tx), normal);
    return 1;
}

int TXPoincareStep(Trajex* handle, double* t, double* y) {
    constexpr const char* where = "TXPoincareStep";
    StateFlow flow{enter(handle, where), y};
    return poincare_step(flow, t, where);
}

int CLOSESTCUT(Trajex* tx, double* t, double* y) {
    return move_to_section(*tx, t, y) ? 1 : 0;
}
