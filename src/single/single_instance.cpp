// The single-instance interface: short names for programs that study one system at a time. It holds
// one handle and forwards to the public operations on it; a call that integrates stores the
// right-hand side it is given first. The names are an application's to take: they stand in an
// object of their own, and nothing in the library refers to it.
#include "core/errors.hpp"
#include "tx.h"

using namespace trajex;

namespace {

// Process-wide on purpose: that one handle need not be passed around is what this interface is for.
// It serves one caller at a time, as any handle does, and so needs no synchronisation.
// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables)
Trajex* oldtx = nullptr;

/// The entry step of a call that integrates `fcn`.
Trajex& enter_with(void (*fcn)(double, double*, double*), const char* where) {
    Trajex& tx = enter(oldtx, where);
    tx.fcn = fcn;
    return tx;
}

}  // namespace

// A handle that is still held stays open: the application may have kept its address.
int openTrajex(int order, double tol, double h) {
    oldtx = TXOpenTrajex(nullptr, order, tol, h);
    return 1;
}

int closeTrajex() {
    const int closed = TXCloseTrajex(&enter(oldtx, "closeTrajex"));
    if (closed == 1) oldtx = nullptr;
    return closed;
}

// Reads the code of the last call, and so must not clear it.
int errorTrajex() {
    if (oldtx == nullptr) fail_without_handle(Error::not_opened, "errorTrajex");
    return TXErrorTrajex(oldtx);
}

int order() {
    return enter(oldtx, "order").order;
}

int step(double* t0, double* y, void (*fcn)(double, double*, double*)) {
    return TXStep(&enter_with(fcn, "step"), t0, y);
}

int integrate(double* t0, double t1, double* y, void (*fcn)(double, double*, double*)) {
    return TXIntegrate(&enter_with(fcn, "integrate"), t0, t1, y);
}

int interpolate(double t, double* y, void (*fcn)(double, double*, double*)) {
    return TXInterpolate(&enter_with(fcn, "interpolate"), t, y);
}

// The two tolerances refuse 0 here, as published, where the operations on handles take it.
int set_tol(double tol) {
    constexpr const char* where = "set_tol";
    Trajex& tx = enter(oldtx, where);
    if (!(tol > 0)) return report(&tx, Error::tolerance_not_positive, where);
    tx.RelTol = tol;
    return 1;
}

int set_max_step(double hmax) {
    constexpr const char* where = "set_max_step";
    Trajex& tx = enter(oldtx, where);
    if (!(hmax > 0)) return report(&tx, Error::max_step_not_positive, where);
    tx.hmax = hmax;
    return 1;
}

int set_abs_tol(double abstol) {
    constexpr const char* where = "set_abs_tol";
    Trajex& tx = enter(oldtx, where);
    if (!(abstol > 0)) return report(&tx, Error::tolerance_not_positive, where);
    tx.AbsTol = abstol;
    return 1;
}

int poincare_step(double* t, double* y, void (*fcn)(double, double*, double*),
                  double (*cutfcn)(double, double*), double eps) {
    Trajex& tx = enter_with(fcn, "poincare_step");
    tx.cut = cutfcn;
    tx.CutEps = eps;
    return TXPoincareStep(&tx, t, y);
}

int set_max_poincare_steps(int n) {
    return TXSetMaxPoincareSteps(&enter(oldtx, "set_max_poincare_steps"), n);
}

int cut_surface(double* state, double* normal) {
    return TXCutSurface(&enter(oldtx, "cut_surface"), state, normal);
}

double auto_cut(double t, double* y) {
    return TXAutoCut(&enter(oldtx, "auto_cut"), t, y);
}

int set_auto_cut(double t, double* y, void (*fcn)(double, double*, double*)) {
    return TXSetAutoCut(&enter_with(fcn, "set_auto_cut"), t, y);
}

int lyap_calc(double* t, double* y, double eps, double lyap_dt,
              void (*fcn)(double, double*, double*), long trans_steps, long lyap_steps,
              double* exponents, int nn) {
    return TXLyapCalc(&enter_with(fcn, "lyap_calc"), t, y, eps, lyap_dt, trans_steps, lyap_steps,
                      exponents, nn);
}

int lyap_calc_file(const char* filename, double* t, double* y, double eps, double lyap_dt,
                   long trans_steps, long lyap_steps, void (*fcn)(double, double*, double*),
                   double* exponents, int nn, int samp) {
    return TXLyapCalcFile(&enter_with(fcn, "lyap_calc_file"), filename, t, y, eps, lyap_dt,
                          trans_steps, lyap_steps, exponents, nn, samp);
}

int ftablef(const char* filename, const char* format, double* t, double t1, long n, double* y,
            void (*fcn)(double, double*, double*)) {
    return TXftablef(&enter_with(fcn, "ftablef"), filename, format, t, t1, n, y);
}

int ftableg(double* t, double t1, long n, double* y, void (*fcn)(double, double*, double*),
            void (*g)(double t, double* y)) {
    return TXftableg(&enter_with(fcn, "ftableg"), t, t1, n, y, g);
}

int ftablea(FILE* file, const char* format, double* t, double t1, long n, double* y,
            void (*fcn)(double, double*, double*)) {
    return TXftablea(&enter_with(fcn, "ftablea"), file, format, t, t1, n, y);
}
