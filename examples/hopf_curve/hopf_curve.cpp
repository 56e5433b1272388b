// The program of docs/guide.md: an equilibrium of the Brusselator, its Hopf bifurcation in B, and
// the curve of Hopf bifurcations in the plane of A and B, which is B = 1 + A^2.
//
//   hopf_curve [directory]
//
// writes state.txt (the reports of both runs), branch.dat (B x y) and curve.dat (A B x y) into the
// directory.
#include <cstdio>

#include "output.hpp"
#include "tx.h"

static double A = 1;
static double B = 1.2;

static void brusselator(double /*t*/, double* y, double* f) {
    const double reaction = y[0] * y[0] * y[1];
    f[0] = A - (B + 1) * y[0] + reaction;
    f[1] = B * y[0] - reaction;
}

int main(int argc, char** argv) {
    const OutputDirectory directory(argc, argv);
    const File state = directory.create("state.txt");
    const File branch = directory.create("branch.dat");
    const File curve = directory.create("curve.dat");

    Trajex* tx = TXOpenTrajex(brusselator, 2, 1e-9, 0.01);
    tx->NewtAbsTol = 1e-9;
    tx->LambdaNewtRelTol = 1e-7;
    tx->LambdaPert = 1e-6;
    TXVarOpenTrajex(tx, nullptr, 1e-7, 2, nullptr, 1e-7, &A, &B);

    double y[] = {1, 1.2};
    double step = 0.06;
    TXEquiCont(tx, y, &B, &step, 1, 1 | 2, state.get(), branch.get());
    std::printf("Hopf bifurcation at B = %.6f\n", B);

    step = 0.1;
    tx->MaxContSteps = 30;
    TXEqui2DCont(tx, &A, &B, &step, 1 | 2, state.get(), curve.get());
    std::printf("on the curve at A = %.6f, B = %.6f; 1 + A^2 = %.6f\n", A, B, 1 + A * A);

    TXCloseTrajex(tx);
    return 0;
}
