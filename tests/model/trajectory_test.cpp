// Trajectories, sections and exponents against closed forms.
#include "tx/trajectory.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "tx/error.hpp"
#include "tx/system.hpp"

namespace {

const tx::System oscillator({"x", "v"}, {{"w", 2}}, [](auto, auto& x, auto& c, auto& dx) {
    dx[0] = x[1];
    dx[1] = -c[0] * c[0] * x[0];
});
const tx::System lorenz({"x", "y", "z"}, {{"s", 10}, {"r", 28}, {"b", 8.0 / 3}},
                        [](auto, auto& x, auto& c, auto& dx) {
                            dx[0] = c[0] * (x[1] - x[0]);
                            dx[1] = x[0] * (c[1] - x[2]) - x[1];
                            dx[2] = x[0] * x[1] - c[2] * x[2];
                        });

TEST(Trajectory, FollowsAClosedFormForwardsAndBackwards) {
    for (const double end : {7.3, -7.3}) {
        for (const double sample : {0.0, 0.1}) {
            const auto path = oscillator.integrate({1, 0}, end, {.sample = sample});
            ASSERT_TRUE(static_cast<bool>(path)) << path.reason();
            EXPECT_EQ(path.times().front(), 0);
            EXPECT_EQ(path.times().back(), end);
            EXPECT_TRUE(sample == 0 || path.size() == 74);
            for (std::size_t k = 0; k < path.size(); ++k) {
                EXPECT_NEAR(path.column("x")[k], std::cos(2 * path.times()[k]), 2e-8);
                EXPECT_NEAR(path.column("v")[k], -2 * std::sin(2 * path.times()[k]), 4e-8);
            }
            for (double t = 0; std::fabs(t) < 7.3; t += end / 1000) {
                ASSERT_NEAR(path.at(t)[0], std::cos(2 * t), 5e-8);
            }
            EXPECT_NEAR(path.at(end)[0], path.back()[0], 1e-13);
            EXPECT_THROW((void)path.at(end * 1.01), tx::Error);
        }
    }
}

TEST(Trajectory, SaysWhyItStops) {
    const tx::System square({"x"}, {}, [](auto, auto& x, auto&, auto& dx) { dx[0] = x[0] * x[0]; });
    const auto explosion = square.integrate({1}, 2);
    EXPECT_FALSE(static_cast<bool>(explosion));
    EXPECT_EQ(explosion.status(), "stopped");
    EXPECT_NEAR(explosion.times().back(), 1, 1e-6);
    EXPECT_EQ(square.integrate({-1}, 1e9, {.max_steps = 3}).reason(),
              "max_steps = 3 steps were made");
    const auto missed = oscillator.section({1, 0}, {.variable = "x", .value = 2, .max_time = 20});
    EXPECT_FALSE(static_cast<bool>(missed));
    EXPECT_TRUE(missed.empty());
}

TEST(Trajectory, CrossesSectionsInTheirDirection) {
    struct {
        tx::Section section;
        double first, apart;
    } const cases[] = {
        {{.variable = "x"}, 3 * M_PI / 4, M_PI},
        {{.variable = "x", .direction = -1}, M_PI / 4, M_PI},
        {{.variable = "x", .direction = 0}, M_PI / 4, M_PI / 2},
        // A section that the start lies on, and one that is touched after whole periods.
        {{.variable = "v", .direction = 0}, M_PI / 2, M_PI / 2},
        {{.function = [](double t, std::span<const double> x) { return x[0] + t - t; }},
         3 * M_PI / 4,
         M_PI},
    };
    for (const auto& c : cases) {
        const auto crossings = oscillator.section({1, 0}, c.section, 5);
        ASSERT_EQ(crossings.size(), 5U);
        for (std::size_t k = 0; k < 5; ++k) {
            EXPECT_NEAR(crossings.times()[k], c.first + c.apart * double(k), 1e-8);
        }
    }
}

TEST(Lyapunov, OfTheLorenzAttractorAndOfALinearSystem) {
    using Method = tx::LyapunovOptions::Method;
    for (const Method method : {Method::variational, Method::nearby}) {
        const auto e =
            lorenz.lyapunov({1, 1, 20}, {.transient = 20, .time = 400, .method = method});
        ASSERT_TRUE(static_cast<bool>(e)) << e.reason;
        EXPECT_NEAR(e.sum(), -41.0 / 3, method == Method::nearby ? 1e-2 : 1e-6);  // the divergence
        EXPECT_NEAR(e.exponents[0], 0.906, 0.05);
        EXPECT_NEAR(e.exponents[1], 0, 0.02);

        const tx::System linear({"x", "y"}, {}, [](auto, auto& x, auto&, auto& dx) {
            dx[0] = -0.5 * x[0] + 3 * x[1];
            dx[1] = -2 * x[1];
        });
        const auto two = linear.lyapunov({1, 1}, {.transient = 20, .time = 30, .method = method});
        EXPECT_NEAR(two.exponents[0], -0.5, 1e-5);
        EXPECT_NEAR(two.exponents[1], -2, 1e-5);
        EXPECT_LT(two.spread[0], 1e-4);
    }
    // More directions than a number carries, whatever derivatives there are: a chain of decays.
    const auto decays = [](auto, const auto& x, const auto&, auto& dx) {
        for (int i = 0; i < 6; ++i) dx[i] = -(1 + i) * x[i] + (i > 0 ? x[i - 1] : 0.0 * x[i]);
    };
    const auto plain = [decays](double t, const double* x, const double* c, double* dx) {
        decays(t, x, c, dx);
    };
    const auto jacobian = [](double, const double*, const double*, double* A) {
        std::fill_n(A, 36, 0.0);
        for (int i = 0; i < 6; ++i) A[7 * i] = -(1 + i);
        for (int i = 1; i < 6; ++i) A[7 * i - 1] = 1;
    };
    const std::vector<std::string> names{"a", "b", "c", "d", "e", "f"};
    for (const tx::System& chain : {tx::System(names, {}, decays), tx::System(names, {}, plain),
                                    tx::System(names, {}, plain, jacobian)}) {
        for (const std::size_t count : {1U, 4U, 5U, 6U}) {
            const auto e = chain.lyapunov(std::vector(6, 1.0), {count, 20, 30});
            ASSERT_EQ(e.exponents.size(), count);
            for (std::size_t p = 0; p < count; ++p)
                EXPECT_NEAR(e.exponents[p], -1.0 - double(p), 1e-6);
            for (const double x : e.state) EXPECT_LT(std::fabs(x), 1e-18);
        }
    }
    EXPECT_FALSE(static_cast<bool>(lorenz.lyapunov({1, 1, 1}, {.integrate = {.max_steps = 10}})));
}

}  // namespace
