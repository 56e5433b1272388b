// Small matrices of the same order, four at a time: element (i, j) of all four stands in one
// vector, whose lane l belongs to matrix l, and every operation is one on all of them. Nothing is
// left over at the end of a row, and no search for pivots makes one matrix wait: they are taken in
// the order of the rows, and where that loses digits the lane says so.
#pragma once

#include <array>
#include <cstddef>
#include <vector>

namespace trajex {

/// A = L U of four n x n matrices without exchange of rows.
class LaneLu {
  public:
    static constexpr std::size_t lanes = 4;

    /// Where `decompose` takes the matrices from: element (i, j) of matrix l at
    /// [(i n + j) lanes + l].
    double* matrix(std::size_t n);

    /// Which of them have factors worth using: no multiplier of a row was large, and no pivot
    /// zero, infinite or no number.
    std::array<bool, lanes> decompose();

    /// B becomes the solutions X of A X = B or A' X = B, for k columns: n x k, in lanes as above.
    void solve(double* B, std::size_t k) const;
    void solve_transposed(double* B, std::size_t k) const;

  private:
    std::size_t n_ = 0;
    std::vector<double> elements_;  // U above the diagonal, the reciprocals of its diagonal, L
};

}  // namespace trajex
