// The walk along a trajectory to a Poincare section: section steps until enough of them crossed.
#pragma once

#include "core/errors.hpp"
#include "tx.h"

namespace trajex {

/// Whether a section step that found no crossing could not step at all (or knows no section): the
/// next one would start from the same point and fail in the same way. A crossing that could not be
/// located is none of this.
inline bool section_step_failed(const Trajex& tx) {
    const Error code = recorded_error(tx);
    return code != Error::none && code != Error::section_not_bracketed;
}

/// Steps the flow from *t until `wanted` section steps have crossed, in `limit` steps at most.
/// Returns whether they did; time and state are then at the last crossing. A step that fails ends
/// the walk, its code kept. Each point on the way is shown to `see`.
template <class Flow, class See>
bool walk_to_section(Flow& flow, double* t, long long wanted, long long limit, See&& see) {
    for (long long crossed = 0; crossed < wanted; --limit) {
        if (limit <= 0) return false;
        if (flow.section_step(t) == 1) {
            ++crossed;
        } else if (section_step_failed(flow.tx)) {
            return false;
        }
        see(flow.y);
    }
    return true;
}
template <class Flow>
bool walk_to_section(Flow& flow, double* t, long long wanted, long long limit) {
    return walk_to_section(flow, t, wanted, limit, [](const double*) {});
}

}  // namespace trajex
