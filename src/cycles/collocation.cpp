// On an interval of length h the polynomial x(s) = sum_j l_j(s) x_ij satisfies at the Gauss points
//
//     R_c = sum_j l_j'(zeta_c) x_ij - h G(tau_c, sum_j l_j(zeta_c) x_ij; q) = 0,     c = 1 ... m,
//
// which is accurate to h^(m+1) between the ends of the intervals and to h^(2m) at them. The block
// of dR_c/dx_ij is l_j' I - h l_j A_c. Reference: de Boor and Swartz, SIAM J. Numer. Anal. 10
// (1973) 582.
#include "cycles/collocation.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

#include "core/sized.hpp"
#include "linalg/lane_lu.hpp"
#include "linalg/vectors.hpp"

namespace trajex {

Collocation::Collocation(Rate rate, std::size_t m, const std::vector<double>& mesh)
    : rate_(std::move(rate)), n_(rate_.states()), rule_(gauss_rule(m)) {
    set_mesh(mesh);
}

void Collocation::set_mesh(const std::vector<double>& mesh) {
    mesh_ = mesh;
    const std::size_t count = points();
    tau_.resize(count);
    for (std::size_t i = 0; i < intervals(); ++i) {
        for (std::size_t c = 0; c < rule_.m; ++c) {
            tau_[i * rule_.m + c] = mesh_[i] + length(i) * rule_.zeta[c];
        }
    }
    at_gauss_.resize(count * n_);
    rates_.resize(count * n_);
    work_.resize(scalars() * count * n_);
    scratch_.resize(count * n_);
    jacobians_.resize(count * n_ * n_);
    columns_.resize(count * n_ * scalars());
    ends_.resize(intervals() * n_);
    velocities_.resize(intervals() * n_);
}

namespace {

// out_c += level first + sum_j weight[c][j] (x_j - first) over the points of an interval, of which
// the last one stands at `end` and counts `closing` times. The weights of a row add up to `level`,
// but for rounding: that this be multiplied by small differences, and not by x, on each interval,
// keeps the errors of many intervals from adding up. `away`: m n numbers.
template <class Size>
void combine_interval(Size n, std::size_t m,
                      const double (&weight)[GaussRule::m_max][GaussRule::m_max + 1], double level,
                      const double* first, const double* end, double closing,
                      double* __restrict away, double* __restrict out) {
    for (std::size_t k = 0; k < (m - 1) * n; k += n) {
        for (std::size_t a = 0; a < n; ++a) away[k + a] = first[n + k + a] - first[a];
    }
    double* const last = away + (m - 1) * n;
    for (std::size_t a = 0; a < n; ++a) last[a] = closing * end[a] - first[a];
    for (std::size_t c = 0; c < m; ++c) {
        double* const at = out + c * n;
        for (std::size_t a = 0; a < n; ++a) at[a] += level * first[a] + weight[c][1] * away[a];
        for (std::size_t j = 2; j <= m; ++j) {
            const double* const point = away + (j - 1) * n;
            for (std::size_t a = 0; a < n; ++a) at[a] += weight[c][j] * point[a];
        }
    }
}

}  // namespace

// The sums of `weight`[c][j], which add up to `level`, times point j of each interval; the last
// point of all is `closing` times the first.
void Collocation::combine_points(const double (&weight)[GaussRule::m_max][GaussRule::m_max + 1],
                                 double level, const double* x, double closing, double* out) const {
    const std::size_t m = rule_.m;
    away_.resize(m * n_);
    with_size(n_, [&](auto n) {
        const std::size_t last = intervals() - 1;
        double* const away = away_.data();
        for (std::size_t i = 0; i < last; ++i) {
            const double* const first = x + i * m * n;
            combine_interval(n, m, weight, level, first, first + m * n, 1, away, out + i * m * n);
        }
        combine_interval(n, m, weight, level, x + last * m * n, x, closing, away,
                         out + last * m * n);
    });
}

void Collocation::to_gauss(const double* x, double closing, double* out) const {
    std::fill_n(out, equations(), 0.0);
    combine_points(rule_.value, 1, x, closing, out);
}

void Collocation::add_slopes(const double* x, double* r) const {
    combine_points(rule_.slope, 0, x, 1, r);
}

void Collocation::subtract_rates(double* r) const {
    for (std::size_t i = 0; i < intervals(); ++i) {
        const double h = length(i);
        const std::size_t first = i * rule_.m * n_;
        for (std::size_t k = first; k < first + rule_.m * n_; ++k) r[k] -= h * rates_[k];
    }
}

bool Collocation::residual(const double* x, const double* q, double* r) {
    if (!rate_.set(q)) return false;
    to_gauss(x, 1, at_gauss_.data());
    rate_.values(points(), tau_.data(), at_gauss_.data(), rates_.data());
    std::fill_n(r, equations(), 0.0);
    add_slopes(x, r);
    subtract_rates(r);
    return all_finite(rates_);
}

bool Collocation::linearise(const double* x, const double* q, double* r) {
    if (!rate_.set(q)) return false;
    to_gauss(x, 1, at_gauss_.data());
    rate_.linearise(points(), tau_.data(), at_gauss_.data(), rates_.data(), jacobians_.data(),
                    work_.data());
    std::fill_n(r, equations(), 0.0);
    add_slopes(x, r);
    subtract_rates(r);
    if (!all_finite(rates_) || !all_finite(jacobians_)) return false;

    for (std::size_t k = 0; k < scalars(); ++k) {
        const double* const derivative = work_.data() + k * equations();
        for (std::size_t i = 0; i < intervals(); ++i) {
            const double h = length(i);
            const std::size_t first = i * rule_.m * n_;
            for (std::size_t row = first; row < first + rule_.m * n_; ++row)
                columns_[row * scalars() + k] = -h * derivative[row];
        }
    }
    for (std::size_t i = 0; i < intervals(); ++i) {
        std::copy_n(x + i * rule_.m * n_, n_, ends_.data() + i * n_);
    }
    scalars_.assign(q, q + scalars());
    velocities_known_ = false;
    return all_finite(columns_);
}

const double* Collocation::velocities() {
    if (!velocities_known_ && rate_.set(scalars_.data()))
        rate_.values(intervals(), mesh_.data(), ends_.data(), velocities_.data());
    velocities_known_ = true;
    return velocities_.data();
}

void Collocation::blocks(std::size_t i, const double* scale, std::size_t stride, double* inner,
                         double* first) const {
    with_size(n_, [&](auto n) {
        const std::size_t m = rule_.m;
        const double h = length(i);
        for (std::size_t c = 0; c < m; ++c) {
            const double* const A = jacobian(i * m + c);
            for (std::size_t a = 0; a < n; ++a) {
                double* const inner_row = inner + (c * n + a) * m * n * stride;
                double* const first_row = first + (c * n + a) * n * stride;
                for (std::size_t j = 0; j <= m; ++j) {
                    double* const row = j == 0 ? first_row : inner_row + (j - 1) * n * stride;
                    const double factor = -h * rule_.value[c][j] / scale[a];
                    for (std::size_t b = 0; b < n; ++b)
                        row[b * stride] = factor * A[a * n + b] * scale[b];
                    row[a * stride] += rule_.slope[c][j];
                }
            }
        }
    });
}

// -h times the scaled Jacobians at Gauss point c of four segments, in lanes.
template <class Size>
void Collocation::jacobians_in_lanes(Size n, std::size_t c, std::span<const std::size_t> segments,
                                     const double* scale) const {
    constexpr std::size_t lanes = LaneLu::lanes;
    lanes_.resize(n * n * lanes);
    for (std::size_t lane = 0; lane < lanes; ++lane) {
        const double* const A = jacobian(segments[lane] * rule_.m + c);
        for (std::size_t a = 0; a < n; ++a) {
            const double factor = -length(segments[lane]) / scale[a];
            for (std::size_t b = 0; b < n; ++b)
                lanes_[(a * n + b) * lanes + lane] = factor * A[a * n + b] * scale[b];
        }
    }
}

// The rows of Gauss point c, from those Jacobians.
template <class Size>
void Collocation::rows_in_lanes(Size n, std::size_t c, double* inner, double* first) const {
    constexpr std::size_t lanes = LaneLu::lanes;
    const std::size_t m = rule_.m;
    for (std::size_t row = c * n; row < (c + 1) * n; ++row) {
        const std::size_t a = row - c * n;
        const double* const A = lanes_.data() + a * n * lanes;
        for (std::size_t j = 0; j <= m; ++j) {
            double* const to =
                j == 0 ? first + row * n * lanes : inner + (row * m + j - 1) * n * lanes;
            const double value = rule_.value[c][j];
            for (std::size_t k = 0; k < n * lanes; ++k) to[k] = value * A[k];
            for (std::size_t k = 0; k < lanes; ++k) to[a * lanes + k] += rule_.slope[c][j];
        }
    }
}

// Four segments, as many as LaneLu has lanes.
void Collocation::lane_blocks(std::span<const std::size_t> segments, const double* scale,
                              double* inner, double* first) const {
    if (segments.size() != LaneLu::lanes)
        return Segments::lane_blocks(segments, scale, inner, first);
    with_size(n_, [&](auto n) {
        for (std::size_t c = 0; c < rule_.m; ++c) {
            jacobians_in_lanes(n, c, segments, scale);
            rows_in_lanes(n, c, inner, first);
        }
    });
}

void Collocation::apply(const double* v, double* out) const {
    to_gauss(v, 1, scratch_.data());
    add_slopes(v, out);
    for (std::size_t k = 0; k < points(); ++k) {
        const double h = length(k / rule_.m);
        const double* const A = jacobian(k);
        for (std::size_t a = 0; a < n_; ++a) {
            double sum = 0;
            for (std::size_t b = 0; b < n_; ++b) sum += A[a * n_ + b] * scratch_[k * n_ + b];
            out[k * n_ + a] -= h * sum;
        }
    }
}

void Collocation::apply_transposed(const double* w, double* out) const {
    const std::size_t m = rule_.m;
    double* const through = scratch_.data();  // h A' w of one Gauss point
    for (std::size_t k = 0; k < points(); ++k) {
        const std::size_t i = k / m;
        const std::size_t c = k % m;
        const double* const A = jacobian(k);
        const double* const row = w + k * n_;
        std::fill_n(through, n_, 0.0);
        for (std::size_t a = 0; a < n_; ++a) {
            for (std::size_t b = 0; b < n_; ++b) through[b] += length(i) * A[a * n_ + b] * row[a];
        }
        for (std::size_t j = 0; j <= m; ++j) {
            double* const to = out + point(i, j) * n_;
            for (std::size_t b = 0; b < n_; ++b) {
                to[b] += rule_.slope[c][j] * row[b] - rule_.value[c][j] * through[b];
            }
        }
    }
}

double Collocation::divergence() const {
    double sum = 0;
    for (std::size_t k = 0; k < points(); ++k) {
        double trace = 0;
        for (std::size_t a = 0; a < n_; ++a) trace += jacobian(k)[a * n_ + a];
        sum += length(k / rule_.m) * rule_.weight[k % rule_.m] * trace;
    }
    return sum;
}

// The largest real part of the eigenvalues of dG/dx in the middle of each interval. Eigenvalues
// that cannot matter over the length of the interval are not computed.
void Collocation::growth_rates(double* out) {
    constexpr double matters = 1;
    eigenvalues_.resize(n_ * n_ + 2 * n_);
    double* const re = eigenvalues_.data();
    double* const A = re + 2 * n_;
    for (std::size_t i = 0; i < intervals(); ++i) {
        const double* const middle = jacobian(i * rule_.m + rule_.m / 2);
        double square = 0;
        for (std::size_t k = 0; k < n_ * n_; ++k) square += middle[k] * middle[k];
        out[i] = 0;
        if (!(std::sqrt(square) * length(i) > matters)) continue;
        std::copy_n(middle, n_ * n_, A);
        if (!eigen_.eigenvalues(n_, A, re, re + n_)) continue;
        out[i] = std::max(0.0, *std::max_element(re, re + n_));
    }
}

}  // namespace trajex
