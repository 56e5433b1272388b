// One period of a periodic orbit: the image of its start point, the monodromy matrix, and the
// derivatives with respect to the active parameters.
#pragma once

#include <algorithm>
#include <cstddef>

#include "core/errors.hpp"
#include "core/handle.hpp"
#include "integration/stepper.hpp"
#include "integration/trajectory.hpp"
#include "linalg/matrix.hpp"
#include "tx.h"
#include "variational/extended.hpp"

namespace trajex {

/// Whether T can be a period from time t on. An integration over a T that does not move the time
/// leaves every point where it is, which must not pass for an orbit that closes.
inline bool possible_period(double t, double T) {
    return advances(t, T);
}

/// M - I in the leading n x n block, for the derivative of (image - start) by the start point.
inline void subtract_identity(double** matrix, std::size_t n) {
    for (std::size_t i = 0; i < n; ++i) matrix[i][i] -= 1;
}

/// The steps that the periods of a search take. The first period may have as many as it needs; one
/// of a later iterate that takes far more belongs to an orbit nobody looks for, and might not end.
class PeriodSteps {
  public:
    /// Each period begins with this.
    void begin() {
        if (!limited_ && taken_ > 0) {
            limited_ = true;
            most_ = std::max(1'000'000LL, 1000 * taken_);
        }
        taken_ = 0;
    }
    /// After each step: whether the period may go on.
    bool operator()(const double* /*state*/) { return ++taken_ <= most_ || !limited_; }

  private:
    bool limited_ = false;
    long long taken_ = 0;
    long long most_ = 0;
};

/// Integrates from *t to t1 under the watch of goes_on, see integrate_to; failures have the name of
/// the public operation.
template <class GoesOn>
int integrate_watched(Trajex& tx, double* t, double t1, double* y, double** Phi, GoesOn&& goes_on) {
    constexpr const char* where = "TXVarIntegrate";
    ExtendedFlow flow(enter_variational(&tx, where), y, Phi);
    return integrate_to(flow, t, t1, where, goes_on);
}

/// Integrates from y over T: `image` receives the end state, the n rows of `Phi` receive
/// [M | de/dc], a column for each active parameter of the handle. *t moves on by T. An integration
/// that fails returns 0 with its code recorded, one that goes_on ends returns 0 without a code;
/// `image` is then still y.
template <class GoesOn>
int integrate_period(Trajex& tx, double* t, double T, const double* y, double* image, double** Phi,
                     GoesOn&& goes_on) {
    const std::size_t n = order_of(tx);
    std::copy_n(y, n, image);
    set_identity(Phi, n, n + active_parameters(tx));
    return integrate_watched(tx, t, *t + T, image, Phi, goes_on);
}

}  // namespace trajex
