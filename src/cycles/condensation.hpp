// The points inside of the segments eliminated from a chain of segments,
//
//     (x_i1 ... x_im) = W_i x_i0 - J_i^-1 C_i q + J_i^-1 r_i.
//
// The last n rows of W_i are the transfer matrix Phi_i from one end of the segment to the other.
#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

#include "cycles/segment.hpp"
#include "linalg/dense.hpp"
#include "linalg/lane_lu.hpp"

namespace trajex {

/// Works in scaled variables x / scale. The J_i are factored four at a time where they are small,
/// and one by one where they are large or need their pivots searched for.
class Condensation {
  public:
    /// False: some J_i is singular.
    bool factor(const Segments& segments, const std::vector<double>& scale);

    std::size_t states() const { return n_; }
    std::size_t inner_points() const { return m_; }
    std::size_t intervals() const { return N_; }
    const std::vector<double>& scale() const { return scale_; }
    /// W_i, m n x n by rows.
    const double* map(std::size_t i) const { return maps_.data() + i * height() * n_; }
    /// Phi_i, n x n by rows.
    const double* transfer(std::size_t i) const { return map(i) + (m_ - 1) * n_ * n_; }
    /// J_i^-1 C_i of the scalar unknowns of the segments, m n x scalars by rows, one segment after
    /// the other.
    std::size_t scalars() const { return scalars_; }
    const double* scalar_columns() const { return columns_.data(); }
    /// Multiplies k columns of all segments (N blocks, m n x k by rows) by J_i^-1 or J_i^-T.
    void solve(double* columns, std::size_t k) const;
    void solve_transposed(double* columns, std::size_t k) const;

  private:
    static constexpr std::size_t lanes = LaneLu::lanes;

    std::size_t height() const { return m_ * n_; }
    std::size_t groups() const { return in_lanes_.size(); }
    std::size_t segment(std::size_t group, std::size_t lane) const {
        return std::min(group * lanes + lane, N_ - 1);
    }
    void factor_group(const Segments& segments, std::size_t group);
    bool factor_alone(const Segments& segments, std::size_t i);
    /// Where the right-hand sides of a segment stand: rows of `width` numbers, `stride` apart.
    struct Places {
        std::size_t width, stride, lane;
        std::size_t row(std::size_t i) const { return i * width * stride + lane; }
    };
    void fill_scalars(const Segments& segments, std::size_t i, const Places& places);
    void keep(const Places& places, std::size_t i);
    template <class Solve>
    void solve_groups(double* columns, std::size_t k, const Solve& one_group) const;

    std::size_t n_ = 0, m_ = 0, N_ = 0, scalars_ = 0;
    std::vector<double> scale_;
    std::vector<LaneLu> in_lanes_;
    std::vector<DenseLu> alone_;
    std::vector<char> is_alone_;
    std::vector<double> maps_, columns_;
    std::vector<double> first_, sides_;  // of one group: K_i; [-K_i C_i]
    mutable std::vector<double> lanes_;  // of one group's solution, no state
};

}  // namespace trajex
