// Radau steps against closed forms and against a stiff reference solution.
#include "model/radau.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <memory>
#include <vector>

#include "model/compiled_equations.hpp"

namespace trajex {
namespace {

using State = std::vector<double>;

template <class F>
std::shared_ptr<const Equations> equations(std::size_t n, F f) {
    return make_equations(std::make_shared<const Callable<F>>(n, 0, std::move(f)));
}

struct Case {
    const char* name;
    std::shared_ptr<const Equations> f;
    std::function<State(double)> solution;
};

/// Steps to the time 10 or beyond, and the largest error at their ends.
struct Outcome {
    double steps = 0, error = 0;
};
Outcome follow(const Case& c, double tol) {
    const tx::IntegrateOptions options{.rel_tol = tol, .abs_tol = tol};
    const double none = 0;
    Radau radau(*c.f, &none, c.solution(0), 10, options);
    Outcome result;
    while (radau.time() < 10) {
        if (!radau.step()) return {};
        const State exact = c.solution(radau.time());
        for (std::size_t a = 0; a < exact.size(); ++a) {
            result.error = std::max(result.error, std::fabs(radau.state()[a] - exact[a]));
        }
        result.steps += 1;
    }
    return result;
}

TEST(Radau, IsOfOrderFive) {
    const Case cases[] = {
        {"linear",
         equations(2,
                   [](auto, auto& x, auto&, auto& dx) {
                       dx[0] = x[1];
                       dx[1] = -x[0];
                   }),
         [](double t) {
             return State{std::cos(t), -std::sin(t)};
         }},
        {"nonlinear",
         equations(1,
                   [](auto t, auto& x, auto&, auto& dx) {
                       using std::cos;
                       dx[0] = -x[0] * x[0] * cos(t);
                   }),
         [](double t) { return State{1 / (1 + 0.5 + std::sin(t))}; }},
    };
    for (const Case& c : cases) {
        const Outcome coarse = follow(c, 1e-5);
        const Outcome fine = follow(c, 1e-10);
        ASSERT_GT(coarse.steps, 0) << c.name;
        ASSERT_GT(fine.steps, coarse.steps) << c.name;
        const double order =
            std::log(coarse.error / fine.error) / std::log(fine.steps / coarse.steps);
        EXPECT_NEAR(order, 5, 0.75) << c.name;
        EXPECT_LT(fine.error, 1e-8) << c.name;
    }
}

// x'' - 1000 (1 - x^2) x' + x = 0: two orders of magnitude more steps would be needed if their
// length were limited by stability. The value at the end is that of a published reference.
TEST(Radau, StepsOverFastDecay) {
    const auto f = equations(2, [](auto, auto& x, auto&, auto& dx) {
        dx[0] = x[1];
        dx[1] = 1000 * ((1 - x[0] * x[0]) * x[1]) - x[0];
    });
    const double none = 0;
    Radau radau(*f, &none, {2, 0}, 2000, {.rel_tol = 1e-9, .abs_tol = 1e-12});
    int steps = 0;
    while (radau.time() < 2000) {
        ASSERT_TRUE(radau.step());
        ASSERT_LT(++steps, 5000);
    }
    EXPECT_NEAR(radau.at(2000)[0], 1.706167732, 1e-6);
}

}  // namespace
}  // namespace trajex
