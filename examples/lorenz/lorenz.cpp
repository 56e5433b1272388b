// The equilibria of the Lorenz equations, continued in rho from rho = 2 through the Hopf
// bifurcation at rho = sigma (sigma + beta + 3) / (sigma - beta - 1).
//
//   lorenz [directory]
//
// writes state.txt (the report of every point), path.dat (rho x y z, for other programs) and
// branch.dat (rho x y z stable, and the bifurcations, for plot.gp) into the directory.
#include <algorithm>
#include <cstdio>

#include "output.hpp"
#include "tx.h"

namespace {

double sigma = 10;
double beta = 8.0 / 3;
double rho = 2;
int last_step = -1;

void lorenz(double /*t*/, double* y, double* f) {
    f[0] = sigma * (y[1] - y[0]);
    f[1] = rho * y[0] - y[1] - y[0] * y[2];
    f[2] = y[0] * y[1] - beta * y[2];
}

void jacobian(double /*t*/, double* y, double** J) {
    J[0][0] = -sigma, J[0][1] = sigma, J[0][2] = 0;
    J[1][0] = rho - y[2], J[1][1] = -1, J[1][2] = -y[0];
    J[2][0] = y[1], J[2][1] = y[0], J[2][2] = -beta;
}

void rho_jacobian(double /*t*/, double* y, double** J) {
    J[0][0] = 0;
    J[1][0] = y[0];
    J[2][0] = 0;
}

// Called for every accepted point and for every located bifurcation. A bifurcation lies between two
// points: it still carries the step number of the one before it.
void branch_line(Trajex* tx, FILE* file) {
    const TrajexBif* point = tx->txb;
    const bool bifurcation = point->steps == last_step;
    last_step = point->steps;
    if (bifurcation) std::printf("Hopf bifurcation at rho = %.8f\n", point->c[0]);
    const double critical = std::max({point->er[0], point->er[1], point->er[2]});
    std::fprintf(file, "%.10g %.10g %.10g %.10g %d\n", point->c[0], point->y[0], point->y[1],
                 point->y[2], bifurcation ? 2 : critical < 0);
}

}  // namespace

int main(int argc, char** argv) {
    const OutputDirectory directory(argc, argv);
    const File state = directory.create("state.txt");
    const File path = directory.create("path.dat");
    const File branch = directory.create("branch.dat");

    // Bifurcations are located as sharply as these say: the defaults are large multiples of RelTol.
    Trajex* tx = TXOpenTrajex(lorenz, 3, 1e-9, 0.01);
    tx->NewtAbsTol = 1e-10;
    tx->LambdaNewtRelTol = 1e-9;
    tx->LambdaPert = 1e-6;
    tx->MaxContSteps = 120;
    TXVarOpenTrajex(tx, jacobian, 1, rho_jacobian, &rho);

    double y[] = {1.6, 1.6, 1};
    double step = 0.5;
    const int ok = TXEquiCont(tx, y, &rho, &step, 0, 1 | 2 | 4, state.get(), path.get(),
                              branch_line, branch.get());
    TXCloseTrajex(tx);
    return ok == 1 ? 0 : 1;
}
