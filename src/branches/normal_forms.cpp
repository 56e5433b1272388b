// Normal form coefficients by projection onto the critical eigenvectors.
// Kuznetsov, SIAM J. Numer. Anal. 36 (1999) 1104; Elements of Applied Bifurcation Theory, 3rd ed.,
// Springer 2004, chapters 3, 5, 8.
#include "branches/normal_forms.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

#include "linalg/dense.hpp"
#include "linalg/vectors.hpp"

namespace trajex {

namespace {

using Complex = Forms::Complex;
using ComplexVector = Forms::Vector;
using Real = std::vector<double>;

constexpr double not_a_number = std::numeric_limits<double>::quiet_NaN();

// ---- Vectors ----

ComplexVector complex(const Real& v) {
    return {v.begin(), v.end()};
}

ComplexVector conj(ComplexVector v) {
    for (Complex& z : v) z = std::conj(z);
    return v;
}
/// What has no value.
ComplexVector undefined(std::size_t n) {
    ComplexVector v(n, not_a_number);
    return v;
}
/// <u, v> = conj(u)' v.
Complex inner(const ComplexVector& u, const ComplexVector& v) {
    Complex sum = 0;
    for (std::size_t i = 0; i < u.size(); ++i) sum += std::conj(u[i]) * v[i];
    return sum;
}
template <class V>
V times(typename V::value_type factor, V v) {
    for (auto& x : v) x *= factor;
    return v;
}
template <class V>
V plus(V u, typename V::value_type factor, const V& v) {
    for (std::size_t i = 0; i < u.size(); ++i) u[i] += factor * v[i];
    return u;
}
double norm(const ComplexVector& v) {
    return std::sqrt(inner(v, v).real());
}

ComplexVector unit(ComplexVector v) {
    const double length = norm(v);
    return times(1 / length, std::move(v));
}

/// factor F(arguments), a summand of a right-hand side.
struct Summand {
    double factor = 0;
    std::initializer_list<ComplexVector> arguments;
};
/// The sum, and the sum of the sizes of what was added, by which rounding is judged.
ComplexVector sum_of(Forms& forms, std::initializer_list<Summand> summands,
                     double* size = nullptr) {
    ComplexVector sum(forms.size());
    if (size != nullptr) *size = 0;
    for (const Summand& s : summands) {
        const ComplexVector form = forms(s.arguments);
        sum = plus(std::move(sum), s.factor, form);
        if (size != nullptr) *size += std::fabs(s.factor) * norm(form);
    }
    return sum;
}

// ---- Linear systems with A ----

/// h of (z - A) h = r.
ComplexVector resolvent(const Forms& forms, Complex z, ComplexVector r) {
    const std::size_t n = forms.size();
    ComplexLu lu(n);
    Complex* const matrix = lu.matrix(n);
    for (std::size_t i = 0; i < n; ++i) {
        for (std::size_t j = 0; j < n; ++j) {
            matrix[i * n + j] = -forms.jacobian()[i * n + j];
        }
        matrix[i * n + i] += z;
    }
    if (!lu.decompose_in_place()) return undefined(n);
    lu.solve(r.data());
    return r;
}

/// h of the system that remains regular where z is an eigenvalue with the eigenvectors q and p:
///
///     [ z - A    q ] [h]   [r]
///     [ p*       0 ] [g] = [0]
ComplexVector bordered_resolvent(const Forms& forms, Complex z, const ComplexVector& q,
                                 const ComplexVector& p, ComplexVector r) {
    const std::size_t n = forms.size();
    ComplexLu lu(n + 1);
    Complex* const matrix = lu.matrix(n + 1);
    for (std::size_t i = 0; i < n; ++i) {
        Complex* const row = matrix + i * (n + 1);
        for (std::size_t j = 0; j < n; ++j) row[j] = -forms.jacobian()[i * n + j];
        row[i] += z;
        row[n] = q[i];
        matrix[n * (n + 1) + i] = std::conj(p[i]);
    }
    matrix[n * (n + 1) + n] = 0;
    if (!lu.decompose_in_place()) return undefined(n);
    r.push_back(0);
    lu.solve(r.data());
    r.pop_back();
    return r;
}

Real real_parts(const ComplexVector& v) {
    Real r;
    for (const Complex& z : v) r.push_back(z.real());
    return r;
}

// ---- Critical eigenvectors ----

/// Turns q so that its largest component is real and positive, of unit length.
ComplexVector normalised(ComplexVector q) {
    const auto larger = [](const Complex& u, const Complex& v) {
        return std::norm(u) < std::norm(v);
    };
    const Complex largest = *std::max_element(q.begin(), q.end(), larger);
    const double length = norm(q);
    return times(std::conj(largest) / (std::abs(largest) * length), std::move(q));
}

struct Eigenvectors {
    ComplexVector q;
    ComplexVector p;
};

/// Null vectors of z - A, right (q) and left (p), by inverse iteration with the matrix and its
/// adjoint in turn: it finds the singular vectors of the smallest singular value, which are there
/// where an eigenvalue is defective too.
Eigenvectors null_vectors(const Forms& forms, Complex z) {
    const std::size_t n = forms.size();
    ComplexLu lu(n);
    Complex* const matrix = lu.matrix(n);
    for (std::size_t i = 0; i < n; ++i) {
        for (std::size_t j = 0; j < n; ++j) matrix[i * n + j] = -forms.jacobian()[i * n + j];
        matrix[i * n + i] += z;
    }
    Eigenvectors vectors{ComplexVector(n), ComplexVector(n)};
    if (!lu.decompose_in_place()) return {undefined(n), undefined(n)};
    // A start that no symmetry makes orthogonal to what is looked for.
    for (std::size_t i = 0; i < n; ++i) vectors.q[i] = 1 + 0.37 * std::sin(1.0 + 2.3 * double(i));
    for (int sweep = 0; sweep < 4; ++sweep) {
        vectors.p = conj(vectors.q);
        lu.solve_transposed(vectors.p.data());
        vectors.p = unit(conj(std::move(vectors.p)));
        vectors.q = vectors.p;
        lu.solve(vectors.q.data());
        vectors.q = unit(std::move(vectors.q));
    }
    vectors.q = normalised(std::move(vectors.q));
    return vectors;
}

/// The same, <p, q> = 1. Infinite where the eigenvalue is defective.
Eigenvectors eigenvectors(const Forms& forms, Complex z) {
    Eigenvectors vectors = null_vectors(forms, z);
    const Complex product = inner(vectors.p, vectors.q);
    vectors.p = times(1.0 / std::conj(product), std::move(vectors.p));
    return vectors;
}

/// The eigenvalue with positive imaginary part that is nearest to i omega, or, without a positive
/// omega, to the imaginary axis; 0 if there is none.
Complex critical_pair(const Forms& forms, double omega) {
    const std::size_t n = forms.size();
    Real matrix = forms.jacobian();
    Real re(n);
    Real im(n);
    if (!DenseEigen(n).eigenvalues(n, matrix.data(), re.data(), im.data())) return 0;
    Complex nearest = 0;
    double least = std::numeric_limits<double>::infinity();
    for (std::size_t i = 0; i < n; ++i) {
        if (!(im[i] > 0)) continue;
        const double distance = omega > 0 ? std::hypot(re[i], im[i] - omega) : std::fabs(re[i]);
        if (distance >= least) continue;
        least = distance;
        nearest = {re[i], im[i]};
    }
    return nearest;
}

// ---- Coefficients with errors ----

/// Numbers computed together, and the sizes of the sums that they are.
template <std::size_t count>
struct Sums {
    std::array<double, count> value;
    std::array<double, count> size;
};

/// Coefficients by `compute`, which returns Sums. With exact forms the error is rounding of the
/// sums. Else compute() is a quantity with an error of second order in the step, and two steps give
/// one of fourth order and its error. What step is best depends on the unknown scale of the
/// right-hand side: of a few, the one with the least error.
template <std::size_t count, class Compute>
std::array<Estimate, count> estimates(Forms& forms, const Compute& compute) {
    std::array<Estimate, count> best;
    if (forms.exact()) {
        const Sums<count> sums = compute();
        for (std::size_t i = 0; i < count; ++i) best[i] = {sums.value[i], 1e-13 * sums.size[i]};
        return best;
    }
    best.fill({not_a_number, std::numeric_limits<double>::infinity()});
    for (const double factor : {1.0, 4.0, 16.0, 64.0, 0.25}) {
        forms.set_step_factor(factor);
        const Sums<count> near = compute();
        forms.set_step_factor(2 * factor);
        const Sums<count> far = compute();
        for (std::size_t i = 0; i < count; ++i) {
            const double apart = (near.value[i] - far.value[i]) / 3;
            // The Jacobian is one of differences, too, or A's own rounding: no better than this.
            const double error = std::fabs(apart) + 1e-11 * near.size[i];
            if (error < best[i].error) best[i] = {near.value[i] + apart, error};
        }
    }
    forms.set_step_factor(1);
    return best;
}

}  // namespace

// ---- Zero eigenvalue ----

ZeroForm fold_form(Forms& forms) {
    const Eigenvectors v = eigenvectors(forms, 0);
    ZeroForm form{real_parts(v.q), real_parts(v.p), {}, {not_a_number, 0}};
    form.a = estimates<1>(forms, [&] {
        double size = 0;
        const ComplexVector B = sum_of(forms, {{0.5, {v.q, v.q}}}, &size);
        return Sums<1>{{inner(v.p, B).real()}, {norm(v.p) * size}};
    })[0];
    return form;
}

ZeroForm cusp_form(Forms& forms) {
    ZeroForm form = fold_form(forms);
    const ComplexVector q = complex(form.q);
    const ComplexVector p = complex(form.p);
    // c = <p, C(q,q,q) + 3 B(q,h)> / 6,  A h = -(B(q,q) - 2 a q),  <p, h> = 0.
    form.c = estimates<1>(forms, [&] {
        const ComplexVector B = forms({q, q});
        const ComplexVector r = plus(B, -inner(p, B), q);
        const ComplexVector h = bordered_resolvent(forms, 0, q, p, r);
        double size = 0;
        const ComplexVector sum = sum_of(forms, {{1.0 / 6, {q, q, q}}, {0.5, {q, h}}}, &size);
        return Sums<1>{{inner(p, sum).real()}, {norm(p) * size}};
    })[0];
    return form;
}

Complex eigenvalue_slope(Forms& forms, const ComplexVector& q, const ComplexVector& p,
                         const Real& x_s, const Real& c_s) {
    ComplexVector along = complex(x_s);
    along.insert(along.end(), c_s.begin(), c_s.end());
    const auto [re, im] = estimates<2>(forms, [&] {
        const Complex slope = inner(p, forms({q, along}));
        return Sums<2>{{slope.real(), slope.imag()}, {std::abs(slope), std::abs(slope)}};
    });
    return {re.value, im.value};
}

// ---- Hopf ----

HopfForm hopf_form(Forms& forms, double omega) {
    HopfForm form;
    const Complex lambda = critical_pair(forms, omega);
    if (lambda == 0.0) return form;
    const Eigenvectors v = eigenvectors(forms, lambda);
    form.omega = lambda.imag();
    form.real_part = lambda.real();
    form.q = v.q;
    form.p = v.p;
    const ComplexVector qb = conj(v.q);
    const auto compute = [&] {
        form.h11 = resolvent(forms, 0, forms({v.q, qb}));
        form.h20 = resolvent(forms, Complex(0, 2 * form.omega), forms({v.q, v.q}));
        double size = 0;
        const ComplexVector sum = sum_of(
            forms, {{0.5, {v.q, v.q, qb}}, {1, {v.q, form.h11}}, {0.5, {qb, form.h20}}}, &size);
        const Complex product = inner(v.p, sum);
        size *= norm(v.p);
        return Sums<2>{{product.real(), product.imag()}, {size, size}};
    };
    const auto c1 = estimates<2>(forms, compute);
    if (!forms.exact()) compute();  // h11 and h20 with the usual step
    form.re_c1 = c1[0];
    form.im_c1 = c1[1];
    form.l1 = {c1[0].value / form.omega, c1[0].error / form.omega};
    return form;
}

HopfUnfolding hopf_unfolding(Forms& forms, const HopfForm& hopf, std::size_t j) {
    HopfUnfolding unfolding;
    // Along the branch A x_p + f_c = 0.
    unfolding.x_p = real_parts(resolvent(forms, 0, complex(forms.parameter_derivative(j))));
    Real c_s(forms.parameter_count(), 0.0);
    c_s[j] = 1;
    unfolding.slope = eigenvalue_slope(forms, hopf.q, hopf.p, unfolding.x_p, c_s);
    unfolding.c_xx = -hopf.re_c1.value / unfolding.slope.real();
    unfolding.omega_xx = hopf.im_c1.value + unfolding.slope.imag() * unfolding.c_xx;
    return unfolding;
}

// ---- Double zero ----

TakensBogdanovForm takens_bogdanov_form(Forms& forms) {
    const Eigenvectors null = null_vectors(forms, 0);
    TakensBogdanovForm form;
    form.q0 = real_parts(null.q);
    form.p1 = real_parts(null.p);

    // A h = r with the borders that make it regular: the resolvent of 0 solves -A h = r.
    const std::size_t n = forms.size();
    DenseLu lu(n + 1);
    double* const matrix = lu.matrix(n + 1);
    for (std::size_t i = 0; i < n; ++i) {
        std::copy_n(forms.jacobian().data() + i * n, n, matrix + i * (n + 1));
        matrix[i * (n + 1) + n] = form.p1[i];
        matrix[n * (n + 1) + i] = form.q0[i];
    }
    matrix[n * (n + 1) + n] = 0;
    form.q1 = form.q0;
    form.q1.push_back(0);
    form.p0 = Real(n + 1, not_a_number);
    if (lu.decompose_in_place()) {
        lu.solve(form.q1.data());  // A q1 = q0
        form.q1.pop_back();
        form.p1 = times(1 / dot(form.p1, form.q1), form.p1);
        form.p0 = form.p1;
        form.p0.push_back(0);
        lu.solve_transposed(form.p0.data());  // A' p0 = p1
    }
    form.q1.resize(n);
    form.p0.resize(n);
    form.p0 = plus(form.p0, -dot(form.p0, form.q1), form.p1);

    const ComplexVector q0 = complex(form.q0);
    const ComplexVector q1 = complex(form.q1);
    const auto [a, b] = estimates<2>(forms, [&] {
        const Real B00 = real_parts(forms({q0, q0}));
        const Real B01 = real_parts(forms({q0, q1}));
        const double size = norm(complex(form.p0)) * norm(complex(B00)) +
                            norm(complex(form.p1)) * norm(complex(B01));
        return Sums<2>{{dot(form.p1, B00) / 2, dot(form.p0, B00) + dot(form.p1, B01)},
                       {size, size}};
    });
    form.a = a;
    form.b = b;
    return form;
}

// ---- Generalised Hopf ----

BautinForm bautin_form(Forms& forms, double omega) {
    BautinForm form{0, {not_a_number, 0}, {not_a_number, 0}};
    const Complex lambda = critical_pair(forms, omega);
    form.omega = lambda.imag();
    if (forms.highest_order() < 5 || lambda == 0.0) return form;
    const auto [q, p] = eigenvectors(forms, lambda);
    const Complex i_omega(0, form.omega);
    const ComplexVector qb = conj(q);

    const ComplexVector h11 = resolvent(forms, 0, forms({q, qb}));
    const ComplexVector h20 = resolvent(forms, 2.0 * i_omega, forms({q, q}));
    const ComplexVector h20b = conj(h20);
    const ComplexVector h30 =
        resolvent(forms, 3.0 * i_omega, sum_of(forms, {{1, {q, q, q}}, {3, {q, h20}}}));

    const ComplexVector r21 = sum_of(forms, {{1, {q, q, qb}}, {2, {q, h11}}, {1, {qb, h20}}});
    const Complex G21 = inner(p, r21);
    const ComplexVector h21 = bordered_resolvent(forms, i_omega, q, p, plus(r21, -G21, q));
    const ComplexVector h21b = conj(h21);

    const ComplexVector r31 = sum_of(forms, {{1, {q, q, q, qb}},
                                             {3, {q, q, h11}},
                                             {3, {q, qb, h20}},
                                             {3, {h20, h11}},
                                             {1, {qb, h30}},
                                             {3, {q, h21}}});
    const ComplexVector h31 = resolvent(forms, 2.0 * i_omega, plus(r31, -3.0 * G21, h20));
    const ComplexVector r22 = sum_of(forms, {{1, {q, q, qb, qb}},
                                             {4, {q, qb, h11}},
                                             {1, {qb, qb, h20}},
                                             {1, {q, q, h20b}},
                                             {2, {h11, h11}},
                                             {2, {q, h21b}},
                                             {2, {qb, h21}},
                                             {1, {h20b, h20}}});
    const ComplexVector h22 = resolvent(forms, 0, plus(r22, -4 * G21.real(), h11));

    double size = 0;
    const ComplexVector r32 = sum_of(forms,
                                     {{1, {q, q, q, qb, qb}},
                                      {1, {q, q, q, h20b}},
                                      {3, {q, qb, qb, h20}},
                                      {6, {q, q, qb, h11}},
                                      {1, {qb, qb, h30}},
                                      {3, {q, q, h21b}},
                                      {6, {q, qb, h21}},
                                      {3, {q, h20b, h20}},
                                      {6, {q, h11, h11}},
                                      {6, {qb, h20, h11}},
                                      {2, {qb, h31}},
                                      {3, {q, h22}},
                                      {1, {h20b, h30}},
                                      {3, {h21b, h20}},
                                      {6, {h11, h21}}},
                                     &size);
    form.re_c2 = {inner(p, r32).real() / 12, 1e-13 * norm(p) * size};
    form.l2 = {form.re_c2.value / form.omega, form.re_c2.error / form.omega};
    return form;
}

}  // namespace trajex
