// Transverse maps, compression, orthogonal iteration.
//
// Transverse maps: H_i is the reflection that takes the velocity f_i to the first axis. The lower
// right (n-1) x (n-1) block of H_{i+1} Phi_i H_i maps the complement of the flow direction; the
// product of these blocks has all multipliers but the trivial one, also where another one is 1 and
// the whole matrix has a Jordan block.
//
// Orthogonal iteration: with an orthogonal Q, one sweep M_K ... M_1 Q = Q' R_K ... R_1 (a QR
// decomposition per factor). Q^T Q' = Z becomes block triangular; the eigenvalues are those of the
// diagonal blocks of Z R_K ... R_1, and a block is small because its multipliers are of like size.
// References: Golub and Van Loan, Matrix Computations, 7.3; Kressner, Numerical Methods for General
// and Structured Eigenvalue Problems, 2005.
#include "cycles/multipliers.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

#include "core/finite.hpp"

namespace trajex {

namespace {

constexpr double most_growth = 1e3;  // of a running product, and so the digits lost to it
constexpr double cut_tolerance = 1e-13;
constexpr double group_spread = 10;  // multipliers this close may stay in one block
constexpr int least_sweeps = 3;
constexpr int most_sweeps = 120;
constexpr double real_tolerance = 1e-9;

// C = A B, square, by rows.
void multiply(std::size_t d, const double* A, const double* B, double* C) {
    std::fill_n(C, d * d, 0.0);
    for (std::size_t a = 0; a < d; ++a) {
        for (std::size_t k = 0; k < d; ++k) {
            const double factor = A[a * d + k];
            for (std::size_t b = 0; b < d; ++b) C[a * d + b] += factor * B[k * d + b];
        }
    }
}

// Ratio of the largest to the smallest diagonal element of R in A = Q R.
double growth(std::size_t d, Qr& qr, double* A) {
    qr.factor(A, d, d, d);
    double least = std::numeric_limits<double>::infinity();
    double most = 0;
    for (std::size_t a = 0; a < d; ++a) {
        least = std::min(least, std::fabs(A[a * d + a]));
        most = std::max(most, std::fabs(A[a * d + a]));
    }
    return most / least;
}

}  // namespace

void ProductEigenvalues::reserve(std::size_t d, std::size_t count) {
    if (d != d_) {
        basis_.assign(d * d, 0.0);
        for (std::size_t a = 0; a < d; ++a) basis_[a * d + a] = 1;
    }
    d_ = d;
    factors_.resize(count * d * d);
    triangles_.resize(count * d * d);
    for (auto* matrix : {&start_, &turn_, &product_, &work_}) matrix->resize(d * d);
    for (auto* vector : {&size_, &mesh_errors_, &re_, &im_}) vector->resize(d);
    groups_.reserve(d + 1);
    qr_.reserve(d);
    eigen_.reserve(d);
}

// Consecutive factors are multiplied together while their product is well conditioned.
void ProductEigenvalues::compress(const double* factors, std::size_t count) {
    const std::size_t size = d_ * d_;
    kept_ = 0;
    for (std::size_t i = 0; i < count; ++i) {
        if (kept_ > 0) {
            multiply(d_, factors + i * size, factors_.data() + (kept_ - 1) * size, product_.data());
            std::copy_n(product_.data(), size, work_.data());
            const double ratio = growth(d_, qr_, work_.data());
            const double largest = std::fabs(
                *std::max_element(product_.begin(), product_.end(),
                                  [](double x, double y) { return std::fabs(x) < std::fabs(y); }));
            if (ratio <= most_growth && largest < 1e100 && largest > 1e-100) {
                std::copy_n(product_.data(), size, factors_.data() + (kept_ - 1) * size);
                continue;
            }
        }
        std::copy_n(factors + i * size, size, factors_.data() + kept_++ * size);
    }
}

bool ProductEigenvalues::sweep() {
    start_ = basis_;
    std::fill(size_.begin(), size_.end(), 0.0);
    for (std::size_t j = 0; j < kept_; ++j) {
        double* const R = triangles_.data() + j * d_ * d_;
        multiply(d_, factors_.data() + j * d_ * d_, basis_.data(), R);
        if (!all_finite(R, d_ * d_)) return false;
        qr_.factor(R, d_, d_, d_);
        std::fill(basis_.begin(), basis_.end(), 0.0);
        for (std::size_t a = 0; a < d_; ++a) basis_[a * d_ + a] = 1;
        qr_.apply(basis_.data(), d_, d_);
        for (std::size_t a = 0; a < d_; ++a) {
            size_[a] += std::log(std::fabs(R[a * d_ + a]));
            std::fill_n(R + a * d_, a, 0.0);
        }
    }
    for (std::size_t a = 0; a < d_; ++a) {
        for (std::size_t b = 0; b < d_; ++b) {
            double sum = 0;
            for (std::size_t k = 0; k < d_; ++k) sum += start_[k * d_ + a] * basis_[k * d_ + b];
            turn_[a * d_ + b] = sum;
        }
    }
    return true;
}

// A cut stands before column j where everything of Z to the left of it and below is rounding.
void ProductEigenvalues::find_groups() {
    groups_.assign(1, 0);
    for (std::size_t j = 1; j < d_; ++j) {
        double largest = 0;
        for (std::size_t a = j; a < d_; ++a) {
            for (std::size_t b = 0; b < j; ++b)
                largest = std::max(largest, std::fabs(turn_[a * d_ + b]));
        }
        if (largest < cut_tolerance) groups_.push_back(j);
    }
    groups_.push_back(d_);
}

bool ProductEigenvalues::settled() const {
    for (std::size_t g = 0; g + 1 < groups_.size(); ++g) {
        const auto [low, high] =
            std::minmax_element(size_.begin() + static_cast<std::ptrdiff_t>(groups_[g]),
                                size_.begin() + static_cast<std::ptrdiff_t>(groups_[g + 1]));
        if (!(*high - *low < std::log(group_spread))) return false;
    }
    return true;
}

// Eigenvalues of Z_GG R_K,GG ... R_1,GG, the product scaled by powers of two as it grows.
bool ProductEigenvalues::group_eigenvalues(std::size_t first, std::size_t size, Spectrum& out) {
    double carried = 0;  // log of what the product was divided by
    const auto block = [&](const std::vector<double>& from, std::size_t offset, double* to) {
        for (std::size_t a = 0; a < size; ++a) {
            std::copy_n(&from[offset + (first + a) * d_ + first], size, to + a * size);
        }
    };
    block(triangles_, 0, product_.data());
    for (std::size_t j = 1; j <= kept_; ++j) {
        block(j < kept_ ? triangles_ : turn_, j < kept_ ? j * d_ * d_ : 0, work_.data());
        double* const next = start_.data();  // no longer needed
        multiply(size, work_.data(), product_.data(), next);
        double largest = 0;
        for (std::size_t k = 0; k < size * size; ++k)
            largest = std::max(largest, std::fabs(next[k]));
        if (!(largest > 0) || !std::isfinite(largest)) return false;
        const int e = std::ilogb(largest);
        for (std::size_t k = 0; k < size * size; ++k) product_[k] = std::ldexp(next[k], -e);
        carried += e * std::numbers::ln2;
    }
    if (!eigen_.eigenvalues(size, product_.data(), re_.data(), im_.data())) return false;
    append_exponents(first, size, carried, out);
    return true;
}

// The logarithms of the eigenvalues found, of the product divided by e^carried.
void ProductEigenvalues::append_exponents(std::size_t first, std::size_t size, double carried,
                                          Spectrum& out) const {
    const double mesh_error = *std::max_element(&mesh_errors_[first], &mesh_errors_[first] + size);
    for (std::size_t k = 0; k < size; ++k) {
        const double modulus = std::hypot(re_[k], im_[k]);
        const bool real = std::fabs(im_[k]) <= real_tolerance * modulus;
        Exponent exponent;
        exponent.kind = !real        ? Exponent::Kind::pair
                        : re_[k] < 0 ? Exponent::Kind::alternating
                                     : Exponent::Kind::real;
        const double angle = !real ? std::atan2(im_[k], re_[k]) : re_[k] < 0 ? std::numbers::pi : 0;
        exponent.value = {std::log(modulus) + carried, angle};
        exponent.resolved = modulus > 0;
        exponent.mesh_error = mesh_error;
        out.push_back(exponent);
    }
}

// Where a solution grows by e^z on a segment, the logarithm of its collocation solution is wrong by
// about c |z|^(2m+1), c = (m!)^2 / ((2m)! (2m+1)!): the error of the diagonal approximant of Pade.
// The basis, invariant now, is taken through the segments once more, for their z.
bool ProductEigenvalues::find_mesh_errors(std::size_t count, const double* factors, std::size_t m) {
    std::fill(mesh_errors_.begin(), mesh_errors_.end(), 0.0);
    if (m == 0) return true;
    double c = 1;
    for (std::size_t k = 1; k <= m; ++k) c *= static_cast<double>(k) / static_cast<double>(m + k);
    c /= std::tgamma(static_cast<double>(2 * m + 2));
    for (std::size_t i = 0; i < count; ++i) {
        multiply(d_, factors + i * d_ * d_, basis_.data(), work_.data());
        if (!all_finite(work_.data(), d_ * d_)) return false;
        qr_.factor(work_.data(), d_, d_, d_);
        std::fill(basis_.begin(), basis_.end(), 0.0);
        for (std::size_t a = 0; a < d_; ++a) basis_[a * d_ + a] = 1;
        qr_.apply(basis_.data(), d_, d_);
        for (std::size_t a = 0; a < d_; ++a) {
            const double z = std::log(std::fabs(work_[a * d_ + a]));
            double term = c * std::fabs(z);
            for (std::size_t k = 0; k < m; ++k) term *= z * z;
            mesh_errors_[a] += term;
        }
    }
    return true;
}

bool ProductEigenvalues::compute(std::size_t d, std::size_t count, const double* factors,
                                 Spectrum& out, std::size_t m) {
    out.clear();
    if (d == 0) return true;
    if (!all_finite(factors, count * d * d)) return false;
    reserve(d, count);
    compress(factors, count);
    for (int i = 0; i < most_sweeps; ++i) {
        if (!sweep()) return false;
        find_groups();
        if (i + 1 >= least_sweeps && settled()) break;
    }
    if (!find_mesh_errors(count, factors, m)) return false;
    for (std::size_t g = 0; g + 1 < groups_.size(); ++g) {
        if (!group_eigenvalues(groups_[g], groups_[g + 1] - groups_[g], out)) return false;
    }
    std::stable_sort(out.begin(), out.end(), [](const Exponent& x, const Exponent& y) {
        return x.value.real() > y.value.real();
    });
    return true;
}

void Multipliers::project(std::size_t n, std::size_t intervals, const double* transfer,
                          const double* velocities) {
    const std::size_t d = n - 1;
    transverse_.resize(intervals * d * d);
    vectors_.resize(intervals * n);
    reflected_.resize(n * n);
    // H = I - 2 v v' with unit v along f/|f| + sign(f_1) e_1.
    for (std::size_t i = 0; i < intervals; ++i) {
        const double* const f = velocities + i * n;
        double* const v = vectors_.data() + i * n;
        double norm = 0;
        for (std::size_t a = 0; a < n; ++a) norm = std::hypot(norm, f[a]);
        for (std::size_t a = 0; a < n; ++a) v[a] = f[a] / norm;
        v[0] += std::copysign(1.0, v[0]);
        const double length = std::sqrt(2 * std::fabs(v[0]));  // |v|^2 = 2 + 2 |f_1|/|f|
        for (std::size_t a = 0; a < n; ++a) v[a] /= length;
    }
    for (std::size_t i = 0; i < intervals; ++i) {
        const double* const v = vectors_.data() + i * n;
        const double* const w = vectors_.data() + (i + 1) % intervals * n;
        std::copy_n(transfer + i * n * n, n * n, reflected_.data());
        for (std::size_t a = 0; a < n; ++a) {
            double sum = 0;
            for (std::size_t b = 0; b < n; ++b) sum += reflected_[a * n + b] * v[b];
            for (std::size_t b = 0; b < n; ++b) reflected_[a * n + b] -= 2 * sum * v[b];
        }
        for (std::size_t b = 1; b < n; ++b) {
            double sum = 0;
            for (std::size_t a = 0; a < n; ++a) sum += w[a] * reflected_[a * n + b];
            for (std::size_t a = 1; a < n; ++a) {
                transverse_[(i * d + a - 1) * d + b - 1] = reflected_[a * n + b] - 2 * sum * w[a];
            }
        }
    }
}

void Multipliers::check_velocities(std::size_t n, std::size_t intervals, const double* transfer,
                                   const double* velocities) {
    double trivial = 0;  // logarithm
    for (std::size_t i = 0; i < intervals; ++i) {
        const double* const f = velocities + i * n;
        const double* const next = velocities + (i + 1) % intervals * n;
        double along = 0, square = 0, difference = 0;
        for (std::size_t a = 0; a < n; ++a) {
            double image = 0;
            for (std::size_t b = 0; b < n; ++b) image += transfer[(i * n + a) * n + b] * f[b];
            along += next[a] * image;
            square += next[a] * next[a];
            difference += (image - next[a]) * (image - next[a]);
        }
        trivial += std::log(std::fabs(along / square));
        check_.leak = std::max(check_.leak, std::sqrt(difference / square));
    }
    check_.trivial = std::expm1(trivial);
}

// The product of all multipliers is positive, and a single one is. Where collocation does not
// follow a growth that is too fast for an interval, the sign is no longer right.
void Multipliers::restore_sign(Spectrum& out) {
    if (out.size() != 1 || out[0].kind == Exponent::Kind::real) return;
    out[0].kind = Exponent::Kind::real;
    out[0].value = out[0].value.real();
    check_.sign_restored = out[0].value.real() > 0;
}

// Collocation does not follow a decay by more than about e^-2m per interval: multipliers that are
// very small come out too large, and the sum of the logarithms shows by how much. If only one is in
// question the sum gives it.
void Multipliers::resolve_small(Spectrum& out) const {
    constexpr double agreement = 1e-3;
    constexpr double small = -5;
    if (out.empty() || std::fabs(check_.liouville) <= agreement) return;
    std::size_t count = 0;
    for (Exponent& exponent : out) {
        if (exponent.value.real() >= small) continue;
        exponent.resolved = false;
        ++count;
    }
    Exponent& least = out.back();
    if (count == 1 || out.size() == 1) {
        // With the sign of the others that of this one.
        std::size_t negative = 0;
        for (const Exponent& exponent : out) {
            if (&exponent != &least && exponent.kind == Exponent::Kind::alternating) ++negative;
        }
        least.kind = negative % 2 == 0 ? Exponent::Kind::real : Exponent::Kind::alternating;
        least.value = {least.value.real() - check_.liouville,
                       negative % 2 == 0 ? 0 : std::numbers::pi};
        least.resolved = true;
    } else if (count == 0) {
        least.resolved = false;
    }
}

bool Multipliers::compute(std::size_t n, std::size_t intervals, const double* transfer,
                          const double* velocities, double divergence, Spectrum& out,
                          std::size_t m) {
    check_ = {};
    const bool autonomous = velocities != nullptr;
    if (autonomous) {
        check_velocities(n, intervals, transfer, velocities);
        project(n, intervals, transfer, velocities);
    }
    const std::size_t d = autonomous ? n - 1 : n;
    if (!product_.compute(d, intervals, autonomous ? transverse_.data() : transfer, out, m))
        return false;
    for (const Exponent& exponent : out) check_.liouville += exponent.value.real();
    check_.liouville -= divergence;
    restore_sign(out);
    resolve_small(out);
    constexpr double rounding = 1e-12;
    const double error = autonomous ? std::max(std::fabs(check_.trivial), check_.leak)
                                    : std::min(std::fabs(check_.liouville), 1e-3);
    for (Exponent& exponent : out) exponent.error = std::max(rounding, error);
    return true;
}

}  // namespace trajex
