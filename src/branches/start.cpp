// The first point of a diagram: Newton's method from a guess; without one, or where that fails,
// from where a trajectory settles, and at last from scattered guesses of growing size.
#include "branches/start.hpp"

#include <algorithm>
#include <cmath>
#include <optional>

#include "branches/access.hpp"
#include "cycles/find_cycle.hpp"
#include "linalg/vectors.hpp"
#include "model/stiff_integrator.hpp"
#include "tx/system.hpp"

namespace trajex {

namespace {

constexpr std::size_t scattered_guesses = 60;
constexpr std::size_t longest_run = 4000;  // steps

/// The system with the parameter moved into its window where it lies outside.
ModelPtr in_window(const ModelPtr& model, std::size_t parameter, tx::Window window) {
    const double value = model->values[parameter];
    const double inside = std::clamp(value, window.lo, window.hi);
    if (value == inside) return model;
    auto moved = std::make_shared<Model>(*model);
    moved->values[parameter] = inside;
    return moved;
}

/// Where a trajectory has come to, and bounds of where it was over its second half.
struct Settled {
    std::vector<std::vector<double>> places;  ///< its end, the mean, and some on the way
    std::vector<double> low, high;

    bool surround(const std::vector<double>& x) const {
        for (std::size_t i = 0; i < x.size(); ++i)
            if (!(x[i] >= low[i] && x[i] <= high[i])) return false;
        return true;
    }
};

/// Follows a trajectory until it rests, for so many steps at most; nothing where it leaves to
/// infinity.
std::optional<Settled> settle(const Model& model, const std::vector<double>& start) {
    tx::IntegrateOptions options;
    options.rel_tol = 1e-6;
    options.abs_tol = 1e-9;
    StiffIntegrator run(model, start, 1, options, StiffIntegrator::Kind::watched);
    std::vector<double> mean(start.size(), 0.0);
    std::vector<double> f(start.size());
    Settled result{{start, mean}, {}, {}};
    double duration = 0;
    for (std::size_t step = 0; step < longest_run; ++step) {
        const double before = run.time();
        if (!run.step()) return std::nullopt;
        const std::vector<double>& x = run.state();
        const double size = largest(x);
        if (!(size < 1e8)) return std::nullopt;
        if (step >= longest_run / 2) {
            const double h = run.time() - before;
            duration += h;
            if (result.low.empty()) result.low = result.high = x;
            for (std::size_t i = 0; i < x.size(); ++i) {
                mean[i] += h / duration * (x[i] - mean[i]);
                result.low[i] = std::min(result.low[i], x[i]);
                result.high[i] = std::max(result.high[i], x[i]);
            }
            if (step % (longest_run / 16) == 0) result.places.push_back(x);
        }
        ModelFlow{&model}(run.time(), x.data(), f.data());
        if (largest(f) < 1e-8 * std::max(size, 1e-3)) return Settled{{x}, x, x};
    }
    result.places[0] = run.state();
    result.places[1] = mean;
    return result;
}

class StartSearch {
  public:
    explicit StartSearch(const ModelPtr& model) : system_(model), n_(model->states.size()) {}

    /// From where a trajectory from `start` settles: on an equilibrium, or around one, rather than
    /// on another that Newton's method comes to from there.
    std::optional<PointData> after_settling(const std::vector<double>& start) const {
        const std::optional<Settled> settled = settle(*system_.model(), start);
        if (!settled) return std::nullopt;
        std::optional<PointData> first;
        for (const std::vector<double>& place : settled->places) {
            auto found = newton(place);
            if (found && settled->surround(found->state)) return found;
            if (found && !first) first = std::move(found);
        }
        return first;
    }

    /// A state that is no equilibrium by symmetry.
    std::vector<double> somewhere() const {
        std::vector<double> x(n_);
        for (std::size_t i = 0; i < n_; ++i) x[i] = 0.1 + 0.3 * halton(i + 1, 0);
        return x;
    }

    std::optional<PointData> newton(const std::vector<double>& guess) const {
        const tx::Point point = system_.equilibrium(guess);
        if (!point) return std::nullopt;
        return tx::Access::data(point);
    }

    /// Guesses spread over boxes [-s, s]^n and [0, s]^n by Halton's sequence, s = 1, 10, 0.1, 100.
    std::optional<PointData> scattered() const {
        constexpr double sizes[] = {1, 10, 0.1, 100};
        std::vector<double> guess(n_);
        for (std::size_t i = 0; i < scattered_guesses; ++i) {
            const double size = sizes[i % 4];
            const bool positive = i / 4 % 2 == 0;
            for (std::size_t k = 0; k < n_; ++k) {
                const double u = halton(i + 1, k);
                guess[k] = size * (positive ? u : 2 * u - 1);
            }
            if (auto found = newton(guess)) return found;
        }
        return std::nullopt;
    }

  private:
    /// Radical inverse of `index` in the k-th odd number from 2, 3, 5, ... on: spread enough.
    static double halton(std::size_t index, std::size_t k) {
        const std::size_t base = k == 0 ? 2 : 2 * k + 1;
        double fraction = 1;
        double value = 0;
        for (; index > 0; index /= base) {
            fraction /= static_cast<double>(base);
            value += fraction * static_cast<double>(index % base);
        }
        return value;
    }

    tx::System system_;
    std::size_t n_;
};

}  // namespace

PointData find_start(const ModelPtr& model, std::size_t parameter, tx::Window window,
                     const tx::Options& options) {
    const std::vector<double>& guess = options.start;
    const ModelPtr moved = in_window(model, parameter, window);
    const StartSearch search(moved);
    if (model->forcing)
        return find_cycle(moved, guess.empty() ? search.somewhere() : guess, options);
    if (!guess.empty()) {
        if (auto found = search.newton(guess)) return *found;
    }
    if (auto found = search.after_settling(guess.empty() ? search.somewhere() : guess))
        return *found;
    if (auto found = search.scattered()) return *found;
    PointData none;
    none.model = moved;
    none.status = "not found";
    none.reason = "no equilibrium found at " + moved->parameters[parameter] + " = " +
                  std::to_string(moved->values[parameter]);
    return none;
}

}  // namespace trajex
