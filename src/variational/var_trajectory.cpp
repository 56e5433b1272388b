// Integration of the extended system, with the same loops as the plain one.
#include "core/errors.hpp"
#include "integration/section.hpp"
#include "integration/trajectory.hpp"
#include "variational/extended.hpp"

using namespace trajex;

int TXVarStep(Trajex* handle, double* t0, double* y, double** Phi) {
    constexpr const char* where = "TXVarStep";
    ExtendedFlow flow(enter_variational(handle, where), y, Phi);
    return take_step(flow, t0, where);
}

int TXVarIntegrate(Trajex* handle, double* t0, double t1, double* y, double** Phi) {
    constexpr const char* where = "TXVarIntegrate";
    ExtendedFlow flow(enter_variational(handle, where), y, Phi);
    return integrate_to(flow, t0, t1, where);
}

// It reports under the name of its plain namesake, which applications have come to know.
int TXVarInterpolate(Trajex* handle, double t, double* y, double** Phi) {
    constexpr const char* where = "TXInterpolate";
    ExtendedFlow flow(enter_variational(handle, where), y, Phi);
    return interpolate_at(flow, t, where);
}

int TXVarPoincareStep(Trajex* handle, double* t, double* y, double** Phi) {
    constexpr const char* where = "TXVarPoincareStep";
    ExtendedFlow flow(enter_variational(handle, where), y, Phi);
    return poincare_step(flow, t, where);
}
