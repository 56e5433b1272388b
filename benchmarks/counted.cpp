// Evaluations are counted in the right-hand side itself.
#include "counted.hpp"

#include <cmath>
#include <cstdio>

#include "own.hpp"
#include "systems.hpp"
#include "tx.h"

namespace benchmarks {

namespace {

long evaluations = 0;
long beyond_the_step = 0;

void counted_roessler(double t, double* y, double* f) {
    ++evaluations;
    roessler(t, y, f);
}

/// Of one section step the second cut value is the one after the step.
int cut_values = 0;
double second_component(double, double* y) {
    if (++cut_values == 2) beyond_the_step = evaluations;
    return y[1];
}

double parameter = 0;

void brusselator(double, double* y, double* f) {
    ++evaluations;
    const double reaction = y[0] * y[0] * y[1];
    f[0] = 1 + reaction - (parameter + 1) * y[0];
    f[1] = parameter * y[0] - reaction;
}

void van_der_pol(double, double* y, double* f) {
    ++evaluations;
    f[0] = y[1];
    f[1] = parameter * (1 - y[0] * y[0]) * y[1] - y[0];
}

/// Stiffness is the parameter.
void forced_oscillator(double t, double* y, double* f) {
    ++evaluations;
    f[0] = y[1];
    f[1] = std::cos(t) - 0.3 * y[1] - parameter * y[0];
}

long points_reported = 0;
void count_point(Trajex*, FILE*) {
    ++points_reported;
}

Handle open_run(RightHandSide f, int points) {
    Handle tx = open_handle(f, 2, 1e-9);
    tx->TerminateOnFatalError = 0;
    tx->NewtAbsTol = tx->NewtRelTol = 1e-7;
    tx->MaxContSteps = points;
    TXVarOpenTrajex(tx.get(), nullptr, 1e-6, 1, nullptr, 1e-6, &parameter);
    TXSetCut(tx.get(), second_component, 1e-8);
    evaluations = points_reported = 0;
    return tx;
}

double evaluations_per_point() {
    return static_cast<double>(evaluations) / static_cast<double>(points_reported);
}

}  // namespace

double evaluations_per_crossing(int crossings, double tolerance) {
    const Handle tx = open_handle(counted_roessler, 3, tolerance);
    TXSetCut(tx.get(), second_component, tolerance);
    double t = 0;
    double y[3] = {-5, 0.1, 0};
    long extra = 0;
    for (int found = 0; found < crossings;) {
        cut_values = 0;
        if (TXPoincareStep(tx.get(), &t, y) != 1) continue;
        extra += evaluations - beyond_the_step;
        ++found;
    }
    return static_cast<double>(extra) / crossings;
}

double evaluations_per_equilibrium(int points) {
    parameter = 0.5;
    const Handle tx = open_run(brusselator, points);
    double y[2] = {1, 0.5};
    double dc = 0.05;
    TXEquiCont(tx.get(), y, &parameter, &dc, 0, 4, count_point, nullptr);
    return evaluations_per_point();
}

double evaluations_per_autonomous_orbit(int points) {
    parameter = 1;
    const Handle tx = open_run(van_der_pol, points);
    double y[2] = {2, 0.1};
    double T = 0;
    double dc = 0.05;
    TXAutoCont(tx.get(), 0, y, 1, &T, &parameter, &dc, 0, 4, count_point, nullptr);
    return evaluations_per_point();
}

double evaluations_per_forced_orbit(int points) {
    parameter = 2;
    const Handle tx = open_run(forced_oscillator, points);
    double y[2] = {0.9, 0.3};
    double dc = 0.05;
    TXNonAutoCont(tx.get(), 0, y, 6.283185307179586, &parameter, &dc, 0, 4, count_point, nullptr);
    return evaluations_per_point();
}

}  // namespace benchmarks
