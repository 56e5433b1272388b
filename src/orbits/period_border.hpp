// The Newton matrix of shooting: the equations that close a periodic orbit, phi_T(y; c) = y,
// linearised by one period of variational integration,
//
//     [ M - I   de/dc ...   f ] [ dy ]   [ y - e ]
//     [         ...         0 ] [ dc ] = [  ...  ]
//     [  f*       0         0 ] [ dT ]   [   0   ],
//
// e the image of y. The last row and column belong to a period that is unknown, as that of an
// autonomous system is: the correction of the start point is orthogonal to the flow there. What
// stands between is the business of each search.
#pragma once

#include <algorithm>
#include <cstddef>

#include "core/finite.hpp"

namespace trajex {

/// The border of an unknown period at place `last` of the system. Row `last` holds the flow at the
/// start point already; `end_flow`, the flow at the end point, may be that row.
inline void border_with_period(double** A, std::size_t n, std::size_t last,
                               const double* end_flow) {
    for (std::size_t i = 0; i < n; ++i) A[i][last] = end_flow[i];
    for (std::size_t i = n; i < last; ++i) A[i][last] = 0;
    std::fill(A[last] + n, A[last] + last + 1, 0.0);
}

}  // namespace trajex
