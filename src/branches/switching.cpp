// Branch points: a simple one is polished by Newton's method for F(z) + mu b = 0, G(z) = 0
// (kernel.hpp), a regular system even where a small imperfection pulls the two branches apart: mu
// is its size. With c_ij = psi^T F_zz(n_i, n_j) the directions alpha n1 + beta n2 of the branches
// are the roots of c11 alpha^2 + 2 c12 alpha beta + c22 beta^2. What the point is called is read
// off computed points of the branches. Larger kernels: Newton on a sphere, solutions already found
// divided out. References: Keller 1977; Beyn, Champneys, Doedel, Govaerts, Kuznetsov & Sandstede
// 2002; Farrell, Birkisson & Funke 2015.

#include "branches/switching.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <string>
#include <utility>

#include "branches/bordered_newton.hpp"
#include "branches/derivatives.hpp"
#include "branches/kernel.hpp"
#include "linalg/vectors.hpp"

namespace trajex {
namespace {

using Vector = std::vector<double>;

Vector moved(const Vector& z, const Vector& direction, double by) {
    Vector out(z);
    for (std::size_t i = 0; i < z.size(); ++i) out[i] += by * direction[i];
    return out;
}

Vector difference(const Vector& a, const Vector& b) {
    return moved(a, b, -1);
}

void scale(Vector& v, double by) {
    for (double& x : v) x *= by;
}

/// All work at one branch point.
class Analysis {
  public:
    Analysis(Problem& problem, const SwitchSettings& settings)
        : problem_(problem),
          settings_(settings),
          derivatives_(problem),
          newton_(problem, settings.tol),
          kernel_(problem),
          row_(problem.unknowns()) {}

    Crossing cross(const Vector& z, const Vector& tangent);
    std::vector<HalfBranch> half_branches(const Crossing& crossing, std::string& note);
    void name(Finding& finding);

  private:
    const Metric& metric() const { return derivatives_.metric(); }

    bool polish(Crossing& crossing);
    bool polish_step(Vector& z, double& mu, double& size);
    bool directions(Crossing& crossing, const Vector& tangent);
    bool describe_curve(Crossing& crossing);
    bool curvature(Crossing& crossing, double c12);

    bool beside(const Vector& z, const Vector& direction, double xi, Vector& out);
    bool beside_guarded(const Crossing& crossing, double side, HalfBranch& half);
    bool renew_tangent(HalfBranch& half);
    bool positive_exponents(const Vector& z, int& count);
    void name_simple(const Crossing& crossing, Finding& finding);
    std::string shape(const Crossing& crossing, double xi);
    double least_distance(const Crossing& crossing) const;
    std::string criticality(const Crossing& crossing, double xi);

    std::vector<HalfBranch> search_sphere(const Crossing& crossing, std::string& note);
    std::vector<HalfBranch> search_sphere_once(const Crossing& crossing, double radius,
                                               std::string& note);
    Vector start_direction(const std::vector<Vector>& basis, std::size_t index, Sequence& sequence);
    bool on_sphere(const Vector& centre, double radius, const std::vector<Vector>& found,
                   Vector& z);
    double deflation(const std::vector<Vector>& found, double radius, const Vector& z,
                     const Vector& step) const;
    bool shrink(const Vector& centre, double radius, const HalfBranch& half);

    Problem& problem_;
    SwitchSettings settings_;
    Derivatives derivatives_;
    BorderedNewton newton_;
    Kernel kernel_;
    Vector row_;
};

// ---- Simple branch points ----

// [ F_z  b ] [ dz ]   [ -F ]
// [ G_z  0 ] [ mu ] = [ -G ],   G_z = -psi^T F_zz(n_j, .), j = 1, 2
bool Analysis::polish_step(Vector& z, double& mu, double& size) {
    const std::size_t n = z.size();
    if (!kernel_.solve_simple(z.data())) return false;
    Vector gradients(2 * n);
    for (std::size_t j = 0; j < 2; ++j) {
        if (!derivatives_.second(z.data(), kernel_.basis[j].data(), 1, kernel_.left.data(),
                                 &gradients[j * n]))
            return false;
    }
    scale(gradients, -1);
    Vector rhs(n + 1);
    if (!problem_.linearise(z.data(), rhs.data())) return false;
    if (!problem_.factor(
            {.extra = 1, .rows = gradients.data(), .columns = kernel_.column().data()}))
        return false;
    rhs[n - 1] = kernel_.g[0];
    rhs[n] = kernel_.g[1];
    problem_.solve(rhs.data());
    mu = -rhs[n];
    for (std::size_t i = 0; i < n; ++i) z[i] -= rhs[i];
    size = metric().norm(rhs.data());
    kernel_.update_simple(metric());
    return std::isfinite(size) && std::isfinite(mu);
}

bool Analysis::polish(Crossing& crossing) {
    constexpr int most_iterations = 12;
    constexpr double farthest = 0.1;
    constexpr double rounding_level = 1e-8;
    Vector z = crossing.z;
    double mu = 0;
    double last = INFINITY;
    for (int iteration = 0; iteration < most_iterations; ++iteration) {
        double size = 0;
        if (!polish_step(z, mu, size) || metric().distance(z.data(), crossing.z.data()) > farthest)
            return false;
        if (size <= 1e-13 || (size < rounding_level && size > 0.3 * last)) {
            crossing.z = z;
            crossing.error = std::max(size, 1e-15);
            crossing.imperfection = mu;  // a distance is made of it once the form is known
            return kernel_.solve_simple(z.data());
        }
        last = size;
    }
    return false;
}

bool Analysis::directions(Crossing& crossing, const Vector& tangent) {
    const std::size_t n = crossing.z.size();
    const Vector n1 = crossing.basis[0];
    const Vector n2 = crossing.basis[1];
    Vector r1(n);
    Vector r2(n);
    const double* psi = crossing.psi.data();
    if (!derivatives_.second(crossing.z.data(), n1.data(), 1, psi, r1.data(), true)) return false;
    if (!derivatives_.second(crossing.z.data(), n2.data(), 1, psi, r2.data(), true)) return false;
    const double c11 = dot(r1, n1);
    const double c12 = (dot(r1, n2) + dot(r2, n1)) / 2;
    const double c22 = dot(r2, n2);
    const double size = std::max({std::abs(c11), std::abs(c12), std::abs(c22)});
    const double discriminant = c12 * c12 - c11 * c22;
    constexpr double degenerate = 1e-6;
    if (!(std::abs(discriminant) > degenerate * size * size)) {
        crossing.reason = "the branches touch: their directions are not two";
        return true;
    }
    if (discriminant < 0) {
        crossing.reason = "isolated solution: no branch passes through";
        return true;
    }
    // (alpha, beta) = (-c12 -+ root, c11) or (c22, -c12 +- root), each free of cancellation
    const double q = -(c12 + std::copysign(std::sqrt(discriminant), c12));
    std::array<Vector, 2> roots;
    for (std::size_t i = 0; i < n; ++i) {
        roots[0].push_back(q * n1[i] + c11 * n2[i]);
        roots[1].push_back(c22 * n1[i] + q * n2[i]);
    }
    for (Vector& root : roots) metric().normalise(root.data());
    double along[2];
    for (std::size_t j = 0; j < 2; ++j) along[j] = metric().dot(roots[j].data(), tangent.data());
    const std::size_t own = std::abs(along[0]) >= std::abs(along[1]) ? 0 : 1;
    crossing.along = roots[own];
    crossing.across = roots[1 - own];
    if (along[own] < 0) scale(crossing.along, -1);
    crossing.imperfection = std::sqrt(std::abs(crossing.imperfection / std::sqrt(discriminant)));
    return true;
}

// The curved branch as p = p0 + slope xi + curvature xi^2. With T the direction of the other one,
// dp = 1 along it, and phi the null vector without parameter component: slope = -c22 / (2 c12), c12
// = psi^T F_zz(T, phi), c22 = psi^T F_zz(phi, phi).
bool Analysis::describe_curve(Crossing& crossing) {
    const std::size_t n = crossing.z.size();
    const auto share = [&](const Vector& t) {
        return std::abs(t.back()) * std::sqrt(metric().weights().back());
    };
    constexpr double vertical = 1e-3;
    crossing.curved_is_along =
        share(crossing.along) < vertical && share(crossing.across) >= vertical;
    Vector trunk = crossing.trunk();
    if (share(trunk) < vertical) return true;  // both vertical: p does not tell the branches apart
    scale(trunk, 1 / trunk.back());

    // n2 or n1, whichever has more left of it, without its parameter component
    Vector phi = moved(crossing.basis[0], trunk, -crossing.basis[0].back());
    const Vector other = moved(crossing.basis[1], trunk, -crossing.basis[1].back());
    if (metric().norm(other.data()) > metric().norm(phi.data())) phi = other;
    const double length = problem_.length(phi.data());
    if (!(length > 0)) return false;
    scale(phi, 1 / length);
    phi.back() = 0;
    const auto largest = std::max_element(
        phi.begin(), phi.end(), [](double a, double b) { return std::abs(a) < std::abs(b); });
    if (*largest < 0) scale(phi, -1);
    crossing.phi = phi;

    Vector r(n);
    if (!derivatives_.second(crossing.z.data(), phi.data(), 1, crossing.psi.data(), r.data(), true))
        return false;
    const double c12 = dot(r, trunk);
    const double c22 = dot(r, phi);
    crossing.slope = -c22 / (2 * c12);
    const double error = derivatives_.error();
    crossing.slope_error =
        error *
        (metric().norm(phi.data()) + 2 * std::abs(crossing.slope) * metric().norm(trunk.data())) /
        (2 * std::abs(c12));
    return curvature(crossing, c12);
}

// curvature = -(psi^T F_zzz(phi, phi, phi) + 3 psi^T F_zz(phi, h)) / (6 c12)
// [ F_z    psi ] [ h ]   [ -F_zz(phi, phi) ]
// [ phi^T   0  ] [ . ] = [        0        ]     h without parameter component
// [ e_p^T   0  ]         [        0        ]
bool Analysis::curvature(Crossing& crossing, double c12) {
    constexpr double single_difference = 1e-9;  // relative, of h
    const std::size_t n = crossing.z.size();
    const double* z = crossing.z.data();
    const double* phi = crossing.phi.data();
    double third = 0;
    double third_error = 0;
    if (!derivatives_.third(z, phi, crossing.psi.data(), third, third_error)) return false;
    Vector h(n + 1, 0.0);
    if (!derivatives_.second_vector(z, phi, phi, h.data())) return false;
    Vector rows(2 * n, 0.0);
    metric().row(phi, rows.data());
    rows[2 * n - 1] = 1;
    if (!problem_.factor({.extra = 1, .rows = rows.data(), .columns = kernel_.column().data()}))
        return false;
    scale(h, -1);
    h[n - 1] = h[n] = 0;
    problem_.solve(h.data());
    Vector r(n);
    if (!derivatives_.second(z, phi, 1, crossing.psi.data(), r.data(), true)) return false;
    const double second = dot(r.data(), h.data(), n);
    crossing.curvature = -(third + 3 * second) / (6 * c12);
    crossing.curvature_error = (third_error + 3 * derivatives_.error() * metric().norm(h.data()) +
                                3 * single_difference * std::abs(second)) /
                                   std::abs(6 * c12) +
                               derivatives_.error() * metric().norm(crossing.trunk().data()) /
                                   std::abs(crossing.trunk().back() * c12) *
                                   std::abs(crossing.curvature);
    return true;
}

Crossing Analysis::cross(const Vector& z, const Vector& tangent) {
    Crossing crossing;
    crossing.z = z;
    crossing.along = tangent;
    if (!metric().normalise(crossing.along.data()) ||
        !kernel_.find(z.data(), metric(), crossing.kernel)) {
        crossing.reason = "the kernel cannot be computed there";
        return crossing;
    }
    crossing.basis = kernel_.basis;
    if (crossing.kernel > 2) {
        crossing.reason = "more than two branches may meet";
        return crossing;
    }
    if (!polish(crossing)) {
        crossing.reason = "no point where two branches meet was found nearby";
        return crossing;
    }
    orthonormalise(metric(), kernel_.basis);
    crossing.basis = kernel_.basis;
    crossing.psi = kernel_.left;
    if (!directions(crossing, tangent) ||
        (crossing.reason.empty() && problem_.active_parameters() == 1 && !describe_curve(crossing)))
        crossing.reason = "F cannot be computed around the point";
    return crossing;
}

// ---- Points beside a branch point ----

bool Analysis::beside(const Vector& z, const Vector& direction, double xi, Vector& out) {
    metric().row(direction.data(), row_.data());
    out = moved(z, direction, xi);
    return static_cast<bool>(newton_.correct(out, row_.data(), dot(row_, out), metric()));
}

// The first point of a half branch must not have fallen back onto the branch at hand: the part of z
// - z0 that is orthogonal to it has to be there.
bool Analysis::beside_guarded(const Crossing& crossing, double side, HalfBranch& half) {
    Vector own = crossing.across;
    const double overlap = metric().dot(own.data(), crossing.along.data());
    own = moved(own, crossing.along, -overlap);
    const double sine = metric().norm(own.data());
    for (const double factor : {1.0, 0.5, 2.0, 0.25, 4.0, 8.0, 16.0}) {
        const double xi = factor * std::max(settings_.step, least_distance(crossing));
        if (!beside(crossing.z, crossing.across, side * xi, half.z)) continue;
        const Vector offset = difference(half.z, crossing.z);
        const double kept = side * metric().dot(offset.data(), own.data()) / sine;
        if (kept < 0.5 * xi * sine) continue;
        half.tangent = crossing.across;
        scale(half.tangent, side);
        half.distance = metric().norm(offset.data());
        if (renew_tangent(half)) return true;
    }
    return false;
}

// The tangent of the branch that the point lies on, from a direction near it.
bool Analysis::renew_tangent(HalfBranch& half) {
    double residual = 0;
    metric().row(half.tangent.data(), row_.data());
    return newton_.tangent(half.z.data(), row_.data(), metric(), half.tangent, residual) ==
           BorderedNewton::Outcome::converged;
}

std::vector<HalfBranch> Analysis::half_branches(const Crossing& crossing, std::string& note) {
    if (crossing.across.empty()) return search_sphere(crossing, note);
    std::vector<HalfBranch> out;
    for (const double side : {1.0, -1.0}) {
        HalfBranch half;
        if (beside_guarded(crossing, side, half)) out.push_back(std::move(half));
    }
    note = std::to_string(out.size()) + " of 2 half branches";
    return out;
}

// ---- Names ----

// Scaled length along the curved branch over which p changes by a millionth of its window: nothing
// can be said of points nearer to the crossing.
double Analysis::least_distance(const Crossing& crossing) const {
    if (crossing.phi.empty()) return 0;
    const double change = 1e-6 / std::sqrt(metric().weights().back());
    const double by_slope = change / std::abs(crossing.slope);
    const double by_curvature = std::sqrt(change / std::abs(crossing.curvature));
    const double xi = std::min(by_slope, by_curvature);
    return std::isfinite(xi) ? xi * metric().norm(crossing.phi.data()) : 0;
}

bool Analysis::positive_exponents(const Vector& z, int& count) {
    Vector f(problem_.equations());
    Spectrum spectrum;
    if (!problem_.linearise(z.data(), f.data())) return false;
    problem_.spectrum(spectrum);
    count = 0;
    for (const Exponent& e : spectrum)
        if (e.kind == Exponent::Kind::real && e.value.real() > 0) ++count;
    return !spectrum.empty();
}

// Both sides of the curved branch lie on the same side of p0 (pitchfork) or on different ones.
// Empty: it cannot be told at this distance.
std::string Analysis::shape(const Crossing& crossing, double xi) {
    Vector plus;
    Vector minus;
    const Vector& curved = crossing.curved();
    if (!beside(crossing.z, curved, xi, plus) || !beside(crossing.z, curved, -xi, minus)) return {};
    const double p0 = crossing.z.back();
    const double s = plus.back() - p0;
    const double d = minus.back() - p0;
    constexpr double significant = 10;
    constexpr double vertical = 1e-9;
    if (std::max(std::abs(s), std::abs(d)) * std::sqrt(metric().weights().back()) < vertical)
        return {};
    const bool sloped = std::abs(crossing.slope) > significant * crossing.slope_error;
    if (s * d < 0) return sloped ? "transcritical" : "";
    const bool even =
        std::abs(std::abs(s) - std::abs(d)) < 0.3 * std::max(std::abs(s), std::abs(d));
    return even ? "pitchfork" : "";
}

// The branch that leaves a pitchfork is stable in the critical direction, or not: the parity of the
// number of positive real exponents is that of the stable or of the unstable side of the trunk.
std::string Analysis::criticality(const Crossing& crossing, double xi) {
    int trunk[2];
    int curved[2];
    for (int i = 0; i < 2; ++i) {
        const double side = i == 0 ? xi : -xi;
        Vector z;
        if (!beside(crossing.z, crossing.trunk(), side, z) || !positive_exponents(z, trunk[i]))
            return {};
        if (!beside(crossing.z, crossing.curved(), side, z) || !positive_exponents(z, curved[i]))
            return {};
    }
    if (std::abs(trunk[0] - trunk[1]) != 1 || curved[0] != curved[1]) return {};
    const bool stable = (curved[0] - std::min(trunk[0], trunk[1])) % 2 == 0;
    return stable ? "supercritical" : "subcritical";
}

void Analysis::name_simple(const Crossing& crossing, Finding& finding) {
    constexpr double first_distance = 0.03;
    const double least = least_distance(crossing);
    for (const double factor : {1.0, 0.25, 0.0625}) {
        const double xi = std::max(factor * first_distance, least * std::max(1.0, 4 * factor));
        finding.subtype = shape(crossing, xi);
        if (finding.subtype.empty()) continue;
        if (finding.subtype == "pitchfork") finding.criticality = criticality(crossing, xi);
        break;
    }
    if (crossing.imperfection > settings_.apart) {
        finding.subtype = "imperfect";
        finding.criticality.clear();
        finding.reason = "the branches miss each other by a scaled distance of " +
                         std::to_string(crossing.imperfection);
    } else if (finding.subtype.empty()) {
        finding.subtype = "undetermined";
        finding.reason = "points computed on both sides are neither a pitchfork nor transcritical";
    }
}

void Analysis::name(Finding& finding) {
    const Crossing crossing = cross(finding.z, finding.tangent);
    if (!crossing.across.empty()) {
        finding.z = crossing.z;
        finding.error = crossing.error / std::sqrt(metric().weights().back());
        finding.tangent = crossing.along;
        finding.null_vectors = {crossing.phi.empty() ? crossing.across : crossing.phi,
                                crossing.psi};
        if (!crossing.phi.empty()) {
            finding.coefficients.push_back({"slope", crossing.slope, crossing.slope_error});
            finding.coefficients.push_back({"k", crossing.curvature, crossing.curvature_error});
            name_simple(crossing, finding);
        }
        return;
    }
    finding.null_vectors = crossing.basis;
    finding.reason = crossing.reason;
    finding.subtype = "undetermined";
    if (crossing.kernel > 2) {
        std::string note;
        const std::size_t halves = half_branches(crossing, note).size();
        finding.subtype = "multiple";
        finding.reason = note;
        finding.coefficients.push_back({"half branches", static_cast<double>(halves), 0});
    } else if (crossing.kernel == 0) {
        finding.status = "unresolved";
    }
}

// ---- Search on a sphere ----

// Directions to start from: the basis of the kernel, sums and differences of two of its vectors,
// and then directions without a pattern.
Vector Analysis::start_direction(const std::vector<Vector>& basis, std::size_t index,
                                 Sequence& sequence) {
    const std::size_t k = basis.size();
    Vector weights(k, 0.0);
    const double side = index % 2 == 0 ? 1 : -1;
    const std::size_t which = index / 2;
    if (which < k) {
        weights[which] = side;
    } else if (which < k + k * (k - 1)) {
        const std::size_t pair = (which - k) / 2;
        std::size_t a = 0;
        std::size_t b = 1;
        for (std::size_t count = 0; count < pair; ++count) {
            if (++b == k) ++a, b = a + 1;
        }
        weights[a] = side;
        weights[b] = (which - k) % 2 == 0 ? side : -side;
    } else {
        for (double& w : weights) w = sequence.next();
    }
    Vector direction(basis[0].size(), 0.0);
    for (std::size_t j = 0; j < k; ++j) direction = moved(direction, basis[j], weights[j]);
    metric().normalise(direction.data());
    return direction;
}

// Newton's step d for F becomes d / (1 - q), q = <grad M, d> / M, when F is multiplied by
// M = prod (1 + r^2 / |z - z_i|^2) over the solutions found.
double Analysis::deflation(const std::vector<Vector>& found, double radius, const Vector& z,
                           const Vector& step) const {
    double q = 0;
    for (const Vector& other : found) {
        const Vector offset = difference(z, other);
        const double square = metric().dot(offset.data(), offset.data());
        const double along = metric().dot(offset.data(), step.data());
        q -= 2 * radius * radius * along / (square * (square + radius * radius));
    }
    return 1 / (1 - q);
}

// F = 0 and (|z - centre|^2 - radius^2) / (2 radius) = 0, none of the solutions found.
bool Analysis::on_sphere(const Vector& centre, double radius, const std::vector<Vector>& found,
                         Vector& z) {
    constexpr int most_iterations = 30;
    constexpr double distinct = 1e-3;
    constexpr double tol = 1e-9;
    const std::size_t n = z.size();
    Vector step(n);
    for (int iteration = 0; iteration < most_iterations; ++iteration) {
        const Vector offset = difference(z, centre);
        metric().row(offset.data(), row_.data());
        scale(row_, 1 / radius);
        if (!problem_.linearise(z.data(), step.data()) ||
            !problem_.factor({.extra = 0, .rows = row_.data(), .columns = nullptr}))
            return false;
        step[n - 1] = (metric().dot(offset.data(), offset.data()) - radius * radius) / (2 * radius);
        problem_.solve(step.data());
        scale(step, -1);
        double size = metric().norm(step.data());
        if (!std::isfinite(size)) return false;
        if (size <= tol * radius) {
            z = moved(z, step, 1);
            return std::none_of(found.begin(), found.end(), [&](const Vector& other) {
                return metric().distance(z.data(), other.data()) < distinct * radius;
            });
        }
        double factor = deflation(found, radius, z, step);
        const double longest = 0.5 * radius / size;
        if (!std::isfinite(factor)) factor = longest;
        z = moved(z, step, std::clamp(factor, -longest, longest));
    }
    return false;
}

// Follows a solution on the sphere towards its centre: only branches through the centre get there
// with their direction.
bool Analysis::shrink(const Vector& centre, double radius, const HalfBranch& half) {
    constexpr int halvings = 5;
    constexpr double turn = 0.6;
    Vector z = half.z;
    for (int i = 0; i < halvings; ++i) {
        const Vector before = moved(centre, difference(z, centre), 0.5);
        radius /= 2;
        z = before;
        if (!on_sphere(centre, radius, {}, z)) return false;
        if (metric().distance(z.data(), before.data()) > turn * radius) return false;
    }
    return true;
}

std::vector<HalfBranch> Analysis::search_sphere(const Crossing& crossing, std::string& note) {
    constexpr double radius_in_steps = 5;
    constexpr int most_softenings = 5;
    constexpr double resolved = 1e-6;
    std::vector<HalfBranch> out;
    const Metric original = derivatives_.metric();
    for (int softening = 0; out.empty() && softening < most_softenings; ++softening) {
        out = search_sphere_once(crossing, radius_in_steps * settings_.step, note);
        const double p0 = crossing.z.back();
        const double least = resolved / std::sqrt(metric().weights().back());
        const bool visible = std::any_of(out.begin(), out.end(), [&](const HalfBranch& half) {
            return std::abs(half.z.back() - p0) > least;
        });
        if (!visible && softening + 1 < most_softenings) out.clear();
        derivatives_.metric().soften(30, problem_.active_parameters());
    }
    derivatives_.metric() = original;
    return out;
}

std::vector<HalfBranch> Analysis::search_sphere_once(const Crossing& crossing, double radius,
                                                     std::string& note) {
    std::vector<Vector> basis = crossing.basis;
    std::vector<Vector> found;
    std::vector<HalfBranch> out;
    orthonormalise(metric(), basis);
    if (basis.size() < 2) {
        note = "no kernel";
        return out;
    }
    Vector along = crossing.along;
    metric().normalise(along.data());
    for (const double side : {radius, -radius}) {  // the branch at hand
        Vector z = moved(crossing.z, along, side);
        if (on_sphere(crossing.z, radius, found, z)) found.push_back(z);
    }
    Sequence sequence;
    std::vector<Vector>
        images;  // of solutions, mirrored by the branch at hand: solutions often, by symmetry
    const std::size_t most_starts = settings_.starts << (basis.size() - 2);
    // Where none of the directions with a pattern leads to a branch, more do not help.
    const std::size_t with_pattern = 2 * basis.size() * basis.size();
    std::size_t starts = 0;
    std::size_t plain = 0;
    for (; starts < most_starts && out.size() < settings_.most_branches; ++starts) {
        if (starts >= with_pattern && out.empty()) break;
        HalfBranch half;
        if (images.empty()) {
            half.z = moved(crossing.z, start_direction(basis, plain++, sequence), radius);
        } else {
            half.z = std::move(images.back());
            images.pop_back();
        }
        if (!on_sphere(crossing.z, radius, found, half.z)) continue;
        found.push_back(half.z);
        const Vector offset = difference(half.z, crossing.z);
        const double share = metric().dot(offset.data(), along.data());
        images.push_back(moved(moved(crossing.z, offset, -1), along, 2 * share));
        if (!shrink(crossing.z, radius, half)) continue;
        half.tangent = difference(half.z, crossing.z);
        half.distance = metric().norm(half.tangent.data());
        if (!renew_tangent(half)) continue;
        out.push_back(std::move(half));
    }
    note = std::to_string(out.size()) + " half branches found by " + std::to_string(starts) +
           " searches" + (out.size() >= settings_.most_branches ? ", ended at the limit" : "");
    return out;
}

}  // namespace

Crossing cross(Problem& problem, const Vector& z, const Vector& tangent,
               const SwitchSettings& settings) {
    return Analysis(problem, settings).cross(z, tangent);
}

std::vector<HalfBranch> half_branches(Problem& problem, const Crossing& crossing, std::string& note,
                                      const SwitchSettings& settings) {
    return Analysis(problem, settings).half_branches(crossing, note);
}

void name_branch_point(Problem& problem, Finding& finding, const SwitchSettings& settings) {
    Analysis(problem, settings).name(finding);
}

}  // namespace trajex
