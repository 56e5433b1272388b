// The bordered matrix of a cycle,
//
//     [ R_x   R_T  R_p   b ]    segments
//     [ x_r'   0    0    b ]    phase
//     [ c     c    c     0 ]    borders of the caller
//
// is a chain with the borders (T, p, b) x (phase, c).
#include "cycles/cycle_problem.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <utility>

#include "core/sized.hpp"
#include "cycles/cycle_points.hpp"
#include "cycles/fold_form.hpp"
#include "linalg/vectors.hpp"

namespace trajex {

namespace {

constexpr double scale_floor = 1e-3;  // of the largest scale
constexpr std::size_t scale_interval = 10;
constexpr std::size_t growth_interval = 3;
constexpr std::size_t past_length = 11;

}  // namespace

CycleProblem::CycleProblem(std::shared_ptr<const Equations> equations, const Timing& timing,
                           std::vector<std::size_t> vary, std::vector<double> values,
                           CycleSettings settings, const Orbit& start)
    : equations_(std::move(equations)),
      timing_(timing),
      vary_(std::move(vary)),
      values_(std::move(values)),
      settings_(std::move(settings)),
      start_(start),
      n_(equations_->states()),
      segments_(Rate(equations_, timing_, vary_, values_), start.m, start.mesh) {
    settings_.widths.resize(vary_.size(), 1.0);
    if (settings_.max_period <= 0) settings_.max_period = 1000 * start.period;
    period_scale_ = start.period;
    take_scales(start_.x.data(), true);
    take_reference(start_.x.data());
}

std::vector<double> CycleProblem::start() const {
    std::vector<double> z(start_.x.begin(), start_.x.end() - static_cast<std::ptrdiff_t>(n_));
    if (timing_.autonomous()) z.push_back(start_.period);
    for (const std::size_t k : vary_) z.push_back(values_[k]);
    return z;
}

double CycleProblem::period(const double* z) const {
    return timing_.autonomous() ? z[state_size()] : segments_.rate().period();
}

Orbit CycleProblem::orbit(const double* z) const {
    Orbit orbit;
    orbit.states = n_;
    orbit.m = segments_.inner_points();
    orbit.mesh = segments_.mesh();
    orbit.x.assign(z, z + state_size());
    orbit.x.insert(orbit.x.end(), z, z + n_);
    Rate rate = segments_.rate();
    rate.set(z + state_size());
    orbit.period = rate.period();
    orbit.t0 = timing_.t0;
    orbit.periods = timing_.periods;
    return orbit;
}

// ---- Scales, metric, phase ----

void CycleProblem::take_scales(const double* x, bool first) {
    if (first) scale_ = settings_.sizes;
    scale_.resize(n_, 0.0);
    for (std::size_t k = 0; k < segments_.points() * n_; ++k) {
        scale_[k % n_] = std::max(scale_[k % n_], std::fabs(x[k]));
    }
    double largest = *std::max_element(scale_.begin(), scale_.end());
    constexpr double nothing =
        1e-10;  // a solution that is 0 has no size: that of what branches from it is 1
    if (largest < nothing) scale_.assign(n_, 1.0), largest = 1;
    const double least = std::max({scale_floor * largest, settings_.floor, 1e-12});
    for (double& s : scale_) s = std::max(s, least);
    if (first)
        first_scale_.assign(n_, std::max(1.0, *std::max_element(scale_.begin(), scale_.end())));
}

// <z, z'> = (1/n) integral sum x_a x_a' / X_a^2 dtau + T T' / T_0^2 + sum p p' / P^2.
void CycleProblem::metric(std::span<double> weights) const {
    const GaussRule& rule = segments_.rule();
    const std::vector<double>& mesh = segments_.mesh();
    std::fill(weights.begin(), weights.end(), 0.0);
    const std::size_t points = segments_.points();
    for (std::size_t i = 0; i < segments_.intervals(); ++i) {
        for (std::size_t j = 0; j <= rule.m; ++j) {
            const double share =
                (mesh[i + 1] - mesh[i]) * rule.node_weight[j] / static_cast<double>(n_);
            const std::size_t point = i * rule.m + j;
            double* const to = &weights[point < points ? point * n_ : 0];  // periodic
            for (std::size_t a = 0; a < n_; ++a) to[a] += share / (scale_[a] * scale_[a]);
        }
    }
    std::size_t k = state_size();
    if (timing_.autonomous()) weights[k++] = 1 / (period_scale_ * period_scale_);
    for (const double width : settings_.widths) weights[k++] = 1 / (width * width);
}

namespace {

// Adds the share of Gauss point k to the row of x in <x, x_r'>; returns that of <x_r', x_r'>.
// `work`: 2 n numbers.
template <class Size>
double add_reference(Size n, const Collocation& segments, const std::vector<double>& scale,
                     std::size_t k, const double* x, double* work, double* row) {
    const GaussRule& rule = segments.rule();
    const std::size_t m = rule.m;
    const std::size_t i = k / m;
    const std::size_t c = k % m;
    const double h = segments.mesh()[i + 1] - segments.mesh()[i];
    const std::size_t end = i + 1 == segments.intervals() ? 0 : (i + 1) * m * n;
    const auto place = [&](std::size_t j) { return j == m ? end : (i * m + j) * n; };
    double* const slope = work;
    double* const weighted = work + n;
    std::fill_n(slope, n, 0.0);
    for (std::size_t j = 0; j <= m; ++j) {
        for (std::size_t a = 0; a < n; ++a) slope[a] += rule.slope[c][j] * x[place(j) + a];
    }
    double square = 0;
    for (std::size_t a = 0; a < n; ++a) {
        weighted[a] = rule.weight[c] * slope[a] / (scale[a] * scale[a]);
        square += weighted[a] * slope[a] / h;
    }
    for (std::size_t j = 0; j <= m; ++j) {
        for (std::size_t a = 0; a < n; ++a) row[place(j) + a] += rule.value[c][j] * weighted[a];
    }
    return square;
}

}  // namespace

// The row of x in <x, x_r'>, divided by the root of <x_r', x_r'>.
void CycleProblem::take_reference(const double* x) {
    if (!timing_.autonomous()) return;
    phase_row_.assign(state_size(), 0.0);
    double square = 0;
    std::vector<double> work(2 * n_);
    with_size(n_, [&](auto n) {
        for (std::size_t k = 0; k < segments_.points(); ++k)
            square += add_reference(n, segments_, scale_, k, x, work.data(), phase_row_.data());
    });
    const double factor = square > 0 ? 1 / std::sqrt(square) : 1;
    for (double& entry : phase_row_) entry *= factor;
    phase_value_ = 0;
    phase_value_ = phase(x);
}

// Directions lose their part along the flow, so that they obey the phase condition of the present
// reference: solutions are shifted in time then, which changes nothing else.
void CycleProblem::keep_phase(const double* z, Directions directions) {
    if (!timing_.autonomous() || directions.size() == 0) return;
    const Orbit places = orbit(z);
    std::vector<double> times(segments_.points());
    for (std::size_t k = 0; k < times.size(); ++k) times[k] = places.time_of_node(k);
    std::vector<double> velocity(state_size());
    Rate rate = segments_.rate();
    if (!rate.set(z + state_size())) return;
    rate.values(times.size(), times.data(), z, velocity.data());
    const double along = phase(velocity.data()) + phase_value_;
    for (std::vector<double>* const direction : directions) {
        const double share = (phase(direction->data()) + phase_value_) / along;
        if (!std::isfinite(share)) return;
        for (std::size_t k = 0; k < state_size(); ++k) (*direction)[k] -= share * velocity[k];
    }
}

double CycleProblem::phase(const double* x) const {
    double sum = -phase_value_;
    for (std::size_t k = 0; k < state_size(); ++k) sum += phase_row_[k] * x[k];
    return sum;
}

// ---- Equations and linear algebra ----

bool CycleProblem::residual(const double* z, double* f) {
    if (timing_.autonomous()) f[state_size()] = phase(z);
    return segments_.residual(z, z + state_size(), f);
}

bool CycleProblem::linearise(const double* z, double* f) {
    condensed_ = false;
    if (timing_.autonomous()) f[state_size()] = phase(z);
    return segments_.linearise(z, z + state_size(), f);
}

void CycleProblem::apply(const double* v, double* out) const {
    const std::size_t scalars = segments_.scalars();
    const double* const C = segments_.scalar_columns();
    for (std::size_t row = 0; row < state_size(); ++row) {
        out[row] = 0;
        for (std::size_t k = 0; k < scalars; ++k)
            out[row] += C[row * scalars + k] * v[state_size() + k];
    }
    segments_.apply(v, out);
    if (timing_.autonomous()) out[state_size()] = phase(v) + phase_value_;
}

void CycleProblem::apply_transposed(const double* w, double* out) const {
    const std::size_t scalars = segments_.scalars();
    const double* const C = segments_.scalar_columns();
    std::fill_n(out, unknowns(), 0.0);
    segments_.apply_transposed(w, out);
    for (std::size_t row = 0; row < state_size(); ++row) {
        for (std::size_t k = 0; k < scalars; ++k)
            out[state_size() + k] += C[row * scalars + k] * w[row];
    }
    for (std::size_t k = 0; k < phase_row_.size(); ++k) out[k] += phase_row_[k] * w[state_size()];
}

const Condensation* CycleProblem::condensation() {
    if (!condensed_) {
        ++factors_;
        condensable_ = condensation_.factor(segments_, scale_);
        if (condensable_) chain_.factor(condensation_);
        condensed_ = true;
    }
    return condensable_ ? &condensation_ : nullptr;
}

bool CycleProblem::factor(const Border& border) {
    if (condensation() == nullptr) return false;
    ++factors_;
    const std::size_t scalars = segments_.scalars();
    const std::size_t k = scalars + border.extra;
    const std::size_t size = state_size();
    const std::size_t phases = phase_rows();
    columns_.resize(size * border.extra);
    rows_.resize(k * size);
    corner_.assign(k * k, 0.0);
    for (std::size_t row = 0; row < size; ++row) {
        for (std::size_t c = 0; c < border.extra; ++c)
            columns_[row * border.extra + c] = border.columns[c * equations() + row];
    }
    std::copy(phase_row_.begin(), phase_row_.end(), rows_.begin());
    for (std::size_t c = 0; c < border.extra && phases > 0; ++c) {
        corner_[scalars + c] = border.columns[c * equations() + size];
    }
    for (std::size_t r = phases; r < k; ++r) {
        const double* const row = border.rows + (r - phases) * unknowns();
        std::copy_n(row, size, rows_.data() + r * size);
        std::copy_n(row + size, scalars, corner_.data() + r * k);
    }
    return bordered_.factor(condensation_, chain_, 1.0, k, columns_.data(), rows_.data(),
                            corner_.data(), scalars);
}

void CycleProblem::solve(double* rhs) const {
    bordered_.solve(rhs, rhs + state_size());
}

void CycleProblem::solve_transposed(double* rhs) const {
    bordered_.solve_transposed(rhs, rhs + state_size());
}

// Where the equations have the sign of a multiplier wrong, they have that of 1 - mu wrong, too.
int CycleProblem::determinant_sign() const {
    const int sign = bordered_.determinant_sign();
    return multipliers_.check().sign_restored ? -sign : sign;
}

// ---- Dynamics ----

EventNames CycleProblem::event_names() const {
    return {.fold = "LPC", .branch = "BPC", .real = "", .flip = "PD", .pair = "NS"};
}

void CycleProblem::spectrum(Spectrum& out) {
    out.clear();
    if (condensation() == nullptr) return;
    const double* along = nullptr;
    if (timing_.autonomous()) {
        const double* const velocities = segments_.velocities();
        velocities_.resize(segments_.intervals() * n_);
        for (std::size_t k = 0; k < velocities_.size(); ++k)
            velocities_[k] = velocities[k] / scale_[k % n_];
        if (!all_finite(velocities_)) return;
        along = velocities_.data();
    }
    // The transfer matrices are the last n rows of each map.
    transfers_.resize(segments_.intervals() * n_ * n_);
    for (std::size_t i = 0; i < segments_.intervals(); ++i) {
        std::copy_n(condensation_.transfer(i), n_ * n_, transfers_.data() + i * n_ * n_);
    }
    if (!multipliers_.compute(n_, segments_.intervals(), transfers_.data(), along,
                              segments_.divergence(), out, segments_.inner_points())) {
        out.clear();
    }
    // Velocities are mapped badly along stiff directions, of which slow multipliers know nothing:
    // the error of the solution, which they share to a higher order, bounds theirs too.
    constexpr double share = 0.05;
    if (monitor_.error == 0) return;
    const double bound = std::max(1e-12, share * monitor_.error);
    for (Exponent& exponent : out) exponent.error = std::min(exponent.error, bound);
}

// ---- Along a branch ----

// Two things ask for intervals: the error of the solution, and growth of perturbations by more than
// a factor of about e^2 on one, which collocation would underestimate however smooth the cycle is
// (decay too, but that does no harm to other multipliers). The mesh has a density for each,
//
//     N_error density / integral(density) + growth / 2,
//
// and where the intervals have no equal shares of the sum they are placed anew.
bool CycleProblem::adapt_mesh(std::vector<double>& z, Directions directions, bool eagerly) {
    constexpr double too_coarse = 3;
    constexpr double too_fine = 0.1;
    constexpr double unbalanced = 3;
    constexpr double growth_of_interval = 2;
    constexpr double much_growth = 4;  // intervals for it
    constexpr std::size_t least = 10;
    const std::size_t m = segments_.inner_points();
    const std::size_t N = segments_.intervals();
    const std::vector<double>& mesh = segments_.mesh();
    monitor_mesh(mesh, n_, m, z.data(), scale_.data(), monitor_);
    const bool due = eagerly || accepted_count_ >= last_mesh_change_ + 3;
    if (eagerly || growth_.empty() || accepted_count_ % growth_interval == 0) {
        growth_.resize(N);
        segments_.growth_rates(growth_.data());
    }
    const double total = integral(mesh, monitor_.density);
    const double for_growth = std::min(integral(mesh, growth_) / growth_of_interval,
                                       0.5 * static_cast<double>(settings_.most_intervals));
    const double for_error = std::max(1.0, static_cast<double>(N) - for_growth);
    // Where perturbations grow much, as along the repelling part of a canard, so do the errors of
    // the intervals before, and the parameter is off by more than they are.
    const double amplification = std::clamp(std::pow(for_growth / much_growth, 2), 1.0, 100.0);
    const double tolerance = settings_.mesh_tol / amplification;
    balanced_error_ = balanced_error(total, for_error, m);
    double wanted = for_error;
    if (balanced_error_ > (eagerly ? 1 : too_coarse) * tolerance ||
        balanced_error_ < too_fine * tolerance) {
        wanted = std::max(static_cast<double>(least),
                          std::ceil(intervals_for(total, 0.5 * tolerance, m)));
    }
    const std::size_t count =
        std::clamp(static_cast<std::size_t>(std::ceil(std::min(wanted + for_growth, 1e6))),
                   std::min(least, settings_.most_intervals), settings_.most_intervals);

    double share = 0;  // the largest of an interval, in units of one
    for (std::size_t i = 0; i < N; ++i) {
        const double growth = growth_[i] / growth_of_interval;
        monitor_.density[i] = monitor_.density[i] / total * wanted + growth;
        share = std::max(share, monitor_.density[i] * (mesh[i + 1] - mesh[i]));
    }
    share *= static_cast<double>(N) / integral(mesh, monitor_.density);
    const bool uneven =
        share > unbalanced && (monitor_.error > too_fine * tolerance || for_growth > 1);
    const bool coarse = monitor_.error > too_coarse * tolerance && share > 1.5;
    const bool more = 10 * count > 11 * N || (count > N && wanted > for_error);
    const bool fewer = count < N && 10 * (N - count) > N;
    if (!more && !(due && (fewer || uneven || coarse))) return false;

    const std::vector<double> places = equidistributed(mesh, monitor_.density, count);
    const auto transfer = [&](std::vector<double>& vector) {
        if (vector.empty()) return;
        std::vector<double> moved = transfer_points(mesh, places, n_, m, vector.data());
        moved.insert(moved.end(), vector.begin() + static_cast<std::ptrdiff_t>(state_size()),
                     vector.end());
        vector = std::move(moved);
    };
    transfer(z);
    for (std::vector<double>* const direction : directions) transfer(*direction);
    mesh_before_ = mesh;
    last_mesh_change_ = accepted_count_;
    set_mesh(places, z.data());
    return true;
}

void CycleProblem::set_mesh(const std::vector<double>& mesh, const double* z) {
    segments_.set_mesh(mesh);
    growth_.clear();
    condensed_ = false;
    take_reference(z);
}

void CycleProblem::restore(const double* z) {
    set_mesh(mesh_before_, z);
}

bool CycleProblem::accepted(std::vector<double>& z, Directions directions) {
    ++accepted_count_;
    remember(z.data());
    if (timing_.autonomous() && vary_.size() == 1 && directions.size() > 0) {
        const Past& last = past_.back();
        const std::vector<double>& tangent = **directions.begin();
        const double slope = tangent[state_size() + 1] / tangent[state_size()];
        homoclinic_.remember({last.parameter, last.period, last.amplitude, slope},
                             settings_.widths[0]);
    }
    if (accepted_count_ % scale_interval == 0) {
        take_scales(z.data(), false);
        if (timing_.autonomous()) period_scale_ = period(z.data());
        condensed_ = false;
    }
    const bool changed = adapt_mesh(z, directions, false);
    if (!changed) take_reference(z.data());
    keep_phase(z.data(), directions);
    return changed;
}

void CycleProblem::remember(const double* z) {
    if (past_.size() == past_length) past_.erase(past_.begin());
    past_.push_back({vary_.empty() ? 0 : parameter_of(z), period(z), amplitude(z)});
    remember_symmetries(z);
}

// A cycle of half the period run through twice is symmetric under the identity, where two periods
// of the forcing go into it.
void CycleProblem::remember_symmetries(const double* z) {
    const Orbit cycle = orbit(z);
    if (!doubling_.begun()) {
        doubling_.begin(std::vector<int>(n_, 1));
        Rate rate = segments_.rate();
        if (rate.set(z + state_size())) {
            reflection_.begin(reflection_of_equations(rate, cycle, scale_));
        }
    }
    const std::vector<double> points = symmetry_samples(cycle);
    doubling_.remember(points, scale_);
    if (reflection_.begun()) reflection_.remember(points, scale_);
}

// The largest peak-to-peak value of a variable, relative to its scale.
double CycleProblem::amplitude(const double* x) const {
    double largest = 0;
    for (std::size_t a = 0; a < n_; ++a) {
        double low = x[a];
        double high = x[a];
        for (std::size_t k = 1; k < segments_.points(); ++k) {
            low = std::min(low, x[k * n_ + a]);
            high = std::max(high, x[k * n_ + a]);
        }
        largest = std::max(largest, (high - low) / scale_[a]);
    }
    return largest;
}

bool CycleProblem::neighbours(const double* before, const double* after) const {
    constexpr double small = 0.05;  // amplitudes near a Hopf point may fall faster
    if (!timing_.autonomous()) return true;
    const double a = amplitude(before);
    if (amplitude(after) < (a > small ? 0.5 : 0.1) * a) return false;
    const double ratio = after[state_size()] / before[state_size()];
    return ratio > 0.75 && ratio < 1.33;
}

double CycleProblem::length(const double* v) const {
    return root_mean_square(segments_, v);
}

double CycleProblem::distance(const double* a, const double* b) const {
    return distance_of_orbit(a, b + state_size(), orbit(b));
}

double CycleProblem::distance_from(const double* z, const std::vector<double>& earlier,
                                   const Description& description) const {
    const double* const scalars = earlier.data() + earlier.size() - segments_.scalars();
    if (description.orbit == nullptr) return std::numeric_limits<double>::infinity();
    return distance_of_orbit(z, scalars, *description.orbit);
}

double CycleProblem::distance_of_orbit(const double* z, const double* scalars,
                                       const Orbit& other) const {
    double square = 0;  // of the scalar unknowns: already a bound from below
    const double* own = z + state_size();
    if (timing_.autonomous()) square += std::pow((*own++ - *scalars++) / period_scale_, 2);
    for (const double width : settings_.widths)
        square += std::pow((*own++ - *scalars++) / width, 2);
    constexpr double far = 0.1;
    if (square > far * far) return std::sqrt(square);
    const double shape = orbit_distance(orbit(z), other, scale_, timing_);
    return std::sqrt(square + shape * shape);
}

std::string_view CycleProblem::end(const double* z, Finding& finding) {
    const double T = period(z);
    if (timing_.autonomous()) {
        if (hopf_end(z, finding)) return "hopf";
        if (homoclinic_.suspected(finding.reason)) return "homoclinic_suspected";
        if (T >= settings_.max_period) return "period_bound";
    }
    for (std::size_t k = 0; k < state_size(); ++k) {
        if (std::fabs(z[k]) > settings_.norm_bound * first_scale_[k % n_]) return "norm_bound";
    }
    const double size = past_.back().amplitude;
    const bool even = timing_.autonomous() || timing_.periods % 2 == 0;
    const bool enough = past_.size() >= 3;
    if (enough && even && doubling_.returns(size)) {
        finding.reason = "back at the cycle of half the period";
        return "branch_point";
    }
    if (enough && reflection_.returns(size)) {
        finding.reason = "back at symmetric cycles";
        return "branch_point";
    }
    constexpr double hopeless = 100;
    const bool most = segments_.intervals() >= settings_.most_intervals;
    if (most && balanced_error_ > hopeless * settings_.mesh_tol) return "resolution";
    return {};
}

// A family of small cycles has p - p_H proportional to the square of the amplitude. When that line
// reaches zero within two steps, the Hopf point is solved for: a cycle is not followed through it.
bool CycleProblem::hopf_end(const double* z, Finding& finding) {
    constexpr double small = 0.05;
    if (past_.size() < 3 || vary_.size() != 1) return false;
    const Past* const last = &past_.back();
    const double a2 = last[0].amplitude * last[0].amplitude;
    const double b2 = last[-1].amplitude * last[-1].amplitude;
    if (last[0].amplitude >= small || a2 >= b2) return false;
    const double slope = (last[0].parameter - last[-1].parameter) / (a2 - b2);
    const double steps = last[0].amplitude / (last[-1].amplitude - last[0].amplitude);
    if (steps > 2) return false;
    HopfPoint hopf;
    std::vector<double> mean(n_);
    orbit(z).means(mean.data());
    hopf.state = mean;
    hopf.parameters = segments_.rate().parameters();
    hopf.parameters[vary_[0]] = last[0].parameter - slope * a2;
    hopf.omega = 2 * std::numbers::pi / last[0].period;
    if (!solve_hopf(*equations_, timing_.t0, vary_[0], settings_.widths[0], hopf)) return false;
    const double moved = std::fabs(hopf.parameters[vary_[0]] - last[0].parameter);
    if (moved > 0.05 * settings_.widths[0]) return false;
    finding.type = std::string("H");
    finding.z.assign(z, z + unknowns());
    for (std::size_t k = 0; k < state_size(); ++k) finding.z[k] = hopf.state[k % n_];
    finding.z[state_size()] = 2 * std::numbers::pi / hopf.omega;
    finding.z[state_size() + 1] = hopf.parameters[vary_[0]];
    finding.error = 1e-10 * settings_.widths[0];
    finding.coefficients.push_back({"omega", hopf.omega, 0});
    return true;
}

// ---- Results ----

double CycleProblem::mesh_error_of(const double* z) const {
    MeshMonitor monitor;
    monitor_mesh(segments_.mesh(), n_, segments_.inner_points(), z, scale_.data(), monitor);
    return monitor.error;
}

Description CycleProblem::describe(const double* z) {
    Description result;
    auto orbit = std::make_shared<Orbit>(this->orbit(z));
    Rate rate = segments_.rate();
    rate.set(z + state_size());
    result.parameters = rate.parameters();
    result.state.resize(n_);
    result.low.resize(n_);
    result.high.resize(n_);
    result.norm = orbit->means(result.state.data());
    orbit->extremes(result.low.data(), result.high.data());
    result.period = orbit->period;
    result.mesh_error = mesh_error_of(z);
    // Inside the intervals the order is m + 1, at their ends 2 m.
    constexpr double margin = 30;
    const auto m = static_cast<double>(segments_.inner_points());
    result.end_error = margin * std::pow(result.mesh_error, 2 * m / (m + 1));
    result.orbit = std::move(orbit);
    return result;
}

std::unique_ptr<Problem> CycleProblem::clone() const {
    return std::make_unique<CycleProblem>(equations_, timing_, vary_, values_, settings_, start_);
}

std::unique_ptr<CycleProblem> CycleProblem::doubled(const Orbit& twice,
                                                    const std::vector<double>& z) const {
    Timing timing = timing_;
    timing.periods *= 2;
    Rate rate = segments_.rate();
    rate.set(z.data() + state_size());
    CycleSettings settings = settings_;
    settings.sizes = scale_;
    settings.max_period *= 2;
    settings.most_intervals *= 2;
    return std::make_unique<CycleProblem>(equations_, timing, vary_, rate.parameters(), settings,
                                          twice);
}

bool solve_cycle(CycleProblem& problem, std::vector<double>& z, double tolerance) {
    constexpr int rounds = 12;
    for (int round = 0; round < rounds; ++round) {
        if (!correct_at_fixed_parameters(problem, z, tolerance)) return false;
        if (!problem.adapt_mesh(z, {}, true)) return true;
    }
    return correct_at_fixed_parameters(problem, z, tolerance);
}

}  // namespace trajex
