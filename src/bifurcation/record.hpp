// The bifurcation record behind the public one.
#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>

#include "core/handle.hpp"
#include "tx.h"

namespace trajex {

/// What a record owns, and the number of parameters it was made for. Applications see its base.
struct BifRecord : TrajexBif {
    std::size_t parameters = 0;
    std::unique_ptr<double*[]> rows;
    std::unique_ptr<double[]> block;
};

inline const BifRecord& private_part(const TrajexBif& bif) {
    return static_cast<const BifRecord&>(bif);
}

/// Kinds of path, in cindi[0].
enum PathKind : int {
    no_path = 0,
    orbit_path = 1,
    orbit_curve = 2,
    equilibrium_path = 3,
    equilibrium_curve = 4
};

/// Bifurcation types, in biftype.
enum BifType : int {
    not_determined = 0,
    torus = 1,
    transcritical = 2,
    saddle_node = 3,
    period_doubling = 4,
    pitchfork = 5,
    hopf = 6
};

/// Whether there is a record, with room for the parameters that its handle has now.
inline bool usable(const Trajex& tx, const TrajexBif* bif) {
    return bif != nullptr && private_part(*bif).parameters >= parameters_of(tx);
}

/// Takes the application's parameter values into the record, and gives them back.
inline void record_parameters(const Trajex& tx, TrajexBif& bif) {
    for (std::size_t q = 0; q < parameters_of(tx); ++q) bif.c[q] = *tx.c[q];
}
inline void restore_parameters(const Trajex& tx, const TrajexBif& bif) {
    for (std::size_t q = 0; q < parameters_of(tx); ++q) *tx.c[q] = bif.c[q];
}

/// Flags `c` among the handle's parameters as the only active one. Returns how many times it stands
/// there; `index` is the last place.
int activate_parameter(Trajex& tx, const double* c, int* index);

/// Flags two different parameters, each of which must stand there exactly once, as the only active
/// ones.
bool activate_parameters(Trajex& tx, const double* c1, const double* c2, int* index1, int* index2);

}  // namespace trajex
