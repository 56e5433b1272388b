// Differences of F_z. A central difference with the step e in scaled units has the error
// e^2/6 F'''' + eps/e: e = 1e-5 is near the best for one, and e = 2e-3 for two combined as
// (4 D(e) - D(2e))/3, whose error is of order e^4 and shown by their difference.

#include "branches/derivatives.hpp"

#include <algorithm>
#include <cmath>

namespace trajex {
namespace {

constexpr double single_step = 1e-5;
constexpr double extrapolated_step = 1e-3;
constexpr double third_step = 4e-3;

}  // namespace

double Problem::length(const double* v) const {
    double sum = 0;
    const std::size_t count = unknowns() - active_parameters();
    for (std::size_t i = 0; i < count; ++i) sum += v[i] * v[i];
    return std::sqrt(sum);
}

Derivatives::Derivatives(Problem& problem)
    : problem_(problem),
      metric_(problem),
      z_(problem.unknowns()),
      f_(problem.equations()),
      row_(problem.unknowns()) {}

bool Derivatives::linearise_beside(const double* z, const double* u, double step) {
    for (std::size_t i = 0; i < z_.size(); ++i) z_[i] = z[i] + step * u[i];
    return problem_.linearise(z_.data(), f_.data());
}

// out_j = w_j^T [F_z(z + step u) - F_z(z - step u)] / (2 step)
bool Derivatives::difference(const double* z, const double* u, double step, std::size_t count,
                             const double* w, double* out) {
    const std::size_t n = problem_.unknowns();
    const std::size_t m = problem_.equations();
    if (!linearise_beside(z, u, step)) return false;
    for (std::size_t j = 0; j < count; ++j) problem_.apply_transposed(w + j * m, out + j * n);
    if (!linearise_beside(z, u, -step)) return false;
    for (std::size_t j = 0; j < count; ++j) {
        problem_.apply_transposed(w + j * m, row_.data());
        for (std::size_t i = 0; i < n; ++i)
            out[j * n + i] = (out[j * n + i] - row_[i]) / (2 * step);
    }
    return true;
}

// (4 D(e) - D(2e)) / 3. The correction is the error of D(e), and relative to D(e) about e^2 in
// units of the length over which D changes; the error of the sum is smaller by that factor again.
void Derivatives::extrapolate(std::size_t count, double* out) {
    constexpr double rounding = 1e-12;
    double corrected = 0;
    double size = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const double unit = std::sqrt(metric_.weights()[i % metric_.size()]);
        const double correction = (out[i] - wide_[i]) / 3;
        out[i] += correction;
        corrected = std::max(corrected, std::abs(correction) / unit);
        size = std::max(size, std::abs(out[i]) / unit);
    }
    error_ = rounding * size + (size > 0 ? 10 * corrected * std::min(1.0, corrected / size) : 0);
}

bool Derivatives::second(const double* z, const double* u, std::size_t count, const double* w,
                         double* out, bool accurate) {
    const double length = metric_.norm(u);
    const std::size_t total = count * problem_.unknowns();
    if (!(length > 0)) {
        std::fill(out, out + total, 0.0);
        return problem_.linearise(z, f_.data());
    }
    const double step = (accurate ? extrapolated_step : single_step) / length;
    if (!difference(z, u, step, count, w, out)) return false;
    if (accurate) {
        wide_.resize(std::max(wide_.size(), total));
        if (!difference(z, u, 2 * step, count, w, wide_.data())) return false;
        extrapolate(total, out);
    }
    return problem_.linearise(z, f_.data());
}

bool Derivatives::second_vector(const double* z, const double* u, const double* v, double* out) {
    const double step = single_step / metric_.norm(u);
    const std::size_t m = problem_.equations();
    row_.resize(std::max(row_.size(), m));
    if (!linearise_beside(z, u, step)) return false;
    problem_.apply(v, out);
    if (!linearise_beside(z, u, -step)) return false;
    problem_.apply(v, row_.data());
    for (std::size_t i = 0; i < m; ++i) out[i] = (out[i] - row_[i]) / (2 * step);
    return problem_.linearise(z, f_.data());
}

// w^T [F_z(z + e u) - 2 F_z(z) + F_z(z - e u)] u / e^2, for e and 2e.
bool Derivatives::third(const double* z, const double* u, const double* w, double& value,
                        double& error) {
    const std::size_t n = problem_.unknowns();
    double size = 0;  // of what cancels
    const auto contract = [&] {
        problem_.apply_transposed(w, row_.data());
        double sum = 0;
        for (std::size_t i = 0; i < n; ++i) {
            sum += row_[i] * u[i];
            size = std::max(size, std::abs(row_[i] * u[i]));
        }
        return sum;
    };
    const double step = third_step / metric_.norm(u);
    double estimate[2];
    for (int wide = 0; wide < 2; ++wide) {
        const double e = (1 + wide) * step;
        double sum = 0;
        for (const double side : {-e, e}) {
            if (!linearise_beside(z, u, side)) return false;
            sum += contract();
        }
        if (!problem_.linearise(z, f_.data())) return false;
        estimate[wide] = (sum - 2 * contract()) / (e * e);
    }
    value = (4 * estimate[0] - estimate[1]) / 3;
    constexpr double rounding = 1e-15;
    error = std::abs(estimate[0] - estimate[1]) / 3 + rounding * (size / (step * step)) +
            rounding * std::abs(value);
    return true;
}

}  // namespace trajex
