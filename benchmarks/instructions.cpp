// A number of steps for an instruction counter, which is to count inside `counted` alone:
//     instructions own|plain|evaluations n steps
// n = 3 is Lorenz. "evaluations" makes the evaluations of the steps and nothing else.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "own.hpp"
#include "plain_method.hpp"
#include "systems.hpp"

using namespace benchmarks;

extern "C" [[gnu::noinline]] void counted(const std::string& what, Trajex* tx, double* y,
                                          int steps) {
    double t = 0;
    if (what == "own") {
        for (int i = 0; i < steps; ++i) TXStep(tx, &t, y);
    } else if (what == "plain") {
        for (int i = 0; i < steps; ++i) plain::step(tx, tx->order, &t, y, tx->fcn);
    } else {
        for (int i = 0; i < 8 * steps; ++i) tx->fcn(t, y, tx->k);
    }
}

int main(int argc, char** argv) {
    if (argc != 4) return 1;
    const std::size_t n = std::strtoul(argv[2], nullptr, 10);
    components = n;
    const Handle tx = open_handle(n == 3 ? lorenz : rotation, n, 1e-6);
    TXSetMaxStep(tx.get(), 1e-3);  // no attempt is rejected
    std::vector<double> y(n, 1.0);
    counted(argv[1], tx.get(), y.data(), static_cast<int>(std::strtol(argv[3], nullptr, 10)));
    std::printf("%.17g\n", y[0]);
}
