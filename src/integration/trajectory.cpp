// Integration of the system: one step, to a given time, and dense output of the last step.
#include "integration/trajectory.hpp"

using namespace trajex;

int TXStep(Trajex* handle, double* t0, double* y) {
    constexpr const char* where = "TXStep";
    StateFlow flow{enter(handle, where), y};
    return take_step(flow, t0, where);
}

int TXIntegrate(Trajex* handle, double* t0, double t1, double* y) {
    constexpr const char* where = "TXIntegrate";
    StateFlow flow{enter(handle, where), y};
    return integrate_to(flow, t0, t1, where);
}

int TXInterpolate(Trajex* handle, double t, double* y) {
    constexpr const char* where = "TXInterpolate";
    StateFlow flow{enter(handle, where), y};
    return interpolate_at(flow, t, where);
}
