/* A program as an application's author writes it, in the common subset of C99 and C++: fixed and
 * variable arguments, callbacks, the records, the tables. It has functions of its own under short
 * names that the library also exports: it links, and the library never calls them in place of its
 * own. It says what went wrong, or nothing. */
#define TX_NO_SHORT_NAMES
#include <tx.h>

#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#ifdef __cplusplus
extern "C" {
#endif
static int trap(void) {
    fprintf(stderr, "the library called a function of the application\n");
    exit(2);
}

#define OWN(name)      \
    int name(void);    \
    int name(void) {   \
        return trap(); \
    }
OWN(step)
OWN(order)
OWN(integrate)
OWN(interpolate)
OWN(dot)
#undef OWN
#ifdef __cplusplus
}
#endif

/* Brings every part of the library into the program. */
typedef void (*any_function)(void);
static any_function volatile everything[] = {
    (any_function)TXPoincareStep, (any_function)TXVarPoincareStep,
    (any_function)TXEquiPoint,    (any_function)TXStateBifOutput,
    (any_function)TXCheckEquiBif, (any_function)TXLocateEquiBif,
    (any_function)TXEquiCont,     (any_function)TXLyapCalcFile,
    (any_function)TXftablea,      (any_function)TXAutoOrbit,
    (any_function)TXNonAutoOrbit, (any_function)TXCheckBif,
    (any_function)TXLocateBif,    (any_function)TXEqui2DCont,
    (any_function)TXEigenVector,  (any_function)CRIT2,
};

static double level = 2.0;
static int failures = 0;

static void expect(int holds, const char* what) {
    if (!holds) {
        fprintf(stderr, "failed: %s\n", what);
        ++failures;
    }
}

static void oscillator(double t, double* y, double* f) {
    (void)t;
    f[0] = y[1];
    f[1] = -y[0];
}

static void fold(double t, double* y, double* f) {
    (void)t;
    f[0] = level - y[0] * y[0];
}

static void fold_jacobian(double t, double* y, double** J) {
    (void)t;
    J[0][0] = -2 * y[0];
}

static void integrate_an_oscillation(void) {
    double t = 0;
    double y[2] = {1, 0};
    Trajex* tx = TXOpenTrajex(oscillator, 2, 1e-10, 0.01);
    expect(TXSetAbsTol(tx, 1e-12) == 1, "TXSetAbsTol");
    expect(TXIntegrate(tx, &t, 1.0, y) == 1, "TXIntegrate");
    expect(t == 1.0 && fabs(y[0] - cos(1.0)) < 1e-8 && fabs(y[1] + sin(1.0)) < 1e-8,
           "the cosine of 1");
    expect(tx->StepTaken == 1 && tx->order == 2, "the fields of the handle");

    tx->TerminateOnFatalError = 0;
    TXSetCut(tx, NULL, 1e-6);
    expect(TXSetAutoCut(tx, t, y) == 1 && everything[0] != NULL, "a section");
    while (TXPoincareStep(tx, &t, y) == 0) {
        if (TXErrorTrajex(tx) != 0) break;
    }
    expect(TXErrorTrajex(tx) == 0, "a crossing");
    expect(TXSetMaxStep(tx, -1.0) == 0 && TXErrorTrajex(tx) == 11, "a refused setting");
    expect(strcmp(TXStrErrorTrajex(tx), TrajexFatalError[11]) == 0, "the text of an error");
    expect(TXCloseTrajex(tx) == 1, "TXCloseTrajex");
}

static void find_an_equilibrium(void) {
    double y[1] = {1};
    Trajex* tx = TXOpenTrajex(fold, 1, 1e-12, 0.01);
    expect(TXVarOpenTrajex(tx, fold_jacobian, 1, (jac_t)NULL, 1e-6, &level) == 1,
           "TXVarOpenTrajex");
    expect(tx->nparam == 1 && tx->c[0] == &level, "the parameter table");
    expect(TXEquiPoint(tx, y) == 1 && fabs(y[0] - sqrt(2.0)) < 1e-7, "the square root of 2");
    expect(TXCloseTrajex(tx) == 1, "TXCloseTrajex");
}

int main(void) {
    integrate_an_oscillation();
    find_an_equilibrium();
    expect(strcmp(TrajexBifName[6], "HOPF") == 0 && TrajexBifIconLeft[6] == NULL,
           "the tables of bifurcation types");
    return failures == 0 ? 0 : 1;
}
