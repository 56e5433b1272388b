#include "cycles/homoclinic.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace trajex {

void HomoclinicApproach::remember(double parameter, double period, double amplitude, double width) {
    width_ = width;
    std::shift_right(last_.begin(), last_.end(), 1);
    last_[0] = {parameter, period, amplitude};
    ++count_;
    if (!on_plateau(last_[0])) plateau_ = last_[0];
    if (count_ >= last_.size()) find_turn();
}

// The period grows at a parameter and an amplitude that do not change any more. (On a canard the
// period grows at a parameter that does not change, too, but so does the amplitude.)
bool HomoclinicApproach::on_plateau(const Cycle& cycle) const {
    constexpr double still = 1e-6;
    constexpr double same = 0.01;
    const double drift = std::fabs(cycle.parameter - plateau_.parameter);
    const double change = std::fabs(cycle.amplitude - plateau_.amplitude);
    return plateau_.period > 0 && cycle.period > plateau_.period && drift <= still * width_ &&
           change <= same * plateau_.amplitude;
}

// A fold between the last three cycles: the vertex of the parabola through them over the period.
void HomoclinicApproach::find_turn() {
    const auto& [c, b, a] = last_;
    const double x = a.period - b.period;
    const double y = c.period - b.period;
    if (!((b.parameter - a.parameter) * (c.parameter - b.parameter) < 0)) return;
    std::shift_right(turns_.begin(), turns_.end(), 1);
    turns_[0] = b;
    ++turn_count_;
    if (!(x * y < 0)) return;
    const double f = (a.parameter - b.parameter) / x;
    const double g = (c.parameter - b.parameter) / y;
    const double curvature = (g - f) / (y - x);
    const double slope = f - curvature * x;
    const double shift = std::clamp(-slope / (2 * curvature), std::min(x, y), std::max(x, y));
    turns_[0].period += shift;
    turns_[0].parameter += shift * (slope + curvature * shift);
}

// Distances of folds that decrease by like factors, over like differences of the period; where the
// connection passes the equilibrium on both sides in turn, every second distance.
bool HomoclinicApproach::wiggles(double& limit) const {
    constexpr double near = 1e-3;    // of the window
    constexpr double alike = 0.35;   // relative
    constexpr double steady = 0.25;  // of the period
    constexpr double same = 0.05;    // amplitude
    if (turn_count_ < turns_.size()) return false;
    std::array<double, 4> moved{}, waited{};
    for (std::size_t k = 0; k < moved.size(); ++k) {
        moved[k] = turns_[k].parameter - turns_[k + 1].parameter;
        waited[k] = turns_[k].period - turns_[k + 1].period;
        if (moved[k] * moved[0] * (k % 2 == 0 ? 1 : -1) <= 0) return false;
        if (!(std::fabs(waited[k] - waited[0]) <= steady * waited[0])) return false;
    }
    const double q = moved[0] / moved[2];
    const double q_before = moved[1] / moved[3];
    limit = turns_[0].parameter + q / (1 - q) * (moved[0] + moved[1]);
    return q < 0.8 && std::fabs(q - q_before) <= alike * q &&
           std::fabs(moved[0]) <= near * width_ &&
           std::fabs(turns_[0].amplitude - turns_[2].amplitude) <= same * turns_[0].amplitude;
}

bool HomoclinicApproach::suspected(std::string& detail) const {
    constexpr double growth = 1.4;
    if (last_[0].period > growth * plateau_.period) return true;
    double limit = 0;
    if (!wiggles(limit)) return false;
    char text[96];
    std::snprintf(text, sizeof text, "folds and doublings without end about %.10g", limit);
    detail = text;
    return true;
}

}  // namespace trajex
