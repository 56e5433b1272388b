// The resonance of the Duffing oscillator
//
//     x'' + 0.2 x' + x + x^3 = 0.5 cos(omega t):
//
// its response to the forcing, continued in omega over the fold at the top of the resonance, back
// along the unstable part, and over the second fold.
//
//   duffing [directory]
//
// writes state.txt (the report of every point and fold) and, for plot.gp, response.dat: omega, the
// amplitude of the response, and whether it is stable.
#include <cmath>
#include <cstdio>
#include <memory>
#include <string>

#include "tx.h"

namespace {

constexpr double period = 6.283185307179586;

double omega = 0.5;
int last_step = -1;

// In the time s = omega t: the period is fixed in a run, and must not change with the parameter.
void duffing(double s, double* y, double* f) {
    f[0] = y[1] / omega;
    f[1] = (0.5 * std::cos(s) - 0.2 * y[1] - y[0] - y[0] * y[0] * y[0]) / omega;
}

void jacobian(double /*s*/, double* y, double** J) {
    J[0][0] = 0, J[0][1] = 1 / omega;
    J[1][0] = (-1 - 3 * y[0] * y[0]) / omega, J[1][1] = -0.2 / omega;
}

void omega_jacobian(double s, double* y, double** J) {
    double f[2];
    duffing(s, y, f);
    J[0][0] = -f[0] / omega;
    J[1][0] = -f[1] / omega;
}

struct CloseHandle {
    void operator()(Trajex* tx) const { TXCloseTrajex(tx); }
};
using Handle = std::unique_ptr<Trajex, CloseHandle>;

struct CloseFile {
    void operator()(FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<FILE, CloseFile>;

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

}  // namespace

int main(int argc, char** argv) {
    const std::string directory = argc > 1 ? argv[1] : ".";
    const File state(std::fopen((directory + "/state.txt").c_str(), "w"));
    const File response(std::fopen((directory + "/response.dat").c_str(), "w"));
    if (!state || !response) {
        std::perror(directory.c_str());
        return 1;
    }

    const Handle tx = open_handle();
    TXVarOpenTrajex(tx.get(), jacobian, 1, omega_jacobian, &omega);
    tx->NewtAbsTol = 1e-7;
    tx->LambdaNewtRelTol = 1e-7;
    tx->LambdaPert = 1e-6;
    tx->MaxContSteps = 170;

    double t = 0;
    double y[] = {0, 0};
    TXIntegrate(tx.get(), &t, 100 * period, y);
    double step = 0.05;
    const int ok = TXNonAutoCont(tx.get(), 0, y, period, &omega, &step, 0, 1 | 4, state.get(),
                                 response_line, response.get());
    return ok == 1 ? 0 : 1;
}
