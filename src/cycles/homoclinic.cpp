#include "cycles/homoclinic.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace trajex {

void HomoclinicApproach::remember(const Cycle& cycle, double width) {
    width_ = width;
    if (!on_plateau(cycle)) plateau_ = cycle;
    if (cycle.period > last_.period && cycle.slope * last_.slope < 0) add_turn(last_, cycle);
    last_ = cycle;
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

// The parameter is taken as a cubic of the period between the two cycles,
// p = p0 + s0 u + b u^2 + c u^3, s: slopes times the difference of the periods.
void HomoclinicApproach::add_turn(const Cycle& before, const Cycle& after) {
    const double length = after.period - before.period;
    const double s0 = before.slope * length;
    const double s1 = after.slope * length;
    const double change = after.parameter - before.parameter;
    const double b = 3 * change - 2 * s0 - s1;
    const double c = s0 + s1 - 2 * change;
    // s0 + 2 b u + 3 c u^2 has one root from 0 to 1, where its signs differ.
    const double q = -(b + std::copysign(std::sqrt(b * b - 3 * c * s0), b));
    const double first = s0 / q;
    const double u = first > 0 && first < 1 ? first : q / (3 * c);
    std::shift_right(turns_.begin(), turns_.end(), 1);
    turns_[0] = after;
    turns_[0].period = before.period + u * length;
    turns_[0].parameter = before.parameter + u * (s0 + u * (b + u * c));
    ++turn_count_;
}

// By like differences of the period.
bool HomoclinicApproach::steady(std::size_t k, std::size_t over) const {
    constexpr double alike = 0.25;
    const auto waited = [&](std::size_t i) { return turns_[i].period - turns_[i + 1].period; };
    return waited(k) > 0 && std::fabs(waited(k) - waited(k + over)) <= alike * waited(k);
}

// Distances that decrease, and are small by now.
bool HomoclinicApproach::converging(double moved, double moved_before) const {
    constexpr double near = 1e-3;  // of the window
    constexpr double slowest = 0.8;
    return std::fabs(moved) <= near * width_ &&
           std::fabs(moved) <= slowest * std::fabs(moved_before);
}

// Each fold is nearer to the limit than the last, on the other side, by like factors.
bool HomoclinicApproach::near_one_limit(double& limit) const {
    constexpr double alike = 0.25;
    if (turn_count_ < 4) return false;
    const double q = -moved(0, 1) / moved(1, 1);
    const double q_before = -moved(1, 1) / moved(2, 1);
    limit = turns_[0].parameter - q / (1 + q) * moved(0, 1);
    return q > 0 && std::fabs(q - q_before) <= alike * q && converging(moved(0, 1), moved(1, 1)) &&
           steady(0, 1) && steady(1, 1);
}

// Folds on the one side and on the other come to limits of theirs, which may be one.
bool HomoclinicApproach::near_two_limits(double& lower, double& upper) const {
    if (turn_count_ < turns_.size()) return false;
    double limits[2];
    for (std::size_t k = 0; k < 2; ++k) {
        const double q = moved(k, 2) / moved(k + 2, 2);
        if (!(q > 0) || !converging(moved(k, 2), moved(k + 2, 2)) || !steady(k, 2)) return false;
        limits[k] = turns_[k].parameter + q / (1 - q) * moved(k, 2);
    }
    lower = std::min(limits[0], limits[1]);
    upper = std::max(limits[0], limits[1]);
    return true;
}

bool HomoclinicApproach::suspected(std::string& detail) const {
    constexpr double growth = 1.4;
    constexpr double one = 1e-5;  // limit, of the window
    if (last_.period > growth * plateau_.period) return true;
    double lower = 0;
    double upper = 0;
    if (near_one_limit(lower))
        upper = lower;
    else if (!near_two_limits(lower, upper))
        return false;
    char text[96];
    if (upper - lower <= one * width_)
        std::snprintf(text, sizeof text, "folds without end about %.8g", 0.5 * (lower + upper));
    else
        std::snprintf(text, sizeof text, "folds without end from %.8g to %.8g", lower, upper);
    detail = text;
    return true;
}

}  // namespace trajex
