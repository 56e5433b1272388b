// The resonance of the Duffing oscillator
//
//     x'' + 0.2 x' + x + x^3 = force cos(omega t):
//
// its response to a force of 0.5, continued in omega over the fold at the top of the resonance,
// back along the unstable part, and over the second fold. Then the folds themselves, in omega and
// force: the two are one curve, with a cusp where the resonance stops bending over.
//
//   duffing [directory]
//
// writes state.txt (the report of every point and fold) and, for plot.gp, response.dat (omega, the
// amplitude of the response, and whether it is stable) and folds.dat (omega force x x').
#include <cmath>
#include <cstdio>

#include "output.hpp"
#include "tx.h"

namespace {

constexpr double period = 6.283185307179586;

double omega = 0.5;
double force = 0.5;
int last_step = -1;

// In the time s = omega t: the period is fixed in a run, and must not change with the parameter.
void duffing(double s, double* y, double* f) {
    f[0] = y[1] / omega;
    f[1] = (force * std::cos(s) - 0.2 * y[1] - y[0] - y[0] * y[0] * y[0]) / omega;
}

void jacobian(double /*s*/, double* y, double** J) {
    J[0][0] = 0, J[0][1] = 1 / omega;
    J[1][0] = (-1 - 3 * y[0] * y[0]) / omega, J[1][1] = -0.2 / omega;
}

void parameter_jacobian(double s, double* y, double** J) {
    double f[2];
    duffing(s, y, f);
    J[0][0] = -f[0] / omega, J[0][1] = 0;
    J[1][0] = -f[1] / omega, J[1][1] = std::cos(s) / omega;
}

Handle open_handle() {
    Handle tx(TXOpenTrajex(duffing, 2, 1e-9, 0.01));
    TXSetAbsTol(tx.get(), 1e-9);
    return tx;
}

// Reports follow the orbits on a handle of their own.
const Handle tracer = open_handle();

// Largest |x| on the orbit through y at the start of a period.
double amplitude(const double* start) {
    constexpr int samples = 400;
    double t = 0;
    double y[] = {start[0], start[1]};
    double largest = 0;
    for (int i = 1; i <= samples; ++i) {
        TXIntegrate(tracer.get(), &t, i * period / samples, y);
        largest = std::fmax(largest, std::fabs(y[0]));
    }
    return largest;
}

// Called for every accepted point and for every located bifurcation; a bifurcation lies between two
// points and still carries the step number of the one before it.
void response_line(Trajex* tx, FILE* file) {
    const TrajexBif& point = *tx->txb;
    const bool bifurcation = point.steps == last_step;
    last_step = point.steps;
    const double size = amplitude(point.y);
    if (bifurcation) {
        std::printf("%s%s at omega = %.5f, amplitude %.4f\n", TrajexBifName[point.biftype],
                    point.btype, point.c[0], size);
    }
    const bool stable =
        std::hypot(point.er[0], point.ei[0]) < 1 && std::hypot(point.er[1], point.ei[1]) < 1;
    std::fprintf(file, "%.8g %.8g %d\n", point.c[0], size, bifurcation ? 2 : stable);
}

// The folds meet where the force is weakest.
double weakest_force = 1;
double cusp_omega = 0;

void look_for_cusp(Trajex* tx, FILE* /*unused*/) {
    if (tx->txb->c[1] > weakest_force) return;
    cusp_omega = tx->txb->c[0];
    weakest_force = tx->txb->c[1];
}

}  // namespace

int main(int argc, char** argv) {
    const OutputDirectory directory(argc, argv);
    const File state = directory.create("state.txt");
    const File response = directory.create("response.dat");
    const File folds = directory.create("folds.dat");

    const Handle tx = open_handle();
    TXVarOpenTrajex(tx.get(), jacobian, 2, parameter_jacobian, &omega, &force);
    tx->NewtAbsTol = 1e-7;
    tx->LambdaNewtRelTol = 1e-7;
    tx->LambdaNewtAbsTol = 1e-7;
    tx->LambdaPert = 1e-6;

    double start[] = {0, 0};
    double t = 0;
    TXIntegrate(tx.get(), &t, 100 * period, start);
    double y[] = {start[0], start[1]};
    double step = 0.05;
    tx->MaxContSteps = 170;
    int ok = TXNonAutoCont(tx.get(), 0, y, period, &omega, &step, 0, 1 | 4, state.get(),
                           response_line, response.get());

    // Once more, to the first fold only: the record then holds it.
    omega = 0.5;
    y[0] = start[0], y[1] = start[1];
    step = 0.05;
    ok &= TXNonAutoCont(tx.get(), 0, y, period, &omega, &step, 1, 0);

    // Up to a stronger force; from there down into the cusp and out on the other side. The sign of
    // the step is that of the parameter listed last, the force.
    step = 0.05;
    tx->MaxContSteps = 40;
    ok &= TXNonAuto2DCont(tx.get(), &omega, &force, &step, 1, state.get());
    step = -0.05;
    tx->MaxContSteps = 99;
    ok &= TXNonAuto2DCont(tx.get(), &omega, &force, &step, 1 | 2 | 4, state.get(), folds.get(),
                          look_for_cusp, nullptr);
    std::printf("cusp of the folds near omega = %.3f, force = %.3f\n", cusp_omega, weakest_force);
    return ok == 1 ? 0 : 1;
}
