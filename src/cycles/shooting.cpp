// Over one interval, in scaled variables u = x / scale,
//
//     u' = G,    Phi' = A Phi,  Phi(0) = I,    S' = A S + G_q,  S(0) = 0,    d' = tr A,  d(0) = 0
//
// are integrated together by steps of one size. Reference: Stoer and Bulirsch, Introduction to
// Numerical Analysis, 7.3.5.
#include "cycles/shooting.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

#include "integration/stepper.hpp"

namespace trajex {

Shooting::Shooting(Rate rate, const std::vector<double>& mesh, std::vector<double> scale,
                   const ShootingSettings& settings)
    : rate_(std::move(rate)), n_(rate_.states()), scale_(std::move(scale)), settings_(settings) {
    const std::size_t size = n_ + n_ * n_ + n_ * scalars() + 1;
    memory_.reserve(size);
    u_.resize(size);
    state_.resize(n_);
    rates_.resize(n_);
    jacobian_.resize(n_ * n_);
    by_scalar_.resize(n_);
    set_mesh(mesh);
}

void Shooting::set_mesh(const std::vector<double>& mesh) {
    mesh_ = mesh;
    maps_.resize(points() * n_ * n_);
    columns_.resize(points() * n_ * scalars());
    velocities_.resize(points() * n_);
}

bool Shooting::residual(const double* x, const double* q, double* r) {
    return shoot(x, q, r, false);
}

bool Shooting::linearise(const double* x, const double* q, double* r) {
    return shoot(x, q, r, true);
}

bool Shooting::shoot(const double* x, const double* q, double* r, bool with_derivatives) {
    if (!rate_.set(q)) return false;
    steps_ = settings_.most_steps;
    if (with_derivatives) divergence_ = 0;
    for (std::size_t i = 0; i < intervals(); ++i) {
        std::fill(u_.begin(), u_.end(), 0.0);
        for (std::size_t a = 0; a < n_; ++a) {
            u_[a] = x[i * n_ + a] / scale_[a];
            u_[n_ + a * n_ + a] = 1;
        }
        if (with_derivatives) {
            rate_.values(1, &mesh_[i], x + i * n_, velocities_.data() + i * n_);
        }
        if (!integrate(i, with_derivatives ? u_.size() : n_)) return false;
        const double* const next = x + (i + 1) % intervals() * n_;
        for (std::size_t a = 0; a < n_; ++a) r[i * n_ + a] = next[a] - scale_[a] * u_[a];
        if (with_derivatives) keep_derivatives(i);
    }
    return std::all_of(r, r + equations(), [](double v) { return std::isfinite(v); });
}

// The first `size` components of u over interval i, the last step cut to end with it.
bool Shooting::integrate(std::size_t i, std::size_t size) {
    const auto rhs = [this, size](double tau, const double* u, double* out) {
        if (size == n_)
            state_rates(tau, u, out);
        else
            extended_rates(tau, u, out);
    };
    StepWork& work = memory_.work();
    work.rel_tol = work.abs_tol = settings_.tolerance;
    const double end = mesh_[i + 1];
    const double rounding = 1e-15 * std::fabs(end);
    double tau = mesh_[i];
    double h = 0.25 * (end - tau);
    while (end - tau > rounding) {
        if (steps_ == 0) return false;
        --steps_;
        const StepOutcome outcome =
            accepted_step<Verner65>(size, work, u_.data(), tau, std::min(h, end - tau), rhs);
        if (!outcome.accepted) return false;
        std::copy_n(work.upper, size, u_.data());
        tau = work.t_last;
        h = outcome.next_h;
    }
    return true;
}

void Shooting::state_rates(double tau, const double* u, double* out) {
    for (std::size_t a = 0; a < n_; ++a) state_[a] = scale_[a] * u[a];
    rate_.values(1, &tau, state_.data(), rates_.data());
    for (std::size_t a = 0; a < n_; ++a) out[a] = rates_[a] / scale_[a];
}

void Shooting::extended_rates(double tau, const double* u, double* out) {
    for (std::size_t a = 0; a < n_; ++a) state_[a] = scale_[a] * u[a];
    rate_.jacobians(1, &tau, state_.data(), rates_.data(), jacobian_.data());
    double trace = 0;
    for (std::size_t a = 0; a < n_; ++a) {
        out[a] = rates_[a] / scale_[a];
        trace += jacobian_[a * n_ + a];
        for (std::size_t b = 0; b < n_; ++b) jacobian_[a * n_ + b] *= scale_[b] / scale_[a];
    }
    // [Phi S] by rows of n and of `scalars` numbers.
    std::size_t first = n_;
    for (const std::size_t columns : {n_, scalars()}) {
        const double* const V = u + first;
        double* const slope = out + first;
        std::fill_n(slope, n_ * columns, 0.0);
        for (std::size_t a = 0; a < n_; ++a) {
            for (std::size_t k = 0; k < n_; ++k) {
                const double factor = jacobian_[a * n_ + k];
                for (std::size_t b = 0; b < columns; ++b)
                    slope[a * columns + b] += factor * V[k * columns + b];
            }
        }
        first += n_ * columns;
    }
    double* const S = out + n_ + n_ * n_;
    for (std::size_t k = 0; k < scalars(); ++k) {
        rate_.scalar_derivatives(1, &tau, state_.data(), rates_.data(), k, by_scalar_.data());
        for (std::size_t a = 0; a < n_; ++a) S[a * scalars() + k] += by_scalar_[a] / scale_[a];
    }
    out[first] = trace;
}

void Shooting::keep_derivatives(std::size_t i) {
    std::copy_n(u_.data() + n_, n_ * n_, maps_.data() + i * n_ * n_);
    const double* const S = u_.data() + n_ + n_ * n_;
    for (std::size_t a = 0; a < n_; ++a) {
        for (std::size_t k = 0; k < scalars(); ++k)
            columns_[(i * n_ + a) * scalars() + k] = -scale_[a] * S[a * scalars() + k];
    }
    divergence_ += u_.back();
}

void Shooting::blocks(std::size_t i, const double* scale, std::size_t stride, double* inner,
                      double* first) const {
    for (std::size_t a = 0; a < n_; ++a) {
        for (std::size_t b = 0; b < n_; ++b) {
            const double unscaled = map(i)[a * n_ + b] * scale_[a] / scale_[b];
            first[(a * n_ + b) * stride] = -unscaled * scale[b] / scale[a];
            inner[(a * n_ + b) * stride] = a == b ? 1 : 0;
        }
    }
}

void Shooting::apply(const double* v, double* out) const {
    for (std::size_t i = 0; i < intervals(); ++i) {
        const double* const next = v + (i + 1) % intervals() * n_;
        for (std::size_t a = 0; a < n_; ++a) {
            double image = 0;
            for (std::size_t b = 0; b < n_; ++b)
                image += map(i)[a * n_ + b] * v[i * n_ + b] / scale_[b];
            out[i * n_ + a] += next[a] - scale_[a] * image;
        }
    }
}

void Shooting::apply_transposed(const double* w, double* out) const {
    for (std::size_t i = 0; i < intervals(); ++i) {
        double* const next = out + (i + 1) % intervals() * n_;
        for (std::size_t a = 0; a < n_; ++a) {
            const double row = w[i * n_ + a];
            next[a] += row;
            for (std::size_t b = 0; b < n_; ++b)
                out[i * n_ + b] -= map(i)[a * n_ + b] * scale_[a] / scale_[b] * row;
        }
    }
}

// log |Phi| over the length of the interval, the norm that of Frobenius in scaled variables.
void Shooting::growth_rates(double* out) {
    for (std::size_t i = 0; i < intervals(); ++i) {
        double square = 0;
        for (std::size_t k = 0; k < n_ * n_; ++k) square += map(i)[k] * map(i)[k];
        out[i] = std::max(0.0, 0.5 * std::log(square) / (mesh_[i + 1] - mesh_[i]));
    }
}

}  // namespace trajex
