// A cycle as a closed chain of segments, each of which ties the points at its two ends together:
//
//     x_0 -> x_1 -> ... -> x_N = x_0,      R_i(x_i0, x_i1 ... x_im; q) = 0,   x_im = x_{i+1,0}.
//
// A segment has m points after its first, the last of which is the end of the segment, m n
// equations for them, and scalar unknowns q (period, parameters). Everything that works on chains
// sees the blocks of the linearised segments only,
//
//     [ K_i  J_i ] [ x_i0 | x_i1 ... x_im ] + C_i q = r_i,
//
// with J_i square. Points are numbered along the chain: point k = i m + j, and point N m is point
// 0.
#pragma once

#include <cstddef>
#include <span>
#include <vector>

namespace trajex {

class Segments {
  public:
    Segments() = default;
    Segments(const Segments&) = delete;
    Segments& operator=(const Segments&) = delete;
    virtual ~Segments() = default;

    virtual std::size_t states() const = 0;
    /// Points of a segment after its first one.
    virtual std::size_t inner_points() const = 0;
    virtual std::size_t scalars() const = 0;
    /// The ends of the segments in scaled time, N + 1 numbers from 0 to 1.
    virtual const std::vector<double>& mesh() const = 0;
    virtual void set_mesh(const std::vector<double>& mesh) = 0;

    std::size_t intervals() const { return mesh().size() - 1; }
    /// Points of the closed chain, and equations of all segments.
    std::size_t points() const { return intervals() * inner_points(); }
    std::size_t equations() const { return points() * states(); }

    /// R at the points x (equations() numbers). False: not computable.
    virtual bool residual(const double* x, const double* q, double* r) = 0;
    /// R, and its derivatives kept inside for what follows.
    virtual bool linearise(const double* x, const double* q, double* r) = 0;
    /// J_i (m n x m n) and K_i (m n x n), by rows, in scaled variables: element (a, b) times
    /// scale_b / scale_a. Neighbours in a row are `stride` apart.
    virtual void blocks(std::size_t i, const double* scale, std::size_t stride, double* inner,
                        double* first) const = 0;
    /// The same of several segments at once, which stand in lanes: neighbours in a row are as far
    /// apart as there are segments.
    virtual void lane_blocks(std::span<const std::size_t> segments, const double* scale,
                             double* inner, double* first) const {
        for (std::size_t lane = 0; lane < segments.size(); ++lane)
            blocks(segments[lane], scale, segments.size(), inner + lane, first + lane);
    }
    /// C, by rows: equations() x scalars().
    virtual const double* scalar_columns() const = 0;
    /// out += R_x v; out += R_x' w.
    virtual void apply(const double* v, double* out) const = 0;
    virtual void apply_transposed(const double* w, double* out) const = 0;

    /// dx/dtau at the first point of each segment (N x n), and the integral of the divergence over
    /// the period: the logarithm of the product of all multipliers.
    virtual const double* velocities() = 0;
    virtual double divergence() const = 0;
    /// For each segment the fastest growth (N rates by scaled time, 0 or more) of perturbations
    /// there.
    virtual void growth_rates(double* out) = 0;
};

}  // namespace trajex
