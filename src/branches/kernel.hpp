// The kernel of F_z at a point where it has more than the dimension d = 1 of a branch.
#pragma once

#include <cstddef>
#include <vector>

#include "branches/metric.hpp"
#include "branches/problem.hpp"

namespace trajex {

/// Solutions of
///
///     [ F_z  C ] [ X ]   [ 0 ]         [ W' S' ] [ F_z  C ]
///     [ R    0 ] [ G ] = [ I ]   and            [ R    0 ] = [ 0  I ]
///
/// with `extra` columns C: where F_z has a kernel of dimension extra + 1, G = 0, and X and W span
/// the kernel and the left kernel.
class Kernel {
  public:
    explicit Kernel(Problem& problem);

    /// The dimension of the kernel at z, and `basis`, `left`. At least 2, since z is known as a
    /// branch point, at most `most`. False: not computable.
    bool find(const double* z, const Metric& metric, std::size_t& dimension);

    /// With the borders of the last call of `find` (one extra column): solves anew at z.
    bool solve_simple(const double* z);
    /// Borders from the present solutions.
    void update_simple(const Metric& metric);

    static constexpr std::size_t most = 5;

    std::vector<std::vector<double>> basis;  ///< orthonormal in the metric; of solve_simple: X
    std::vector<double> left;                ///< psi, of a kernel of dimension 2: the column of W
    double g[2] = {0, 0};                    ///< G of solve_simple
    const std::vector<double>& column() const { return columns_; }

  private:
    void measure_rows(const Metric& metric);
    bool equilibrate(const double* z, const Metric& metric);
    void fixed_borders(std::size_t extra, const Metric& metric);
    bool solve(const double* z, std::size_t extra);
    std::size_t combine(std::size_t extra, const Metric& metric);

    Problem& problem_;
    std::size_t n_, m_;
    std::vector<double> row_size_;        // largest scaled entries of the rows of F_z
    std::vector<double> rows_, columns_;  // R, C
    std::vector<double> solution_;        // extra + 1 times (X, G)
    std::vector<double> f_;
};

/// Orthonormalises vectors in the metric, in their order; those that vanish are dropped.
void orthonormalise(const Metric& metric, std::vector<std::vector<double>>& vectors);

/// Numbers in [-1, 1] without a pattern, the same in every run.
class Sequence {
  public:
    double next();

  private:
    unsigned long long state_ = 20011;
};

}  // namespace trajex
