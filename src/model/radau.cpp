// Radau IIA of order 5 with simplified Newton iterations in the eigenvectors of the method's
// matrix, an embedded error estimate of order 3 and a predictive step control: Hairer, Wanner,
// Solving Ordinary Differential Equations II (2nd ed. 1996), sections IV.5 and IV.8.
#include "model/radau.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

#include "model/integrator.hpp"

namespace trajex {

namespace {

using Complex = RadauBasis::Complex;

constexpr double root6 = 2.449489742783178098197284074705891;
constexpr double nodes[3] = {(4 - root6) / 10, (4 + root6) / 10, 1};
/// Integrals from 0 to c_i of the Lagrange polynomials of the nodes.
constexpr double A[3][3] = {
    {(88 - 7 * root6) / 360, (296 - 169 * root6) / 1800, (-2 + 3 * root6) / 225},
    {(296 + 169 * root6) / 1800, (88 + 7 * root6) / 360, (-2 - 3 * root6) / 225},
    {(16 - root6) / 36, (16 + root6) / 36, 1.0 / 9}};
/// The estimate of the error is (g/h - J)^-1 (f_0 + sum e_i z_i / h), where g is the real
/// eigenvalue: 0 for cubic polynomials, and bounded where h J is large.
constexpr double estimate[3] = {-(13 + 7 * root6) / 3, (-13 + 7 * root6) / 3, -1.0 / 3};

constexpr bool close_to(double a, double b) {
    return a - b < 1e-14 && b - a < 1e-14;
}
constexpr bool integrates_powers(int i) {
    double constant = 0, linear = 0, quadratic = 0;
    for (int j = 0; j < 3; ++j) {
        constant += A[i][j];
        linear += A[i][j] * nodes[j];
        quadratic += A[i][j] * nodes[j] * nodes[j];
    }
    const double c = nodes[i];
    return close_to(constant, c) && close_to(linear, c * c / 2) &&
           close_to(quadratic, c * c * c / 3);
}
static_assert(integrates_powers(0) && integrates_powers(1) && integrates_powers(2));
static_assert(close_to(estimate[0] * nodes[0] + estimate[1] * nodes[1] + estimate[2], -1));

constexpr std::size_t most_iterations = 10;
constexpr int most_attempts = 200;  // each at most half as long as the one before, or nearly so
constexpr double safety = 0.9;
constexpr double good_rate = 1e-3;  // of convergence, with which the Jacobian serves once more
constexpr double eps = std::numeric_limits<double>::epsilon();

template <class T>
std::array<T, 3> cross(const std::array<T, 3>& a, const std::array<T, 3>& b) {
    return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}

// The eigenvectors of A to its eigenvalue mu: A - mu has rank 2, and they are perpendicular to two
// of its rows or columns.
template <class T>
void eigenvectors(T mu, std::array<T, 3>& left, std::array<T, 3>& right) {
    std::array<T, 3> rows[2], columns[2];
    for (std::size_t k = 0; k < 2; ++k) {
        for (std::size_t j = 0; j < 3; ++j) {
            rows[k][j] = A[k][j] - (j == k ? mu : T(0));
            columns[k][j] = A[j][k] - (j == k ? mu : T(0));
        }
    }
    right = cross(rows[0], rows[1]);
    left = cross(columns[0], columns[1]);
    const T product = left[0] * right[0] + left[1] * right[1] + left[2] * right[2];
    for (T& element : left) element /= product;
}

/// The factor of the i-th stage in the polynomial of degree 3 that is 0 at 0.
double lagrange(std::size_t i, double s) {
    double product = s / nodes[i];
    for (std::size_t j = 0; j < 3; ++j) {
        if (j != i) product *= (s - nodes[j]) / (nodes[i] - nodes[j]);
    }
    return product;
}

}  // namespace

// The characteristic polynomial of A is mu^3 - 3/5 mu^2 + 3/20 mu - 1/60, solved by Cardano.
RadauBasis::RadauBasis() {
    const double p = std::cbrt(81.0);
    const double q = std::cbrt(9.0);
    const double mu = (6 + p - q) / 30;
    const Complex mu_pair((12 - p + q) / 60, (p + q) * std::sqrt(3.0) / 60);
    real = 1 / mu;
    pair = 1.0 / mu_pair;
    eigenvectors(mu, real_left, real_right);
    eigenvectors(mu_pair, pair_left, pair_right);
}

Radau::Radau(const Equations& equations, const double* parameters, const std::vector<double>& state,
             double towards, const tx::IntegrateOptions& options)
    : equations_(equations),
      c_(parameters),
      n_(state.size()),
      h_max_(options.h_max),
      y_(state),
      t_(options.t0),
      start_(options.t0),
      f_(n_),
      jacobian_(n_ * n_),
      real_lu_(n_),
      pair_lu_(n_),
      z_(stages * n_),
      last_z_(stages * n_),
      first_(state),
      stage_states_(stages * n_),
      stage_slopes_(stages * n_),
      real_part_(n_),
      pair_part_(n_),
      scale_(n_),
      work_(n_),
      inside_(n_) {
    // The estimate is of order 3, the method of order 5: an estimate of tol^(2/3) goes with errors
    // of about tol.
    const double tol = std::max(options.rel_tol, options.abs_tol);
    const double relaxed = 0.1 * std::pow(tol, -1.0 / 3);
    rel_tol_ = std::max(options.rel_tol, 4 * eps) * relaxed;
    abs_tol_ = options.abs_tol * relaxed;
    newton_tol_ = std::max(10 * eps / rel_tol_, std::min(0.03, std::sqrt(tol * relaxed)));
    equations_.values(1, &t_, y_.data(), c_, f_.data());
    const double length =
        first_step_length(n_, y_.data(), f_.data(), std::fabs(towards - t_), h_max_);
    set_step(towards < t_ ? -length : length);
}

void Radau::set_step(double h) {
    h_ = h_max_ > 0 && std::fabs(h) > h_max_ ? std::copysign(h_max_, h) : h;
}

double Radau::norm(const double* x) const {
    double largest = 0;
    for (std::size_t a = 0; a < n_; ++a) {
        const double size = std::fabs(x[a]) / scale_[a];
        if (!(size <= largest)) largest = size;
        if (!std::isfinite(size)) return std::numeric_limits<double>::infinity();
    }
    return largest;
}

/// f, and with it the Jacobian if it is wanted, at the beginning of the step.
void Radau::renew_slope(bool jacobian) {
    if (jacobian) {
        jacobian_made_ = false;
        equations_.jacobians(1, &t_, y_.data(), c_, f_.data(), jacobian_.data());
        jacobian_made_ = true;
        h_factored_ = 0;
    } else {
        equations_.values(1, &t_, y_.data(), c_, f_.data());
    }
    jacobian_fresh_ = jacobian;
}

/// Factors g/h - J for the eigenvalues g.
bool Radau::factor() {
    if (h_factored_ == h_) return true;
    h_factored_ = 0;
    double* const real = real_lu_.matrix(n_);
    Complex* const pair = pair_lu_.matrix(n_);
    for (std::size_t k = 0; k < n_ * n_; ++k) {
        const bool diagonal = k % (n_ + 1) == 0;
        real[k] = (diagonal ? basis_.real / h_ : 0) - jacobian_[k];
        pair[k] = (diagonal ? basis_.pair / h_ : Complex(0)) - jacobian_[k];
    }
    if (!real_lu_.decompose_in_place() || real_lu_.singular()) return false;
    if (!pair_lu_.decompose_in_place() || pair_lu_.singular()) return false;
    h_factored_ = h_;
    return true;
}

/// The stages that Newton's method begins with: on the polynomial of the step before, or 0.
void Radau::predict(bool extrapolate) {
    std::fill(z_.begin(), z_.end(), 0.0);
    if (!extrapolate || h_last_ == 0) return;
    for (std::size_t i = 0; i < stages; ++i) {
        for (std::size_t j = 0; j < stages; ++j) {
            const double weight =
                lagrange(j, 1 + nodes[i] * h_ / h_last_) - (j + 1 == stages ? 1 : 0);
            for (std::size_t a = 0; a < n_; ++a) z_[i * n_ + a] += weight * last_z_[j * n_ + a];
        }
    }
}

/// One iteration: with F the slopes at the stages, in each eigenvector l of A^-1 from the left,
/// to the eigenvalue g, (g/h - J) l dz = l (F - g/h z). Returns the size of dz.
double Radau::improve_stages() {
    double times[stages];
    for (std::size_t i = 0; i < stages; ++i) {
        times[i] = t_ + nodes[i] * h_;
        for (std::size_t a = 0; a < n_; ++a) stage_states_[i * n_ + a] = y_[a] + z_[i * n_ + a];
    }
    equations_.values(stages, times, stage_states_.data(), c_, stage_slopes_.data());
    const double g = basis_.real / h_;
    const Complex g_pair = basis_.pair / h_;
    for (std::size_t a = 0; a < n_; ++a) {
        real_part_[a] = 0;
        pair_part_[a] = 0;
        for (std::size_t i = 0; i < stages; ++i) {
            const double f = stage_slopes_[i * n_ + a];
            const double z = z_[i * n_ + a];
            real_part_[a] += basis_.real_left[i] * (f - g * z);
            pair_part_[a] += basis_.pair_left[i] * (f - g_pair * z);
        }
    }
    real_lu_.solve(real_part_.data());
    pair_lu_.solve(pair_part_.data());
    double size = 0;
    for (std::size_t i = 0; i < stages; ++i) {
        for (std::size_t a = 0; a < n_; ++a) {
            work_[a] = basis_.real_right[i] * real_part_[a] +
                       2 * (basis_.pair_right[i] * pair_part_[a]).real();
            z_[i * n_ + a] += work_[a];
        }
        size = std::max(size, norm(work_.data()));
    }
    return size;
}

bool Radau::solve_stages() {
    double before = 0;
    double rate_before = 0;
    double contraction = std::pow(std::max(contraction_, eps), 0.8);
    for (iterations_ = 1; iterations_ <= most_iterations; ++iterations_) {
        const double size = improve_stages();
        if (!std::isfinite(size)) return false;
        if (iterations_ > 1) {
            const double rate = before > 0 ? size / before : 0;
            rate_ = iterations_ == 2 ? rate : std::sqrt(rate * rate_before);
            rate_before = rate;
            if (!(rate_ < 0.99)) return false;
            contraction = rate_ / (1 - rate_);
            const auto left = static_cast<double>(most_iterations - iterations_);
            if (contraction * size * std::pow(rate_, left) > newton_tol_) return false;
        } else {
            rate_ = 0;
        }
        before = size;
        if (contraction * size <= newton_tol_) {
            contraction_ = contraction;
            return true;
        }
    }
    return false;
}

/// The estimated error in units of the tolerance. Where it is too large `again` filters it once
/// more, since it tends to be much too large in a transient.
double Radau::error(bool again) {
    std::vector<double>& e = real_part_;
    std::vector<double>& sums = inside_;
    for (std::size_t a = 0; a < n_; ++a) {
        sums[a] = 0;
        for (std::size_t i = 0; i < stages; ++i) sums[a] += estimate[i] * z_[i * n_ + a] / h_;
        e[a] = f_[a] + sums[a];
    }
    real_lu_.solve(e.data());
    double size = norm(e.data());
    if (!again || size < 1 || !std::isfinite(size)) return size;
    for (std::size_t a = 0; a < n_; ++a) work_[a] = y_[a] + e[a];
    equations_.values(1, &t_, work_.data(), c_, e.data());
    for (std::size_t a = 0; a < n_; ++a) e[a] += sums[a];
    real_lu_.solve(e.data());
    size = norm(e.data());
    return size;
}

/// By how much the step may grow: the estimate goes with the fourth power of the step.
double Radau::factor_after(double error) const {
    const double most = 2.0 * most_iterations + 1;
    const double care = safety * most / (most - 1 + static_cast<double>(iterations_));
    return std::clamp(care * std::pow(std::max(error, 1e-10), -0.25), 0.2, 8.0);
}

void Radau::accept(double error) {
    double growth = factor_after(error);
    if (h_last_ != 0) {  // the trend of the last two errors goes on
        const double trend = std::pow(error_last_ / std::max(error * error, 1e-20), 0.25);
        growth = std::min(growth, std::max(0.2, safety * h_ / h_last_ * trend));
    }
    std::copy(y_.begin(), y_.end(), first_.begin());
    for (std::size_t a = 0; a < n_; ++a) y_[a] += z_[(stages - 1) * n_ + a];
    std::swap(z_, last_z_);
    error_last_ = std::max(error, 1e-2);
    start_ = t_;
    t_ += h_;
    h_last_ = h_;
    // A step that hardly changes is kept, and with it the factors.
    if (growth < 1 || growth > 1.2) set_step(growth * h_);
}

bool Radau::step() {
    for (std::size_t a = 0; a < n_; ++a) {
        scale_[a] = std::max(abs_tol_ + rel_tol_ * std::fabs(y_[a]), 1e-300);
    }
    renew_slope(!jacobian_made_ || rate_ > good_rate);
    bool rejected = h_last_ == 0;
    for (int attempt = 0; attempt < most_attempts; ++attempt) {
        if (t_ + 0.1 * h_ == t_ || !std::isfinite(t_ + h_)) return false;
        predict(attempt == 0);
        if (!factor() || !solve_stages()) {
            rate_ = 1;
            if (jacobian_fresh_) {
                set_step(h_ / 2);
            } else {
                renew_slope(true);
            }
            rejected = true;
            continue;
        }
        const double size = error(rejected);
        if (size < 1) {
            accept(size);
            return true;
        }
        set_step(h_ * (std::isfinite(size) ? std::min(factor_after(size), 0.9) : 0.1));
        rejected = true;
    }
    return false;
}

const double* Radau::at(double t) {
    if (t == t_) return y_.data();
    const double s = (t - start_) / h_last_;
    std::copy(first_.begin(), first_.end(), inside_.begin());
    for (std::size_t i = 0; i < stages; ++i) {
        const double weight = lagrange(i, s);
        for (std::size_t a = 0; a < n_; ++a) inside_[a] += weight * last_z_[i * n_ + a];
    }
    return std::all_of(inside_.begin(), inside_.end(), [](double x) { return std::isfinite(x); })
               ? inside_.data()
               : nullptr;
}

}  // namespace trajex
