// One step and its dense output: their orders, the limits of the step size, and the ways in which a
// step can fail. That they are those of the method to the last bit is the subject of
// textbook_test.
#include "support.hpp"

namespace {

/// Largest errors of one step of size h: of the solution, of its estimate, of the dense output.
std::array<double, 3> step_errors(double h) {
    const OpenHandle tx = open_terminating(TwistAndDecay::flow, 3, 0, h);
    const double start[] = {0.8, 0.6, 1};
    double y[] = {0.8, 0.6, 1}, exact[3], t = 1;
    TXStep(tx.get(), &t, y);
    std::array<double, 3> largest{0, *std::max_element(tx->abs_err, tx->abs_err + 3), 0};
    for (int tenth = 10; tenth > 0; --tenth) {
        const double at = 1 + h * tenth / 10;
        if (tenth < 10) TXInterpolate(tx.get(), at, y);
        TwistAndDecay::solution(1, start, at, exact);
        double& error = largest[tenth < 10 ? 2 : 0];
        for (int i = 0; i < 3; ++i) error = std::max(error, std::fabs(y[i] - exact[i]));
    }
    return largest;
}

TEST(Step, HasTheErrorsOfItsOrders) {
    const double orders[] = {7, 6, 7};
    for (const double h : {0.025, 0.0125}) {
        const auto coarse = step_errors(2 * h), fine = step_errors(h);
        for (std::size_t i = 0; i < 3; ++i) {
            EXPECT_NEAR(std::log2(coarse[i] / fine[i]), orders[i], 0.15);
        }
    }
}

thread_local int stage = 0;

// In the first attempt only the stage that the solution of order 6 does not use is different from
// zero: an estimated error in a component that is exactly zero. Later there is no error at all over
// the zero weight.
void nothing_but_an_error(double, double* y, double* f) {
    f[0] = ++stage == 6 ? 1 : 0;
    f[1] = -y[1];
}

// An error that is none cuts the size most; hmax bounds the first step and all after it.
TEST(Step, KeepsItsSizeWithinTheLimits) {
    const OpenHandle tx = open_terminating(Oscillator::flow, 2, 1e-3, 0.1);
    TXSetMaxStep(tx.get(), 0.05);
    double y[] = {1, 0}, t = 0;
    for (int step = 1; step <= 3; ++step) {
        ASSERT_EQ(TXStep(tx.get(), &t, y), 1);
        EXPECT_DOUBLE_EQ(t, 0.05 * step);
    }
    const OpenHandle weightless = open_terminating(nothing_but_an_error, 2, 1e-6, 0.01);
    y[0] = t = stage = 0, y[1] = 1;
    for (const int evaluations : {16, 24}) {
        ASSERT_EQ(TXStep(weightless.get(), &t, y), 1);
        EXPECT_EQ(stage, evaluations);
    }
    EXPECT_DOUBLE_EQ(weightless->tfirst, 0.01 * 0.2);
    EXPECT_EQ(y[0], 0);
    for (const double h : {0.0, -0.01, 1e-20, 1e-320, infinity, not_a_number, 1e308}) {
        const OpenHandle refusing = open_recording(Oscillator::flow, 2);
        refusing->h = h;
        t = h < 1e308 ? 1 : 1e308;  // the step would end at infinity
        EXPECT_EQ(TXStep(refusing.get(), &t, y), 0) << h;
        EXPECT_EQ(refusing->ErrorCode, 29);
        EXPECT_TRUE(t == 1 || t == 1e308);
    }
}

constexpr Flow not_defined = [](double, double*, double* f) { f[0] = not_a_number; };
constexpr Flow unbounded = [](double, double*, double* f) { f[0] = infinity; };
constexpr Flow ends_at_one = [](auto t, auto y, auto f) { f[0] = t <= 1 ? -y[0] : not_a_number; };
constexpr Flow blows_up = [](auto, auto y, auto f) { f[0] = y[0] * y[0]; };

int integrate_on(Trajex* tx, double* t, double* y) {
    return TXIntegrate(tx, t, *t + 2, y);
}

// Code 29, and the caller has what it had: at once, or where the solution ends.
TEST(Step, EndsWhereTheSystemIsNotDefined) {
    struct {
        Flow f;
        double tolerance, end;
    } const cases[] = {{not_defined, 1e-6, 0}, {not_defined, 0, 0},    {unbounded, 1e-6, 0},
                       {unbounded, 0, 0},      {ends_at_one, 1e-6, 1}, {blows_up, 1e-6, 1}};
    for (const auto& c : cases) {
        const OpenHandle tx = open_recording(c.f, 1, c.tolerance, 0.01);
        TXSetCut(tx.get(), first_component, 1e-8);
        std::array<double, 2> y{0, 1};  // t, y
        const auto expect_failure = [&](auto operation) {
            const double h = tx->h;
            const auto before = y;
            EXPECT_EQ(operation(tx.get(), &y[0], &y[1]), 0);
            EXPECT_EQ(tx->ErrorCode, 29);
            EXPECT_EQ(y, before);
            EXPECT_EQ(tx->h, h);
            EXPECT_EQ(TXInterpolate(tx.get(), y[0], &y[1]), 0);
            EXPECT_EQ(tx->ErrorCode, 12);
        };
        expect_failure(integrate_on);
        for (int steps = 0; TXStep(tx.get(), &y[0], &y[1]) == 1;) ASSERT_LT(++steps, 5000);
        EXPECT_NEAR(y[0], c.end, 1e-5);
        expect_failure(TXPoincareStep);
        tx->TerminateOnFatalError = 1;
        EXPECT_EXIT(TXStep(tx.get(), &y[0], &y[1]), ExitedWithCode(1),
                    "'TXStep': Minimum stepsize reached");
    }
}

thread_local double hole;
void with_a_hole(double t, double*, double* f) {
    f[0] = t == hole ? not_a_number : std::cos(t);
}

// A stage need not enter the later ones, or the solution, to count.
TEST(Step, IsNotTakenOverAStageThatIsNotANumber) {
    for (const double node : {0.0, 1.0 / 6, 4.0 / 15, 2.0 / 3, 5.0 / 6, 1.0, 1.0 / 15}) {
        const OpenHandle tx = open_recording(with_a_hole, 1, 1e-3, 0.1);
        hole = 0.1 * node;
        double t = 0, y = 0;
        EXPECT_EQ(TXStep(tx.get(), &t, &y), node == 0 ? 0 : 1);
        EXPECT_LT(t, 0.1) << node;
        EXPECT_NEAR(y, std::sin(t), 1e-6);
    }
}

}  // namespace
