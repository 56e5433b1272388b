// The extended system: the state y, then row by row the n x (n + p) matrix [Phi | S] of derivatives
// of the state with respect to its initial value and to the p active parameters,
//
//     y' = f(t, y),    [Phi | S]' = J [Phi | S] + [0 | df/dc],    J = df/dy.
//
// As a flow it is stepped on the handle's variational sub-record.
#pragma once

#include <algorithm>
#include <cstddef>

#include "core/handle.hpp"
#include "integration/flow.hpp"
#include "tx.h"

namespace trajex {

/// Parameters whose sensitivity is integrated.
inline std::size_t active_parameters(const Trajex& tx) {
    const std::size_t m = parameters_of(tx);
    return static_cast<std::size_t>(
        std::count_if(tx.cp, tx.cp + m, [](char flag) { return flag; }));
}

class ExtendedFlow {
  public:
    using Method = RecordMethod;
    using Sums = ExtendedSums;

    Trajex& tx;
    double* y;

    /// `state` has n entries, `Phi` n rows of n + p.
    ExtendedFlow(Trajex& handle, double* state, double** Phi)
        : tx(handle), y(state), Phi_(Phi), n_(order_of(handle)), row_(n_ + active_parameters(tx)) {}

    Trajex& record() const { return *tx.TX; }
    std::size_t size() const { return n_ * (row_ + 1); }

    const double* state(double* Y) const {
        double* next = std::copy_n(y, n_, Y);
        for (std::size_t i = 0; i < n_; ++i) next = std::copy_n(Phi_[i], row_, next);
        return Y;
    }
    void store(const double* Y) const {
        std::copy_n(Y, n_, y);
        for (std::size_t i = 0; i < n_; ++i) std::copy_n(Y + n_ + i * row_, row_, Phi_[i]);
    }
    int step(double* t) const { return TXVarStep(&tx, t, y, Phi_); }
    int interpolate(double t) const { return TXVarInterpolate(&tx, t, y, Phi_); }
    int section_step(double* t) const { return TXVarPoincareStep(&tx, t, y, Phi_); }

    const ExtendedFlow& right_hand_side() const { return *this; }
    void operator()(double t, double* Y, double* F) const;

  private:
    void add_parameter_columns(double t, double* Y, double* F) const;

    double** Phi_;
    std::size_t n_;
    std::size_t row_;  // length of a row of [Phi | S]
};

static_assert(Flow<ExtendedFlow>);

}  // namespace trajex
