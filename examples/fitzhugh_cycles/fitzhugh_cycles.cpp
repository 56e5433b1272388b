// When a nerve cell fires: the FitzHugh-Nagumo equations as the current I grows. Both Hopf points
// are subcritical; the cycles that leave them explode within a tiny interval of I (canards), turn
// at a fold of cycles, and one family joins both ends.
//
//   fitzhugh_cycles [directory]
#include "cycle_files.hpp"

int main(int argc, char** argv) {
    const tx::System cell{
        {"v", "w"}, {{"I", 0.0}, {"eps", 0.08}}, [](auto, auto& x, auto& c, auto& dx) {
            dx[0] = x[0] - x[0] * x[0] * x[0] / 3 - x[1] + c[0];
            dx[1] = c[1] * (x[0] + 0.7 - 0.8 * x[1]);
        }};
    write_cycles(cell.diagram("I", {0, 2}), "I", "v", OutputDirectory(argc, argv));
}
