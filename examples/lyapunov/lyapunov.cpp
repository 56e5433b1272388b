// The Lyapunov spectrum of the Lorenz attractor, with its running estimate.
//
//   lyapunov [directory]
//
// writes estimate.dat (time and the three exponents in bits per unit of time) into the directory.
// Volumes shrink at the constant rate -(sigma + 1 + beta), which the exponents must add up to.
#include <cmath>
#include <cstdio>
#include <string>

#include "output.hpp"
#include "tx.h"

namespace {

constexpr double sigma = 10;
constexpr double beta = 8.0 / 3;
constexpr double rho = 28;

void lorenz(double /*t*/, double* y, double* f) {
    f[0] = sigma * (y[1] - y[0]);
    f[1] = rho * y[0] - y[1] - y[0] * y[2];
    f[2] = y[0] * y[1] - beta * y[2];
}

}  // namespace

int main(int argc, char** argv) {
    const std::string file = OutputDirectory(argc, argv).path("estimate.dat");

    // Separations of 1e-4 are small against the attractor (about 50). They must also be large
    // against the integration error, even in the direction that shrinks fastest, by exp(-1.5) in
    // an interval: hence a RelTol of 1e-10.
    constexpr double separation = 1e-4;
    constexpr double interval = 0.1;
    Trajex* tx = TXOpenTrajex(lorenz, 3, 1e-10, 0.01);
    TXSetAbsTol(tx, 1e-10);  // the components pass through zero

    double t = 0;
    double y[] = {1, 1, 20};
    double bits[3];
    const int ok =
        TXLyapCalcFile(tx, file.c_str(), &t, y, separation, interval, 500, 50000, bits, 3, 20);
    TXCloseTrajex(tx);
    if (ok != 1) return 1;

    std::printf("          bits        nats\n");
    for (const double exponent : bits) {
        std::printf("%14.6f %11.6f\n", exponent, exponent * std::log(2.0));
    }
    const double divergence = -(sigma + 1 + beta);
    std::printf("sum       %.6f bits, divergence %.6f bits\n", bits[0] + bits[1] + bits[2],
                divergence / std::log(2.0));
    std::printf("dimension %.4f (Kaplan and Yorke)\n", 2 + (bits[0] + bits[1]) / -bits[2]);
}
