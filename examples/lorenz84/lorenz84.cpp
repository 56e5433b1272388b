// The atmosphere in four equations (Lorenz 1984, with a fourth variable of Van Veen 2003):
// equilibria in F, then the curves of folds and of Hopf points in the plane of F and T with the
// points of codimension two on them.
//
//   lorenz84 [directory]
#include "diagram_files.hpp"

int main(int argc, char** argv) {
    const tx::System lorenz84{{"X", "Y", "Z", "U"},
                              {{"F", 3.0}, {"T", 0.04}, {"G", 0.25}},
                              [](auto, auto& x, auto& c, auto& dx) {
                                  dx[0] = -x[1] * x[1] - x[2] * x[2] - 0.25 * x[0] + 0.25 * c[0] -
                                          0.987 * x[3] * x[3];
                                  dx[1] = x[0] * x[1] - x[0] * x[2] - x[1] + c[2];
                                  dx[2] = x[0] * x[1] + x[0] * x[2] - x[2];
                                  dx[3] = -1.04 * x[3] + 0.987 * x[0] * x[3] + c[1];
                              }};
    tx::Branch equilibria = lorenz84.equilibrium({2.98, -0.04, 0.06, -0.02}).follow("F", {1, 3});
    tx::Diagram diagram;
    diagram.add(equilibria);
    for (const char* point : {"LP1", "H1", "H2"}) {
        diagram.add(equilibria[point].follow({"F", "T"}, {{1, 3}, {-0.1, 0.1}}));
    }
    write_files(diagram, lorenz84, OutputDirectory(argc, argv));
}
