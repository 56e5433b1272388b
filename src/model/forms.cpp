// Multilinear forms by polarisation of derivatives along real directions.
#include "model/forms.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

#include "linalg/vectors.hpp"
#include "model/differences.hpp"

namespace trajex {

namespace {

constexpr double factorials[] = {1, 1, 2, 6, 24, 120};
constexpr double binomials[6][6] = {{1},          {1, 1},          {1, 2, 1},
                                    {1, 3, 3, 1}, {1, 4, 6, 4, 1}, {1, 5, 10, 10, 5, 1}};

/// The next j in 0 <= j <= a, as an odometer; false after the last one.
bool advance(std::vector<int>& j, const std::vector<int>& a) {
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (j[i] < a[i]) return ++j[i], true;
        j[i] = 0;
    }
    return false;
}

}  // namespace

Forms::Forms(const Equations& equations)
    : equations_(equations),
      n_(equations.states()),
      m_(equations.parameters()),
      x_(n_),
      c_(m_),
      f_(n_),
      jacobian_(n_ * n_),
      direction_(n_ + m_),
      power_(n_),
      moved_(n_ + m_),
      moved_f_(n_),
      moved_jacobian_(n_ * n_),
      slope_(n_),
      samples_(4 * n_),
      series_(6 * n_) {}

bool Forms::move_to(const double* x, const double* c) {
    x_.assign(x, x + n_);
    c_.assign(c, c + m_);
    const double t = 0;
    equations_.jacobians(1, &t, x, c, f_.data(), jacobian_.data());
    exact_ = equations_.taylor(2, t, x, x, c, nullptr, series_.data());
    return all_finite(f_) && all_finite(jacobian_);
}

std::vector<double> Forms::parameter_derivative(std::size_t j) const {
    const double t = 0;
    std::vector<double> f_c(n_);
    equations_.parameter_derivatives(1, &t, x_.data(), c_.data(), j, f_c.data());
    return f_c;
}

Forms::Vector Forms::operator()(std::initializer_list<Vector> arguments) {
    basis_.clear();
    std::vector<std::vector<Term>> terms;
    for (const Vector& argument : arguments) resolve(argument, terms.emplace_back());
    std::map<Monomial, Complex> sum;
    Monomial none(basis_.size(), 0);
    expand(terms, 0, 1, none, sum);

    Vector form(n_);
    std::vector<double> real(n_);
    for (const auto& [monomial, factor] : sum) {
        if (factor == 0.0) continue;
        polarise(static_cast<int>(arguments.size()), monomial, real);
        for (std::size_t i = 0; i < n_; ++i) form[i] += factor * real[i];
    }
    return form;
}

void Forms::resolve(const Vector& argument, std::vector<Term>& terms) {
    resolve_part(argument, false, terms);
    resolve_part(argument, true, terms);
}

/// Adds the real or the imaginary part of an argument to its terms: as a multiple of a unit vector,
/// which may be in the basis already, or be the opposite of one that is.
void Forms::resolve_part(const Vector& argument, bool imaginary, std::vector<Term>& terms) {
    std::vector<double> unit(n_ + m_);
    double square = 0;
    for (std::size_t i = 0; i < argument.size(); ++i) {
        unit[i] = imaginary ? argument[i].imag() : argument[i].real();
        square += unit[i] * unit[i];
    }
    if (square == 0) return;
    const double length = std::sqrt(square);
    for (double& u : unit) u /= length;
    const Complex factor = imaginary ? Complex(0, length) : Complex(length, 0);
    for (std::size_t b = 0; b < basis_.size(); ++b) {
        if (basis_[b] == unit) return terms.push_back({b, factor});
        const auto opposite = [](double u, double v) { return u == -v; };
        if (std::equal(unit.begin(), unit.end(), basis_[b].begin(), opposite)) {
            return terms.push_back({b, -factor});
        }
    }
    basis_.push_back(std::move(unit));
    terms.push_back({basis_.size() - 1, factor});
}

/// Multiplies the arguments from `next` on out, of which there are five at most.
// NOLINTNEXTLINE(misc-no-recursion)
void Forms::expand(const std::vector<std::vector<Term>>& arguments, std::size_t next,
                   Complex factor, Monomial& monomial, std::map<Monomial, Complex>& sum) const {
    if (next == arguments.size()) {
        sum[monomial] += factor;
        return;
    }
    for (const Term& term : arguments[next]) {
        ++monomial[term.basis];
        expand(arguments, next + 1, factor * term.factor, monomial, sum);
        --monomial[term.basis];
    }
}

void Forms::polarise(int k, const Monomial& a, std::vector<double>& form) {
    std::fill(form.begin(), form.end(), 0.0);
    Monomial j(a.size(), 0);
    do {
        // j and a - j contribute the same: one of them counts twice, the one whose direction begins
        // with a positive number. Where all numbers are zero, D^k is.
        int leading = 0;
        double weight = 2 / (std::ldexp(1.0, k) * factorials[k]);
        std::fill(direction_.begin(), direction_.end(), 0.0);
        for (std::size_t b = 0; b < a.size(); ++b) {
            const int multiple = a[b] - 2 * j[b];
            if (leading == 0) leading = multiple;
            weight *= binomials[a[b]][j[b]] * (j[b] % 2 == 0 ? 1 : -1);
            for (std::size_t i = 0; i < n_ + m_; ++i) direction_[i] += multiple * basis_[b][i];
        }
        if (leading <= 0) continue;
        derivative(k, direction_.data(), power_.data());
        for (std::size_t i = 0; i < n_; ++i) form[i] += weight * power_[i];
    } while (advance(j, a));
}

/// D^k(v) for a direction v of states and parameters.
void Forms::derivative(int k, const double* v, double* out) {
    if (exact_) {
        equations_.taylor(k, 0, x_.data(), v, c_.data(), v + n_, series_.data());
        const double* const row = series_.data() + static_cast<std::size_t>(k) * n_;
        for (std::size_t i = 0; i < n_; ++i) out[i] = factorials[k] * row[i];
    } else if (k > highest_order()) {
        std::fill_n(out, n_, std::numeric_limits<double>::quiet_NaN());
    } else if (equations_.has_exact_jacobian()) {
        difference_of_slopes(k, v, out);
    } else {
        difference_of_values(k, v, out);
    }
}

/// The step along v that moves no variable by more than a fraction of its size. The fraction
/// balances rounding of the difference quotient against a truncation error of fourth order, which
/// is what is left after extrapolation from two steps.
double Forms::step(int k, const double* v) const {
    constexpr double epsilon = 2.2e-16;
    const int order = equations_.has_exact_jacobian() ? k - 1 : k;
    const double fraction = std::pow(epsilon, 1.0 / (order + 4));
    const double largest = trajex::largest(x_);
    double motion = 0;
    for (std::size_t i = 0; i < n_; ++i) {
        motion = std::max(motion, std::fabs(v[i]) / differences::scale(x_[i], largest));
    }
    for (std::size_t j = 0; j < m_; ++j) {
        motion = std::max(motion, std::fabs(v[n_ + j]) / differences::scale(c_[j], 0));
    }
    return step_factor_ * fraction / motion;
}

void Forms::move_along(double s, const double* v) {
    for (std::size_t i = 0; i < n_; ++i) moved_[i] = x_[i] + s * v[i];
    for (std::size_t j = 0; j < m_; ++j) moved_[n_ + j] = c_[j] + s * v[n_ + j];
}

void Forms::value_at(double s, const double* v, double* f) {
    const double t = 0;
    move_along(s, v);
    equations_.values(1, &t, moved_.data(), moved_.data() + n_, f);
}

/// The derivative of f along v at the distance s: A v_x + f_c v_c.
void Forms::slope_at(double s, const double* v, double* g) {
    const double t = 0;
    move_along(s, v);
    equations_.jacobians(1, &t, moved_.data(), moved_.data() + n_, moved_f_.data(),
                         moved_jacobian_.data());
    for (std::size_t i = 0; i < n_; ++i) {
        g[i] = 0;
        for (std::size_t j = 0; j < n_; ++j) g[i] += moved_jacobian_[i * n_ + j] * v[j];
    }
    for (std::size_t j = 0; j < m_; ++j) {
        if (v[n_ + j] == 0) continue;
        equations_.parameter_derivatives(1, &t, moved_.data(), moved_.data() + n_, j,
                                         slope_.data());
        for (std::size_t i = 0; i < n_; ++i) g[i] += v[n_ + j] * slope_[i];
    }
}

void Forms::difference_of_slopes(int k, const double* v, double* out) {
    const double e = step(k, v);
    double* const above = samples_.data();
    double* const below = above + n_;
    double* const here = below + n_;
    slope_at(e, v, above);
    slope_at(-e, v, below);
    if (k == 2) {
        for (std::size_t i = 0; i < n_; ++i) out[i] = (above[i] - below[i]) / (2 * e);
        return;
    }
    slope_at(0, v, here);
    for (std::size_t i = 0; i < n_; ++i) {
        out[i] = ((above[i] - here[i]) - (here[i] - below[i])) / (e * e);
    }
}

void Forms::difference_of_values(int k, const double* v, double* out) {
    const double e = step(k, v);
    double* const above = samples_.data();
    double* const below = above + n_;
    double* const far_above = below + n_;
    double* const far_below = far_above + n_;
    value_at(e, v, above);
    value_at(-e, v, below);
    if (k == 2) {
        for (std::size_t i = 0; i < n_; ++i) {
            out[i] = ((above[i] - f_[i]) - (f_[i] - below[i])) / (e * e);
        }
        return;
    }
    value_at(2 * e, v, far_above);
    value_at(-2 * e, v, far_below);
    for (std::size_t i = 0; i < n_; ++i) {
        out[i] = ((far_above[i] - far_below[i]) - 2 * (above[i] - below[i])) / (2 * e * e * e);
    }
}

}  // namespace trajex
