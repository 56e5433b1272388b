// Kernels by bordering. With random borders of full rank the bordered matrix is regular however F_z
// is rank-deficient (up to `extra`), and the deficiency is that of the small matrix G, whose
// singular values one-sided Jacobi rotations give to full relative accuracy. The columns C are
// scaled like the rows of F_z, so that what counts as zero does not depend on units. Reference:
// Govaerts 2000, ch. 3.

#include "branches/kernel.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

#include "linalg/vectors.hpp"

namespace trajex {
namespace {

/// (p, q) <- (c p - s q, s p + c q)
void rotate(double* p, double* q, std::size_t n, double c, double s) {
    for (std::size_t i = 0; i < n; ++i) {
        const double x = p[i];
        p[i] = c * x - s * q[i];
        q[i] = s * x + c * q[i];
    }
}

/// Makes the k columns of g (each of r numbers) orthogonal by rotations, which v (k columns of k
/// numbers) collects: G V = U Sigma.
void jacobi_svd(std::size_t r, std::size_t k, double* g, double* v) {
    constexpr int most_sweeps = 30;
    bool rotated = true;
    for (int sweep = 0; rotated && sweep < most_sweeps; ++sweep) {
        rotated = false;
        for (std::size_t a = 0; a + 1 < k; ++a) {
            for (std::size_t b = a + 1; b < k; ++b) {
                const double aa = dot(g + a * r, g + a * r, r);
                const double bb = dot(g + b * r, g + b * r, r);
                const double ab = dot(g + a * r, g + b * r, r);
                if (!(std::abs(ab) > 1e-15 * std::sqrt(aa * bb))) continue;
                const double tau = (bb - aa) / (2 * ab);
                const double t = std::copysign(1.0, tau) / (std::abs(tau) + std::hypot(1.0, tau));
                const double c = 1 / std::hypot(1.0, t);
                rotate(g + a * r, g + b * r, r, c, c * t);
                rotate(v + a * k, v + b * k, k, c, c * t);
                rotated = true;
            }
        }
    }
}

}  // namespace

double Sequence::next() {
    state_ = state_ * 6364136223846793005ULL + 1442695040888963407ULL;
    return static_cast<double>(state_ >> 11U) * 0x1p-52 - 1.0;
}

void orthonormalise(const Metric& metric, std::vector<std::vector<double>>& vectors) {
    std::vector<std::vector<double>> done;
    for (std::vector<double>& v : vectors) {
        if (!metric.normalise(v.data())) continue;
        for (int twice = 0; twice < 2; ++twice) {
            for (const std::vector<double>& e : done) {
                const double component = metric.dot(v.data(), e.data());
                for (std::size_t i = 0; i < v.size(); ++i) v[i] -= component * e[i];
            }
        }
        constexpr double dependent = 1e-10;
        if (metric.norm(v.data()) > dependent && metric.normalise(v.data())) done.push_back(v);
    }
    vectors = std::move(done);
}

Kernel::Kernel(Problem& problem)
    : problem_(problem), n_(problem.unknowns()), m_(problem.equations()), f_(m_) {}

// The largest scaled entries of the rows. Where there are many columns, the root mean squares of
// F_z v over random vectors stand for them: a size within a small factor is enough.
void Kernel::measure_rows(const Metric& metric) {
    constexpr std::size_t probes = 32;
    constexpr std::size_t few = 64;
    const bool one_by_one = n_ <= few;
    const std::size_t count = one_by_one ? n_ : probes;
    Sequence sequence;
    std::vector<double> v(n_, 0.0);
    std::vector<double> sizes(m_, 0.0);
    for (std::size_t j = 0; j < count; ++j) {
        for (std::size_t i = 0; i < n_; ++i) {
            const double entry = one_by_one ? (i == j ? 1.0 : 0.0) : sequence.next();
            v[i] = entry / std::sqrt(metric.weights()[i]);
        }
        problem_.apply(v.data(), f_.data());
        for (std::size_t i = 0; i < m_; ++i) {
            sizes[i] = one_by_one ? std::max(sizes[i], std::abs(f_[i]))
                                  : std::hypot(sizes[i], f_[i] / std::sqrt(double(probes) / 3));
        }
    }
    for (std::size_t i = 0; i < m_; ++i) row_size_[i] = std::max(row_size_[i], sizes[i]);
}

// The sizes of the rows of F_z, at z and at a point beside it: at a branch point a whole row may
// vanish.
bool Kernel::equilibrate(const double* z, const Metric& metric) {
    constexpr double beside = 0.1;
    Sequence sequence;
    std::vector<double> other(z, z + n_);
    for (std::size_t i = 0; i < n_; ++i)
        other[i] += beside * sequence.next() / std::sqrt(metric.weights()[i]);
    row_size_.assign(m_, 0.0);
    if (problem_.linearise(other.data(), f_.data())) measure_rows(metric);
    if (!problem_.linearise(z, f_.data())) return false;
    measure_rows(metric);
    const double largest = *std::max_element(row_size_.begin(), row_size_.end());
    for (double& size : row_size_)
        if (!(size > 0)) size = largest > 0 ? largest : 1;
    return std::isfinite(largest);
}

void Kernel::fixed_borders(std::size_t extra, const Metric& metric) {
    Sequence sequence;
    rows_.resize((extra + 1) * n_);
    columns_.resize(extra * m_);
    for (std::size_t i = 0; i < rows_.size(); ++i)
        rows_[i] = sequence.next() * std::sqrt(metric.weights()[i % n_]);
    for (std::size_t i = 0; i < columns_.size(); ++i)
        columns_[i] = sequence.next() * row_size_[i % m_];
}

bool Kernel::solve(const double* z, std::size_t extra) {
    if (!problem_.linearise(z, f_.data())) return false;
    if (!problem_.factor({.extra = extra, .rows = rows_.data(), .columns = columns_.data()}))
        return false;
    const std::size_t size = n_ + extra;
    solution_.assign((extra + 1) * size, 0.0);
    for (std::size_t j = 0; j <= extra; ++j) {
        solution_[j * size + m_ + j] = 1;
        problem_.solve(&solution_[j * size]);
    }
    const auto finite = [](double x) { return std::isfinite(x); };
    return std::all_of(solution_.begin(), solution_.end(), finite);
}

// basis = X null(G)
std::size_t Kernel::combine(std::size_t extra, const Metric& metric) {
    const std::size_t k = extra + 1;
    const std::size_t size = n_ + extra;
    std::vector<double> small(k * extra);
    std::vector<double> v(k * k, 0.0);
    for (std::size_t j = 0; j < k; ++j) {
        std::copy_n(&solution_[j * size + n_], extra, &small[j * extra]);
        v[j * k + j] = 1;
    }
    jacobi_svd(extra, k, small.data(), v.data());
    std::vector<std::pair<double, std::size_t>> order;
    for (std::size_t j = 0; j < k; ++j)
        order.emplace_back(std::sqrt(dot(&small[j * extra], &small[j * extra], extra)), j);
    std::sort(order.begin(), order.end());

    // One singular value is zero since G has more columns than rows, a second one because this is a
    // branch point; others are if they are not much larger than the second.
    const double zero = std::min(1e-4, 1e-7 + 1e2 * order[1].first);
    std::size_t dimension = 2;
    while (dimension < k && order[dimension].first <= zero) ++dimension;
    basis.assign(dimension, std::vector<double>(n_, 0.0));
    for (std::size_t d = 0; d < dimension; ++d) {
        for (std::size_t j = 0; j < k; ++j) {
            const double weight = v[order[d].second * k + j];
            for (std::size_t i = 0; i < n_; ++i) basis[d][i] += weight * solution_[j * size + i];
        }
    }
    orthonormalise(metric, basis);
    return basis.size();
}

bool Kernel::find(const double* z, const Metric& metric, std::size_t& dimension) {
    const std::size_t extra = std::min(m_, most - 1);
    if (!equilibrate(z, metric)) return false;
    fixed_borders(extra, metric);
    if (!solve(z, extra)) return false;
    dimension = combine(extra, metric);
    if (dimension != 2) return dimension > 2;

    columns_.resize(m_);
    left.assign(m_, 0.0);
    for (int refinement = 0; refinement < 2; ++refinement) {
        rows_.resize(2 * n_);
        for (std::size_t j = 0; j < 2; ++j) metric.row(basis[j].data(), &rows_[j * n_]);
        if (!solve_simple(z)) return false;
        update_simple(metric);
    }
    return true;
}

bool Kernel::solve_simple(const double* z) {
    if (!solve(z, 1)) return false;
    basis.resize(2);
    for (std::size_t j = 0; j < 2; ++j) {
        const double* x = &solution_[j * (n_ + 1)];
        basis[j].assign(x, x + n_);
        g[j] = x[n_];
    }
    std::vector<double>& w = solution_;
    w.assign(n_ + 1, 0.0);
    w[n_] = 1;
    problem_.solve_transposed(w.data());
    left.assign(w.begin(), w.begin() + static_cast<std::ptrdiff_t>(m_));
    return true;
}

void Kernel::update_simple(const Metric& metric) {
    orthonormalise(metric, basis);
    for (std::size_t j = 0; j < basis.size(); ++j) metric.row(basis[j].data(), &rows_[j * n_]);
    double size = 0;
    for (std::size_t i = 0; i < m_; ++i) size += std::pow(left[i] * row_size_[i], 2);
    size = std::sqrt(size);
    for (std::size_t i = 0; i < m_; ++i) {
        columns_[i] = row_size_[i] * (row_size_[i] * left[i] / size);
        left[i] /= size;  // C' left = 1 stays true
    }
}

}  // namespace trajex
