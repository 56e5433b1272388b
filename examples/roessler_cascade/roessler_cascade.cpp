// Period doubling on the way to chaos: the cycle of the Roessler equations is followed in c,
// doubled where it loses its stability, and so on to period 16. The distances between the doublings
// shrink by a ratio that tends to Feigenbaum's number 4.6692.
//
//   roessler_cascade [directory]
#include "cycle_files.hpp"

int main(int argc, char** argv) {
    const tx::System roessler{{"x", "y", "z"},
                              {{"a", 0.2}, {"b", 0.2}, {"c", 2.5}},
                              [](auto, auto& x, auto& c, auto& dx) {
                                  dx[0] = -x[1] - x[2];
                                  dx[1] = x[0] + c[0] * x[1];
                                  dx[2] = c[1] + x[2] * (x[0] - c[2]);
                              }};
    tx::Branch branch = roessler.cycle({1, 1, 0}).follow("c", {2, 5});
    tx::Diagram diagram;
    std::vector<double> doublings;
    for (int period = 1; period <= 16; period *= 2) {
        diagram.add(branch);
        const tx::Special doubling = branch["PD1"];
        doublings.push_back(doubling.parameter("c"));
        std::printf("period %2d doubles at c = %.9f", period, doublings.back());
        if (const std::size_t n = doublings.size(); n > 2) {
            std::printf(", ratio %.4f", (doublings[n - 2] - doublings[n - 3]) /
                                            (doublings[n - 1] - doublings[n - 2]));
        }
        std::printf("\n");
        if (period < 16) branch = doubling.switch_branch().at(0);
    }
    write_cycles(diagram, "c", "x", OutputDirectory(argc, argv));
}
