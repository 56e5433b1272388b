// F = f(x; c) with the free parameters among c, and
//
//     F_z = [ A | df/dp_1 | ... | df/dp_k ],   n x (n + k).
//
// The exponents are the eigenvalues of A.

#include "branches/equilibrium_problem.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

#include "branches/normal_forms.hpp"
#include "branches/switching.hpp"
#include "linalg/vectors.hpp"

namespace trajex {
namespace {

constexpr double zero = 1e-10;  // states smaller than this altogether have no scale of their own
constexpr double first_share = 1e-2;  // least scale of a variable over the largest one, at first
constexpr double later_share = 1e-3;  // and later
constexpr std::size_t renewal = 10;   // points from one choice of scales to the next
constexpr double grown = 1.5;         // over its scale: a variable that asks for new scales at once
constexpr double real_part = 1e-9;    // |Im| over |lambda| below which a pair counts as real
constexpr double eps = std::numeric_limits<double>::epsilon();

}  // namespace

EquilibriumProblem::EquilibriumProblem(std::shared_ptr<const Equations> equations,
                                       std::vector<double> parameters,
                                       std::span<const std::size_t> vary,
                                       std::span<const tx::Window> windows,
                                       std::span<const double> x, const Settings& settings)
    : equations_(std::move(equations)),
      parameters_(std::move(parameters)),
      vary_(vary.begin(), vary.end()),
      windows_(windows.begin(), windows.end()),
      settings_(settings),
      n_(equations_->states()),
      scale_(n_),
      largest_(n_),
      first_(x.begin(), x.end()),
      A_(n_ * n_),
      Fp_(n_ * vary_.size()),
      work_(n_ * n_),
      re_(n_),
      im_(n_),
      lu_(n_ + 2 * vary_.size() + 2),
      eigen_(n_) {
    for (std::size_t i = 0; i < n_; ++i) largest_[i] = std::abs(first_[i]);
    set_scales(first_share);
    // A variable may be tiny at the start: it is compared with the others, and with 1.
    const double size = std::max(1.0, *std::max_element(scale_.begin(), scale_.end()));
    bound_ = settings_.norm_bound * size;
}

// ---- Scales ----

// A branch along which all variables vanish has no scale of its own: then 1.
void EquilibriumProblem::set_scales(double share) {
    double largest = 0;
    for (const double size : largest_) largest = std::max(largest, size);
    const double automatic = largest < zero ? 1.0 : 0.0;
    const double floor = settings_.floor > 0 ? settings_.floor : automatic;
    for (std::size_t i = 0; i < n_; ++i)
        scale_[i] = std::max({largest_[i], share * largest, floor});
    points_ = 0;
}

void EquilibriumProblem::metric(std::span<double> weights) const {
    for (std::size_t i = 0; i < n_; ++i)
        weights[i] = 1 / (static_cast<double>(n_) * scale_[i] * scale_[i]);
    for (std::size_t j = 0; j < vary_.size(); ++j) {
        const double width = windows_[j].hi - windows_[j].lo;
        weights[n_ + j] = 1 / (width * width);
    }
}

bool EquilibriumProblem::accepted(std::vector<double>& z, Directions) {
    bool outgrown = false;
    for (std::size_t i = 0; i < n_; ++i) {
        largest_[i] = std::max(largest_[i], std::abs(z[i]));
        outgrown = outgrown || largest_[i] > grown * scale_[i];
    }
    if (++points_ >= renewal || outgrown) set_scales(later_share);
    return false;
}

std::string_view EquilibriumProblem::end(const double* z, Finding&) {
    for (std::size_t i = 0; i < n_; ++i)
        if (std::abs(z[i]) > bound_) return "norm_bound";
    return {};
}

// ---- Equations ----

const std::vector<double>& EquilibriumProblem::parameters_at(const double* z) {
    for (std::size_t j = 0; j < vary_.size(); ++j) parameters_[vary_[j]] = z[n_ + j];
    return parameters_;
}

bool EquilibriumProblem::residual(const double* z, double* f) {
    const double t = 0;
    equations_->values(1, &t, z, parameters_at(z).data(), f);
    return all_finite(f, n_);
}

bool EquilibriumProblem::linearise(const double* z, double* f) {
    const double t = 0;
    const double* c = parameters_at(z).data();
    equations_->jacobians(1, &t, z, c, f, A_.data());
    for (std::size_t j = 0; j < vary_.size(); ++j)
        equations_->parameter_derivatives(1, &t, z, c, vary_[j], Fp_.data() + j * n_);
    return all_finite(f, n_) && all_finite(A_) && all_finite(Fp_);
}

void EquilibriumProblem::apply(const double* v, double* out) const {
    for (std::size_t i = 0; i < n_; ++i) {
        double sum = 0;
        for (std::size_t j = 0; j < n_; ++j) sum += A_[i * n_ + j] * v[j];
        for (std::size_t j = 0; j < vary_.size(); ++j) sum += Fp_[j * n_ + i] * v[n_ + j];
        out[i] = sum;
    }
}

void EquilibriumProblem::apply_transposed(const double* w, double* out) const {
    std::fill(out, out + n_ + vary_.size(), 0.0);
    for (std::size_t i = 0; i < n_; ++i)
        for (std::size_t j = 0; j < n_; ++j) out[j] += w[i] * A_[i * n_ + j];
    for (std::size_t j = 0; j < vary_.size(); ++j)
        for (std::size_t i = 0; i < n_; ++i) out[n_ + j] += w[i] * Fp_[j * n_ + i];
}

//     [ A     F_p   columns ]
//     [ ------rows     0    ]
bool EquilibriumProblem::factor(const Border& border) {
    const std::size_t k = vary_.size();
    const std::size_t width = n_ + k;
    const std::size_t size = width + border.extra;
    double* m = lu_.matrix(size);
    for (std::size_t i = 0; i < n_; ++i) {
        double* row = m + i * size;
        std::copy_n(A_.data() + i * n_, n_, row);
        for (std::size_t j = 0; j < k; ++j) row[n_ + j] = Fp_[j * n_ + i];
        for (std::size_t j = 0; j < border.extra; ++j) row[width + j] = border.columns[j * n_ + i];
    }
    for (std::size_t i = 0; i < k + border.extra; ++i) {
        double* row = m + (n_ + i) * size;
        std::copy_n(border.rows + i * width, width, row);
        std::fill(row + width, row + size, 0.0);
    }
    return lu_.decompose_in_place() && !lu_.singular();
}

// Errors: those of the QR iteration, and of the Jacobian where it is made of differences.
void EquilibriumProblem::spectrum(Spectrum& out) {
    out.clear();
    double norm = 0;
    for (const double a : A_) norm += a * a;
    norm = std::sqrt(norm);
    work_.assign(A_.begin(), A_.end());
    if (!eigen_.eigenvalues(n_, work_.data(), re_.data(), im_.data())) return;
    const double error = (equations_->has_exact_jacobian() ? 8 * eps : 1e-10) * norm;
    for (std::size_t i = 0; i < n_; ++i) {
        const std::complex<double> value(re_[i], im_[i]);
        const bool real = std::abs(im_[i]) <= real_part * std::abs(value) + 100 * eps * norm;
        out.push_back({value, error, real ? Exponent::Kind::real : Exponent::Kind::pair, true});
    }
}

// ---- Results ----

Description EquilibriumProblem::describe(const double* z) {
    Description result;
    result.parameters = parameters_at(z);
    result.state.assign(z, z + n_);
    double sum = 0;
    for (const double x : result.state) sum += x * x;
    result.norm = std::sqrt(sum);
    return result;
}

std::unique_ptr<Problem> EquilibriumProblem::clone() const {
    return std::make_unique<EquilibriumProblem>(equations_, parameters_, vary_, windows_, first_,
                                                settings_);
}

namespace {

std::string criticality(const Estimate& c1) {
    if (!c1.determined()) return "undetermined";
    return c1.value < 0 ? "supercritical" : "subcritical";
}

void add_parts(const std::vector<std::complex<double>>& v, Finding& finding) {
    std::vector<double> re, im;
    for (const std::complex<double>& x : v) {
        re.push_back(x.real());
        im.push_back(x.imag());
    }
    finding.null_vectors.push_back(std::move(re));
    finding.null_vectors.push_back(std::move(im));
}

void refuse(Finding& finding, std::string reason) {
    finding.status = "unresolved";
    finding.reason = std::move(reason);
}

void examine_hopf(Forms& forms, Finding& finding) {
    double omega = 0;
    double nearest = std::numeric_limits<double>::infinity();
    double largest = 0;
    for (const Exponent& exponent : finding.spectrum) {
        largest = std::max(largest, std::abs(exponent.value));
        if (exponent.kind != Exponent::Kind::pair || std::abs(exponent.value.real()) >= nearest)
            continue;
        nearest = std::abs(exponent.value.real());
        omega = std::abs(exponent.value.imag());
    }
    if (!(omega > 1e-6 * largest))
        return refuse(finding, "the frequency vanishes: Bogdanov-Takens suspected");
    const HopfForm form = hopf_form(forms, omega);
    add_parts(form.q, finding);
    add_parts(form.p, finding);
    finding.coefficients = {{"omega", form.omega, 8 * eps * largest},
                            {"l1", form.l1.value, form.l1.error},
                            {"Re c1", form.re_c1.value, form.re_c1.error},
                            {"Im c1", form.im_c1.value, form.im_c1.error}};
    finding.subtype = criticality(form.re_c1);
    if (finding.subtype == "undetermined") finding.reason = "Re c1 vanishes within its error";
}

}  // namespace

void EquilibriumProblem::examine(Finding& finding) {
    if (finding.type == "BP") return name_branch_point(*this, finding);
    Forms forms(*equations_);
    if (!forms.move_to(finding.z.data(), parameters_at(finding.z.data()).data())) return;
    if (finding.type == "LP") examine_fold(forms, finding);
    if (finding.type == "H") examine_hopf(forms, finding);
}

// A fold needs <p, f_p> != 0: else another branch passes.
void EquilibriumProblem::examine_fold(Forms& forms, Finding& finding) const {
    const ZeroForm form = fold_form(forms);
    finding.null_vectors = {form.q, form.p};
    finding.coefficients.push_back({"a", form.a.value, form.a.error});
    finding.subtype = form.a.determined() ? "generic" : "undetermined";
    if (!form.a.determined())
        finding.reason = "the quadratic coefficient vanishes within its error";
    const std::vector<double> f_p = forms.parameter_derivative(vary_[0]);
    double along = 0;
    double size = 0;
    for (std::size_t i = 0; i < n_; ++i) {
        along += form.p[i] * f_p[i];
        size += std::abs(form.p[i] * f_p[i]);
    }
    if (std::abs(along) <= 1e-9 * size) refuse(finding, "f_p lies in the range of the Jacobian");
}

}  // namespace trajex
