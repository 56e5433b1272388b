// With n x 2 borders,
//
//     [ A^2 + kappa I   B ] [ V ]   [ 0 ]
//     [ C'              0 ] [ G ] = [ I ],     G = 0 (2 x 2) where the rank is n - 2.
//
// On the invariant plane of the pair A is a 2 x 2 matrix a with a^2 + kappa I = tr(a) a + (kappa -
// det a) I, so that G = -(tr(a) X2 + (kappa - det a) X1) to first order, X1 = W'V, X2 = W'AV: two
// independent combinations of the four entries are the parts along X1 and along what X2 has beside
// it, everywhere, at Bogdanov-Takens points too. Gradients: dG = -W' (A dA + dA A + dkappa I) V.
// References: Govaerts 2000; Beyn et al. 2002.

#include "branches/hopf_curve.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

#include "branches/codimension_two.hpp"
#include "branches/kernel.hpp"
#include "branches/normal_forms.hpp"
#include "linalg/vectors.hpp"

namespace trajex {
namespace {

/// Two columns of n, made orthonormal.
void orthonormal_pair(std::vector<double>& v, std::size_t n) {
    double* a = v.data();
    double* b = v.data() + n;
    const double first = std::sqrt(dot(a, a, n));
    for (std::size_t i = 0; i < n; ++i) a[i] /= first;
    const double overlap = dot(a, b, n);
    for (std::size_t i = 0; i < n; ++i) b[i] -= overlap * a[i];
    const double second = std::sqrt(dot(b, b, n));
    for (std::size_t i = 0; i < n; ++i) b[i] /= second;
}

}  // namespace

HopfCurve::HopfCurve(std::unique_ptr<EquilibriumProblem> base, bool past_bt)
    : DenseCurve(std::move(base)),
      past_bt_(past_bt),
      n_(states()),
      forms_(this->base().system()),
      z_(n_ + 3),
      A_(n_ * n_),
      B_(2 * n_),
      C_(2 * n_),
      V_(2 * n_),
      W_(2 * n_),
      AV_(2 * (n_ + 2)),
      bordered_(n_ + 2),
      rhs_(n_ + 2),
      left_(4 * n_),
      direction_(n_ + 2),
      gradients_(4 * (n_ + 2)) {}

void HopfCurve::multiply(const double* v, double* out, bool transposed) const {
    std::fill(out, out + n_, 0.0);
    for (std::size_t i = 0; i < n_; ++i)
        for (std::size_t j = 0; j < n_; ++j)
            out[transposed ? j : i] += A_[i * n_ + j] * v[transposed ? i : j];
}

bool HopfCurve::solve_borders(const double* z, double* f) {
    if (!base().linearise(without_scalar(z).data(), f)) return false;
    std::copy_n(base().jacobian(), n_ * n_, A_.begin());
    const std::size_t size = n_ + 2;
    double* m = bordered_.matrix(size);
    std::fill(m, m + size * size, 0.0);
    for (std::size_t i = 0; i < n_; ++i) {
        double* row = m + i * size;
        for (std::size_t k = 0; k < n_; ++k)
            for (std::size_t j = 0; j < n_; ++j) row[j] += A_[i * n_ + k] * A_[k * n_ + j];
        row[i] += kappa(z);
        for (std::size_t b = 0; b < 2; ++b) {
            row[n_ + b] = B_[b * n_ + i];
            m[(n_ + b) * size + i] = C_[b * n_ + i];
        }
    }
    if (!bordered_.decompose_in_place() || bordered_.singular()) return false;
    bool finite = true;
    for (std::size_t b = 0; b < 2; ++b) {
        std::fill(rhs_.begin(), rhs_.end(), 0.0);
        rhs_[n_ + b] = 1;
        bordered_.solve(rhs_.data());
        std::copy_n(rhs_.begin(), n_, &V_[b * n_]);
        G_[b] = rhs_[n_];  // G_ab at [2 a + b]
        G_[2 + b] = rhs_[n_ + 1];
        finite = finite && std::isfinite(G_[b] + G_[2 + b]);
        std::fill(rhs_.begin(), rhs_.end(), 0.0);
        rhs_[n_ + b] = 1;
        bordered_.solve_transposed(rhs_.data());
        std::copy_n(rhs_.begin(), n_, &W_[b * n_]);
    }
    return finite;
}

// B, C: orthonormal bases of the null spaces. E1 = X1 / |X1|, E2 = X2 without its part along E1, /
// |.|.
void HopfCurve::renew_borders() {
    B_ = W_;
    C_ = V_;
    orthonormal_pair(B_, n_);
    orthonormal_pair(C_, n_);
    for (std::size_t b = 0; b < 2; ++b) {
        multiply(&V_[b * n_], direction_.data(), false);
        for (std::size_t a = 0; a < 2; ++a) {
            E1_[2 * a + b] = dot(&W_[a * n_], &V_[b * n_], n_);
            E2_[2 * a + b] = dot(&W_[a * n_], direction_.data(), n_);
        }
    }
    const auto normalise = [](std::array<double, 4>& e) {
        const double size = std::sqrt(dot(e.data(), e.data(), 4));
        for (double& x : e) x /= size;
    };
    normalise(E1_);
    const double overlap = dot(E1_.data(), E2_.data(), 4);
    for (std::size_t i = 0; i < 4; ++i) E2_[i] -= overlap * E1_[i];
    normalise(E2_);
}

bool HopfCurve::begin(const double* z) {
    constexpr int refinements = 4;
    constexpr double least_share = 1e-2;
    Sequence sequence;
    for (double& x : B_) x = sequence.next();
    for (std::size_t i = 0; i < 2 * n_; ++i)
        C_[i] = sequence.next() * std::sqrt(derivatives().metric().weights()[i % n_]);
    std::vector<double> f(n_);
    for (int i = 0; i < refinements; ++i) {
        if (!solve_borders(z, f.data())) return false;
        renew_borders();
    }
    // kappa counts in units of its size; near zero in those of |A|^2
    const double square = dot(A_.data(), A_.data(), n_ * n_);
    set_scale(std::max({std::abs(kappa(z)), least_share * square, 1e-12}));
    return std::all_of(E2_.begin(), E2_.end(), [](double e) { return std::isfinite(e); });
}

bool HopfCurve::residual(const double* z, double* f) {
    if (!solve_borders(z, f)) return false;
    f[n_] = dot(E1_.data(), G_.data(), 4);
    f[n_ + 1] = dot(E2_.data(), G_.data(), 4);
    return true;
}

// left_ = omega_1, omega_2, A' omega_1, A' omega_2 with omega_k = sum_a E_k(a, b) w_a
void HopfCurve::left_combinations(std::size_t b) {
    for (std::size_t k = 0; k < 2; ++k) {
        const std::array<double, 4>& E = k == 0 ? E1_ : E2_;
        for (std::size_t i = 0; i < n_; ++i)
            left_[k * n_ + i] = E[b] * W_[i] + E[2 + b] * W_[n_ + i];
        multiply(&left_[k * n_], &left_[(2 + k) * n_], true);
    }
}

// d(E_k : G) = -sum_b [ omega_kb' F_zz(A v_b, .) + (A' omega_kb)' F_zz(v_b, .) + omega_kb' v_b
// dkappa ]
bool HopfCurve::linearise(const double* z, double* f) {
    if (!residual(z, f)) return false;
    std::copy_n(z, n_ + 3, z_.begin());
    const std::size_t u = n_ + 2;
    const std::vector<double> at = last_without_scalar();
    for (std::size_t k = 0; k < 2; ++k) std::fill_n(row(n_ + k), n_ + 3, 0.0);
    for (std::size_t b = 0; b < 2; ++b) {
        left_combinations(b);
        for (int part = 0; part < 2; ++part) {
            direction_[n_] = direction_[n_ + 1] = 0;
            if (part == 0) {
                multiply(&V_[b * n_], direction_.data(), false);
            } else {
                std::copy_n(&V_[b * n_], n_, direction_.begin());
            }
            const double* w = part == 0 ? left_.data() : &left_[2 * n_];
            if (!derivatives().second(at.data(), direction_.data(), 2, w, gradients_.data()))
                return false;
            for (std::size_t k = 0; k < 2; ++k) {
                double* out = row(n_ + k);
                for (std::size_t i = 0; i < n_; ++i) out[i] -= gradients_[k * u + i];
                out[n_ + 1] -= gradients_[k * u + n_];
                out[n_ + 2] -= gradients_[k * u + n_ + 1];
            }
        }
        for (std::size_t k = 0; k < 2; ++k) row(n_ + k)[n_] -= dot(&left_[k * n_], &V_[b * n_], n_);
    }
    std::fill_n(rhs_.begin(), n_, 0.0);
    fill_rows_of_states(rhs_.data());
    return true;
}

EventNames HopfCurve::event_names() const {
    return {.fold = {}, .branch = "BP", .real = "ZH", .flip = {}, .pair = "HH"};
}

// All exponents but the two nearest to +-sqrt(-kappa), which are critical on the curve.
void HopfCurve::spectrum(Spectrum& out) {
    base().spectrum(out);
    const std::complex<double> critical = std::sqrt(std::complex<double>(-kappa(z_.data())));
    for (const std::complex<double> root : {critical, -critical}) {
        const auto nearer = [&](const Exponent& a, const Exponent& b) {
            return std::abs(a.value - root) < std::abs(b.value - root);
        };
        const auto nearest = std::min_element(out.begin(), out.end(), nearer);
        if (nearest != out.end()) out.erase(nearest);
    }
}

void HopfCurve::add_critical(const double* z, Spectrum& out) const {
    const std::complex<double> critical = std::sqrt(std::complex<double>(-kappa(z)));
    const auto kind = kappa(z) > 0 ? Exponent::Kind::pair : Exponent::Kind::real;
    for (const std::complex<double> value : {critical, -critical})
        out.push_back({value, 0, kind, true});
}

bool HopfCurve::move_forms(const double* z) {
    const double* x = without_scalar(z).data();
    return forms_.move_to(x, base().parameters_at(x).data());
}

// Re c1 has poles where another exponent vanishes; times the product of lambda / sqrt(|lambda|^2 +
// kappa) over the others it is smooth there, and has no other zeros and poles than both factors.
// Far out on a curve rounding may be larger than Re c1 has been for a while: then nobody knows its
// sign.
double HopfCurve::bautin_test() {
    constexpr double noisy = 0.01;
    const double k = kappa(z_.data());
    if (!(k > 0) || !move_forms(z_.data())) return NAN;
    spectrum(others_);
    std::complex<double> product = 1;
    for (const Exponent& e : others_) product *= e.value / std::sqrt(std::norm(e.value) + k);
    const double re_c1 = hopf_form(forms_, std::sqrt(k)).re_c1.value;
    beside_ = z_;
    for (double& component : beside_) component *= 1 + 1e-12;
    if (!move_forms(beside_.data())) return NAN;
    const double error = std::fabs(hopf_form(forms_, std::sqrt(k)).re_c1.value - re_c1);
    if (error <= noisy * std::fabs(re_c1))
        c1_size_ = std::max(std::fabs(re_c1), (1 - noisy) * c1_size_);
    return error <= noisy * c1_size_ ? product.real() * re_c1 : NAN;
}

void HopfCurve::tests(std::vector<Test>& out) {
    out.clear();
    out.push_back({"BT", kappa(z_.data())});
    out.push_back({"GH", bautin_test()});
}

bool HopfCurve::accepted(std::vector<double>& z, Directions) {
    std::vector<double> f(n_ + 2);
    if (residual(z.data(), f.data())) renew_borders();
    accept_below(z.data());
    set_scale(std::max(scale(), std::abs(kappa(z.data()))));
    return false;
}

std::string_view HopfCurve::end(const double* z, Finding& finding) {
    if (!past_bt_ && kappa(z) < 0) {
        finding.reason = "Hopf points end at BT";
        return "user";
    }
    return base().end(without_scalar(z).data(), finding);
}

Description HopfCurve::describe(const double* z) {
    Description description = base().describe(without_scalar(z).data());
    description.more = {{"kappa", kappa(z)}};
    return description;
}

void HopfCurve::examine(Finding& finding) {
    const double k = kappa(finding.z.data());
    if (!move_forms(finding.z.data())) return;
    if (finding.type == "BT") return name_takens_bogdanov(forms_, finding);
    if (k <= 0) {
        finding.subtype = "neutral saddle";
        return;
    }
    const double omega = std::sqrt(k);
    finding.coefficients.push_back({"omega", omega, 0});
    if (finding.type == "GH") name_bautin(forms_, omega, finding);
    if (finding.type == "HH")
        finding.coefficients.push_back({"omega2", least_frequency(finding.spectrum), 0});
}

std::unique_ptr<Problem> HopfCurve::clone() const {
    auto copy = std::make_unique<HopfCurve>(clone_base(), past_bt_);
    copy->B_ = B_;
    copy->C_ = C_;
    copy->E1_ = E1_;
    copy->E2_ = E2_;
    copy->set_scale(scale());
    return copy;
}

}  // namespace trajex
