/*
 * The Roessler attractor x' = -y - z, y' = x + a y, z' = b + z (x - c) as a table, and time
 * averages over it.
 *
 *   tables [directory]
 *
 * writes attractor.dat (t x y z) into the directory and prints averages. On the attractor the
 * averages of x' and y' vanish, so <y> = -<z> and <x> = -a <y>.
 */
#include <stdio.h>

#include "tx.h"

static const double a = 0.2, b = 0.2, c = 5.7;

static void roessler(double t, double* y, double* f) {
    (void)t;
    f[0] = -y[1] - y[2];
    f[1] = y[0] + a * y[1];
    f[2] = b + y[2] * (y[0] - c);
}

static double sum[3];

static void add(double t, double* y) {
    (void)t;
    for (int i = 0; i < 3; ++i) sum[i] += y[i];
}

int main(int argc, char** argv) {
    char file[1000];
    snprintf(file, sizeof file, "%s/attractor.dat", argc > 1 ? argv[1] : ".");

    /* Chaos doubles an error every ten units of time: no tolerance would keep the trajectory for
       long. 1e-8 keeps the attractor, and the picture, with digits to spare. */
    Trajex* tx = TXOpenTrajex(roessler, 3, 1e-8, 0.01);
    TXSetAbsTol(tx, 1e-8); /* x and y pass through zero */

    double t = 0;
    double y[] = {1, 1, 0};
    int ok = TXIntegrate(tx, &t, 200, y); /* onto the attractor */

    /* Time with three decimals, the state with six, 40 samples to a unit of time. */
    ok = ok && TXftablef(tx, file, "3666", &t, t + 500, 20000, y);

    const long samples = 100000;
    ok = ok && TXftableg(tx, &t, t + 5000, samples, y, add);
    TXCloseTrajex(tx);
    if (!ok) return 1;

    for (int i = 0; i < 3; ++i) sum[i] /= (double)(samples + 1);
    printf("<x> = %.4f   <y> = %.4f   <z> = %.4f\n", sum[0], sum[1], sum[2]);
    printf("<y> + <z> = %.4f   <x> + a <y> = %.4f\n", sum[1] + sum[2], sum[0] + a * sum[1]);
    return 0;
}
