// Matrices for the tests: rows scattered over memory and unaligned, as callers may have them.
#pragma once

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <random>
#include <utility>
#include <vector>

namespace trajex::test {

using Orders = std::initializer_list<std::size_t>;

class Matrix {
  public:
    explicit Matrix(std::size_t n) : storage_(n * (n + 3) + 1, guard), rows_(n) {
        for (std::size_t i = 0; i < n; ++i) rows_[i] = row_home(i);
        for (double* row : rows_) std::fill_n(row, n, 0.0);
    }
    Matrix(const Matrix& other) : Matrix(other.size()) { storage_ = other.storage_; }
    Matrix& operator=(const Matrix& other) {
        storage_ = other.storage_;  // of the same order: the row pointers are this matrix's own
        return *this;
    }

    std::size_t size() const { return rows_.size(); }
    int order() const { return static_cast<int>(size()); }
    double* operator[](std::size_t i) { return row_home(i); }
    const double* operator[](std::size_t i) const { return const_cast<Matrix&>(*this)[i]; }
    double** rows() { return rows_.data(); }

    /// Whether the row pointers and the memory between the rows are as they were.
    bool untouched_outside() {
        for (std::size_t i = 0; i < size(); ++i) {
            const double* row = row_home(i);
            if (rows_[i] != row || row[-1] != guard || row[size()] != guard) return false;
        }
        return true;
    }

  private:
    static constexpr double guard = 12345.678;

    double* row_home(std::size_t i) {
        const std::size_t n = size();
        const std::size_t place = i % 2 == 0 ? i / 2 : n - 1 - i / 2;
        return storage_.data() + 1 + place * (n + 3);
    }

    std::vector<double> storage_;
    std::vector<double*> rows_;
};

inline bool same_bits(double x, double y) {
    return std::bit_cast<std::uint64_t>(x) == std::bit_cast<std::uint64_t>(y) ||
           (std::isnan(x) && std::isnan(y));
}

/// Number of elements that differ in any bit; all NaN count as one value.
inline int differences(const Matrix& a, const Matrix& b) {
    int count = 0;
    for (std::size_t i = 0; i < a.size(); ++i) {
        for (std::size_t j = 0; j < a.size(); ++j) count += !same_bits(a[i][j], b[i][j]);
    }
    return count;
}

inline int differences(const std::vector<double>& a, const std::vector<double>& b) {
    int count = a.size() != b.size();
    for (std::size_t i = 0; i < a.size() && i < b.size(); ++i) count += !same_bits(a[i], b[i]);
    return count;
}

inline Matrix random_matrix(std::size_t n, unsigned seed) {
    std::mt19937 generator(seed);
    std::uniform_real_distribution<double> uniform(-1, 1);
    Matrix a(n);
    for (std::size_t i = 0; i < n; ++i) {
        for (std::size_t j = 0; j < n; ++j) a[i][j] = uniform(generator);
    }
    return a;
}

/// Applies f to every element: a[i][j] = f(i, j, a[i][j]).
template <class F>
Matrix mapped(Matrix a, F&& f) {
    for (std::size_t i = 0; i < a.size(); ++i) {
        for (std::size_t j = 0; j < a.size(); ++j) a[i][j] = f(i, j, a[i][j]);
    }
    return a;
}

/// Matrices that take the branches: random, badly scaled, with many equal pivots and zeros of both
/// signs, and with elements that are not finite.
inline std::vector<Matrix> branch_takers(std::size_t n) {
    const Matrix random = random_matrix(n, static_cast<unsigned>(n));
    std::vector<Matrix> all{random};
    all.push_back(mapped(random, [](std::size_t i, std::size_t j, double x) {
        return x * std::pow(10.0, static_cast<double>(i % 7) - 2.0 * static_cast<double>(j % 5));
    }));
    all.push_back(mapped(
        random, [](std::size_t, std::size_t, double x) { return std::copysign(x * x > 0.4, x); }));
    all.push_back(mapped(random, [](std::size_t i, std::size_t j, double x) {
        return (7 * i + j) % 13 == 5 ? std::nan("") : (5 * i + 3 * j) % 11 == 10 ? x / 0.0 : x;
    }));
    return all;
}

}  // namespace trajex::test
