// Trajectories, sections and Lyapunov exponents of a system.
//
// A step's dense output is a polynomial of degree 6 in time: its values at seven nodes of the step
// are kept, and interpolated in barycentric form (Berrut, Trefethen, SIAM Rev. 46 (2004) 501).
// Exponents by linearised equations: Benettin, Galgani, Giorgilli, Strelcyn, Meccanica 15 (1980) 9
// and 21, with the directions orthonormalised every few steps.
#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <numbers>
#include <numeric>
#include <type_traits>

#include "integration/crossing.hpp"
#include "integration/gram_schmidt.hpp"
#include "integration/spectrum.hpp"
#include "model/integrator.hpp"
#include "model/model.hpp"
#include "model/stiff_integrator.hpp"
#include "tx/error.hpp"

namespace trajex {

namespace {

constexpr std::size_t node_count = 7;
/// Chebyshev points of the second kind in [0, 1], and their barycentric weights.
const double* node_positions() {
    static const auto positions = [] {
        std::array<double, node_count> p{};
        for (std::size_t j = 0; j < node_count; ++j) {
            p[j] = (1 - std::cos(std::numbers::pi * static_cast<double>(j) / (node_count - 1))) / 2;
        }
        return p;
    }();
    return positions.data();
}
constexpr double node_weights[node_count] = {0.5, -1, 1, -1, 1, -1, 0.5};

}  // namespace

struct TrajectoryData {
    ModelPtr model;
    std::string status = "complete";
    std::string reason;
    std::size_t steps = 0;
    std::vector<double> times;
    std::vector<std::vector<double>> columns;
    // Dense output: step i goes from ends[i] to ends[i + 1]; seven states of each.
    std::vector<double> ends;
    std::vector<double> nodes;

    void append(double t, const double* x) {
        times.push_back(t);
        for (std::size_t i = 0; i < columns.size(); ++i) columns[i].push_back(x[i]);
    }
    void stop(std::string why) {
        status = "stopped";
        reason = std::move(why);
    }
};

namespace {

StiffIntegrator::Kind kind_of(const tx::IntegrateOptions& options) {
    using Kind = StiffIntegrator::Kind;
    return options.stiff ? Kind::implicit_only : Kind::explicit_only;
}

void check(const tx::IntegrateOptions& options) {
    const auto refuse = [](const char* name, double value) {
        throw tx::Error(std::string(name) + " is " + std::to_string(value));
    };
    if (!std::isfinite(options.t0)) refuse("t0", options.t0);
    if (!(options.rel_tol >= 0)) refuse("rel_tol", options.rel_tol);
    if (!(options.abs_tol >= 0)) refuse("abs_tol", options.abs_tol);
    if (!(options.rel_tol + options.abs_tol > 0)) throw tx::Error("both tolerances are 0");
    if (!(options.h_max >= 0)) refuse("h_max", options.h_max);
    if (!(options.sample >= 0)) refuse("sample", options.sample);
}

std::string at_time(const char* what, double t) {
    return what + std::to_string(t);
}

/// One step more, unless there have been too many or none can be made; the data say so then.
bool advance(StiffIntegrator& integrator, TrajectoryData& data, std::size_t max_steps) {
    if (data.steps == max_steps) {
        data.stop("max_steps = " + std::to_string(max_steps) + " steps were made");
    } else if (!integrator.step()) {
        data.stop(at_time("the right-hand side needs too small a step, or is not finite, at t = ",
                          integrator.time()));
    }
    ++data.steps;
    return data.reason.empty();
}

void keep_dense(StiffIntegrator& integrator, TrajectoryData& data) {
    const double t0 = integrator.step_start();
    const double t1 = integrator.time();
    const std::size_t n = data.columns.size();
    data.ends.push_back(t1);
    for (std::size_t j = 0; j < node_count; ++j) {
        const double* const x = integrator.at(t0 + node_positions()[j] * (t1 - t0));
        if (x != nullptr) {
            data.nodes.insert(data.nodes.end(), x, x + n);
        } else {
            data.nodes.insert(data.nodes.end(), n, std::numeric_limits<double>::quiet_NaN());
        }
    }
}

/// Keeps the points of the last step: its end, or the samples in it. `t_end` is not passed.
void keep_points(StiffIntegrator& integrator, TrajectoryData& data, double t0, double t_end,
                 double sample) {
    const double sign = t_end < t0 ? -1 : 1;
    const bool last = sign * (integrator.time() - t_end) >= 0;
    const double until = last ? t_end : integrator.time();
    const auto keep_at = [&](double t) {
        const bool end_of_step = t == integrator.time();
        const double* const x = end_of_step ? integrator.state().data() : integrator.at(t);
        if (x != nullptr) return data.append(t, x);
        data.stop(at_time("the right-hand side is not finite at t = ", t));
    };
    if (sample == 0) return keep_at(until);
    while (data.reason.empty()) {
        const double t = t0 + sign * sample * static_cast<double>(data.times.size());
        // The end is kept, too, and takes the place of a sample that rounding puts beside it.
        if (sign * (t - until) > (last ? -1e-9 * sample : 0)) break;
        keep_at(t);
    }
    if (last && data.reason.empty()) keep_at(t_end);
}

std::shared_ptr<TrajectoryData> begin(const ModelPtr& model) {
    auto data = std::make_shared<TrajectoryData>();
    data->model = model;
    data->columns.resize(model->states.size());
    return data;
}

tx::Trajectory integrate(const ModelPtr& model, const std::vector<double>& state, double t_end,
                         const tx::IntegrateOptions& options) {
    check_state(*model, state, "the initial state");
    check(options);
    if (!std::isfinite(t_end)) throw tx::Error("the end of time is " + std::to_string(t_end));
    const auto data = begin(model);
    data->append(options.t0, state.data());
    if (options.dense) data->ends.push_back(options.t0);
    if (t_end == options.t0) return tx::Trajectory(data);

    const double sign = t_end < options.t0 ? -1 : 1;
    StiffIntegrator integrator(*model, state, t_end, options, kind_of(options));
    while (data->reason.empty() && sign * (integrator.time() - t_end) < 0) {
        if (!advance(integrator, *data, options.max_steps)) break;
        if (options.dense) keep_dense(integrator, *data);
        keep_points(integrator, *data, options.t0, t_end, options.sample);
    }
    return tx::Trajectory(data);
}

// ---- Sections ----

class SectionFunction {
  public:
    SectionFunction(const Model& model, const tx::Section& section) : section_(section) {
        if (section.function) {
            if (!section.variable.empty()) {
                throw tx::Error("a section has a variable or a function, not both");
            }
        } else {
            variable_ = model.state(section.variable);
        }
        if (!std::isfinite(section.value))
            throw tx::Error("the value of the section is not finite");
        if (!(section.max_time > 0)) throw tx::Error("max_time of the section is not positive");
    }
    double operator()(double t, const double* x, std::size_t n) const {
        return section_.function ? section_.function(t, {x, n}) : x[variable_] - section_.value;
    }
    /// Whether a change of sign from before to after counts.
    bool counts(double before, double after) const {
        if (before < 0 && after >= 0) return section_.direction >= 0;
        if (before > 0 && after <= 0) return section_.direction <= 0;
        return false;
    }

  private:
    const tx::Section& section_;
    std::size_t variable_ = 0;
};

/// The crossing in the last step, at whose ends the section function has opposite signs, to the
/// last digit of the time.
void keep_crossing(StiffIntegrator& integrator, const SectionFunction& g, double before,
                   TrajectoryData& data) {
    const std::size_t n = data.columns.size();
    double t = integrator.time();
    const auto cut = [&](double at) {
        const double* const x = integrator.at(at);
        return x != nullptr ? g(at, x, n) : std::numeric_limits<double>::quiet_NaN();
    };
    // Without a strip to stop in, halving ends when no number is left between the ends, just
    // beyond.
    const CrossingLimits limits{0, 0};
    bisect_crossing(limits, integrator.step_start(), integrator.time(), before < 0 ? -1 : 1, &t,
                    cut);
    const double* const x = integrator.at(t);
    if (x != nullptr) return data.append(t, x);
    data.stop(at_time("the right-hand side is not finite at t = ", t));
}

tx::Trajectory section(const ModelPtr& model, const std::vector<double>& state,
                       const tx::Section& section, std::size_t crossings,
                       const tx::IntegrateOptions& options) {
    check_state(*model, state, "the initial state");
    check(options);
    const SectionFunction g(*model, section);
    const std::size_t n = state.size();
    const auto data = begin(model);
    StiffIntegrator integrator(*model, state, std::numeric_limits<double>::max(), options,
                               kind_of(options));
    double since = options.t0;
    double before = g(options.t0, state.data(), n);
    while (data->times.size() < crossings && data->reason.empty()) {
        if (integrator.time() - since > section.max_time) {
            data->stop(at_time("no crossing of the section since t = ", since));
            break;
        }
        if (!advance(integrator, *data, options.max_steps)) break;
        const double after = g(integrator.time(), integrator.state().data(), n);
        if (g.counts(before, after)) {
            keep_crossing(integrator, g, before, *data);
            since = integrator.time();
        }
        // A state on the section belongs to the side that it came from, and has crossed when it
        // leaves; where it starts there it comes from none.
        if (after != 0) before = after;
    }
    return tx::Trajectory(data);
}

// ---- Lyapunov exponents ----

/// A trajectory with directions v beside it, v' = A v: numbers that carry a few directions each, n
/// for the first few, n for the next few and so on. To the integrator, which needs doubles, they
/// are the doubles that they consist of, filled up to whole vectors by zeros.
class LinearisedFlow {
  public:
    using Number = Equations::Directions;
    static constexpr std::size_t width = Number::directions;

    LinearisedFlow(const Model& model, std::size_t count)
        : equations_(model.equations.get()),
          values_(model.values.data()),
          n_(model.states.size()),
          numbers_((count + width - 1) / width * n_ * length),
          size_((numbers_ + vector - 1) / vector * vector),
          parameters_(model.values.begin(), model.values.end()) {}

    std::size_t size() const { return size_; }

    void operator()(double t, const double* y, double* f) const {
        // What fills up is within the last doubles, and the others of these are overwritten.
        for (std::size_t i = 1; i < vector; ++i) f[size_ - i] = 0;
        for (std::size_t first = 0; first < numbers_; first += n_ * length) {
            equations_->along_directions(t, reinterpret_cast<const Number*>(y + first), values_,
                                         parameters_.data(), reinterpret_cast<Number*>(f + first));
        }
    }

    /// The state and the directions, one after the other, to y and back.
    void store(const double* x, const double* v, std::size_t count, double* y) const {
        visit(count, [&](std::size_t i, std::size_t lane, std::size_t p, std::size_t at) {
            if (lane == 0) y[at] = x[i];
            y[at + 1 + lane] = v[p * n_ + i];
        });
    }
    void load(const double* y, std::size_t count, double* x, double* v) const {
        visit(count, [&](std::size_t i, std::size_t lane, std::size_t p, std::size_t at) {
            x[i] = y[at];
            v[p * n_ + i] = y[at + 1 + lane];
        });
    }

  private:
    static constexpr std::size_t length = 1 + width;  // doubles of a number
    static constexpr std::size_t vector = 4;
    static_assert(sizeof(Number) == length * sizeof(double) &&
                  std::is_trivially_copyable_v<Number> && std::is_standard_layout_v<Number>);

    /// Component i of direction p is in one lane of the number that begins at `at`.
    template <class Visit>
    void visit(std::size_t count, const Visit& component) const {
        std::size_t first = 0;
        for (std::size_t p = 0, lane = 0; p < count; ++p) {
            for (std::size_t i = 0; i < n_; ++i) component(i, lane, p, first + i * length);
            if (++lane < width) continue;
            lane = 0;
            first += n_ * length;
        }
    }

    const Equations* equations_;
    const double* values_;
    std::size_t n_, numbers_, size_;
    std::vector<Number> parameters_;
};

/// Sums of logarithms of growth factors, in both halves of the time measured.
class Growth {
  public:
    Growth(std::size_t count, double from, double middle)
        : from_(from), middle_(middle), sums_(2 * count) {}

    void add(double t, const double* logarithms) {
        if (t <= from_) return;
        const std::size_t count = sums_.size() / 2;
        const std::size_t half = t <= middle_ ? 0 : 1;
        for (std::size_t p = 0; p < count; ++p) sums_[half * count + p] += logarithms[p];
        if (half == 0) split_ = t;
        last_ = t;
    }
    void begin(double t) { begin_ = split_ = last_ = t; }

    void conclude(tx::Lyapunov& result) const {
        const std::size_t count = sums_.size() / 2;
        result.time = last_ - begin_;
        for (std::size_t p = 0; p < count; ++p) {
            result.exponents.push_back((sums_[p] + sums_[count + p]) / result.time);
            result.spread.push_back(
                std::fabs(sums_[p] / (split_ - begin_) - sums_[count + p] / (last_ - split_)));
        }
    }

  private:
    double from_, middle_;
    double begin_ = 0, split_ = 0, last_ = 0;
    std::vector<double> sums_;
};

void stop(tx::Lyapunov& result, std::string why) {
    result.status = "stopped";
    result.reason = std::move(why);
}

/// The time until directions are orthonormalised again: they may grow apart by a factor of e, no
/// more, so that neither do they become nearly parallel nor does any become small beside the errors
/// of the others.
class PauseBetween {
  public:
    bool over(double elapsed) {
        ++steps_;
        return steps_ >= most_steps || elapsed >= length_;
    }
    /// The next one, after the growth seen in a pause of length `elapsed`.
    void begin(double elapsed, const std::vector<double>& logarithms) {
        const auto [least, most] = std::minmax_element(logarithms.begin(), logarithms.end());
        const double spread = std::max(*most, 0.0) - std::min(*least, 0.0);
        length_ = elapsed / spread;
        steps_ = 0;
    }

  private:
    static constexpr std::size_t most_steps = 16;
    std::size_t steps_ = 0;
    double length_ = 0;  // the first step shows how they grow
};

void variational_exponents(const Model& model, const std::vector<double>& state,
                           const tx::LyapunovOptions& options, tx::Lyapunov& result) {
    const std::size_t n = state.size();
    const std::size_t count = options.count;
    const double from = options.integrate.t0 + options.transient;
    const LinearisedFlow flow(model, count);
    std::vector<double> x = state;
    std::vector<double> v(n * count);
    for (std::size_t p = 0; p < count; ++p) v[p * n + p] = 1;
    std::vector<double> y(flow.size());
    flow.store(x.data(), v.data(), count, y.data());
    std::vector<double> lengths(count);
    std::vector<double> scratch(n);

    Growth growth(count, from, from + options.time / 2);
    growth.begin(options.integrate.t0);
    Integrator<LinearisedFlow> integrator(flow, y, from + options.time, options.integrate);
    double before = options.integrate.t0;  // the time of the last orthonormalisation
    PauseBetween pause;
    while (integrator.time() < from + options.time) {
        if (result.steps++ == options.integrate.max_steps) {
            stop(result, "max_steps were made");
            break;
        }
        if (!integrator.step()) {
            stop(result, at_time("no step could be made at t = ", integrator.time()));
            break;
        }
        if (!pause.over(integrator.time() - before)) continue;
        double* const now = integrator.state().data();
        flow.load(now, count, x.data(), v.data());
        orthonormalise(v.data(), lengths.data(), n, scratch.data(), count);
        flow.store(x.data(), v.data(), count, now);
        for (double& length : lengths) length = std::log(length);
        // The measurement begins with the first directions after the transient.
        if (before <= from) growth.begin(before);
        growth.add(integrator.time(), lengths.data());
        pause.begin(integrator.time() - before, lengths);
        before = integrator.time();
    }
    growth.conclude(result);
    flow.load(integrator.state().data(), count, x.data(), v.data());
    result.state = std::move(x);
}

/// Exponents are there after each interval, in bits per unit of time.
struct HalfwaySink {
    unsigned long halfway;
    std::vector<double> sums{};
    void after_interval(const GrowthSums& growth, unsigned long, unsigned long counted) {
        if (counted == halfway) sums.assign(growth.sums, growth.sums + growth.count);
    }
};

void nearby_exponents(const Model& model, const std::vector<double>& state,
                      const tx::LyapunovOptions& options, tx::Lyapunov& result) {
    const std::size_t n = state.size();
    const std::size_t count = options.count;
    const auto intervals = [&](double time) {
        return static_cast<long>(std::ceil(time / options.interval));
    };
    double size = 0;
    for (const double x : state) size = std::max(size, std::fabs(x));
    const Measurement m{options.perturbation * (size > 0 ? size : 1), options.interval,
                        intervals(options.transient), intervals(options.time),
                        static_cast<int>(count)};
    const auto move = [&](double* t, double t1, double* y) {
        tx::IntegrateOptions settings = options.integrate;
        settings.t0 = *t;
        StiffIntegrator integrator(model, {y, y + n}, t1, settings, kind_of(settings));
        while (integrator.time() < t1 && result.reason.empty()) {
            if (result.steps++ == options.integrate.max_steps) {
                stop(result, "max_steps were made");
            } else if (!integrator.step()) {
                stop(result, at_time("no step could be made at t = ", integrator.time()));
            }
        }
        const bool inside = integrator.time() > t1;
        const double* const x = inside ? integrator.at(t1) : integrator.state().data();
        if (x != nullptr) std::copy_n(x, n, y);
        *t = t1;
    };
    std::vector<double> y = state;
    std::vector<double> v(count * n);
    std::vector<double> lengths(count);
    std::vector<double> scratch(n);
    result.exponents.resize(count);
    double t = options.integrate.t0;
    HalfwaySink sink{static_cast<unsigned long>(m.counted) / 2};
    measure_spectrum(n, m, {result.exponents.data(), m.interval, count},
                     {v.data(), lengths.data(), scratch.data()}, &t, y.data(), move, sink);

    const double total = m.interval * static_cast<double>(m.counted);
    const double first = m.interval * static_cast<double>(sink.halfway);
    for (std::size_t p = 0; p < count; ++p) {
        result.exponents[p] *= std::numbers::ln2;
        const double half = sink.sums.empty() ? 0 : sink.sums[p];
        const double rest = result.exponents[p] * total - half;
        result.spread.push_back(std::fabs(half / first - rest / (total - first)));
    }
    result.time = total;
    result.state = std::move(y);
}

void check(const tx::LyapunovOptions& options, std::size_t n) {
    check(options.integrate);
    if (options.count > n) {
        throw tx::Error(std::to_string(options.count) + " exponents of a system of " +
                        std::to_string(n) + " variables");
    }
    const auto positive = [](double value, const char* name) {
        if (value > 0 && std::isfinite(value)) return;
        throw tx::Error(std::string(name) + " is " + std::to_string(value));
    };
    if (options.transient != 0) positive(options.transient, "the transient");
    positive(options.time, "the time of the measurement");
    positive(options.interval, "the interval");
    positive(options.perturbation, "the perturbation");
}

}  // namespace

}  // namespace trajex

namespace tx {

using trajex::check_state;

const trajex::TrajectoryData& Trajectory::data() const {
    if (!data_) throw Error("a trajectory that nothing was assigned to");
    return *data_;
}
Trajectory::operator bool() const {
    return data_ && data_->reason.empty();
}
const std::string& Trajectory::status() const {
    return data().status;
}
const std::string& Trajectory::reason() const {
    return data().reason;
}
std::size_t Trajectory::size() const {
    return data_ ? data_->times.size() : 0;
}
std::size_t Trajectory::steps() const {
    return data().steps;
}
const std::vector<double>& Trajectory::times() const {
    return data().times;
}
std::span<const double> Trajectory::column(std::string_view variable) const {
    return data().columns[data().model->state(variable)];
}
std::vector<double> Trajectory::state(std::size_t point) const {
    if (point >= size()) {
        throw Error("no point " + std::to_string(point) + "; the trajectory has " +
                    std::to_string(size()) + ", counted from 0");
    }
    std::vector<double> x;
    for (const auto& column : data().columns) x.push_back(column[point]);
    return x;
}

std::vector<double> Trajectory::at(double t) const {
    const trajex::TrajectoryData& d = data();
    const std::size_t n = d.columns.size();
    if (d.ends.size() < 2) throw Error("the trajectory was kept without dense output");
    const bool forwards = d.ends.back() > d.ends.front();
    const auto& [early, late] = std::minmax(d.ends.front(), d.ends.back());
    if (!(early <= t && t <= late)) {
        throw Error("t = " + std::to_string(t) + " is outside the trajectory, which goes from " +
                    std::to_string(d.ends.front()) + " to " + std::to_string(d.ends.back()));
    }
    const auto before = [forwards](double u, double v) { return forwards ? u < v : u > v; };
    const auto after = std::upper_bound(d.ends.begin() + 1, d.ends.end() - 1, t, before);
    const auto step = static_cast<std::size_t>(after - d.ends.begin()) - 1;
    const double tau = (t - d.ends[step]) / (d.ends[step + 1] - d.ends[step]);
    const double* const values = d.nodes.data() + step * trajex::node_count * n;

    std::vector<double> x(n, 0.0);
    double total = 0;
    for (std::size_t j = 0; j < trajex::node_count; ++j) {
        const double distance = tau - trajex::node_positions()[j];
        if (distance == 0) return {values + j * n, values + (j + 1) * n};
        const double weight = trajex::node_weights[j] / distance;
        total += weight;
        for (std::size_t i = 0; i < n; ++i) x[i] += weight * values[j * n + i];
    }
    for (double& xi : x) xi /= total;
    return x;
}

double Lyapunov::sum() const {
    return std::accumulate(exponents.begin(), exponents.end(), 0.0);
}

Trajectory System::integrate(const std::vector<double>& state, double t_end,
                             const IntegrateOptions& options) const {
    return trajex::integrate(model_, state, t_end, options);
}

Trajectory System::section(const std::vector<double>& state, const Section& section,
                           std::size_t crossings, const IntegrateOptions& options) const {
    return trajex::section(model_, state, section, crossings, options);
}

Lyapunov System::lyapunov(const std::vector<double>& state, const LyapunovOptions& options) const {
    check_state(*model_, state, "the initial state");
    trajex::check(options, state.size());
    LyapunovOptions settings = options;
    if (settings.count == 0) settings.count = state.size();
    Lyapunov result;
    if (settings.method == LyapunovOptions::Method::variational) {
        trajex::variational_exponents(*model_, state, settings, result);
    } else {
        trajex::nearby_exponents(*model_, state, settings, result);
    }
    return result;
}

}  // namespace tx
