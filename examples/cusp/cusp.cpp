// The cusp x' = c1 + c2 x - x^3. For c2 = 1 its equilibria, continued in c1, turn round at two
// folds. One of the folds is then followed in c1 and c2 at once: the curve runs into the cusp at
// the origin, where the two folds meet, and out again along the other one. It is 27 c1^2 = 4 c2^3.
//
//   cusp [directory]
//
// writes state.txt (the reports of both runs), branch.dat (c1 x stable, and the folds, for plot.gp)
// and folds.dat (c1 c2 x) into the directory.
#include <cmath>
#include <cstdio>

#include "output.hpp"
#include "tx.h"

namespace {

double c1 = -1;
double c2 = 1;

void cusp(double /*t*/, double* y, double* f) {
    f[0] = c1 + c2 * y[0] - y[0] * y[0] * y[0];
}

void jacobian(double /*t*/, double* y, double** J) {
    J[0][0] = c2 - 3 * y[0] * y[0];
}

void parameter_jacobian(double /*t*/, double* y, double** J) {
    J[0][0] = 1;
    J[0][1] = y[0];
}

// Called for every accepted point and for every located bifurcation. A bifurcation lies between two
// points: it still carries the step number of the one before it.
void branch_line(Trajex* tx, FILE* file) {
    static int last_step = -1;
    const TrajexBif* point = tx->txb;
    const bool fold = point->steps == last_step;
    last_step = point->steps;
    if (fold) std::printf("fold at c1 = %.8f, x = %.8f\n", point->c[0], point->y[0]);
    std::fprintf(file, "%.10g %.10g %d\n", point->c[0], point->y[0], fold ? 2 : point->er[0] < 0);
}

// What a run along the folds is asked about, through the stream of the user output.
struct Folds {
    double lowest = 1;     // c2
    double deviation = 0;  // from the exact curve
};

void look_at_fold(Trajex* tx, FILE* stream) {
    Folds* folds = reinterpret_cast<Folds*>(stream);
    const double a = tx->txb->c[0];
    const double b = tx->txb->c[1];
    folds->lowest = std::fmin(folds->lowest, b);
    folds->deviation = std::fmax(folds->deviation, std::fabs(27 * a * a - 4 * b * b * b));
}

}  // namespace

int main(int argc, char** argv) {
    const OutputDirectory directory(argc, argv);
    const File state = directory.create("state.txt");
    const File branch = directory.create("branch.dat");
    const File curve = directory.create("folds.dat");

    // Folds are located as sharply as these say: the defaults are large multiples of RelTol.
    Trajex* tx = TXOpenTrajex(cusp, 1, 1e-9, 0.01);
    tx->NewtAbsTol = 1e-10;
    tx->LambdaNewtRelTol = 1e-8;
    tx->LambdaNewtAbsTol = 1e-9;
    TXVarOpenTrajex(tx, jacobian, 2, parameter_jacobian, &c1, &c2);

    // The whole branch first, then again up to the first fold, where the record holds it.
    tx->MaxContSteps = 110;
    double y = -1.3;
    double step = 0.05;
    int ok = TXEquiCont(tx, &y, &c1, &step, 0, 1 | 4, state.get(), branch_line, branch.get());
    c1 = 0;
    y = -1;
    step = 0.05;
    ok &= TXEquiCont(tx, &y, &c1, &step, 1, 0);

    // A negative step: towards smaller c2, the parameter that stands last in the handle's list.
    Folds folds;
    tx->MaxContSteps = 53;
    step = -0.05;
    ok &= TXEqui2DCont(tx, &c1, &c2, &step, 1 | 2 | 4, state.get(), curve.get(), look_at_fold,
                       reinterpret_cast<FILE*>(&folds));
    std::printf("folds down to c2 = %.4f and up to c2 = %.4f, 27 c1^2 - 4 c2^3 at most %.1e\n",
                folds.lowest, c2, folds.deviation);
    TXCloseTrajex(tx);
    return ok == 1 ? 0 : 1;
}
