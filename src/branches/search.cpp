// Equilibria from guesses. Newton's method is damped so that the next simplified correction
// A^-1 f(x + step) is shorter than the last one, a test that does not depend on how equations are
// scaled (Deuflhard, Newton Methods for Nonlinear Problems, Springer 2004, 3.3). Known solutions
// are deflated (Farrell, Birkisson, Funke, SIAM J. Sci. Comput. 37 (2015) A2026).
#include "branches/search.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <span>

#include "branches/equilibrium_problem.hpp"
#include "linalg/vectors.hpp"
#include "tx/error.hpp"
#include "tx/system.hpp"

namespace trajex {

namespace {

constexpr int max_steps = 100;
constexpr double least_damping = 1e-5;

}  // namespace

EquilibriumNewton::EquilibriumNewton(const Model& model, double tol, double floor)
    : equations_(*model.equations),
      c_(model.values),
      n_(model.states.size()),
      tol_(tol),
      floor_(floor),
      f_(n_),
      jacobian_(n_ * n_),
      step_(n_),
      trial_(n_),
      trial_step_(n_),
      gradient_(n_),
      lu_(n_) {}

void EquilibriumNewton::deflate(const std::vector<std::vector<double>>* known, const tx::Box* box) {
    known_ = known;
    box_ = box;
    for (const tx::Window& w : *box) widths_.push_back(w.hi - w.lo);
}

bool EquilibriumNewton::far_outside(const std::vector<double>& x) const {
    if (box_ == nullptr) return false;
    for (std::size_t i = 0; i < n_; ++i) {
        const tx::Window& w = (*box_)[i];
        if (x[i] < w.lo - widths_[i] || x[i] > w.hi + widths_[i]) return true;
    }
    return false;
}

bool EquilibriumNewton::fail(const char* reason) {
    reason_ = reason;
    return false;
}

bool EquilibriumNewton::evaluate(const std::vector<double>& x, bool with_jacobian) {
    const double t = 0;
    if (!with_jacobian) {
        equations_.values(1, &t, x.data(), c_.data(), f_.data());
        return all_finite(f_);
    }
    equations_.jacobians(1, &t, x.data(), c_.data(), f_.data(), jacobian_.data());
    return all_finite(f_) && all_finite(jacobian_);
}

/// Factors 1/h - A; without a time step that is -A, which gives Newton's step from f.
bool EquilibriumNewton::factor(double inverse_time_step) {
    double* const matrix = lu_.matrix(n_);
    for (std::size_t i = 0; i < n_ * n_; ++i) matrix[i] = -jacobian_[i];
    for (std::size_t i = 0; i < n_; ++i) matrix[i * n_ + i] += inverse_time_step;
    return lu_.decompose_in_place();
}

/// The largest component of a step, each relative to the size of its variable.
double EquilibriumNewton::length(const std::vector<double>& step,
                                 const std::vector<double>& x) const {
    const double least = std::max({1e-3 * largest(x), floor_, 1e-6});
    double size = 0;
    for (std::size_t i = 0; i < n_; ++i) {
        const double relative = std::fabs(step[i]) / std::max(std::fabs(x[i]), least);
        if (!(relative <= size)) size = relative;  // a NaN stays
    }
    return size;
}

/// log prod (1 + 1 / |x - r|^2), and its gradient.
double EquilibriumNewton::log_deflation(const std::vector<double>& x,
                                        std::vector<double>* gradient) const {
    double sum = 0;
    if (gradient != nullptr) std::fill(gradient->begin(), gradient->end(), 0.0);
    if (known_ == nullptr) return sum;
    for (const std::vector<double>& root : *known_) {
        double square = 0;
        for (std::size_t i = 0; i < n_; ++i) {
            const double d = (x[i] - root[i]) / widths_[i];
            square += d * d;
        }
        square = std::max(square, 1e-300);
        sum += std::log1p(1 / square);
        if (gradient == nullptr) continue;
        for (std::size_t i = 0; i < n_; ++i) {
            const double d = (x[i] - root[i]) / (widths_[i] * widths_[i]);
            (*gradient)[i] -= 2 * d / (square * (1 + square));
        }
    }
    return sum;
}

/// One step from x, where f and its Jacobian have been evaluated.
EquilibriumNewton::Step EquilibriumNewton::damped_step(std::vector<double>& x) {
    if (!factor(0)) return Step::not_finite;
    step_ = f_;
    lu_.solve(step_.data());
    if (!all_finite(step_)) return Step::singular;

    // The step for m f is that for f over 1 - <grad m / m, step>.
    const double log_m = log_deflation(x, known_ != nullptr ? &gradient_ : nullptr);
    double stretch = 1;
    if (known_ != nullptr) {
        for (std::size_t i = 0; i < n_; ++i) stretch -= gradient_[i] * step_[i];
        if (stretch == 0 || !std::isfinite(stretch)) return Step::singular;
        for (double& s : step_) s /= stretch;
    }
    step_length_ = length(step_, x);

    damping_ = std::min(1.0, 4 * damping_);
    for (std::size_t i = 0; i < widths_.size(); ++i) {
        damping_ = std::min(damping_, 0.5 * widths_[i] / std::fabs(step_[i]));
    }
    damping_ = std::max(damping_, least_damping);
    bool finite = false;
    for (; damping_ >= least_damping; damping_ /= 2) {
        for (std::size_t i = 0; i < n_; ++i) trial_[i] = x[i] + damping_ * step_[i];
        if (!evaluate(trial_, false)) continue;
        finite = true;
        trial_step_ = f_;
        lu_.solve(trial_step_.data());
        const double growth = std::exp(log_deflation(trial_, nullptr) - log_m) / std::fabs(stretch);
        const double next = growth * length(trial_step_, x);
        if (next <= (1 - damping_ / 4) * step_length_ || next < tol_) {
            x = trial_;
            return Step::made;
        }
    }
    return finite ? Step::none : Step::not_finite;
}

/// Whether f(x) is zero to rounding of its terms, as far as these can be seen from the Jacobian.
bool EquilibriumNewton::solved(const std::vector<double>& x) const {
    for (std::size_t i = 0; i < n_; ++i) {
        double terms = 0;
        for (std::size_t j = 0; j < n_; ++j) {
            terms += std::fabs(jacobian_[i * n_ + j]) *
                     std::max(std::fabs(x[j]), std::max(floor_, 1e-3 * largest(x)));
        }
        if (!(std::fabs(f_[i]) <= 1e-10 * terms + 1e-300)) return false;
    }
    return true;
}

bool EquilibriumNewton::solve(std::vector<double>& x) {
    damping_ = 1;
    double before = 0;
    for (int k = 0; k < max_steps; ++k) {
        if (!evaluate(x, true)) {
            return fail(k == 0 ? "the right-hand side or its Jacobian is not finite at the guess"
                               : "the right-hand side or its Jacobian is not finite");
        }
        switch (damped_step(x)) {
            case Step::singular:
                return fail("the Jacobian is singular");
            case Step::not_finite:
                return fail("the right-hand side is not finite along the Newton step");
            case Step::none:
                // Where the step is lost in rounding, no shorter correction can be seen.
                if (step_length_ < 1e-6 && evaluate(x, true) && solved(x)) return polish(x);
                return fail("Newton's method came to a point from which no step leads on");
            case Step::made:
                break;
        }
        if (largest(x) > 1e150) return fail("Newton's method diverged");
        if (far_outside(x)) return fail("the search left the box");
        if (step_length_ <= tol_) return polish(x);
        // At a multiple solution steps are halved down to the root of rounding, no further.
        const bool stagnates = step_length_ < 1e-7 && step_length_ > 0.3 * before;
        if (stagnates && evaluate(x, true) && solved(x)) return polish(x);
        before = step_length_;
    }
    return fail("Newton's method did not converge in 100 steps");
}

/// Plain steps for as long as they are getting shorter.
bool EquilibriumNewton::polish(std::vector<double>& x) {
    double before = std::numeric_limits<double>::infinity();
    for (int k = 0; k < 4; ++k) {
        if (!evaluate(x, true)) return fail("the right-hand side is not finite at the solution");
        residual_ = largest(f_);
        if (!factor(0)) break;
        step_ = f_;
        lu_.solve(step_.data());
        const double now = length(step_, x);
        if (!(now < 0.5 * before) || now > 1e-6) break;
        for (std::size_t i = 0; i < n_; ++i) x[i] += step_[i];
        before = now;
    }
    if (!evaluate(x, true)) return fail("the right-hand side is not finite at the solution");
    residual_ = largest(f_);
    return true;
}

bool EquilibriumNewton::settle(std::vector<double>& x) {
    if (!evaluate(x, true)) return fail("the right-hand side is not finite at the guess");
    // A first time step in which no variable changes by more than a tenth of its size.
    double h = 0.1 / std::max(length(f_, x), 1e-12);
    for (int k = 0; k < 3 * max_steps; ++k) {
        if (!factor(1 / h)) return fail("the right-hand side is not finite");
        step_ = f_;
        lu_.solve(step_.data());
        const double change = length(step_, x);
        for (std::size_t i = 0; i < n_; ++i) trial_[i] = x[i] + step_[i];
        if (change <= 1 && evaluate(trial_, true)) {
            x = trial_;
            if (change <= 1e-6 && solved(x)) return solve(x);
            h *= change < 0.1 ? 3 : 1.3;
        } else {
            h /= 4;
            if (!(h > 1e-30) || !evaluate(x, true)) return fail("no time step could be made");
        }
    }
    return fail("the flow did not settle");
}

PointData equilibrium_point(const ModelPtr& model, const std::vector<double>& x, double residual) {
    PointData point;
    point.model = model;
    point.kind = SolutionKind::equilibrium;
    point.residual = residual;
    point.state = x;
    EquilibriumProblem problem(model->equations, model->values, {}, {}, x);
    std::vector<double> f(x.size());
    point.description = problem.describe(x.data());
    if (problem.linearise(x.data(), f.data())) problem.spectrum(point.spectrum);
    for (const Exponent& exponent : point.spectrum) point.exponents.push_back(exponent.value);
    return point;
}

PointData find_equilibrium(const ModelPtr& model, const std::vector<double>& guess,
                           const tx::Options& options) {
    EquilibriumNewton newton(*model, options.tol, options.floor);
    std::vector<double> x = guess;
    if (newton.solve(x)) return equilibrium_point(model, x, newton.residual());
    const std::string reason = newton.reason();
    x = guess;
    if (newton.settle(x)) return equilibrium_point(model, x, newton.residual());

    PointData none;
    none.model = model;
    none.status = "not found";
    none.reason = reason;
    none.state = guess;
    none.description.parameters = model->values;
    none.description.state = guess;
    return none;
}

namespace {

/// Points spread evenly over the unit cube: the j-th coordinate of point i is i written backwards
/// in the base of the j-th prime (Halton, Numer. Math. 2 (1960) 84).
class Halton {
  public:
    explicit Halton(std::size_t dimensions) {
        for (std::size_t candidate = 2; primes_.size() < dimensions; ++candidate) {
            const auto divides = [&](std::size_t p) { return candidate % p == 0; };
            if (std::none_of(primes_.begin(), primes_.end(), divides)) primes_.push_back(candidate);
        }
    }
    double coordinate(std::size_t i, std::size_t j) const {
        const auto base = static_cast<double>(primes_[j]);
        double value = 0;
        double digit = 1;
        for (; i > 0; i /= primes_[j]) {
            digit /= base;
            value += digit * static_cast<double>(i % primes_[j]);
        }
        return value;
    }

  private:
    std::vector<std::size_t> primes_;
};

/// Newton searches from scattered starts, each one repeated with what is known deflated for as long
/// as it finds something new.
class BoxSearch {
  public:
    BoxSearch(const ModelPtr& model, const tx::Box& box, const tx::Options& options)
        : model_(model),
          box_(box),
          deflated_(*model, options.tol, options.floor),
          plain_(*model, options.tol, options.floor),
          halton_(box.size()) {
        for (const tx::Window& w : box) widths_.push_back(w.hi - w.lo);
        deflated_.deflate(&known_, &box);
    }

    tx::Equilibria run() {
        const std::size_t n = box_.size();
        std::vector<double> x(n);
        for (std::size_t i = 1; !enough(); ++i) {
            do {
                for (std::size_t j = 0; j < n; ++j) {
                    // The middle first.
                    const double u = i == 1 ? 0.5 : halton_.coordinate(i, j);
                    x[j] = box_[j].lo + u * widths_[j];
                }
            } while (search(x) && !enough());
        }
        return std::move(result_);
    }

  private:
    bool enough() const {
        const std::size_t patience = 30 + 10 * box_.size() + 5 * known_.size();
        return result_.fruitless >= std::min<std::size_t>(patience, 300) ||
               result_.starts >= 5000 || result_.points.size() >= 200 || known_.size() >= 1000;
    }

    /// Whether the search from x found a solution that was not known.
    bool search(std::vector<double>& x) {
        ++result_.starts;
        ++result_.fruitless;
        // The deflated function is steep near what is known: the plain one has the last word.
        if (!deflated_.solve(x) || !plain_.solve(x) || is_known(x)) return false;
        known_.push_back(x);
        if (!inside(x)) return true;
        result_.fruitless = 0;
        const PointData point = equilibrium_point(model_, x, plain_.residual());
        result_.points.emplace_back(std::make_shared<const PointData>(point));
        return true;
    }

    bool is_known(const std::vector<double>& x) const {
        return std::any_of(known_.begin(), known_.end(), [&](const std::vector<double>& root) {
            bool same = true;
            for (std::size_t j = 0; j < x.size(); ++j) {
                same = same && std::fabs(x[j] - root[j]) <= 1e-6 * widths_[j];
            }
            return same;
        });
    }

    /// The ends of the box count as inside, to rounding.
    bool inside(const std::vector<double>& x) const {
        for (std::size_t j = 0; j < x.size(); ++j) {
            const double margin = 1e-9 * widths_[j];
            if (x[j] < box_[j].lo - margin || x[j] > box_[j].hi + margin) return false;
        }
        return true;
    }

    ModelPtr model_;
    const tx::Box& box_;
    EquilibriumNewton deflated_;
    EquilibriumNewton plain_;
    Halton halton_;
    std::vector<double> widths_;
    std::vector<std::vector<double>> known_;
    tx::Equilibria result_;
};

}  // namespace

}  // namespace trajex

namespace tx {

Point System::equilibrium(const std::vector<double>& guess, const Options& options) const {
    trajex::check_state(*model_, guess, "the guess");
    return Point(std::make_shared<const trajex::PointData>(
        trajex::find_equilibrium(model_, guess, options)));
}

Equilibria System::equilibria(const Box& box, const Options& options) const {
    if (box.size() != states().size()) {
        throw Error("the box has " + std::to_string(box.size()) + " sides; the system has " +
                    std::to_string(states().size()) + " variables: " + trajex::listed(states()));
    }
    for (std::size_t i = 0; i < box.size(); ++i) {
        trajex::check_window(box[i], "'" + states()[i] + "'");
    }
    return trajex::BoxSearch(model_, box, options).run();
}

std::string Equilibria::text() const {
    return std::to_string(points.size()) + " equilibria from " + std::to_string(starts) +
           " Newton searches, the last " + std::to_string(fruitless) +
           " of which found nothing new";
}

}  // namespace tx
