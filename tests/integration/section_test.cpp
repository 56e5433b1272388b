// Poincare sections: crossings of the harmonic oscillator, whose times are known, and cut functions
// that cannot be bracketed.
#include "integration/section.hpp"
#include "support.hpp"

namespace {

constexpr auto oscillator = Probe::flow<Oscillator::flow>;
constexpr Cut jump = [](auto, auto y) { return y[0] > 0 ? 1.0 : -1.0; };
constexpr Cut undefined_between = [](auto, auto y) { return std::fabs(y[0]) < 0.05 ? NAN : y[0]; };
constexpr Cut undefined_at_first = [](auto t, auto y) { return t == 0 ? NAN : y[0]; };
constexpr Cut undefined_later = [](auto t, auto) { return t == 0 ? 1 : not_a_number; };
constexpr Cut constant = [](auto, auto) { return 1.0; };
constexpr Cut cubic = [](auto, auto y) { return y[0] * y[0] * y[0] + y[0]; };

/// On its way down through the section at t = away.
struct Crossing {
    Crossing(double (*cut)(double, double*), double h, double eps, double away)
        : tx(open_recording(oscillator, 2, 0, h)), y{std::sin(away), -std::cos(away)} {
        EXPECT_EQ(TXSetCut(tx.get(), cut, eps), 1);
    }
    OpenHandle tx;
    double t = 0, y[2];
};

// Fixed steps, so that the evaluations can be counted: 8 for a step, 4 more where it is crossed,
// however long the bisection takes. Zero counts as the positive side: down from there is a
// crossing, up is none.
TEST(PoincareStep, FindsEveryCrossingOnce) {
    Crossing c(first_component, 0.0625, 1e-8, 0);
    for (int crossing = 0; crossing < 6;) {
        const double before = c.y[0];
        Probe::set(Probe::never);
        const int crossed = TXPoincareStep(c.tx.get(), &c.t, c.y);
        EXPECT_EQ(c.tx->ErrorCode, 0);
        EXPECT_EQ(Probe::calls, 8 + 4 * crossed);
        ASSERT_LT(c.t, 20);
        if (crossed == 0) continue;
        EXPECT_NEAR(c.t, crossing * pi, 3e-8);
        EXPECT_LT(std::fabs(c.y[0]), 1e-8);
        EXPECT_NE(before < 0, c.y[0] < 0) << "not beyond the section";
        EXPECT_TRUE(c.tx->tfirst <= c.t && c.t <= c.tx->tlast);
        ++crossing;
    }
    double up[] = {0, 1};
    EXPECT_EQ(TXPoincareStep(c.tx.get(), &c.t, up), 0);
}

TEST(PoincareStep, EndsWhereNoCrossingCanBeBracketed) {
    for (const int limit : {0, 100, 3}) {
        for (const auto cut : {jump, undefined_between}) {
            Crossing c(cut, 0.5, 1e-8, 0.25);
            ASSERT_EQ(TXSetMaxPoincareSteps(c.tx.get(), limit), 1);
            EXPECT_EQ(TXPoincareStep(c.tx.get(), &c.t, c.y), 0);
            EXPECT_EQ(c.tx->ErrorCode, 13);
            EXPECT_TRUE(0 < c.t && c.t < 0.5);
            EXPECT_DOUBLE_EQ(c.tx->tlast, 0.5);
        }
    }
    for (const auto cut : {undefined_at_first, undefined_later}) {
        Crossing c(cut, 0.5, 1e-8, 0.25);
        EXPECT_EQ(TXPoincareStep(c.tx.get(), &c.t, c.y) + c.tx->ErrorCode, 0);
        EXPECT_EQ(c.t, 0.5);
    }
}

// A bracket may end beyond the section by less than the resolution of time: its end is the point.
TEST(Bisection, TakesTheEndOfABracketThatCannotBeHalved) {
    const OpenHandle tx = open_recording(oscillator, 2);
    tx->CutEps = 1e-9;
    double t = 0;
    const auto cut = [](double time) { return (10 - time) - 1e-16; };
    EXPECT_TRUE(trajex::bisect_crossing(*tx, 9.9, 10, 1, &t, cut));
    EXPECT_EQ(t, 10);
}

// Across the flow where it was set, however slow. A cut function takes precedence over it; without
// one the flow returns to it after one period.
TEST(Hyperplane, StandsAcrossTheFlow) {
    const OpenHandle tx = open_recording(oscillator, 2, 0, 0.0625);
    double y[2] = {}, state[2], normal[2], t = 0;
    EXPECT_EQ(TXSetAutoCut(tx.get(), 0, y), 0);
    EXPECT_TRUE(tx->ErrorCode == 10 && tx->CutSurfaceDefined == 0);
    for (const double size : {1e-162, 1e-300, 1e200, 1e308, 5.0}) {
        y[0] = 0.6 * size, y[1] = 0.8 * size;
        ASSERT_EQ(TXSetAutoCut(tx.get(), 0, y), 1) << size;
        ASSERT_EQ(TXCutSurface(tx.get(), state, normal), 1);
        EXPECT_TRUE(state[0] == y[0] && state[1] == y[1]);
        EXPECT_DOUBLE_EQ(normal[0], 0.8);
        EXPECT_DOUBLE_EQ(normal[1], -0.6);
    }
    double beside[] = {3 + 0.8 * 0.25 + 0.6, 4 - 0.6 * 0.25 + 0.8};
    EXPECT_DOUBLE_EQ(TXAutoCut(tx.get(), 0, beside), 0.25);
    ASSERT_EQ(TXSetCut(tx.get(), first_component, 1e-8), 1);
    ASSERT_EQ(TXSetCut(tx.get(), nullptr, 1e-8), 1);
    for (int crossings = 0; crossings < 2; crossings += TXPoincareStep(tx.get(), &t, y)) {
        ASSERT_LT(t, 7);
    }
    EXPECT_NEAR(t, 2 * pi, 1e-8);
    EXPECT_NEAR(std::hypot(y[0] - 3, y[1] - 4), 0, 1e-7);
}

// From either side of the section, moving either way: the point just beyond it, as the flow goes.
TEST(ClosestCut, MovesToTheNearbyPointBeyondTheSection) {
    for (const double speed : {1.0, -1.0}) {
        for (const double away : {-0.02, 0.0, 0.02}) {
            Crossing c(first_component, 0.0625, 1e-9, away);
            double y[] = {speed * c.y[0], speed * c.y[1]};
            ASSERT_EQ(CLOSESTCUT(c.tx.get(), &c.t, y), 1);
            EXPECT_NEAR(c.t, away, 1e-8);
            EXPECT_TRUE(-1e-9 <= speed * y[0] && speed * y[0] <= 0);
            EXPECT_NEAR(y[1], -speed, 1e-8);
        }
    }
    for (const auto cut : {constant, undefined_later}) {  // where there is none it gives up quietly
        Crossing c(cut, 0.0625, 1e-9, 0);
        ASSERT_EQ(TXSetMaxNewtSteps(c.tx.get(), std::numeric_limits<int>::max()), 1);
        EXPECT_EQ(CLOSESTCUT(c.tx.get(), &c.t, c.y) + c.tx->ErrorCode, 0);
        EXPECT_EQ(c.t, 0.0625);
        EXPECT_DOUBLE_EQ(c.y[0], c.tx->ylast[0]);
    }
}

// At most MaxNewtSteps + 1 iterates are tested; a call in vain leaves the one after them.
TEST(ClosestCut, InterpolatesBeforeItGivesUp) {
    const auto value = [](double t) {
        double y[] = {std::sin(0.1 - t)};
        return cubic(t, y);
    };
    for (const int limit : {0, 1}) {
        Crossing c(cubic, 0.0625, 1e-300, 0.1);
        TXSetMaxNewtSteps(c.tx.get(), limit);
        EXPECT_EQ(CLOSESTCUT(c.tx.get(), &c.t, c.y), 0);
        double t1 = 0, t2 = 0.0625;
        for (int k = 0; k < limit + 2; ++k) {
            t1 = std::exchange(t2, t2 - (t1 - t2) * value(t2) / (value(t1) - value(t2)));
        }
        EXPECT_NEAR(c.t, t2, 1e-9);
        EXPECT_NEAR(c.y[0], std::sin(0.1 - t2), 1e-9);
    }
}

}  // namespace
