// The step kernel as compiled for each instruction set, against the plain statement of the method.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "core/simd.hpp"
#include "handles.hpp"
#include "integration/stepper.hpp"
#include "integration/textbook.hpp"
#include "integration/trajectory.hpp"
#include "tx.h"

namespace {

using testing_support::open_recording;
using testing_support::OpenHandle;

thread_local int order = 0;

/// A driven ring of `order` units. The first one rests at zero: its error has no tolerance either.
void ring(double t, double* y, double* f) {
    for (int i = 1; i < order; ++i) {
        f[i] = std::sin(3 * y[(i + 1) % order]) - 0.3 * y[i] + std::cos(t + i);
    }
    f[0] = -y[0];
}

using Kernel = trajex::Outcome (*)(std::size_t n, Trajex* rec, const double* start, double t,
                                   double h, const trajex::StateFlow* flow);

/// Five steps of the kernel, each with all that it leaves behind, compared bit by bit.
void compare_steps(Kernel kernel, double AbsTol) {
    const OpenHandle tx = open_recording(ring, order, 1e-7, 1.5);
    tx->AbsTol = AbsTol;
    const auto n = static_cast<std::size_t>(order);
    textbook::Vector y(n);
    for (std::size_t i = 1; i < n; ++i) y[i] = 1 + 0.1 * static_cast<double>(i);
    textbook::Integrator plain{ring, n, tx->RelTol, AbsTol, tx->h};
    const trajex::StateFlow flow{*tx, nullptr};
    double h = tx->h;
    for (int step = 0; step < 5; ++step) {
        const double t = plain.t_end;
        plain.step(t, y);
        const trajex::Outcome taken = kernel(n, tx.get(), y.data(), t, h, &flow);
        h = taken.next_h;
        ASSERT_TRUE(taken.accepted);
        ASSERT_EQ(h, plain.h) << "n = " << n;
        ASSERT_EQ(textbook::Vector(tx->yfirst, tx->yfirst + n), y);
        ASSERT_EQ(tx->tlast, plain.t_end);
        ASSERT_EQ(textbook::Vector(tx->y6, tx->y6 + n), plain.end);
        for (std::size_t j = 0; j < 8; ++j) {
            ASSERT_EQ(textbook::Vector(tx->k + j * n, tx->k + (j + 1) * n), plain.F[j]);
        }
        y = plain.end;
    }
}

TEST(StepKernel, EveryInstructionSetGivesTheBitsOfThePlainMethod) {
    using Flow = const trajex::StateFlow*;
    const Kernel baseline =
        trajex::run_for_baseline<trajex::RepeatAttempts<trajex::Pair>, std::size_t, Trajex*,
                                 const double*, double, double, Flow>;
    const Kernel avx2 = trajex::run_for_avx2<trajex::RepeatAttempts<trajex::Longest>, std::size_t,
                                             Trajex*, const double*, double, double, Flow>;
    for (order = 1; order <= 21; ++order) {
        for (const double AbsTol : {0.0, 1e-9}) {
            compare_steps(baseline, AbsTol);
            if (trajex::has_avx2()) compare_steps(avx2, AbsTol);
        }
    }
}

}  // namespace
