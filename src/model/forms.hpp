// The derivatives of the right-hand side at a point as symmetric multilinear forms of complex
// vectors,
//
//     B(u, v), C(u, v, w), ... up to order 5,  B_i(u, v) = sum_jk d2f_i/dx_j dx_k u_j v_k.
//
// All of them come from derivatives along one real direction, D^k(v) = F(v, ..., v). Each argument
// is a complex combination of real unit vectors e_1 ... e_r (q and its conjugate share theirs), so
// that a form is a sum of real ones, which are polarised:
//
//     F(e^a) = 1 / (2^k k!) sum_{0 <= j <= a} (-1)^|j| binomial(a, j) D^k(sum_i (a_i - 2 j_i) e_i).
//
// D^k is exact to rounding by Taylor numbers, else a central difference of Jacobians that are
// exact, or of values (then up to order 3), whose error is of second order in the step.
#pragma once

#include <complex>
#include <cstddef>
#include <initializer_list>
#include <map>
#include <vector>

#include "model/equations.hpp"

namespace trajex {

class Forms {
  public:
    using Complex = std::complex<double>;
    using Vector = std::vector<Complex>;

    explicit Forms(const Equations& equations);

    /// Sets the point. False when f or its Jacobian is not finite there.
    bool move_to(const double* x, const double* c);

    std::size_t size() const { return n_; }
    std::size_t parameter_count() const { return m_; }
    const double* state() const { return x_.data(); }
    const double* parameters() const { return c_.data(); }
    /// A = df/dx, by rows.
    const std::vector<double>& jacobian() const { return jacobian_; }
    /// df/dc_j at the point.
    std::vector<double> parameter_derivative(std::size_t j) const;

    /// Whether the forms are exact to rounding, and the highest order that there is.
    bool exact() const { return exact_; }
    int highest_order() const { return exact_ ? 5 : 3; }
    /// Steps of differences are multiplied by this.
    void set_step_factor(double factor) { step_factor_ = factor; }

    /// The form of as many arguments as are given, 2 to highest_order(). An argument has n
    /// components, or n + m, of which the last m are a direction of the parameters.
    Vector operator()(std::initializer_list<Vector> arguments);

  private:
    /// An argument: sum of factors times basis vectors.
    struct Term {
        std::size_t basis;
        Complex factor;
    };
    /// How often each basis vector occurs.
    using Monomial = std::vector<int>;

    void resolve(const Vector& argument, std::vector<Term>& terms);
    void resolve_part(const Vector& argument, bool imaginary, std::vector<Term>& terms);
    void expand(const std::vector<std::vector<Term>>& arguments, std::size_t next, Complex factor,
                Monomial& monomial, std::map<Monomial, Complex>& sum) const;
    void polarise(int k, const Monomial& a, std::vector<double>& form);
    void derivative(int k, const double* v, double* out);
    void difference_of_values(int k, const double* v, double* out);
    void difference_of_slopes(int k, const double* v, double* out);
    void value_at(double s, const double* v, double* f);
    void slope_at(double s, const double* v, double* g);
    void move_along(double s, const double* v);
    double step(int k, const double* v) const;

    const Equations& equations_;
    std::size_t n_;
    std::size_t m_;
    bool exact_ = false;
    double step_factor_ = 1;
    std::vector<double> x_, c_, f_, jacobian_;
    std::vector<std::vector<double>> basis_;  // joint vectors of n + m
    std::vector<double> direction_, power_;   // of a polarisation
    std::vector<double> moved_, moved_f_, moved_jacobian_, slope_, samples_, series_;
};

}  // namespace trajex
