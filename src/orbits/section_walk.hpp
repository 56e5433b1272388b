// The walk along a trajectory to a Poincare section: section steps until enough of them crossed.
#pragma once

#include "core/errors.hpp"
#include "tx.h"

namespace trajex {

/// Steps the flow from *t until `wanted` section steps have crossed, in `limit` steps at most.
/// Returns whether they did; time and state are then at the last crossing. A crossing that could
/// not be located counts as none. A step that fails ends the walk, its code kept: the next one
/// would start from the same point and fail in the same way.
template <class Flow>
bool walk_to_section(Flow& flow, double* t, long long wanted, long long limit) {
    for (long long crossed = 0; crossed < wanted; --limit) {
        if (limit <= 0) return false;
        if (flow.section_step(t) == 1) {
            ++crossed;
            continue;
        }
        const Error code = recorded_error(flow.tx);
        if (code != Error::none && code != Error::section_not_bracketed) return false;
    }
    return true;
}

}  // namespace trajex
