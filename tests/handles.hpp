// Handles for tests: closed at the end of the scope.
#pragma once

#include <memory>

#include "tx.h"

namespace testing_support {

struct CloseHandle {
    void operator()(Trajex* tx) const { TXCloseTrajex(tx); }
};

using OpenHandle = std::unique_ptr<Trajex, CloseHandle>;

/// A handle that ends the process on a failure, as every newly opened one does.
inline OpenHandle open_terminating(void (*fcn)(double, double*, double*), int order,
                                   double RelTol = 1e-6, double h = 0.01) {
    return OpenHandle(TXOpenTrajex(fcn, order, RelTol, h));
}

/// A handle that records failures.
inline OpenHandle open_recording(void (*fcn)(double, double*, double*), int order,
                                 double RelTol = 1e-6, double h = 0.01) {
    OpenHandle tx = open_terminating(fcn, order, RelTol, h);
    tx->TerminateOnFatalError = 0;
    return tx;
}

/// A handle that records failures, with its variational sub-record: numerical differences where no
/// Jacobian is given, and settings at which orbits close to many digits.
template <class... Parameter>
OpenHandle open_variational(void (*fcn)(double, double*, double*), int order, jac_t jac,
                            jac_t paramjac, double RelTol, Parameter*... parameters) {
    OpenHandle tx = open_recording(fcn, order, RelTol);
    TXSetAbsTol(tx.get(), RelTol);
    tx->NewtAbsTol = 100 * RelTol;
    tx->NewtRelTol = 100 * RelTol;
    tx->JacPert = tx->ParamJacPert = tx->LambdaPert = 1e-6;
    constexpr int count = sizeof...(parameters);
    TXVarOpenTrajex(tx.get(), nullptr, 1e-6, count, jac_t{}, 1e-6, parameters...);
    tx->jac = jac;
    tx->paramjac = paramjac;
    tx->TX->TerminateOnFatalError = 0;
    return tx;
}

}  // namespace testing_support
