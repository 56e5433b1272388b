// The scaled inner product of a problem, <u, v> = sum w_i u_i v_i, with the weights it has when
// this is made or refreshed.
#pragma once

#include <cmath>
#include <cstddef>
#include <vector>

#include "branches/problem.hpp"

namespace trajex {

class Metric {
  public:
    Metric() = default;
    explicit Metric(const Problem& problem) { refresh(problem); }

    void refresh(const Problem& problem) {
        weights_.resize(problem.unknowns());
        problem.metric(weights_);
    }

    /// Divides the lengths of all unknowns but the last `parameters` by `factor`: for solutions
    /// that are zero, whose scales say nothing of how large others are.
    void soften(double factor, std::size_t parameters) {
        for (std::size_t i = 0; i + parameters < weights_.size(); ++i)
            weights_[i] /= factor * factor;
    }

    std::size_t size() const { return weights_.size(); }
    const std::vector<double>& weights() const { return weights_; }

    double dot(const double* u, const double* v) const {
        double sum = 0;
        for (std::size_t i = 0; i < weights_.size(); ++i) sum += weights_[i] * u[i] * v[i];
        return sum;
    }

    double norm(const double* v) const { return std::sqrt(dot(v, v)); }

    double distance(const double* a, const double* b) const {
        double sum = 0;
        for (std::size_t i = 0; i < weights_.size(); ++i)
            sum += weights_[i] * (a[i] - b[i]) * (a[i] - b[i]);
        return std::sqrt(sum);
    }

    /// v / |v|; false, and nothing done, for v = 0 or not finite.
    bool normalise(double* v) const {
        const double length = norm(v);
        if (!(length > 0) || !std::isfinite(length)) return false;
        for (std::size_t i = 0; i < weights_.size(); ++i) v[i] /= length;
        return true;
    }

    /// The row u -> <v, u>.
    void row(const double* v, double* out) const {
        for (std::size_t i = 0; i < weights_.size(); ++i) out[i] = weights_[i] * v[i];
    }

  private:
    std::vector<double> weights_;
};

}  // namespace trajex
