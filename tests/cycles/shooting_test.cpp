// Segments by integration against differences, and as the judge of cycles by collocation.
#include "cycles/shooting.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <string>
#include <vector>

#include "allocation.hpp"
#include "branches/bordered_newton.hpp"
#include "branches/continuer.hpp"
#include "branches/equilibrium_problem.hpp"
#include "cycles/cycles.hpp"
#include "cycles/shooting_check.hpp"

using namespace trajex;
using namespace trajex::cycles_test;

namespace {

EquationsPtr feedback() {
    return equations(3, 2, [](auto, auto& x, auto& c, auto& dx) {
        dx[0] = x[1];
        dx[1] = x[2];
        dx[2] = -c[0] * x[2] - c[1] * x[1] - x[0] + x[0] * x[0];
    });
}

CycleProblem cycle_of_feedback(const State& c) {
    // Near the Hopf point x = A cos t; Newton's method does the rest.
    const double amplitude = std::sqrt((1 - c[0]) / 0.9);
    Orbit orbit{.states = 3, .m = 4, .mesh = uniform_mesh(20), .x = {}, .period = 2};
    orbit.period = 2 * std::numbers::pi * (1 + amplitude * amplitude / 30);
    for (std::size_t k = 0; k < orbit.nodes(); ++k) {
        const double t = 2 * std::numbers::pi * orbit.time_of_node(k);
        for (const double x : {std::cos(t), -std::sin(t), -std::cos(t)})
            orbit.x.push_back(amplitude * x);
    }
    return {feedback(), Timing{}, {0}, c, {.widths = {1.0}}, orbit};
}

TEST(Shooting, DerivativesAreThoseOfItsResidual) {
    const Timing forced{.period = Timing::Period::frequency, .parameter = 0};
    for (const Timing& timing : {Timing{}, forced}) {
        const bool driven = !timing.autonomous();
        const EquationsPtr f = equations(2, 2, [driven](auto t, auto& x, auto& c, auto& dx) {
            using std::cos;
            dx[0] = x[1];
            dx[1] = c[1] * (1 - x[0] * x[0]) * x[1] - x[0] + cos(c[0] * (driven ? t : 1));
        });
        Shooting shooting(Rate(f, timing, {0, 1}, {1.2, 0.7}), {0, 0.3, 0.6, 1}, {1.5, 2});
        const std::size_t size = shooting.equations();
        std::vector<double> x, q, v, r(size), other(size), image(size, 0.0);
        for (std::size_t k = 0; k < size; ++k) {
            x.push_back(std::sin(1.0 + static_cast<double>(k)));
            v.push_back(std::cos(2.0 * static_cast<double>(k)));
        }
        if (timing.autonomous()) q.push_back(4);
        q.insert(q.end(), {1.2, 0.7});
        ASSERT_TRUE(shooting.linearise(x.data(), q.data(), r.data()));
        shooting.apply(v.data(), image.data());
        for (std::size_t k = 0; k < size; ++k)
            for (std::size_t j = 0; j < q.size(); ++j)
                image[k] += shooting.scalar_columns()[k * q.size() + j];
        std::vector<double> transposed(size, 0.0), plain(size, 0.0);
        shooting.apply_transposed(r.data(), transposed.data());
        shooting.apply(v.data(), plain.data());
        double left = 0, right = 0;
        for (std::size_t k = 0; k < size; ++k) {
            left += transposed[k] * v[k];
            right += r[k] * plain[k];
        }
        EXPECT_NEAR(left, right, 1e-12 * std::fabs(right));

        const double e = 1e-4;
        std::vector<double> difference(size, 0.0);
        for (const double sign : {1.0, -1.0}) {
            std::vector<double> at = x, scalars = q;
            for (std::size_t k = 0; k < size; ++k) at[k] += sign * e * v[k];
            for (double& scalar : scalars) scalar += sign * e;
            ASSERT_TRUE(shooting.residual(at.data(), scalars.data(), other.data()));
            for (std::size_t k = 0; k < size; ++k) difference[k] += sign * other[k] / (2 * e);
        }
        for (std::size_t k = 0; k < size; ++k)
            EXPECT_NEAR(image[k], difference[k], 1e-5 * (1 + std::fabs(image[k]))) << k;
    }
}

TEST(Shooting, RefutesWhatIsNoCriticalCycle) {
    CycleProblem problem = cycle_of_feedback({0.8, 1});
    Finding finding;
    finding.z = problem.start();
    ASSERT_TRUE(solve_cycle(problem, finding.z));
    ASSERT_TRUE(first_tangent(problem, finding.z, true, finding.tangent));
    problem.spectrum(finding.spectrum);
    finding.type = "PD";  // which it is not
    check_by_shooting(problem, finding);
    EXPECT_EQ(finding.status, "unresolved");
    EXPECT_EQ(finding.reason, "integration over the period disagrees");
}

/// Allocations of Newton's method and a tangent, beside z, once all has been done before.
long allocations_of_correction(Problem& problem, const std::vector<double>& z) {
    const Metric metric(problem);
    BorderedNewton newton(problem);
    std::vector<double> tangent, row(z.size(), 0.0);
    row.back() = 1;
    long made = 0;
    for (int round = 0; round < 2; ++round) {
        std::vector<double> moved = z;
        for (double& component : moved) component += 1e-3;
        const long before = testing_support::allocations();
        double residual = 0;
        const auto report = newton.correct(moved, row.data(), z.back(), metric);
        newton.tangent(moved.data(), row.data(), metric, tangent, residual);
        made = testing_support::allocations() - before;
        EXPECT_TRUE(report);
        EXPECT_GT(report.iterations, 1);
    }
    return made;
}

TEST(Newton, AllocatesNothing) {
    EXPECT_GT(testing_support::allocations(), 0);
    CycleProblem cycle = cycle_of_feedback({0.8, 1});
    std::vector<double> z = cycle.start();
    ASSERT_TRUE(solve_cycle(cycle, z));
    EXPECT_EQ(allocations_of_correction(cycle, z), 0);

    const std::size_t vary[] = {1};
    const tx::Window windows[] = {{0, 2}};
    const State origin(3, 0.0);
    EquilibriumProblem equilibrium(feedback(), {0.8, 1}, vary, windows, origin);
    EXPECT_EQ(allocations_of_correction(equilibrium, {0, 0, 0, 1}), 0);
}

}  // namespace
