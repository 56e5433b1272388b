// Linear systems of a closed chain of segments with k borders,
//
//     K_i x_i0 + J_i (x_i1 ... x_im) + C_i q = r_i,       i = 0 ... N-1,    x_N = s x_0,
//     sum over all points b_ij x_ij + D q = t             k rows, k unknowns q
//
// where the factor s closes the chain: 1 (periodic), -1 (antiperiodic), e^{i theta}. Three layers,
// each of which is factored once for what stands above it: the segments (J_i, whatever the
// borders), the chain of their ends (whatever the borders and s), the borders.
#pragma once

#include <complex>
#include <cstddef>
#include <type_traits>
#include <vector>

#include "cycles/condensation.hpp"
#include "linalg/dense.hpp"

namespace trajex {

/// The ends of the segments, x_{i+1} - Phi_i x_i = g_i, by orthogonal elimination of x_1 ...
/// x_{N-1} one after another: no product of the Phi_i is ever made, and growth and decay along the
/// chain by many powers of ten do no harm. Reference: Wright, SIAM J. Sci. Stat. Comput. 13 (1992)
/// 742.
class ChainFactors {
  public:
    void factor(const Condensation& segments);

    std::size_t states() const { return n_; }
    std::size_t intervals() const { return N_; }

    // After elimination, rows 1 ... N-1 read T_i x_i + U_i x_0 + F_i x_{i+1} = g_i, the last row
    // P x_0 + E x_N = g_N. Blocks are n x n.
    const double* T(std::size_t i) const { return reflected_.data() + (i - 1) * 2 * n_ * n_; }
    const double* coupling(std::size_t i) const { return coupled_.data() + (i - 1) * 4 * n_ * n_; }
    const double* last() const { return last_.data(); }  ///< [P E], n x 2n

    /// Takes N blocks of right-hand sides (n x k by rows) through the elimination, in place: block
    /// i - 1 becomes g_i. The inverse is that of the transposed system.
    void reduce(double* blocks, std::size_t k);
    void restore(double* blocks, std::size_t k);
    /// The sign of the determinants of all reflections and diagonals of T.
    int sign() const { return sign_; }

  private:
    std::size_t n_ = 0, N_ = 0;
    std::vector<Qr> qr_;
    std::vector<double> reflected_;  // N-1 blocks of 2n x n: T_i above, reflections
    std::vector<double> coupled_;    // N-1 blocks of 2n x 2n: [U_i F_i] above
    std::vector<double> last_;
    int sign_ = 1;
};

/// The bordered system. Scalar is double (s = +-1) or std::complex<double>. Points and equations
/// are those of the segments, without scaling.
template <class Scalar>
class BorderedChain {
  public:
    /// The first `own` unknowns q are the scalar unknowns of the segments; `columns` is C of the
    /// others (all equations x (k - own), by rows), `rows` is b (k x all points' components, by
    /// rows), `corner` is D (k x k, by rows). False: singular to working precision.
    bool factor(const Condensation& segments, ChainFactors& chain, Scalar closing, std::size_t k,
                const Scalar* columns, const Scalar* rows, const Scalar* corner,
                std::size_t own = 0);

    /// r (all equations) becomes x, t (k numbers) becomes q.
    void solve(Scalar* r, Scalar* t) const;
    /// The transposed system: the coefficients of x and q become the multipliers of the rows.
    void solve_transposed(Scalar* x, Scalar* q) const;
    /// Sign of the determinant of the system whose inner points are eliminated, the same for every
    /// mesh (real systems).
    int determinant_sign() const;
    /// Smallest over largest pivot of the last, dense system.
    double pivot_ratio() const { return dense_.pivot_ratio(); }

  private:
    static constexpr std::size_t parts = std::is_same_v<Scalar, double> ? 1 : 2;
    using Lu = std::conditional_t<parts == 1, DenseLu, ComplexLu>;

    void reserve(std::size_t k);
    void solve_columns(const Scalar* columns, std::size_t own);
    void condense_borders(const Scalar* rows, const Scalar* corner);
    template <class Size>
    void condense_border(Size n, std::size_t row, std::size_t i, const Scalar* b);
    void eliminate_borders();
    void fill_dense();
    void condense_sides(Scalar* r, Scalar* t) const;
    template <class Size>
    void expand(Size n, std::size_t i, const Scalar* t, Scalar* w) const;
    void chain_solve(Scalar* blocks, Scalar* q) const;
    void chain_solve_transposed(Scalar* blocks, Scalar* q) const;

    const Condensation* segments_ = nullptr;
    ChainFactors* chain_ = nullptr;
    Scalar closing_{};
    std::size_t n_ = 0, m_ = 0, N_ = 0, k_ = 0;
    std::vector<Scalar> inner_rows_;  // b at the points inside of segments, scaled; k x (N (m-1) n)
    std::vector<Scalar> columns_;     // J^-1 C, N blocks of m n x k
    std::vector<Scalar> others_;      // of one segment: C of the unknowns that are not its own
    std::vector<Scalar> reduced_;     // N blocks of n x k: the columns of q after elimination
    std::vector<Scalar> end_rows_;  // k x (N + 1) n, the coefficients of x_i; then Y_i = b_i T_i^-1
    std::vector<Scalar> corner_;
    Lu dense_;
    mutable std::vector<Scalar> blocks_, dense_side_, ends_;  // of one solution, no state
};

extern template class BorderedChain<double>;
extern template class BorderedChain<std::complex<double>>;

}  // namespace trajex
