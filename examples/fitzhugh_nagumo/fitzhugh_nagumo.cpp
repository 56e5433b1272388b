// The equilibria of the FitzHugh-Nagumo equations of a nerve cell, as the current I grows: at rest,
// firing between two Hopf bifurcations, blocked.
//
//   fitzhugh_nagumo [directory]
#include "diagram_files.hpp"

int main(int argc, char** argv) {
    const tx::System cell{{"v", "w"},
                          {{"I", 0.0}, {"eps", 0.08}, {"a", 0.7}, {"b", 0.8}},
                          [](auto, auto& x, auto& c, auto& dx) {
                              dx[0] = x[0] - x[0] * x[0] * x[0] / 3 - x[1] + c[0];
                              dx[1] = c[1] * (x[0] + c[2] - c[3] * x[1]);
                          }};
    tx::Diagram diagram = cell.diagram("I", {0, 2});
    for (const tx::Special& special : diagram.specials()) {
        if (special.type() == "H") {
            std::printf("%s at I = %.9f, omega = %.6f, l1 = %.5f\n", special.id().c_str(),
                        special.parameter("I"), special.coefficient("omega"),
                        special.coefficient("l1"));
        }
    }
    // Where the cell fires in the plane of the current and of the ratio of the two time scales.
    diagram.add(diagram["H1"].follow({"I", "eps"}, {{0, 2}, {0.01, 1.5}}));
    write_files(diagram, cell, OutputDirectory(argc, argv));
}
