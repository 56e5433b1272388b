// Floquet multipliers from the factors of the monodromy matrix, Phi_{N-1} ... Phi_0, which are
// never multiplied out: multipliers of 1e10 and 1e-60 of the same cycle come out with their own
// accuracy.
#pragma once

#include <cstddef>
#include <vector>

#include "branches/problem.hpp"
#include "linalg/dense.hpp"

namespace trajex {

/// The multipliers of a product of square matrices, in logarithmic form, by orthogonal iteration
/// with blocks. Keeps the invariant subspaces as the start for the next product.
class ProductEigenvalues {
  public:
    /// factors: count matrices of order d by rows, the first one acts first. `out` gets d exponents
    /// log|mu| + i arg mu, largest first; their mesh errors are those of collocation with m points,
    /// of which each factor is a segment (0: none). False: not finite, or not converged.
    bool compute(std::size_t d, std::size_t count, const double* factors, Spectrum& out,
                 std::size_t m = 0);

  private:
    void reserve(std::size_t d, std::size_t count);
    void compress(const double* factors, std::size_t count);
    bool sweep();
    void find_groups();
    bool settled() const;
    bool group_eigenvalues(std::size_t first, std::size_t size, Spectrum& out);
    void append_exponents(std::size_t first, std::size_t size, double carried, Spectrum& out) const;
    bool find_mesh_errors(std::size_t count, const double* factors, std::size_t m);

    std::size_t d_ = 0;
    std::size_t kept_ = 0;  // factors after compression
    std::vector<double> factors_;
    std::vector<double> triangles_;  // R of each factor in the present sweep
    std::vector<double> basis_, start_, turn_;
    std::vector<double> size_;         // log of the accumulated diagonal
    std::vector<double> mesh_errors_;  // of it
    std::vector<std::size_t> groups_;  // first columns of the diagonal blocks, then d
    std::vector<double> product_, work_, re_, im_;
    Qr qr_;
    DenseEigen eigen_;
};

/// What is known of the multipliers of a cycle besides their values.
struct MultiplierCheck {
    double trivial = 0;    ///< the computed trivial multiplier minus 1
    double leak = 0;       ///< by how much a segment does not map velocity to velocity, relative
    double liouville = 0;  ///< sum of log|mu| minus the integral of the divergence
    bool sign_restored = false;  ///< of a multiplier beyond 1, which the equations have wrong
};

class Multipliers {
  public:
    /// transfer: N matrices n x n. velocities: dx/dtau at the ends (N x n) in the same variables,
    /// of an autonomous system, where the multiplier 1 of the velocity is left out; null: all
    /// count. divergence: the logarithm of the product of all. m: collocation points of each.
    bool compute(std::size_t n, std::size_t intervals, const double* transfer,
                 const double* velocities, double divergence, Spectrum& out, std::size_t m = 0);
    const MultiplierCheck& check() const { return check_; }

  private:
    void project(std::size_t n, std::size_t intervals, const double* transfer,
                 const double* velocities);
    void check_velocities(std::size_t n, std::size_t intervals, const double* transfer,
                          const double* velocities);
    void restore_sign(Spectrum& out);
    void resolve_small(Spectrum& out) const;

    ProductEigenvalues product_;
    MultiplierCheck check_;
    std::vector<double> transverse_, reflected_, vectors_;
};

}  // namespace trajex
