// Segments by collocation at Gauss points. All m N points are evaluated in one call.
#pragma once

#include <cstddef>
#include <vector>

#include "cycles/rate.hpp"
#include "cycles/segment.hpp"
#include "integration/gauss.hpp"
#include "linalg/dense.hpp"

namespace trajex {

class Collocation final : public Segments {
  public:
    Collocation(Rate rate, std::size_t m, const std::vector<double>& mesh);

    std::size_t states() const override { return n_; }
    std::size_t inner_points() const override { return rule_.m; }
    std::size_t scalars() const override { return rate_.scalars(); }
    const std::vector<double>& mesh() const override { return mesh_; }
    void set_mesh(const std::vector<double>& mesh) override;

    bool residual(const double* x, const double* q, double* r) override;
    bool linearise(const double* x, const double* q, double* r) override;
    void blocks(std::size_t i, const double* scale, std::size_t stride, double* inner,
                double* first) const override;
    void lane_blocks(std::span<const std::size_t> segments, const double* scale, double* inner,
                     double* first) const override;
    const double* scalar_columns() const override { return columns_.data(); }
    void apply(const double* v, double* out) const override;
    void apply_transposed(const double* w, double* out) const override;
    const double* velocities() override;
    double divergence() const override;
    void growth_rates(double* out) override;

    const Rate& rate() const { return rate_; }
    const GaussRule& rule() const { return rule_; }
    /// What the last call of `linearise` left at the Gauss points, N m of them: their states, times
    /// and Jacobians of G.
    const double* gauss_states() const { return at_gauss_.data(); }
    const double* gauss_times() const { return tau_.data(); }
    const double* jacobian(std::size_t point) const { return jacobians_.data() + point * n_ * n_; }
    /// The values at the Gauss points of an n-vector polynomial given by its points, which closes
    /// with the factor `closing` (1: periodic, -1: antiperiodic).
    void to_gauss(const double* x, double closing, double* out) const;

  private:
    double length(std::size_t i) const { return mesh_[i + 1] - mesh_[i]; }
    std::size_t point(std::size_t i, std::size_t j) const { return (i * rule_.m + j) % points(); }
    bool take(const double* q);
    void combine_points(const double (&weight)[GaussRule::m_max][GaussRule::m_max + 1],
                        double level, const double* x, double closing, double* out) const;
    template <class Size>
    void jacobians_in_lanes(Size n, std::size_t c, std::span<const std::size_t> segments,
                            const double* scale) const;
    template <class Size>
    void rows_in_lanes(Size n, std::size_t c, double* inner, double* first) const;
    void subtract_rates(double* r) const;
    void add_slopes(const double* x, double* r) const;

    Rate rate_;
    std::size_t n_;
    const GaussRule& rule_;
    std::vector<double> mesh_;
    std::vector<double> tau_;  // Gauss points
    std::vector<double> at_gauss_;
    std::vector<double> rates_;  // G there
    std::vector<double> jacobians_;
    std::vector<double> columns_;
    std::vector<double> scalars_, ends_;  // q of the last `linearise`, x where intervals begin,
    std::vector<double> velocities_;      // and dx/dtau there
    bool velocities_known_ = false;
    std::vector<double> work_;  // dG/dq_k at all Gauss points
    DenseEigen eigen_;
    std::vector<double> eigenvalues_;
    mutable std::vector<double> scratch_;  // of one product, no state
    mutable std::vector<double> away_;     // of one interval, no state
    mutable std::vector<double> lanes_;    // of one group of blocks, no state
};

}  // namespace trajex
