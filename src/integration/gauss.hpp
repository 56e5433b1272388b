// Collocation at Gauss points on the unit interval: a solution is a polynomial of degree m on each
// interval of the mesh, given by its values at the nodes j/m, j = 0 ... m, and satisfies the
// equations at the zeros of the Legendre polynomial of degree m. Reference: Ascher, Mattheij and
// Russell, Numerical Solution of Boundary Value Problems for Ordinary Differential Equations, 5.4.
#pragma once

#include <cstddef>

namespace trajex {

struct GaussRule {
    static constexpr std::size_t m_max = 7;

    explicit GaussRule(std::size_t order);

    std::size_t m;
    double zeta[m_max];              ///< Gauss points in (0, 1)
    double weight[m_max];            ///< integrate polynomials up to degree 2 m - 1 there
    double value[m_max][m_max + 1];  ///< l_j(zeta_c), the Lagrange polynomials of the nodes
    double slope[m_max][m_max + 1];  ///< l_j'(zeta_c)
    double node_weight[m_max + 1];   ///< integrals of l_j, all positive
};

/// The rule of m points, 1 <= m <= m_max, made once for all.
const GaussRule& gauss_rule(std::size_t m);

/// l_j(s) for the nodes j/m, j = 0 ... m; with `slopes` also l_j'(s).
void lagrange_values(std::size_t m, double s, double* values);
void lagrange_slopes(std::size_t m, double s, double* slopes);

}  // namespace trajex
