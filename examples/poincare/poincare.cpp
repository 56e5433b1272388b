// Poincare sections of the Henon-Heiles Hamiltonian
//
//   H = (px^2 + py^2)/2 + (x^2 + y^2)/2 + x^2 y - y^3/3
//
// at the energies 1/12, where almost all orbits lie on tori, and 1/8, where islands of tori lie in
// a chaotic sea. (M. Henon and C. Heiles, Astron. J. 69 (1964) 73-79.)
//
//   poincare [directory]
//
// writes section_12.dat and section_8.dat (y, py, number of the orbit) into the directory: the
// crossings of the plane x = 0 with px > 0.
#include <algorithm>
#include <cmath>
#include <cstdio>

#include "output.hpp"
#include "tx.h"

namespace {

constexpr int crossings = 300;

// The state is x, y, px, py.
void henon_heiles(double /*t*/, double* s, double* f) {
    f[0] = s[2];
    f[1] = s[3];
    f[2] = -s[0] - 2 * s[0] * s[1];
    f[3] = -s[1] - s[0] * s[0] + s[1] * s[1];
}

double energy(const double* s) {
    const double x = s[0], y = s[1], px = s[2], py = s[3];
    return (px * px + py * py + x * x + y * y) / 2 + x * x * y - y * y * y / 3;
}

double plane(double /*t*/, double* s) {
    return s[0];
}

// Writes the crossings of one orbit. Returns by how much its energy has changed at the end.
double section_of_orbit(Trajex* tx, double* s, int orbit, FILE* file) {
    const double start = energy(s);
    double t = 0;
    for (int found = 0; found < crossings;) {
        const bool crossed = TXPoincareStep(tx, &t, s) == 1;
        if (!crossed || s[2] < 0) continue;  // between crossings, or on the way back
        std::fprintf(file, "%.8f %.8f %d\n", s[1], s[3], orbit);
        ++found;
    }
    return std::fabs(energy(s) - start);
}

void draw_section(Trajex* tx, int part, FILE* file) {
    const double level = 1.0 / part;
    int orbit = 0;
    double drift = 0;
    for (int i = -15; i <= 15; ++i) {
        // Starts along the axes of the section; px follows from the energy.
        for (const bool along_y : {true, false}) {
            const double y = along_y ? 0.045 * i : 0;
            const double py = along_y ? 0 : 0.03 * i;
            const double px2 = 2 * level - py * py - y * y + 2 * y * y * y / 3;
            if (!(px2 > 0)) continue;
            double s[] = {0, y, std::sqrt(px2), py};
            drift = std::max(drift, section_of_orbit(tx, s, ++orbit, file));
        }
    }
    std::printf("energy 1/%d: %d orbits, %d crossings each, energy kept to %.1e\n", part, orbit,
                crossings, drift);
}

}  // namespace

int main(int argc, char** argv) {
    const OutputDirectory directory(argc, argv);
    const File low = directory.create("section_12.dat");
    const File high = directory.create("section_8.dat");

    // The method does not conserve the energy by itself. At these tolerances an orbit of 300 turns
    // keeps it to far less than the width of a dot.
    Trajex* tx = TXOpenTrajex(henon_heiles, 4, 1e-11, 0.01);
    TXSetAbsTol(tx, 1e-12);
    TXSetCut(tx, plane, 1e-9);
    draw_section(tx, 12, low.get());
    draw_section(tx, 8, high.get());
    TXCloseTrajex(tx);
}
