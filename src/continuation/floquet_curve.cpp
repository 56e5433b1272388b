// Curves of bifurcations of periodic orbits: the residual of the period map and its criterion.
#include "continuation/floquet_curve.hpp"

#include <cmath>

#include "linalg/matrix.hpp"
#include "orbits/period_map.hpp"

namespace trajex {

FloquetCurve::FloquetCurve(Trajex& handle, double* first, double* second, std::size_t unknowns,
                           std::size_t trivial)
    : CurveProblem(handle, first, second, unknowns),
      t_(record().t),
      trivial_(trivial),
      torus_(record().biftype == torus),
      work_({{&image_, n}, {&samples_, size}}, {{&M_, n, n + 2}, {&Phi_, n, n + 2}}) {}

bool FloquetCurve::residual(double* r) {
    if (!linearise()) return false;
    for (std::size_t i = 0; i < n; ++i) r[i] = record().y[i] - image_[i];
    r[n] = -criterion();
    return true;
}

bool FloquetCurve::linearise() {
    if (!integrate()) return false;
    copy_block(Phi_, n, n + 2, M_);
    return find_multipliers();
}

void FloquetCurve::closing_rows(double** A) const {
    copy_block(M_, n, n + 2, A);
    subtract_identity(A, n);
}

bool FloquetCurve::integrate() {
    TrajexBif& bif = record();
    steps_.begin();
    return possible_period(t_, bif.T) &&
           integrate_period(tx, &t_, bif.T, bif.y, image_, Phi_, steps_) == 1;
}

bool FloquetCurve::find_multipliers() {
    return trajex::find_multipliers(tx, Phi_, record().er, record().ei, trivial_) == 1;
}

Critical FloquetCurve::critical() const {
    return critical_multiplier_of(tx, record().er, record().ei, trivial_);
}

double FloquetCurve::criterion() const {
    const Critical k = critical();
    return torus_ ? k.value - 1 : (k.value - 1) * (1 + std::fabs(record().ei[k.index]));
}

}  // namespace trajex
