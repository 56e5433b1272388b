// Poincare sections: settings, the hyperplane through a point across the flow, and the two ways to
// reach a section, by stepping until it is crossed and by secant steps from nearby.
#include "integration/section.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "integration/trajectory.hpp"

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
    DenseStep<StateFlow> dense(flow);
    for (int left = tx.MaxNewtSteps; left >= 0; --left) {
        const double next = t2 - (t1 - t2) * g2 / (g1 - g2);
        if (!std::isfinite(next)) return false;  // the cut value stands still or is not a number
        *t = next;
        t1 = t2;
        g1 = g2;
        t2 = next;
        dense.at(next);
        g2 = sign * cut_value(tx, next, y) - half_width;
        if (std::fabs(g2) <= half_width) return true;
    }
    return false;
}

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
    double squares = 0;
    for (std::size_t i = 0; i < n; ++i) squares += tx.ivector[i] * tx.ivector[i];
    const double length = std::sqrt(squares);
    if (!(length > 0) || std::isinf(length)) return report(&tx, Error::equilibrium_state, where);
    for (std::size_t i = 0; i < n; ++i) tx.ivector[i] /= length;
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
