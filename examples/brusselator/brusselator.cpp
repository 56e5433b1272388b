// The equilibrium (A, B/A) of the Brusselator, continued in B from B = 1.2 through the Hopf
// bifurcation at B = 1 + A^2. No derivatives are given: the library takes differences.
//
//   brusselator [directory]
//
// writes state.txt (the report of every point), path.dat (B x y) and branch.dat (B x y stable, and
// the bifurcations, for plot.gp) into the directory.
#include <cstdio>

#include "output.hpp"
#include "tx.h"

namespace {

double A = 1;
double B = 1.2;
int last_step = -1;

void brusselator(double /*t*/, double* y, double* f) {
    const double reaction = y[0] * y[0] * y[1];
    f[0] = A - (B + 1) * y[0] + reaction;
    f[1] = B * y[0] - reaction;
}

// Called for every accepted point and for every located bifurcation. A bifurcation lies between two
// points: it still carries the step number of the one before it.
void branch_line(Trajex* tx, FILE* file) {
    const TrajexBif* point = tx->txb;
    const bool bifurcation = point->steps == last_step;
    last_step = point->steps;
    if (bifurcation) std::printf("Hopf bifurcation at B = %.8f\n", point->c[0]);
    std::fprintf(file, "%.10g %.10g %.10g %d\n", point->c[0], point->y[0], point->y[1],
                 bifurcation ? 2 : point->er[0] < 0);
}

}  // namespace

int main(int argc, char** argv) {
    const OutputDirectory directory(argc, argv);
    const File state = directory.create("state.txt");
    const File path = directory.create("path.dat");
    const File branch = directory.create("branch.dat");

    // Bifurcations are located as sharply as these say: the defaults are large multiples of RelTol.
    // The perturbations of the differences are near the root of the rounding error.
    const double perturbation = 1e-7;
    Trajex* tx = TXOpenTrajex(brusselator, 2, 1e-9, 0.01);
    tx->NewtAbsTol = 1e-10;
    tx->LambdaNewtRelTol = 1e-8;
    tx->LambdaPert = 1e-5;
    tx->MaxContSteps = 40;
    TXVarOpenTrajex(tx, nullptr, perturbation, 1, nullptr, perturbation, &B);

    double y[] = {1, 1.2};
    double step = 0.06;
    const int ok = TXEquiCont(tx, y, &B, &step, 0, 1 | 2 | 4, state.get(), path.get(), branch_line,
                              branch.get());
    TXCloseTrajex(tx);
    return ok == 1 ? 0 : 1;
}
