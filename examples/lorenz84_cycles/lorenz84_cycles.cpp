// The atmosphere in four equations: the cycles that leave its Hopf points as F varies, up to the
// points where a torus takes over.
//
//   lorenz84_cycles [directory]
#include "cycle_files.hpp"

int main(int argc, char** argv) {
    const tx::System lorenz84{{"X", "Y", "Z", "U"},
                              {{"F", 3.0}, {"T", 0.01}, {"G", 0.25}},
                              [](auto, auto& x, auto& c, auto& dx) {
                                  dx[0] = -x[1] * x[1] - x[2] * x[2] - 0.25 * x[0] + 0.25 * c[0] -
                                          0.987 * x[3] * x[3];
                                  dx[1] = x[0] * x[1] - x[0] * x[2] - x[1] + c[2];
                                  dx[2] = x[0] * x[1] + x[0] * x[2] - x[2];
                                  dx[3] = -1.04 * x[3] + 0.987 * x[0] * x[3] + c[1];
                              }};
    const tx::Diagram diagram =
        lorenz84.diagram("F", {1, 3}, {.start = {2.98, -0.04, 0.06, -0.02}, .depth = 2});
    write_cycles(diagram, "F", "X", OutputDirectory(argc, argv));
}
