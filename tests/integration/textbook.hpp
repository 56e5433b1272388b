// The method as its tables state it, with plain loops and nothing shared between stages: what the
// library's unrolled passes are compared with, to the last bit.
#pragma once

#include <cmath>
#include <cstddef>
#include <vector>

namespace textbook {

using Vector = std::vector<double>;
using RightHandSide = void (*)(double t, double* y, double* f);

inline constexpr double nodes[8] = {0, 1.0 / 6, 4.0 / 15, 2.0 / 3, 5.0 / 6, 1, 1.0 / 15, 1};

inline constexpr double coefficients[8][7] = {
    {},
    {1.0 / 6},
    {4.0 / 75, 16.0 / 75},
    {5.0 / 6, -8.0 / 3, 5.0 / 2},
    {-165.0 / 64, 55.0 / 6, -425.0 / 64, 85.0 / 96},
    {12.0 / 5, -8, 4015.0 / 612, -11.0 / 36, 88.0 / 255},
    {-8263.0 / 15000, 124.0 / 75, -643.0 / 680, -81.0 / 250, 2484.0 / 10625, 0},
    {3501.0 / 1720, -300.0 / 43, 297275.0 / 52632, -319.0 / 2322, 24068.0 / 84065, 0,
     3850.0 / 26703},
};

inline constexpr double fifth[8] = {13.0 / 160, 0, 2375.0 / 5984, 5.0 / 16, 12.0 / 85, 3.0 / 44,
                                    0,          0};
inline constexpr double sixth[8] = {3.0 / 40,     0, 875.0 / 2244,  23.0 / 72,
                                    264.0 / 1955, 0, 125.0 / 11592, 43.0 / 616};
inline constexpr double middle[9] = {121.0 / 1536, 0,          317125.0 / 861696, 397.0 / 6912,
                                     -1.0 / 68,    17.0 / 704, 125.0 / 12096,     -817.0 / 14784,
                                     1.0 / 32};

struct Integrator {
    RightHandSide f;
    std::size_t n;
    double RelTol, AbsTol, h;
    bool extended = false;  // the order of the sums of dense output is that of the extended system

    Vector start = {}, end = {};  // the last accepted step
    double t_start = 0, t_end = 0;
    std::vector<Vector> F = std::vector<Vector>(12, Vector(n));
    int attempts = 0;

    Vector evaluate(double t, Vector y) {
        Vector value(n);
        f(t, y.data(), value.data());
        return value;
    }

    void step(double t, const Vector& y) {
        for (double err = 2; err > 1;) {
            err = attempt(t, y);
            t_end = t + h;
            if (err != 0) h *= 0.625 / std::sqrt(std::sqrt(err)) + 0.2;
        }
        t_start = t;
        start = y;
    }

    double attempt(double t, const Vector& y) {
        ++attempts;
        Vector lower(n), upper(n);
        for (std::size_t j = 0; j < 8; ++j) {
            Vector argument(n);
            for (std::size_t m = 0; m < j; ++m) {
                for (std::size_t i = 0; i < n; ++i) argument[i] += F[m][i] * coefficients[j][m];
            }
            for (std::size_t i = 0; i < n; ++i) argument[i] = h * argument[i] + y[i];
            F[j] = evaluate(t + h * nodes[j], argument);
            for (std::size_t i = 0; i < n; ++i) lower[i] += F[j][i] * fifth[j];
            for (std::size_t i = 0; i < n; ++i) upper[i] += F[j][i] * sixth[j];
        }
        double squares = 0;
        for (std::size_t i = 0; i < n; ++i) {
            lower[i] = h * lower[i] + y[i];
            upper[i] = h * upper[i] + y[i];
            const double error = std::fabs(upper[i] - lower[i]);
            const double term = error == 0 ? 0 : error / (AbsTol + std::fabs(upper[i]) * RelTol);
            squares += term * term;
        }
        end = upper;
        return std::sqrt(squares);
    }

    Vector dense_output(double t) {
        const double size = t_end - t_start;
        F[11] = evaluate(t_end, end);
        Vector half(n);
        for (std::size_t j = 0; j < 8; ++j) {
            for (std::size_t i = 0; i < n; ++i) half[i] += F[j][i] * middle[j];
        }
        for (std::size_t i = 0; i < n; ++i) {
            half[i] = size * (half[i] + F[11][i] * middle[8]) + start[i];
        }
        F[8] = evaluate(t_start + 0.5 * size, half);
        F[9] = evaluate(t_start + 0.9 * size,
                        hermite(size, half, 128.0 / 3125, 2592.0 / 3125, 81.0 / 625, 18.0 / 3125,
                                -162.0 / 3125, 162.0 / 3125));
        F[10] = evaluate(t_start + 0.95 * size,
                         hermite(size, half, 5427.0 / 400000, 380133.0 / 400000, 361.0 / 10000,
                                 1539.0 / 800000, -29241.0 / 800000, 3249.0 / 200000));
        return polynomial((t - t_start) / size, size);
    }

    Vector hermite(double size, const Vector& half, double k1, double k2, double k3, double k4,
                   double k5, double k6) const {
        Vector y(n);
        for (std::size_t i = 0; i < n; ++i) {
            y[i] = extended ? (k6 * F[8][i] + k4 * F[0][i] + k5 * F[11][i]) * size + k3 * half[i] +
                                  k2 * end[i] + k1 * start[i]
                            : k1 * start[i] + k2 * end[i] + k3 * half[i] +
                                  size * (k4 * F[0][i] + k5 * F[11][i] + k6 * F[8][i]);
        }
        return y;
    }

    Vector polynomial(double s, double size) const {
        const double s2 = s * s, s3 = s2 * s, s4 = s2 * s2, r = s - 1, r2 = r * r;
        const double d0 = (400 * s4 - 808 * s3 + 462 * s2 - 34 * s - 17) * (r2 / -17);
        const double d1 = (30200 * s3 - 65084 * s2 + 43806 * s - 8721) * (-s * r2 / 8721);
        const double d2 = (400 * s4 - 1608 * s3 + 2478 * s2 - 1766 * s + 513) * (s2 / 17);
        const double d3 = (3800 * s3 - 7396 * s2 + 4160 * s - 513) * (r * s2 / 51);
        const double d4 = (18400 * s2 - 33088 * s + 14877) * (-s2 * r2 / 918);
        const double d5 = (s2 * r2 / 918) * (100000 * s2 - 100000 * s + 7125);
        const double d6 = (s2 * r2 / 8721) * (-1600000 * s2 + 1600000 * s - 216000);
        Vector y(n);
        for (std::size_t i = 0; i < n; ++i) {
            y[i] = extended
                       ? d0 * start[i] + d1 * size * F[0][i] + d2 * end[i] + d3 * size * F[11][i] +
                             d4 * size * F[8][i] + d5 * size * F[9][i] + d6 * size * F[10][i]
                       : d0 * start[i] + d2 * end[i] +
                             size * (d1 * F[0][i] + d3 * F[11][i] + d4 * F[8][i] + d5 * F[9][i] +
                                     d6 * F[10][i]);
        }
        return y;
    }
};

}  // namespace textbook
