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
void difference_column(Trajex& tx, double t, double* y, double& perturbed, double step,
                       std::size_t column, double** matrix) {
    const std::size_t n = order_of(tx);
    const double* base = tx.TX->ivector;
    double* shifted = tx.TX->ivector + n;
    {
        const Temporarily raised(perturbed, perturbed + step);
        tx.fcn(t, y, shifted);
    }
    for (std::size_t k = 0; k < n; ++k) matrix[k][column] = (shifted[k] - base[k]) / step;
}

}  // namespace

}  // namespace trajex

using namespace trajex;

int TXNumJac(Trajex* handle, double t, double* y, double** j) {
    Trajex& tx = enter_variational(handle, "TXNumJac");
    tx.fcn(t, y, tx.TX->ivector);
    for (std::size_t i = 0; i < order_of(tx); ++i) {
        difference_column(tx, t, y, y[i], tx.JacPert, i, j);
    }
    return 1;
}

int TXNumParamJac(Trajex* handle, double t, double* y, double** j) {
    Trajex& tx = enter_variational(handle, "TXNumParamJac");
    tx.fcn(t, y, tx.TX->ivector);
    for (std::size_t q = 0; q < parameters_of(tx); ++q) {
        difference_column(tx, t, y, *tx.c[q], tx.ParamJacPert, q, j);
    }
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
