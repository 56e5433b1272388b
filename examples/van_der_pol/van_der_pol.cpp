// The cycle of van der Pol's equation from nearly harmonic oscillations, mu = 0.1, to relaxation
// oscillations, mu = 100, where a perturbation dies out faster than any double can say.
//
//   van_der_pol [directory]
#include <cmath>

#include "cycle_files.hpp"

int main(int argc, char** argv) {
    const tx::System oscillator{{"x", "y"}, {{"mu", 1.0}}, [](auto, auto& x, auto& c, auto& dx) {
                                    dx[0] = x[1];
                                    dx[1] = c[0] * (1 - x[0] * x[0]) * x[1] - x[0];
                                }};
    const tx::Branch branch = oscillator.cycle({2, 0}).follow("mu", {0.1, 100});
    // (3 - 2 log 2) mu + 3 a mu^(-1/3), with the zero -a = -2.338 of Airy's function, is the limit.
    const std::size_t last = branch.size() - 1;
    const double mu = branch.column("mu")[last], period = branch.column("period")[last];
    const double limit = (3 - 2 * std::log(2.0)) * mu + 3 * 2.338107 / std::cbrt(mu);
    std::printf("%zu points; at mu = %g the period is %.6f, its expansion %.2f\n", branch.size(),
                mu, period, limit);
    tx::Diagram diagram;
    diagram.add(branch);
    write_cycles(diagram, "mu", "y", OutputDirectory(argc, argv));
}
