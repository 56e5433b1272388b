// What a point on a family of cycles costs: the Roessler equations, the resonance of Duffing's
// oscillator, and rings of 1 to 25 van der Pol oscillators.
#include <cmath>
#include <string>
#include <tx.hpp>
#include <vector>

#include "measure.hpp"
#include "table.hpp"

namespace benchmarks {
namespace {

void measure(const std::string& name, const tx::Point& start, const std::string& parameter,
             tx::Window window, const tx::Options& options = {}, int rounds_to_run = 7) {
    const auto points = static_cast<double>(start.follow(parameter, window, options).size());
    const Rounds rounds({[&] { start.follow(parameter, window, options); }}, 0.01, rounds_to_run);
    report("us per cycle, " + name, "", std::nullopt, 1e6 * rounds.seconds(0) / points);
    report("cycles of a run, " + name, "", std::nullopt, points);
}

void measure_roessler() {
    const tx::System roessler{{"x", "y", "z"}, {{"c", 2.5}}, [](auto, auto& x, auto& c, auto& dx) {
                                  dx[0] = -x[1] - x[2];
                                  dx[1] = x[0] + 0.2 * x[1];
                                  dx[2] = 0.2 + x[2] * (x[0] - c[0]);
                              }};
    measure("Roessler", roessler.cycle({1, 1, 0}), "c", {2.5, 8});
}

void measure_duffing() {
    const tx::System duffing{{"x", "y"}, {{"w", 2.5}}, [](auto t, auto& x, auto& c, auto& dx) {
                                 using std::cos;
                                 dx[0] = x[1];
                                 dx[1] =
                                     0.6 * cos(c[0] * t) - 0.15 * x[1] - x[0] - x[0] * x[0] * x[0];
                             }};
    measure("Duffing", duffing.forced({.frequency = "w"}).cycle({0, 0}), "w", {0.5, 2.5});
}

/// Each oscillator is driven by the next; all in phase. Nothing is searched for: this is the cost
/// of a point by itself, with its multipliers.
void measure_ring(std::size_t n) {
    std::vector<std::string> names;
    for (std::size_t i = 0; i < n; ++i) names.push_back("x" + std::to_string(i));
    const tx::System ring{names, {{"mu", 1.0}}, [](auto, auto& x, auto& c, auto& dx) {
                              const std::size_t size = x.size();
                              for (std::size_t i = 0; i < size; i += 2) {
                                  dx[i] = x[i + 1];
                                  dx[i + 1] = c[0] * (1.0 - x[i] * x[i]) * x[i + 1] - x[i] +
                                              0.1 * (x[(i + 2) % size] - x[i]);
                              }
                          }};
    std::vector<double> start(n);
    for (std::size_t i = 0; i < n; i += 2) start[i] = 2;
    measure("ring, n = " + std::to_string(n), ring.cycle(start), "mu", {0.5, 1.5},
            {.detect = tx::Detect::none()}, n > 10 ? 1 : 7);
}

}  // namespace
}  // namespace benchmarks

int main() {
    benchmarks::measure_roessler();
    benchmarks::measure_duffing();
    for (const std::size_t n : {2, 4, 10, 20, 50}) benchmarks::measure_ring(n);
}
