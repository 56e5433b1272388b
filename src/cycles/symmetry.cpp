// The sign of each variable is the one that fits better; a variable that is zero all along has the
// sign for which the right-hand side beside the orbit fits,
//
//     f(t + T/2, S x, c) = S f(t, x, c).
//
// The half map S Phi_{1/2} has the square roots nu of the multipliers: a fold has nu = 1, a branch
// of less symmetric cycles begins where nu = -1.
#include "cycles/symmetry.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace trajex {

namespace {

constexpr std::size_t phases = 64;  // even

std::size_t half_later(std::size_t k) {
    return (k + phases / 2) % phases;
}

/// The largest |x_a(tau + 1/2) - sign x_a(tau)|.
double misfit(const std::vector<double>& points, std::size_t n, std::size_t a, int sign) {
    double largest = 0;
    for (std::size_t k = 0; k < phases; ++k)
        largest =
            std::max(largest, std::fabs(points[half_later(k) * n + a] - sign * points[k * n + a]));
    return largest;
}

/// The right-hand side has the symmetry at places around the orbit.
bool is_equivariant(const Rate& rate, const Orbit& orbit, const std::vector<double>& points,
                    const std::vector<double>& scale, const std::vector<int>& signs) {
    constexpr std::size_t places = 7;
    constexpr double away = 0.05;
    constexpr double close = 1e-9;
    const std::size_t n = orbit.states;
    std::vector<double> x(n), image(n), f(n), g(n);
    double largest = 0;
    std::vector<double> misfits(n, 0.0), sizes(n, 0.0);
    for (std::size_t i = 0; i < places; ++i) {
        const std::size_t k = i * phases / places;
        const double t = orbit.t0 + orbit.period * static_cast<double>(k) / phases;
        const double later = t + 0.5 * orbit.period;
        for (std::size_t a = 0; a < n; ++a) {
            const auto seed = static_cast<double>(1 + a + n * i);
            x[a] = points[k * n + a] + away * scale[a] * std::sin(2.3 * seed);
            image[a] = signs[a] * x[a];
        }
        rate.equations().values(1, &t, x.data(), rate.parameters().data(), f.data());
        rate.equations().values(1, &later, image.data(), rate.parameters().data(), g.data());
        for (std::size_t a = 0; a < n; ++a) {
            misfits[a] = std::max(misfits[a], std::fabs(g[a] - signs[a] * f[a]));
            sizes[a] = std::max(sizes[a], std::fabs(f[a]));
            largest = std::max(largest, std::fabs(f[a]) / scale[a]);
        }
    }
    for (std::size_t a = 0; a < n; ++a)
        if (!(misfits[a] <= close * std::max(sizes[a], largest * scale[a]))) return false;
    return true;
}

}  // namespace

std::vector<int> half_period_symmetry(const Rate& rate, const Orbit& orbit,
                                      const std::vector<double>& scale, double tolerance) {
    const std::size_t n = orbit.states;
    const std::vector<double> points = orbit.sampled(phases);
    std::vector<int> signs(n, 1);
    std::vector<std::size_t> open;  // either sign fits
    bool identity = true;
    for (std::size_t a = 0; a < n; ++a) {
        const double even = misfit(points, n, a, 1);
        const double odd = misfit(points, n, a, -1);
        const double enough = tolerance * scale[a];
        if (!(std::min(even, odd) <= enough)) return {};
        signs[a] = odd < even ? -1 : 1;
        if (std::max(even, odd) <= enough)
            open.push_back(a);
        else if (odd < even)
            identity = false;
    }
    constexpr std::size_t most_open = 8;
    if (identity || open.size() > most_open) return {};
    for (std::uint32_t choice = 0; choice < 1U << open.size(); ++choice) {
        for (std::size_t j = 0; j < open.size(); ++j)
            signs[open[j]] = (choice >> j & 1U) != 0 ? -1 : 1;
        if (is_equivariant(rate, orbit, points, scale, signs)) return signs;
    }
    return {};
}

double half_period_multiplier(const Orbit& orbit, std::span<const double> v,
                              const std::vector<double>& scale, const std::vector<int>& signs) {
    const std::size_t n = orbit.states;
    Orbit curve = orbit;
    curve.x.assign(v.begin(), v.end());
    curve.x.insert(curve.x.end(), v.begin(), v.begin() + static_cast<std::ptrdiff_t>(n));
    const std::vector<double> points = curve.sampled(phases);
    double product = 0;
    double square = 0;
    for (std::size_t k = 0; k < phases; ++k) {
        for (std::size_t a = 0; a < n; ++a) {
            const double now = points[k * n + a] / scale[a];
            product += signs[a] * now * points[half_later(k) * n + a] / scale[a];
            square += now * now;
        }
    }
    return square > 0 ? product / square : 0;
}

std::vector<int> reflection_of_equations(const Rate& rate, const Orbit& orbit,
                                         const std::vector<double>& scale) {
    constexpr std::size_t most_states = 6;
    const std::size_t n = orbit.states;
    if (n > most_states) return {};
    const std::vector<double> points = orbit.sampled(phases);
    std::vector<int> signs(n);
    for (std::uint32_t choice = 1; choice < 1U << n; ++choice) {
        for (std::size_t a = 0; a < n; ++a) signs[a] = (choice >> a & 1U) != 0 ? -1 : 1;
        if (is_equivariant(rate, orbit, points, scale, signs)) return signs;
    }
    return {};
}

std::vector<double> symmetry_samples(const Orbit& cycle) {
    return cycle.sampled(phases);
}

// The misfit grows from zero in proportion to arclength, and would change its sign on the way back.
void BrokenSymmetry::remember(const std::vector<double>& points, const std::vector<double>& scale) {
    const std::size_t n = scale.size();
    std::vector<double> misfit(points.size());
    double square = 0;
    double square_before = 0;
    double product = 0;
    for (std::size_t k = 0; k < phases; ++k) {
        for (std::size_t a = 0; a < n; ++a) {
            const std::size_t i = k * n + a;
            misfit[i] = points[half_later(k) * n + a] - signs_[a] * points[i];
            const double now = misfit[i] / scale[a];
            const double earlier = misfit_.empty() ? 0 : misfit_[i] / scale[a];
            square += now * now;
            square_before += earlier * earlier;
            product += now * earlier;
        }
    }
    const auto count = static_cast<double>(misfit.size());
    size_ = std::sqrt(square / count);
    before_ = std::sqrt(square_before / count);
    largest_ = std::max(largest_, size_);
    turned_over_ = product < -0.5 * size_ * before_ * count;
    misfit_ = std::move(misfit);
}

bool BrokenSymmetry::returns(double amplitude) const {
    constexpr double apart = 5e-3;  // of the amplitude: a symmetric cycle never is
    constexpr double small = 0.15;
    constexpr double steps = 2;  // to go
    if (!begun() || largest_ < apart * amplitude || size_ > small * amplitude) return false;
    return turned_over_ || size_ < steps * (before_ - size_);
}

Orbit mirror_image(const Orbit& orbit, const std::vector<int>& signs) {
    Orbit image = orbit;
    for (std::size_t k = 0; k < orbit.nodes(); ++k) {
        double* const to = &image.x[k * orbit.states];
        orbit.at(orbit.time_of_node(k) + 0.5, to);
        for (std::size_t a = 0; a < orbit.states; ++a) to[a] *= signs[a];
    }
    return image;
}

}  // namespace trajex
