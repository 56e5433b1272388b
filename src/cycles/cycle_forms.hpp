// What decides at a bifurcation of a cycle: critical solutions of the linearised equations and the
// coefficients of the normal form, as averages over the cycle. References: Iooss, J. Differential
// Equations 76 (1988) 47; Kuznetsov, Govaerts, Doedel and Dhooge, SIAM J. Numer. Anal. 43 (2005)
// 1407.
#pragma once

#include <complex>
#include <cstddef>
#include <vector>

#include "cycles/chain_solver.hpp"
#include "cycles/cycle_problem.hpp"

namespace trajex {

/// The linearised equations L = d/dtau - A(tau) on solutions with v(1) = s v(0), bordered by one
/// row and one column where they are singular. The problem must be linearised at the cycle.
template <class Scalar>
class LinearisedCycle {
  public:
    /// False: not computable.
    bool prepare_regular(CycleProblem& problem, Scalar closing);
    bool prepare_singular(CycleProblem& problem, Scalar closing);

    const std::vector<Scalar>& solution() const {
        return v_;
    }  ///< L v = 0 at the points of the chain
    const std::vector<Scalar>& adjoint() const { return w_; }  ///< w L = 0, at the Gauss points
    /// The right-hand side g at the Gauss points becomes the solution of L h = g.
    void solve(std::vector<Scalar>& g) const;

  private:
    static Scalar conjugate(Scalar x);
    bool border(CycleProblem& problem, const std::vector<Scalar>& column,
                const std::vector<Scalar>& row);

    Scalar closing_{};
    std::size_t borders_ = 0;
    BorderedChain<Scalar> chain_;
    std::vector<Scalar> v_, w_;
};

/// B(u, u) of the right-hand side for a field u of directions at the Gauss points of the cycle that
/// was linearised last.
std::vector<double> second_derivative(const CycleProblem& problem, const std::vector<double>& u);

struct CycleCoefficient {
    bool known = false;
    double value = 0;
    double a = 0;  ///< the change of speed along the cycle that goes with it
};

/// c of w' = c w^3 on the (double cover of the) centre manifold of a period doubling, the integral
/// of |v|^2 over tau being 1; negative: doubled cycles are stable there.
CycleCoefficient doubling_coefficient(CycleProblem& problem, const std::vector<double>& z);
/// Re d of w' = d w |w|^2 at a torus bifurcation with the multipliers e^{+-i theta}.
CycleCoefficient torus_coefficient(CycleProblem& problem, const std::vector<double>& z,
                                   double theta);

}  // namespace trajex
