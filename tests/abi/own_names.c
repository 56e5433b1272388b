/* An application with functions of its own under short names that the library also exports. It
 * links, and the library never calls the application's in place of its own. */
#define TX_NO_SHORT_NAMES
#include <tx.h>

#include <math.h>
#include <stdio.h>
#include <stdlib.h>

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

static void oscillator(double t, double* y, double* f) {
    (void)t;
    f[0] = y[1];
    f[1] = -y[0];
}

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

int main(void) {
    double t = 0;
    double y[2] = {1, 0};
    Trajex* tx = TXOpenTrajex(oscillator, 2, 1e-8, 0.01);
    TXSetAbsTol(tx, 1e-8);
    TXSetCut(tx, NULL, 1e-6);
    TXSetAutoCut(tx, t, y);
    if (TXIntegrate(tx, &t, 1.0, y) != 1 || !(fabs(y[0] - cos(1.0)) < 1e-6)) return 1;
    while (TXPoincareStep(tx, &t, y) == 0) {
        if (TXErrorTrajex(tx) != 0) return 1;
    }
    return everything[0] != NULL && TXCloseTrajex(tx) == 1 ? 0 : 1;
}
