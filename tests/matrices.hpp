// Matrices of row pointers for tests: rows scattered over memory and unaligned, as callers may have
// them, with marks between them that nobody may touch.
#pragma once

#include <cstddef>
#include <utility>
#include <vector>

namespace testing_support {

class Matrix {
  public:
    Matrix(std::size_t rows, std::size_t columns, double value = 0)
        : columns_(columns), storage_(rows * (columns + 3) + 1, guard), rows_(rows) {
        for (std::size_t i = 0; i < rows; ++i) {
            rows_[i] = home(i);
            for (std::size_t j = 0; j < columns; ++j) rows_[i][j] = value;
        }
    }
    Matrix(const Matrix& other) : Matrix(other.rows_.size(), other.columns_) {
        storage_ = other.storage_;
    }
    Matrix& operator=(Matrix other) {
        std::swap(columns_, other.columns_);
        storage_.swap(other.storage_);
        rows_.swap(other.rows_);
        return *this;
    }
    /// a[i][j] = f(i, j).
    template <class F>
    static Matrix made(std::size_t rows, std::size_t columns, F&& f) {
        Matrix a(rows, columns);
        for (std::size_t i = 0; i < rows; ++i) {
            for (std::size_t j = 0; j < columns; ++j) a[i][j] = f(i, j);
        }
        return a;
    }
    /// [I | 0].
    static Matrix identity(std::size_t rows, std::size_t columns) {
        return made(rows, columns, [](std::size_t i, std::size_t j) { return double(i == j); });
    }
    friend Matrix operator*(const Matrix& a, const Matrix& b) {
        return made(a.rows_.size(), b.columns_, [&](std::size_t i, std::size_t j) {
            double sum = 0;
            for (std::size_t k = 0; k < a.columns_; ++k) sum += a[i][k] * b[k][j];
            return sum;
        });
    }

    double* operator[](std::size_t i) { return home(i); }
    const double* operator[](std::size_t i) const { return const_cast<Matrix&>(*this).home(i); }
    operator double**() { return rows_.data(); }

    /// Whether the row pointers and the memory between the rows are as they were.
    bool untouched_outside() {
        for (std::size_t i = 0; i < rows_.size(); ++i) {
            const double* row = home(i);
            if (rows_[i] != row || row[-1] != guard || row[columns_] != guard) return false;
        }
        return true;
    }

  private:
    static constexpr double guard = 12345.678;

    double* home(std::size_t i) {
        const std::size_t n = rows_.size();
        return storage_.data() + 1 + (i % 2 == 0 ? i / 2 : n - 1 - i / 2) * (columns_ + 3);
    }

    std::size_t columns_;
    std::vector<double> storage_;
    std::vector<double*> rows_;
};

/// Determinant of the leading block, n at most 3.
inline double determinant(const Matrix& m, std::size_t n) {
    if (n == 1) return m[0][0];
    if (n == 2) return m[0][0] * m[1][1] - m[0][1] * m[1][0];
    return m[0][0] * (m[1][1] * m[2][2] - m[1][2] * m[2][1]) -
           m[0][1] * (m[1][0] * m[2][2] - m[1][2] * m[2][0]) +
           m[0][2] * (m[1][0] * m[2][1] - m[1][1] * m[2][0]);
}

}  // namespace testing_support
