/// \file tx.hpp
/// Branches and cycles of dynamical systems y' = f(t, y; c) as C++ objects: a System with named
/// variables and parameters, its equilibria and cycles followed in one parameter, every special
/// point found, named and followed in two, branches entered where they meet, all of it in one
/// Diagram.
///
/// Misuse (an unknown name, a wrong size, an empty window, NaN) throws tx::Error, which names what
/// was given and what is known. What numerics decide is never an exception: a reason to stop, a
/// status, a special point marked "unresolved" with its bracket and reason. What a callback throws
/// passes through.
///
/// There is no global state. A System, a Point, a Branch and a Special are immutable handles to
/// shared data: cheap to copy, usable from different threads at once.
///
/// Normalisations: eigenvectors of equilibria <q, q> = 1, <p, q> = 1; the first Lyapunov
/// coefficient "l1" is Re c1 / omega, "Re c1" stands beside it. Eigenfunctions of cycles: the
/// integral of |v|^2 over one period, in units of the period, is 1.
#ifndef TX_HPP
#define TX_HPP

#if defined(_MSVC_LANG) ? _MSVC_LANG < 202002L : __cplusplus < 202002L
#error "tx.hpp needs C++20; tx.h serves C and older C++"
#endif

#include "tx/error.hpp"
#include "tx/jet.hpp"
#include "tx/options.hpp"
#include "tx/results.hpp"
#include "tx/system.hpp"
#include "tx/trajectory.hpp"

#endif
