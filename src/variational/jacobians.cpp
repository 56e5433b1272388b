// Numerical Jacobians by forward differences: one evaluation at the point, one for each perturbed
// component or parameter. The perturbation is an absolute step, the same for all.
#include "variational/jacobians.hpp"

#include <cstddef>

#include "core/errors.hpp"
#include "core/guards.hpp"
#include "core/handle.hpp"
#include "integration/section.hpp"

namespace trajex {

namespace {

/// Column `column` of the matrix: (f(perturbed) - f) / step.
void difference_column(Trajex& tx, double t, double* y, const double* f, double& perturbed,
                       double step, std::size_t column, double** matrix) {
    const std::size_t n = order_of(tx);
    double* shifted = tx.TX->ivector + n;
    {
        const Temporarily raised(perturbed, perturbed + step);
        tx.fcn(t, y, shifted);
    }
    for (std::size_t k = 0; k < n; ++k) matrix[k][column] = (shifted[k] - f[k]) / step;
}

}  // namespace

void difference_state(Trajex& tx, double t, double* y, const double* f, double** J) {
    for (std::size_t i = 0; i < order_of(tx); ++i) {
        difference_column(tx, t, y, f, y[i], tx.JacPert, i, J);
    }
}

void difference_parameters(Trajex& tx, double t, double* y, const double* f, double** P) {
    for (std::size_t q = 0; q < parameters_of(tx); ++q) {
        difference_column(tx, t, y, f, *tx.c[q], tx.ParamJacPert, q, P);
    }
}

}  // namespace trajex

using namespace trajex;

int TXNumJac(Trajex* handle, double t, double* y, double** j) {
    Trajex& tx = enter_variational(handle, "TXNumJac");
    double* const f = tx.TX->ivector;
    tx.fcn(t, y, f);
    difference_state(tx, t, y, f, j);
    return 1;
}

int TXNumParamJac(Trajex* handle, double t, double* y, double** j) {
    Trajex& tx = enter_variational(handle, "TXNumParamJac");
    double* const f = tx.TX->ivector;
    tx.fcn(t, y, f);
    difference_parameters(tx, t, y, f, j);
    return 1;
}

int TXNumCutJac(Trajex* handle, double t, double* y, double* c1, double* c2, double* j) {
    Trajex& tx = enter_variational(handle, "TXNumCutJac");
    const double step = tx.JacPert;
    const double base = cut_value(tx, t, y);
    const auto difference = [&](double& perturbed) {
        const Temporarily raised(perturbed, perturbed + step);
        return (cut_value(tx, t, y) - base) / step;
    };
    const std::size_t n = order_of(tx);
    for (std::size_t i = 0; i < n; ++i) j[i] = difference(y[i]);
    j[n] = difference(*c1);
    j[n + 1] = difference(*c2);
    return 1;
}
