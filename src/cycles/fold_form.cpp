// The null vectors come from the matrix with borders that are improved twice,
//
//     [ F_y  F_p  b ] [ v ]   [ 0 ]
//     [ c     0   0 ] [ 0 ] = [ 1 ],      c <- v, b <- psi,
//     [ 0     1   0 ] [ g ]   [ 0 ]
//
// psi being the solution with the transposed matrix. With p = p0 + k xi^2 + ..., the second
// derivative of F = 0 along the branch is psi' F_zz(v, v) + 2 k psi' F_p = 0. Reference: Beyn,
// Champneys, Doedel, Govaerts, Kuznetsov and Sandstede, Handbook of Dynamical Systems 2 (2002) 149.
#include "cycles/fold_form.hpp"

#include <algorithm>
#include <cmath>

#include "branches/metric.hpp"
#include "cycles/cycle_forms.hpp"
#include "linalg/vectors.hpp"

namespace trajex {

namespace {

class FoldVectors {
  public:
    explicit FoldVectors(CycleProblem& problem)
        : problem_(problem),
          metric_(problem),
          size_(problem.unknowns()),
          rows_(2 * size_, 0.0),
          column_(problem.equations()) {}

    bool find(const std::vector<double>& z) {
        if (!problem_.linearise(z.data(), column_.data())) return false;
        const std::vector<double>& scale = problem_.scale();
        for (std::size_t k = 0; k < column_.size(); ++k)
            column_[k] = std::cos(1 + 2 * static_cast<double>(k)) * scale[k % scale.size()];
        for (std::size_t k = 0; k + 1 < size_; ++k)
            rows_[k] = std::sin(1 + 3 * static_cast<double>(k)) * std::sqrt(metric_.weights()[k]);
        rows_[2 * size_ - 1] = 1;
        return improve() && improve() && improve();
    }

    std::vector<double> v;    // no parameter component
    std::vector<double> psi;  // for all equations

  private:
    bool improve() {
        if (!problem_.factor({.extra = 1, .rows = rows_.data(), .columns = column_.data()}))
            return false;
        v.assign(size_ + 1, 0.0);
        v[size_ - 1] = 1;
        problem_.solve(v.data());
        v.resize(size_);
        v.back() = 0;
        psi.assign(size_ + 1, 0.0);
        psi[size_] = 1;
        problem_.solve_transposed(psi.data());
        psi.resize(problem_.equations());
        if (!metric_.normalise(v.data())) return false;
        metric_.row(v.data(), rows_.data());
        // psi is dual to rows of F, which have the sizes of the variables: b = psi times their
        // squares.
        const std::vector<double>& scale = problem_.scale();
        double square = 0;
        for (std::size_t k = 0; k < psi.size(); ++k) {
            const double s = k < problem_.segments().equations() ? scale[k % scale.size()] : 1;
            column_[k] = psi[k] * s * s;
            square += psi[k] * column_[k];
        }
        for (double& b : column_) b /= std::sqrt(square);
        return std::isfinite(square) && square > 0;
    }

    CycleProblem& problem_;
    Metric metric_;
    std::size_t size_;
    std::vector<double> rows_, column_;
};

// Rows of F are integrals over intervals: row c of interval i stands for h_i times a function at a
// Gauss point, and the row's coefficient for the weight of the point times that of a function.
struct Lengths {
    double psi = 0, scaled_psi = 0;
};

Lengths lengths(const CycleProblem& problem, const std::vector<double>& psi) {
    const Collocation& segments = problem.segments();
    const GaussRule& rule = segments.rule();
    const std::size_t n = segments.states();
    Lengths out;
    for (std::size_t k = 0; k < segments.equations(); ++k) {
        const std::size_t i = k / (n * rule.m);
        const double h = segments.mesh()[i + 1] - segments.mesh()[i];
        const double share = h * rule.weight[k / n % rule.m];
        const double scale = problem.scale()[k % n];
        const double w = psi[k] * h / share;
        out.psi += share * w * w;
        out.scaled_psi += share * w * w * scale * scale;
    }
    out.psi = std::sqrt(out.psi);
    out.scaled_psi = std::sqrt(out.scaled_psi);
    return out;
}

// psi' F_zz(v, v): a row is sum_j l_j' x_j - h T f(x), of which x and T vary along v.
double second_derivative_of_rows(const CycleProblem& problem, const std::vector<double>& psi,
                                 const std::vector<double>& v) {
    const Collocation& segments = problem.segments();
    const std::size_t n = segments.states();
    const std::size_t m = segments.inner_points();
    const double T = segments.rate().period();
    const double T_v = problem.timing().autonomous() ? v[segments.equations()] : 0;
    std::vector<double> u(segments.equations());
    segments.to_gauss(v.data(), 1, u.data());
    const std::vector<double> B = second_derivative(problem, u);
    double sum = 0;
    for (std::size_t k = 0; k < u.size(); ++k) {
        const std::size_t point = k / n;
        const double* const G_x = segments.jacobian(point) + k % n * n;  // of T f
        const double along = dot(G_x, &u[point * n], n);
        const double h = segments.mesh()[point / m + 1] - segments.mesh()[point / m];
        sum -= psi[k] * h * (T * B[k] + 2 * T_v / T * along);
    }
    return sum;
}

}  // namespace

double root_mean_square(const Collocation& segments, const double* v) {
    const GaussRule& rule = segments.rule();
    const std::size_t n = segments.states();
    std::vector<double> values(segments.equations());
    segments.to_gauss(v, 1, values.data());
    double sum = 0;
    for (std::size_t k = 0; k < values.size(); ++k) {
        const std::size_t i = k / (n * rule.m);
        const double h = segments.mesh()[i + 1] - segments.mesh()[i];
        sum += h * rule.weight[k / n % rule.m] * values[k] * values[k];
    }
    return std::sqrt(sum);
}

double parameter_effect(const CycleProblem& problem) {
    const Collocation& segments = problem.segments();
    const GaussRule& rule = segments.rule();
    const std::size_t n = segments.states();
    const std::size_t scalars = segments.scalars();
    double sum = 0;
    for (std::size_t k = 0; k < segments.equations(); ++k) {
        const std::size_t i = k / (n * rule.m);
        const double h = segments.mesh()[i + 1] - segments.mesh()[i];
        const double column = segments.scalar_columns()[k * scalars + scalars - 1];
        const double f = column / (h * problem.scale()[k % n]);
        sum += h * rule.weight[k / n % rule.m] * f * f;
    }
    return std::sqrt(sum);
}

FoldForm fold_form(CycleProblem& problem, const std::vector<double>& z, bool coefficients) {
    FoldForm form;
    FoldVectors vectors(problem);
    if (!vectors.find(z)) return form;
    form.v = vectors.v;
    const double length = problem.length(form.v.data());
    if (!(length > 0)) return form;
    for (double& x : form.v) x /= length;
    std::vector<double> row(problem.unknowns());
    problem.apply_transposed(vectors.psi.data(), row.data());
    const Lengths lengths = trajex::lengths(problem, vectors.psi);
    form.unfolding = row.back() / lengths.psi;
    const double effect = parameter_effect(problem);
    const double most = lengths.scaled_psi * effect;
    // On a branch that does not depend on the parameter F_p is what Newton's method leaves, and
    // more beside a point where the equations are singular.
    std::vector<double> weights(problem.unknowns());
    problem.metric(weights);
    const double reach = std::max(1 / std::sqrt(weights.back()), std::fabs(z.back()));
    constexpr double nothing = 1e-6;
    const bool moves = effect * reach > nothing;
    form.transversality = moves && most > 0 ? std::fabs(row.back()) / most : 0;
    form.known = std::isfinite(form.transversality);
    if (!form.known || !coefficients) return form;

    // The integral of |psi|^2 is 1 and psi' F_p positive.
    for (double& w : vectors.psi) w /= std::copysign(lengths.psi, row.back());
    form.unfolding = std::fabs(form.unfolding);
    form.a = 0.5 * second_derivative_of_rows(problem, vectors.psi, form.v);
    form.curvature = -form.a / form.unfolding;
    const bool exact = problem.segments().rate().equations().has_exact_jacobian();
    form.curvature_error = (exact ? 1e-8 : 1e-5) * std::fabs(form.curvature);
    form.known = std::isfinite(form.curvature);
    return form;
}

}  // namespace trajex
