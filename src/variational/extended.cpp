// Right-hand side of the extended system. The product of the Jacobian with the matrix of
// derivatives is its cost for all but small systems: rows are contiguous, and each element is
// summed over l in increasing order.
#include "variational/extended.hpp"

#include "variational/jacobians.hpp"
#include "variational/matrix_product.hpp"

namespace trajex {

namespace {

/// Moves the row pointers of a matrix to a later column while a callback fills columns from there.
class [[nodiscard]] ShiftedRows {
  public:
    ShiftedRows(double** rows, std::size_t count, std::size_t columns)
        : rows_(rows), count_(count), columns_(columns) {
        for (std::size_t i = 0; i < count_; ++i) rows_[i] += columns_;
    }
    ~ShiftedRows() {
        for (std::size_t i = 0; i < count_; ++i) rows_[i] -= columns_;
    }
    ShiftedRows(const ShiftedRows&) = delete;
    ShiftedRows& operator=(const ShiftedRows&) = delete;

  private:
    double** rows_;
    std::size_t count_;
    std::size_t columns_;
};

}  // namespace

void ExtendedFlow::operator()(double t, double* Y, double* F) const {
    double** const J = tx.TX->j;
    tx.fcn(t, Y, F);
    state_jacobian(tx, t, Y, J, F);
    dispatch<MatrixProduct>(J, n_, Y + n_, row_, F + n_);
    if (row_ > n_) add_parameter_columns(t, Y, F);
}

void ExtendedFlow::add_parameter_columns(double t, double* Y, double* F) const {
    double** const J = tx.TX->j;
    {
        const ShiftedRows parameter_columns(J, n_, n_);
        parameter_jacobian(tx, t, Y, J, F);
    }
    std::size_t column = n_;
    for (std::size_t q = 0; q < parameters_of(tx); ++q) {
        if (tx.cp[q] == 0) continue;
        for (std::size_t i = 0; i < n_; ++i) F[n_ + i * row_ + column] += J[i][n_ + q];
        ++column;
    }
}

}  // namespace trajex
