// A flow: a system that is stepped on the work vectors of a record. The plain system and the
// extended one are flows; steps, integrations, dense output and section steps are written once for
// both.
#pragma once

#include <concepts>
#include <cstddef>
#include <type_traits>
#include <utility>

#include "integration/verner_dense_output.hpp"
#include "tx.h"

namespace trajex {

template <class F>
concept Flow = requires(const F flow, double t, double* state, const double* new_state) {
    typename F::Method;                            // with which it is stepped
    typename F::Sums;                              // order of the sums of dense output
    { flow.tx } -> std::convertible_to<Trajex&>;   // on which failures are reported
    { flow.record() } -> std::same_as<Trajex&>;    // the record that is stepped
    { flow.size() } -> std::same_as<std::size_t>;  // number of components
    flow.right_hand_side()(t, state, state);
    {
        flow.state(state)
        } -> std::same_as<const double*>;          // the caller's state as one vector,
                                                   // in the given one if it is not one
    flow.store(new_state);                         // and back
    { flow.step(&t) } -> std::same_as<int>;        // the public operations on the caller's
    { flow.interpolate(t) } -> std::same_as<int>;  // state
    { flow.section_step(&t) } -> std::same_as<int>;
};

/// What the right-hand side of a flow is called through.
template <Flow F>
using RightHandSide = std::remove_cvref_t<decltype(std::declval<const F&>().right_hand_side())>;

/// The method that handles integrate with.
using RecordMethod = Verner65;

}  // namespace trajex
