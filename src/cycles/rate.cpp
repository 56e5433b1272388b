// G = T f and its derivatives. Where a parameter sets the period, it moves the times at which f is
// taken as well, and the whole of G is differenced in it: an application never gives df/dt.
#include "cycles/rate.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <utility>

namespace trajex {

Rate::Rate(std::shared_ptr<const Equations> equations, const Timing& timing,
           std::vector<std::size_t> vary, std::vector<double> values)
    : equations_(std::move(equations)),
      timing_(timing),
      vary_(std::move(vary)),
      c_(std::move(values)) {
    if (!free_period()) period_ = period_of_parameters();
}

double Rate::period_of_parameters() const {
    const double q = timing_.periods;
    if (timing_.period == Timing::Period::fixed) return q * timing_.value;
    const double c = c_[timing_.parameter];
    return timing_.period == Timing::Period::parameter ? q * c : 2 * std::numbers::pi * q / c;
}

bool Rate::set(const double* q) {
    const std::size_t first = free_period() ? 1 : 0;
    for (std::size_t k = 0; k < vary_.size(); ++k) c_[vary_[k]] = q[first + k];
    period_ = free_period() ? q[0] : period_of_parameters();
    const bool finite = std::all_of(q, q + scalars(), [](double v) { return std::isfinite(v); });
    return finite && period_ > 0 && std::isfinite(period_);
}

void Rate::take_times(std::size_t count, const double* tau) {
    times_.resize(count);
    for (std::size_t i = 0; i < count; ++i) times_[i] = timing_.t0 + tau[i] * period_;
}

void Rate::values(std::size_t count, const double* tau, const double* x, double* g) {
    take_times(count, tau);
    equations_->values(count, times_.data(), x, c_.data(), g);
    for (std::size_t i = 0; i < count * states(); ++i) g[i] *= period_;
}

void Rate::jacobians(std::size_t count, const double* tau, const double* x, double* g,
                     double* jacobian) {
    const std::size_t n = states();
    take_times(count, tau);
    equations_->jacobians(count, times_.data(), x, c_.data(), g, jacobian);
    for (std::size_t i = 0; i < count * n; ++i) g[i] *= period_;
    for (std::size_t i = 0; i < count * n * n; ++i) jacobian[i] *= period_;
}

bool Rate::sets_period(std::size_t parameter) const {
    return parameter == timing_.parameter && (timing_.period == Timing::Period::parameter ||
                                              timing_.period == Timing::Period::frequency);
}

void Rate::linearise(std::size_t count, const double* tau, const double* x, double* g,
                     double* jacobian, double* g_q) {
    const std::size_t total = count * states();
    const bool together =
        std::none_of(vary_.begin(), vary_.end(), [this](std::size_t k) { return sets_period(k); });
    if (!together) {
        jacobians(count, tau, x, g, jacobian);
        for (std::size_t k = 0; k < scalars(); ++k)
            scalar_derivatives(count, tau, x, g, k, g_q + k * total);
        return;
    }
    take_times(count, tau);
    double* const by_parameters = g_q + (free_period() ? total : 0);
    equations_->derivatives(count, times_.data(), x, c_.data(), vary_, g, jacobian, by_parameters);
    if (free_period()) std::copy_n(g, total, g_q);
    for (std::size_t i = 0; i < total; ++i) g[i] *= period_;
    for (std::size_t i = 0; i < total * states(); ++i) jacobian[i] *= period_;
    for (std::size_t i = 0; i < total * vary_.size(); ++i) by_parameters[i] *= period_;
}

void Rate::scalar_derivatives(std::size_t count, const double* tau, const double* x,
                              const double* g, std::size_t k, double* g_q) {
    const std::size_t total = count * states();
    if (free_period() && k == 0) {
        for (std::size_t i = 0; i < total; ++i) g_q[i] = g[i] / period_;
        return;
    }
    const std::size_t parameter = vary_[free_period() ? k - 1 : k];
    if (sets_period(parameter)) {
        difference(count, tau, x, parameter, g_q);
        return;
    }
    take_times(count, tau);
    equations_->parameter_derivatives(count, times_.data(), x, c_.data(), parameter, g_q);
    for (std::size_t i = 0; i < total; ++i) g_q[i] *= period_;
}

// G_c = [8 (G(c + e) - G(c - e)) - (G(c + 2e) - G(c - 2e))] / 12 e, error e^4.
void Rate::difference(std::size_t count, const double* tau, const double* x, std::size_t parameter,
                      double* g_q) {
    class Restore {  // also when the right-hand side throws
      public:
        Restore(Rate& rate, std::size_t parameter)
            : c(rate.c_[parameter]), rate_(rate), parameter_(parameter), period_(rate.period_) {}
        Restore(const Restore&) = delete;
        Restore& operator=(const Restore&) = delete;
        ~Restore() {
            rate_.c_[parameter_] = c;
            rate_.period_ = period_;
        }
        const double c;

      private:
        Rate& rate_;
        std::size_t parameter_;
        double period_;
    } const restore(*this, parameter);

    constexpr std::pair<double, double> terms[] = {{1, 8}, {-1, -8}, {2, -1}, {-2, 1}};
    const double e = 1e-3 * std::fabs(restore.c);
    const std::size_t total = count * states();
    work_.resize(total);
    std::fill_n(g_q, total, 0.0);
    for (const auto& [shift, factor] : terms) {
        c_[parameter] = restore.c + shift * e;
        period_ = period_of_parameters();
        values(count, tau, x, work_.data());
        for (std::size_t i = 0; i < total; ++i) g_q[i] += factor / (12 * e) * work_[i];
    }
}

}  // namespace trajex
