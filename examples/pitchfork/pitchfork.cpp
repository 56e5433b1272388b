// A pitchfork x' = c x - x^3 + e, what becomes of it when its symmetry is broken by e, and where
// the fold is then: 27 e^2 = 4 c^3, a cusp.
//
//   pitchfork [directory]
#include "diagram_files.hpp"

int main(int argc, char** argv) {
    const OutputDirectory directory(argc, argv);
    const tx::System perfect{
        {"x"}, {{"c", -1.0}, {"e", 0.0}}, [](auto, auto& x, auto& c, auto& dx) {
            dx[0] = c[0] * x[0] - x[0] * x[0] * x[0] + c[1];
        }};
    write_files(perfect.diagram("c", {-1, 1}, {.start = {0}}), perfect, directory, "perfect_");

    const tx::System imperfect = perfect.with({{"c", 1.0}, {"e", 0.02}});
    tx::Diagram diagram = imperfect.diagram("c", {-1, 1}, {.start = {1}});
    tx::Branch detached = imperfect.equilibrium({-1}).follow("c", {-1, 1});
    diagram.add(detached);
    tx::Branch folds = detached["LP1"].follow({"c", "e"}, {{-1, 1}, {-0.4, 0.4}});
    diagram.add(folds);
    double deviation = 0;
    for (std::size_t i = 0; i < folds.size(); ++i) {
        const double c = folds.column("c")[i];
        const double e = folds.column("e")[i];
        deviation = std::max(deviation, std::abs(27 * e * e - 4 * c * c * c));
    }
    std::printf("along the curve of folds 27 e^2 = 4 c^3 to %.0e\n", deviation);
    write_files(diagram, imperfect, directory, "imperfect_");
}
