// Second and third derivatives of F along directions, as differences of F_z: what branch points and
// curves need of any problem beyond its F_z.
#pragma once

#include <cstddef>
#include <vector>

#include "branches/metric.hpp"
#include "branches/problem.hpp"

namespace trajex {

/// Derivatives of w^T F_z along directions. `z` is linearised last, so that the linearisation is
/// that of z afterwards.
class Derivatives {
  public:
    explicit Derivatives(Problem& problem);

    const Metric& metric() const { return metric_; }
    Metric& metric() { return metric_; }

    /// out = w^T F_zz(u, .) for each of `count` left vectors w (N numbers each, one after another;
    /// N + d numbers of out each). `accurate`: with two steps and extrapolation. False: not
    /// computable.
    bool second(const double* z, const double* u, std::size_t count, const double* w, double* out,
                bool accurate = false);
    /// out = F_zz(u, v), N numbers.
    bool second_vector(const double* z, const double* u, const double* v, double* out);
    /// w^T F_zzz(u, u, u), and an estimate of its error.
    bool third(const double* z, const double* u, const double* w, double& value, double& error);
    /// The error of the last `second` with `accurate`, scaled: of <out, v> for |v| = 1.
    double error() const { return error_; }

  private:
    bool difference(const double* z, const double* u, double step, std::size_t count,
                    const double* w, double* out);
    void extrapolate(std::size_t count, double* out);
    bool linearise_beside(const double* z, const double* u, double step);

    Problem& problem_;
    Metric metric_;
    double error_ = 0;
    std::vector<double> z_, f_, row_, wide_;
};

}  // namespace trajex
