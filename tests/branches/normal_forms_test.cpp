// Normal form coefficients against closed forms and values computed with 25 digits, for right-hand
// sides that are generic, have a Jacobian, or have nothing.
#include "branches/normal_forms.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>

#include "model/model.hpp"

namespace {

using namespace trajex;
using Names = std::vector<std::string>;
using Values = std::vector<tx::Parameter>;

/// The same system in three forms.
template <class F>
std::vector<tx::System> three_forms(const Names& states, const Values& values, F f) {
    const tx::System generic(states, values, f);
    const auto plain = [f](double t, const double* x, const double* c, double* dx) {
        f(t, x, c, dx);
    };
    const auto jacobian = [generic](double t, const double* x, const double* c, double* A) {
        std::vector<double> unused(generic.states().size());
        generic.model()->equations->jacobians(1, &t, x, c, unused.data(), A);
    };
    return {generic, tx::System(states, values, plain, jacobian),
            tx::System(states, values, plain)};
}

/// Newton's method to the equilibrium at hand, so that digits given do not limit the coefficients.
/// Without a guess, that of all equilibria which has an eigenvalue next to i omega.
std::vector<double> equilibrium(const tx::System& system, const std::vector<double>& guess,
                                double omega) {
    if (!guess.empty()) {
        const tx::Point point = system.equilibrium(guess);
        EXPECT_TRUE(static_cast<bool>(point)) << point.reason();
        return point.state();
    }
    const tx::Box box(system.states().size(), {-3, 3});
    for (const tx::Point& point : system.equilibria(box).points) {
        for (const std::complex<double>& value : point.eigenvalues()) {
            if (std::abs(value - std::complex<double>(0, omega)) < 1e-6) return point.state();
        }
    }
    ADD_FAILURE() << "no equilibrium with the eigenvalue i " << omega;
    return std::vector<double>(system.states().size());
}

constexpr auto brusselator = [](auto, const auto& x, const auto& c, auto&& dx) {
    dx[0] = c[0] - (c[1] + 1) * x[0] + x[0] * x[0] * x[1];
    dx[1] = c[1] * x[0] - x[0] * x[0] * x[1];
};
constexpr auto selkov = [](auto, const auto& x, const auto& c, auto&& dx) {
    dx[0] = -x[0] + c[1] * x[1] + x[0] * x[0] * x[1];
    dx[1] = c[0] - c[1] * x[1] - x[0] * x[0] * x[1];
};
constexpr auto predator_prey = [](auto, const auto& x, const auto& c, auto&& dx) {
    const auto eaten = x[0] * x[1] / (1 + x[0]);
    dx[0] = x[0] * (1 - x[0] / c[0]) - eaten;
    dx[1] = eaten - x[1] / 2;
};
constexpr auto harvested = [](auto, const auto& x, const auto& c, auto&& dx) {
    using std::exp;
    dx[0] = 3 * x[0] * (1 - x[0]) - x[0] * x[1] - c[0] * (1 - exp(-5 * x[0]));
    dx[1] = -x[1] + 3 * x[0] * x[1];
};
constexpr auto shimizu_morioka = [](auto, const auto& x, const auto& c, auto&& dx) {
    dx[0] = x[1];
    dx[1] = x[0] - c[1] * x[1] - x[0] * x[2];
    dx[2] = -c[0] * x[2] + x[0] * x[0];
};
constexpr auto feedback = [](auto, const auto& x, const auto& c, auto&& dx) {
    dx[0] = x[1];
    dx[1] = x[2];
    dx[2] = -c[0] * x[2] - c[1] * x[1] - x[0] + x[0] * x[0];
};
constexpr auto lorenz84 = [](auto, const auto& x, const auto& c, auto&& dx) {
    dx[0] = -x[1] * x[1] - x[2] * x[2] - 0.25 * x[0] + 0.25 * c[0] - 0.987 * x[3] * x[3];
    dx[1] = x[0] * x[1] - x[0] * x[2] - x[1] + 0.25;
    dx[2] = x[0] * x[1] + x[0] * x[2] - x[2];
    dx[3] = -1.04 * x[3] + 0.987 * x[0] * x[3] + c[1];
};
const Names two{"x", "y"}, three{"x", "y", "z"}, four{"X", "Y", "Z", "U"};

struct HopfCase {
    const char* name;
    std::vector<tx::System> systems;
    std::vector<double> guess;
    double omega, re_c1;
    double tolerance;  // of both, relative: the digits known
    double l2 = NAN, l2_tolerance = 0;
};

TEST(NormalForms, OfHopfPoints) {
    const double la = 1.35909053723, gh_al = 0.112481771765;
    const double p = 1 / (3 - 8 * std::exp(-5.0 / 3));
    const double b = 0.281859668015;
    const HopfCase cases[] = {
        {"Brusselator",
         three_forms(two, {{"A", 0.8}, {"B", 1.64}}, brusselator),
         {0.8, 2},
         0.8,
         -0.8 * 2.64 / (1.6 * 2.28),
         1e-12},
        {"Selkov",
         three_forms(two, {{"b", b}, {"a", 0.06}}, selkov),
         {b, 2},
         0.373423181462,
         -1.29824694685 * 0.373423181462,
         1e-10},
        {"predator and prey",
         three_forms(two, {{"K", 3}}, predator_prey),
         {1, 1.3},
         1 / std::sqrt(6.0),
         -0.1,
         1e-12},
        {"harvest",
         three_forms({"u", "v"}, {{"p", p}}, harvested),
         {1.0 / 3, 1},
         0.604782221942,
         -0.429274790,
         2e-9},
        {"Shimizu-Morioka",
         three_forms(three, {{"al", 1}, {"la", 1}}, shimizu_morioka),
         {1, 0, 1},
         1,
         -0.075,
         1e-12},
        {"feedback",
         three_forms(three, {{"al", 1}, {"be", 1}}, feedback),
         {0, 0, 0},
         1,
         -0.3,
         1e-12},
        {"feedback, al = 2",
         three_forms(three, {{"al", 2}, {"be", 0.5}}, feedback),
         {0, 0, 0},
         std::sqrt(0.5),
         -8 * 16 / (9.0 * 12 * 7),
         1e-12},
        {"Lorenz-84, 1",
         three_forms(four, {{"F", 1.61965782094}, {"T", 0.04}}, lorenz84),
         {},
         0.295286816713,
         0.86473463,
         1e-8},
        {"Lorenz-84, 2",
         three_forms(four, {{"F", 2.46722212311}, {"T", 0.04}}, lorenz84),
         {},
         0.723205920022,
         -0.1348746,
         1e-7},
        {"Lorenz-84, 3",
         three_forms(four, {{"F", 2.85987541275}, {"T", 0.04}}, lorenz84),
         {},
         1.17152264669,
         0.30384558,
         1e-8},
        {"Lorenz-84, GH",
         three_forms(four, {{"F", 2.37636008825}, {"T", 0.0501974320035}}, lorenz84),
         {},
         0.690367474,
         0,
         1e-9,
         0.155801 / 0.690367474,
         1e-6},
        {"Shimizu-Morioka, GH",
         three_forms(three, {{"al", gh_al}, {"la", la}}, shimizu_morioka),
         {std::sqrt(gh_al), 0, 1},
         std::sqrt(2 - la * la),
         0,
         1e-10,
         0.26287879,
         5e-9},
    };
    for (const HopfCase& c : cases) {
        SCOPED_TRACE(c.name);
        for (const tx::System& system : c.systems) {
            Forms forms(*system.model()->equations);
            const std::vector<double> x = equilibrium(system, c.guess, c.omega);
            ASSERT_TRUE(forms.move_to(x.data(), system.model()->values.data()));
            const HopfForm form = hopf_form(forms, c.omega);
            EXPECT_NEAR(form.omega, c.omega, 1e-9);
            EXPECT_NEAR(form.real_part, 0, 1e-10);
            const double error = std::max(form.re_c1.error, c.tolerance * (1 + std::fabs(c.re_c1)));
            EXPECT_NEAR(form.re_c1.value, c.re_c1, error);
            EXPECT_LT(form.re_c1.error, 1e-5);
            if (!std::isnan(c.l2) && forms.exact()) {
                EXPECT_NEAR(bautin_form(forms).l2.value, c.l2, c.l2_tolerance);
            }
        }
    }
}

TEST(NormalForms, HopfUnfoldingPredictsTheCycleOfTheFeedbackSystem) {
    // al = 1 - 0.9 A^2, T = 2 pi (1 + A^2 / 30), where A = 2 xi |q_0| is the amplitude of x.
    for (const tx::System& system : three_forms(three, {{"al", 1}, {"be", 1}}, feedback)) {
        Forms forms(*system.model()->equations);
        const double zero[] = {0, 0, 0};
        ASSERT_TRUE(forms.move_to(zero, system.model()->values.data()));
        const HopfForm hopf = hopf_form(forms);
        const HopfUnfolding u = hopf_unfolding(forms, hopf, 0);
        const double square = 4 * std::norm(hopf.q[0]);
        EXPECT_NEAR(u.c_xx / square, -0.9, 1e-8);
        EXPECT_NEAR(u.omega_xx / square, -1.0 / 30, 1e-8);
    }
}

TEST(NormalForms, OfZeroEigenvalues) {
    const double zero[] = {0, 0, 0};
    const auto cusp = [](auto, const auto& x, const auto& c, auto&& dx) {
        dx[0] = c[0] + c[1] * x[0] - x[0] * x[0] * x[0];
    };
    // On the centre manifold z = x^2 / 4 + ..., so that x' = -x^3 / 4 + ...: without the manifold's
    // bend the coefficient would be zero.
    const auto bent = [](auto, const auto& x, const auto& c, auto&& dx) {
        dx[0] = c[0] * x[0] - x[0] * x[1];
        dx[1] = -4 * x[1] + x[0] * x[0];
    };
    for (const auto& systems :
         {three_forms({"x"}, {{"b1", 0}, {"b2", 0}}, cusp), three_forms(two, {{"p", 0}}, bent)}) {
        const double expected = systems[0].states().size() == 1 ? -1 : -0.25;
        for (const tx::System& system : systems) {
            Forms forms(*system.model()->equations);
            ASSERT_TRUE(forms.move_to(zero, system.model()->values.data()));
            const ZeroForm form = cusp_form(forms);
            EXPECT_FALSE(form.a.determined());
            EXPECT_TRUE(form.c.determined());
            EXPECT_NEAR(form.c.value, expected, 1e-8);
        }
    }
    const auto takens_bogdanov = [](auto, const auto& x, const auto& c, auto&& dx) {
        dx[0] = x[1];
        dx[1] = c[0] + c[1] * x[0] + x[0] * x[0] - x[0] * x[1];
    };
    for (const tx::System& system : three_forms(two, {{"b1", 0}, {"b2", 0}}, takens_bogdanov)) {
        Forms forms(*system.model()->equations);
        ASSERT_TRUE(forms.move_to(zero, system.model()->values.data()));
        const TakensBogdanovForm form = takens_bogdanov_form(forms);
        EXPECT_NEAR(form.a.value, 1, 1e-9);
        EXPECT_NEAR(form.b.value, -1, 1e-9);
    }
}

}  // namespace
