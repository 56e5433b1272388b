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

}  // namespace testing_support
