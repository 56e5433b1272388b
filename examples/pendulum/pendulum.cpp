// A damped pendulum, driven ever harder: swings to both sides alike until two mirror images replace
// them, which double their period again and again.
//
//   pendulum [directory]
#include "cycle_files.hpp"

int main(int argc, char** argv) {
    const tx::System pendulum{{"angle", "velocity"},
                              {{"force", 0.8}, {"omega", 2.0 / 3}},
                              [](auto t, auto& x, auto& c, auto& dx) {
                                  using std::cos;
                                  using std::sin;
                                  dx[0] = x[1];
                                  dx[1] = c[0] * cos(c[1] * t) - 0.5 * x[1] - sin(x[0]);
                              }};
    const tx::Point swing = pendulum.forced({.frequency = "omega"}).cycle({0, 0});
    tx::Branch branch = swing.follow("force", {0.5, 1.6});
    tx::Diagram diagram;
    diagram.add(branch);
    branch = branch["BPC1"].switch_branch().at(0);
    for (int period = 1; period <= 4; period *= 2) {
        diagram.add(branch);
        const tx::Special doubling = branch["PD1"];
        std::printf("period %d doubles at force = %.9f\n", period, doubling.parameter("force"));
        branch = doubling.switch_branch().at(0);
    }
    diagram.add(branch);
    write_cycles(diagram, "force", "velocity", OutputDirectory(argc, argv));
}
