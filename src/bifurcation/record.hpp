// The bifurcation record behind the public one.
#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>

#include "core/errors.hpp"
#include "core/handle.hpp"
#include "tx.h"

namespace trajex {

/// What a record owns, and the number of parameters it was made for. Applications see its base. One
/// block holds y, then the square matrix, then c and the other vectors.
struct BifRecord : TrajexBif {
    std::size_t parameters = 0;
    std::unique_ptr<double*[]> rows;
    std::unique_ptr<double[]> block;

    /// Number of values from c to the end of the block.
    std::size_t values_from_c() const { return parameters + 9 * static_cast<std::size_t>(order); }
    /// Whether the address is that of a value in the block or in the record itself.
    bool contains(const double* address) const;
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

/// What a search that found nothing returns. Failures on its way are part of the answer; that there
/// is no section at all is the caller's failure, and reported under the policy of the handle.
inline int report_missing_section(Trajex& tx, const char* where) {
    return recorded_error(tx) == Error::no_section ? report(&tx, Error::no_section, where) : 0;
}

/// Takes the application's parameter values into the record, and gives them back.
inline void record_parameters(const Trajex& tx, TrajexBif& bif) {
    for (std::size_t q = 0; q < parameters_of(tx); ++q) bif.c[q] = *tx.c[q];
}
inline void restore_parameters(const Trajex& tx, const TrajexBif& bif) {
    for (std::size_t q = 0; q < parameters_of(tx); ++q) *tx.c[q] = bif.c[q];
}

/// What the record takes of a bifurcation that was located, beside the point itself.
inline void record_location(const Trajex& tx, TrajexBif& bif) {
    record_parameters(tx, bif);
    bif.indir = 0;
    bif.biftype = not_determined;
}

/// Flags `c` among the handle's parameters as the only active one. Returns how many times it stands
/// there; `index` is the last place.
int activate_parameter(Trajex& tx, const double* c, int* index);

/// Whether a parameter stands there exactly once; `index` is its place.
bool find_parameter(const Trajex& tx, const double* c, int* index);

}  // namespace trajex
