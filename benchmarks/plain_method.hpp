// The same method without any thought of speed, in the style of a C library of its time: one loop
// per term, coefficients in tables, vectors in the record, working values in static variables.
#pragma once

#include <cmath>

#include "tx.h"

namespace benchmarks::plain {

inline const double c[8] = {0, 1.0 / 6, 4.0 / 15, 2.0 / 3, 5.0 / 6, 1, 1.0 / 15, 1};
inline const double a[8][8] = {
    {},
    {1.0 / 6},
    {4.0 / 75, 16.0 / 75},
    {5.0 / 6, -8.0 / 3, 5.0 / 2},
    {-165.0 / 64, 55.0 / 6, -425.0 / 64, 85.0 / 96},
    {12.0 / 5, -8, 4015.0 / 612, -11.0 / 36, 88.0 / 255},
    {-8263.0 / 15000, 124.0 / 75, -643.0 / 680, -81.0 / 250, 2484.0 / 10625},
    {3501.0 / 1720, -300.0 / 43, 297275.0 / 52632, -319.0 / 2322, 24068.0 / 84065, 0,
     3850.0 / 26703},
};
inline const double b5[8] = {13.0 / 160, 0, 2375.0 / 5984, 5.0 / 16, 12.0 / 85, 3.0 / 44, 0, 0};
inline const double b6[8] = {3.0 / 40,     0, 875.0 / 2244,  23.0 / 72,
                             264.0 / 1955, 0, 125.0 / 11592, 43.0 / 616};

/// One accepted step of n components on the vectors of rec.
template <class Rhs>
void step(Trajex* rec, int order, double* t0, double* y, Rhs f) {
    static double t, h, err;
    static double* k;
    static int i, j, m, n;
    n = order;
    h = rec->h;
    if (rec->hmax > 0 && rec->hmax < h) h = rec->hmax;
    t = *t0;
    rec->tfirst = t;
    for (i = 0; i < n; i++) rec->y0[i] = y[i];
    for (i = 0; i < n; i++) rec->yfirst[i] = y[i];
    do {
        for (i = 0; i < n; i++) rec->y5[i] = rec->y6[i] = 0;
        for (j = 0; j < 8; j++) {
            k = rec->k + j * n;
            for (i = 0; i < n; i++) rec->yw[i] = 0;
            for (m = 0; m < j; m++) {
                for (i = 0; i < n; i++) rec->yw[i] += rec->k[m * n + i] * a[j][m];
            }
            for (i = 0; i < n; i++) rec->yw[i] = h * rec->yw[i] + rec->y0[i];
            f(t + h * c[j], rec->yw, k);
            for (i = 0; i < n; i++) {
                rec->y5[i] += k[i] * b5[j];
                rec->y6[i] += k[i] * b6[j];
            }
        }
        for (i = 0; i < n; i++) {
            rec->y5[i] = h * rec->y5[i] + rec->y0[i];
            rec->y6[i] = h * rec->y6[i] + rec->y0[i];
        }
        for (i = 0; i < n; i++) rec->abs_err[i] = std::fabs(rec->y6[i] - rec->y5[i]);
        err = 0;
        if (rec->AbsTol != 0 || rec->RelTol != 0) {
            for (i = 0; i < n; i++) {
                if (rec->abs_err[i] == 0) continue;
                const double term =
                    rec->abs_err[i] / (rec->AbsTol + std::fabs(rec->y6[i]) * rec->RelTol);
                err += term * term;
            }
            err = std::sqrt(err);
        }
        if (err <= 1) {
            for (i = 0; i < n; i++) rec->ylast[i] = rec->y6[i];
            rec->tlast = t + h;
        }
        if (err != 0) h *= 0.625 / std::sqrt(std::sqrt(err)) + 0.2;
        if (rec->hmax > 0 && h > rec->hmax) h = rec->hmax;
    } while (err > 1);
    for (i = 0; i < n; i++) y[i] = rec->ylast[i];
    rec->h = h;
    *t0 = rec->tlast;
    rec->StepTaken = 1;
}

/// The right-hand side of the extended system without parameters, n components of state.
inline void extended(Trajex* tx, double t, double* Y, double* K) {
    static int i, k, l, n;
    n = tx->order;
    tx->fcn(t, Y, K);
    tx->jac(t, Y, tx->TX->j);
    for (i = 0; i < n; i++) {
        for (k = 0; k < n; k++) {
            K[n + i * n + k] = 0;
            for (l = 0; l < n; l++) K[n + i * n + k] += Y[n + l * n + k] * tx->TX->j[i][l];
        }
    }
}

}  // namespace benchmarks::plain
