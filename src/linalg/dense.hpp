// Contiguous matrices, row by row, for callers without a handle: linear systems, real and complex,
// eigenvalues, and orthogonal triangularisation of blocks. The real kernels are those of matrices
// given by their rows; here the table of row pointers is made once and kept. Every class takes its
// memory when it is made (or grows) and none while it works on matrices up to that order.
#pragma once

#include <complex>
#include <cstddef>
#include <vector>

#include "linalg/lu.hpp"

namespace trajex {

/// P A = L U with partial pivoting by implicit scaling.
class DenseLu {
  public:
    explicit DenseLu(std::size_t n_max = 0) { reserve(n_max); }
    ~DenseLu() = default;
    DenseLu(DenseLu&&) = default;
    DenseLu& operator=(DenseLu&&) = default;
    DenseLu(const DenseLu&) = delete;  // the table of rows points into the matrix
    DenseLu& operator=(const DenseLu&) = delete;

    void reserve(std::size_t n_max);
    std::size_t size() const { return n_; }

    /// Where decompose_in_place will take an n x n matrix from; what is there now is undefined.
    double* matrix(std::size_t n);

    /// False, and no factors, when an element is not finite. A zero pivot is replaced by a tiny
    /// one, relative to the largest element, and makes the factors singular().
    bool decompose_in_place();
    /// The same of a copy of a.
    bool decompose(const double* a, std::size_t n);

    /// b becomes the solution x of A x = b.
    void solve(double* b) const;
    /// ... of A' x = b.
    void solve_transposed(double* b) const;
    /// ... of A X = B for the k columns of B, which is n x k by rows.
    void solve_many(double* B, std::size_t k) const;

    bool singular() const { return outcome_.singular; }
    /// log |det A|, and the sign of det A; -infinity and 0 for a singular matrix.
    double log_abs_det() const;
    int sign_det() const;
    /// The smallest over the largest pivot in size: 0 for a singular matrix, and a cheap sign of
    /// one that is nearly so.
    double pivot_ratio() const;

  private:
    double* row(std::size_t i) const { return rows_[i]; }

    std::size_t n_ = 0;
    std::vector<double> elements_;
    std::vector<double*> rows_;
    std::vector<double> scale_;
    std::vector<int> exchanges_;
    RowExponents exponents_;
    LuOutcome outcome_;
};

/// Eigenvalues of a real matrix.
class DenseEigen {
  public:
    explicit DenseEigen(std::size_t n_max = 0) { reserve(n_max); }

    void reserve(std::size_t n_max) { rows_.reserve(n_max); }

    /// All eigenvalues of the n x n matrix a, which is destroyed; pairs stand together, the one
    /// with the negative imaginary part first. False when an element is not finite or the iteration
    /// does not converge.
    bool eigenvalues(std::size_t n, double* a, double* re, double* im);

  private:
    std::vector<double*> rows_;
};

/// P A = L U of a complex matrix: the members mean what they mean in DenseLu.
class ComplexLu {
  public:
    using Complex = std::complex<double>;

    explicit ComplexLu(std::size_t n_max = 0) { reserve(n_max); }

    void reserve(std::size_t n_max);
    std::size_t size() const { return n_; }
    Complex* matrix(std::size_t n);
    bool decompose_in_place();
    bool decompose(const Complex* a, std::size_t n);

    void solve(Complex* b) const { solve_many(b, 1); }
    /// A' is the transposed, not the adjoint matrix.
    void solve_transposed(Complex* b) const;
    void solve_many(Complex* B, std::size_t k) const;

    bool singular() const { return singular_; }
    double log_abs_det() const;
    /// det A / |det A|; 0 for a singular matrix.
    Complex sign_det() const;
    double pivot_ratio() const;

  private:
    Complex* row(std::size_t i) { return elements_.data() + i * n_; }
    const Complex* row(std::size_t i) const { return elements_.data() + i * n_; }
    double measure_rows();
    std::size_t pivot_row(std::size_t column) const;
    void exchange(std::size_t column, std::size_t pivot);
    void eliminate(std::size_t column);

    std::size_t n_ = 0;
    std::vector<Complex> elements_;
    std::vector<double> scale_;
    std::vector<std::size_t> exchanges_;
    RowExponents exponents_;
    double parity_ = 1;
    bool singular_ = false;
};

/// A = Q R of a block by Householder reflections. The block stays where it is: R takes its upper
/// triangle, the reflections the rest, and both are needed for as long as Q is applied.
class Qr {
  public:
    explicit Qr(std::size_t columns_max = 0) { reserve(columns_max); }

    /// Columns of the blocks to be factored.
    void reserve(std::size_t columns_max) { tau_.reserve(columns_max); }

    /// Factors the block at a, whose rows are lda apart.
    void factor(double* a, std::size_t rows, std::size_t columns, std::size_t lda);

    /// Factors the 2n x n block a and takes the 2n x 2n block b to Q' b, faster where n is small.
    void factor_pair(double* a, double* b, std::size_t n);

    /// B becomes Q' B or Q B: k columns, as many rows as the block, ldb apart.
    void apply_transposed(double* b, std::size_t k, std::size_t ldb) const;
    void apply(double* b, std::size_t k, std::size_t ldb) const;

    /// The number of reflections.
    std::size_t size() const { return tau_.size(); }

  private:
    const double* a_ = nullptr;
    std::size_t rows_ = 0;
    std::size_t lda_ = 0;
    std::vector<double> tau_;
};

}  // namespace trajex
