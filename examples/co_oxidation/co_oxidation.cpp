// The oxidation of carbon monoxide on platinum (Bykov, Yablonskii and Kim 1978): equilibria in the
// rate q2 of oxygen, and their folds and Hopf points in the plane of q2 and k.
//
//   co_oxidation [directory]
#include "diagram_files.hpp"

int main(int argc, char** argv) {
    const tx::System reaction{
        {"x", "y", "s"}, {{"q2", 1.4}, {"k", 0.4}}, [](auto, auto& u, auto& c, auto& du) {
            const auto free = 1 - u[0] - u[1] - u[2];
            du[0] = 2 * 2.5 * free * free - 2 * u[0] * u[0] - 10 * u[0] * u[1];
            du[1] = c[0] * free - 0.1 * u[1] - 10 * u[0] * u[1];
            du[2] = 0.0675 * (free - c[1] * u[2]);
        }};
    tx::Branch equilibria = reaction.equilibrium({0.001, 0.7, 0.2}).follow("q2", {0.5, 2});
    tx::Diagram diagram;
    diagram.add(equilibria);
    for (const char* point : {"LP1", "H1"}) {
        diagram.add(equilibria[point].follow({"q2", "k"}, {{0.5, 2}, {0.1, 2}}));
    }
    write_files(diagram, reaction, OutputDirectory(argc, argv));
}
