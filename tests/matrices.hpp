// Matrices of row pointers for tests.
#pragma once

#include <cstddef>
#include <vector>

namespace testing_support {

class Matrix {
  public:
    Matrix(std::size_t rows, std::size_t columns, double value = 0)
        : elements_(rows * columns, value) {
        for (std::size_t i = 0; i < rows; ++i) rows_.push_back(&elements_[i * columns]);
    }
    /// [I | 0].
    static Matrix identity(std::size_t rows, std::size_t columns) {
        Matrix matrix(rows, columns);
        for (std::size_t i = 0; i < rows; ++i) matrix[i][i] = 1;
        return matrix;
    }
    double* operator[](std::size_t i) { return rows_[i]; }
    operator double**() { return rows_.data(); }

  private:
    std::vector<double> elements_;
    std::vector<double*> rows_;
};

/// Determinant of the leading block, n at most 3.
inline double determinant(Matrix& m, std::size_t n) {
    if (n == 1) return m[0][0];
    if (n == 2) return m[0][0] * m[1][1] - m[0][1] * m[1][0];
    return m[0][0] * (m[1][1] * m[2][2] - m[1][2] * m[2][1]) -
           m[0][1] * (m[1][0] * m[2][2] - m[1][2] * m[2][0]) +
           m[0][2] * (m[1][0] * m[2][1] - m[1][1] * m[2][0]);
}

}  // namespace testing_support
