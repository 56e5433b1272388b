// The period-doubling cascade of the Roessler equations (a = b = 0.2): the cycle that turns once
// around the origin is continued in c, then the one of twice its period from where it branches off,
// then the one of four times its period. The doublings of the first two are followed in c and a.
//
//   roessler [directory]
//
// writes state.txt (the report of every point and bifurcation) and, for plot.gp, what crosses the
// half-plane x = 0, y > 0: branches.dat (c, stability, y at every turn of the cycle) and, for
// comparison, attractor.dat (c, y at turn after turn of one trajectory); and doublings.dat (c a x y
// z on the curves of period doublings).
#include <cmath>
#include <cstdio>

#include "output.hpp"
#include "tx.h"

namespace {

double a = 0.2;
double b = 0.2;
double c = 2.5;

void roessler(double /*t*/, double* y, double* f) {
    f[0] = -y[1] - y[2];
    f[1] = y[0] + a * y[1];
    f[2] = b + y[2] * (y[0] - c);
}

void jacobian(double /*t*/, double* y, double** J) {
    J[0][0] = 0, J[0][1] = -1, J[0][2] = -1;
    J[1][0] = 1, J[1][1] = a, J[1][2] = 0;
    J[2][0] = y[2], J[2][1] = 0, J[2][2] = y[0] - c;
}

void parameter_jacobian(double /*t*/, double* y, double** J) {
    J[0][0] = 0, J[0][1] = 0;
    J[1][0] = 0, J[1][1] = y[1];
    J[2][0] = -y[2], J[2][1] = 0;
}

double section(double /*t*/, double* y) {
    return y[0];
}

Handle open_handle() {
    Handle tx(TXOpenTrajex(roessler, 3, 1e-9, 0.01));
    TXSetAbsTol(tx.get(), 1e-9);
    TXSetCut(tx.get(), section, 1e-10);
    return tx;
}

// From one crossing of the half-plane to the next: two crossings of the plane x = 0.
void turn_once(Trajex* tx, double* t, double* y) {
    int crossings = 0;
    for (int step = 0; step < 1000 && crossings < 2; ++step) crossings += TXPoincareStep(tx, t, y);
}

// What the reports of one branch need: the handle that follows an orbit once around, and where the
// next branch starts.
struct Branch {
    Handle tracer = open_handle();
    FILE* data = nullptr;
    int turns = 1;
    int last_step = -1;
    double doubled[3] = {0, 0, 0};
    double c_doubled = 0;
};
Branch branch;

// The first doubling on a branch: the top orbit of its classification is on the next branch.
void bifurcation_found(const TrajexBif& point) {
    std::printf("period %d: %s%s at c = %.5f, T = %.4f\n", branch.turns,
                TrajexBifName[point.biftype], point.btype, point.c[0], point.T);
    if (branch.c_doubled != 0) return;
    for (int i = 0; i < 3; ++i) branch.doubled[i] = point.top[i];
    branch.c_doubled = point.ctop;
}

// One line per point: c, stability, then y at each turn.
void write_point(const TrajexBif& point, bool bifurcation) {
    const double critical =
        std::fmax(std::hypot(point.er[0], point.ei[0]), std::hypot(point.er[1], point.ei[1]));
    std::fprintf(branch.data, "%.8g %d", point.c[0], bifurcation ? 2 : critical < 1);
    double t = 0;
    double y[] = {point.y[0], point.y[1], point.y[2]};
    for (int turn = 0; turn < branch.turns; ++turn) {
        turn_once(branch.tracer.get(), &t, y);
        std::fprintf(branch.data, " %.8g", y[1]);
    }
    std::fprintf(branch.data, "\n");
}

// Called for every accepted point and for every located bifurcation; a bifurcation lies between two
// points and still carries the step number of the one before it.
void report(Trajex* tx, FILE* /*unused*/) {
    const TrajexBif& point = *tx->txb;
    const bool bifurcation = point.steps == branch.last_step;
    branch.last_step = point.steps;
    if (bifurcation) bifurcation_found(point);
    write_point(point, bifurcation);
}

void trace_attractor(FILE* file) {
    const Handle tx = open_handle();
    for (c = 2.5; c < 4.4; c += 0.01) {
        double t = 0;
        double y[] = {1, 1, 1};
        TXIntegrate(tx.get(), &t, 1000, y);
        while (TXPoincareStep(tx.get(), &t, y) == 0 || y[1] < 0) {
            if (TXErrorTrajex(tx.get()) != 0) return;
        }
        for (int turn = 0; turn < 64; ++turn) {
            turn_once(tx.get(), &t, y);
            std::fprintf(file, "%.4g %.6g\n", c, y[1]);
        }
    }
}

// The first doubling of the cycle through y, followed in c and a: down in c to begin with, and from
// there up again, past where it was found. A curve begins in the record, where the run before it
// ended.
bool follow_doubling(Trajex* tx, double* y, FILE* file) {
    double period = 0;
    double step = 0.05;
    tx->MaxContSteps = 100;
    if (TXAutoCont(tx, 0, y, branch.turns, &period, &c, &step, 1, 0) != 1) return false;
    step = -0.05;
    tx->MaxContSteps = 20;
    if (TXAuto2DCont(tx, &c, &a, &step, 0) != 1) return false;
    step = 0.05;
    tx->MaxContSteps = 80;
    if (TXAuto2DCont(tx, &c, &a, &step, 2, file) != 1) return false;
    std::printf("period %d: doubling at c = %.5f, a = %.5f, T = %.4f, multiplier %.6f\n",
                branch.turns, c, a, tx->txb->T, std::fmin(tx->txb->er[0], tx->txb->er[1]));
    std::fprintf(file, "\n\n");
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    const OutputDirectory directory(argc, argv);
    const File state = directory.create("state.txt");
    const File data = directory.create("branches.dat");
    const File attractor = directory.create("attractor.dat");
    const File doublings = directory.create("doublings.dat");
    branch.data = data.get();
    trace_attractor(attractor.get());

    const Handle tx = open_handle();
    TXVarOpenTrajex(tx.get(), jacobian, 2, parameter_jacobian, &c, &a);
    tx->NewtAbsTol = 1e-7;  // the section x = 0 leaves a component with nothing for NewtRelTol
    tx->LambdaNewtAbsTol = 1e-7;  // nor for LambdaNewtRelTol, on curves
    tx->LambdaNewtRelTol = 1e-7;
    tx->LambdaPert = 1e-6;

    c = 2.5;
    double t = 0;
    double y[] = {1, 1, 1};
    TXIntegrate(tx.get(), &t, 500, y);

    const double largest_step[] = {0.1, 0.05, 0.02};
    const int points[] = {28, 64, 72};
    for (int k = 0; k < 3; ++k) {
        const double c_start = c;
        double start[] = {y[0], y[1], y[2]};
        tx->MaxContSteps = points[k];
        double period = 0;
        double step = largest_step[k];
        if (TXAutoCont(tx.get(), 0, y, branch.turns, &period, &c, &step, 0, 1 | 4, state.get(),
                       report, nullptr) != 1 ||
            branch.c_doubled == 0) {
            return 1;
        }
        std::fprintf(data.get(), "\n\n");
        c = c_start;
        if (k < 2 && !follow_doubling(tx.get(), start, doublings.get())) return 1;
        a = 0.2;
        for (int i = 0; i < 3; ++i) y[i] = branch.doubled[i];
        c = branch.c_doubled;
        branch.turns *= 2;
        branch.last_step = -1;
        branch.c_doubled = 0;
    }
    return 0;
}
