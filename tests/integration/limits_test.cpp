// Where integration comes to its limits: steps that carry no information on their error, right-hand
// sides that are defined in part, times far from zero, sizes at the ends of the exponent range.
#include <stdexcept>

#include "support.hpp"

namespace {

// Evaluations that are left: a run that needs more ends instead of going on.
thread_local long budget = 0;
void evaluate() {
    if (--budget < 0) throw std::runtime_error("too many evaluations");
}

constexpr Flow jumps = [](auto t, auto, auto f) { evaluate(), f[0] = t < 0.5 ? 1 : 2; };
void square_wave(double t, double*, double* f) {
    evaluate();
    f[0] = std::fmod(t, 2) < 1 ? 1 : -1;
}
void dry_friction(double t, double* y, double* f) {
    evaluate();
    f[0] = y[1];
    f[1] = 2 * std::sin(t) - (y[1] > 0 ? 0.5 : -0.5);
}
constexpr Flow constant = [](double, double*, double* f) { evaluate(), f[0] = 1; };
constexpr jac_t no_jacobian = [](double, double*, double** J) { J[0][0] = 0; };

// After a jump the step is tiny and its error exactly 0 for as long as the system stays simple.
TEST(Limits, StepsGrowAgainWhereTheErrorIsNone) {
    struct {
        void (*f)(double, double*, double*);
        int order;
        double h, t1, end;
        long budget;
    } const cases[] = {{jumps, 1, 0.1, 20, 39.5, 40000},
                       {square_wave, 1, 0.1, 10, 0, 200000},
                       {dry_friction, 2, 0.1, 6, infinity, 400000},
                       {constant, 1, 1e-9, 10, 10, 3000}};
    for (const auto& c : cases) {
        const OpenHandle tx = open_recording(c.f, c.order, 1e-8, c.h);
        TXSetMaxStep(tx.get(), 0.25);
        TXSetAbsTol(tx.get(), 1e-10);
        double y[] = {0, 0.1};
        double t = 0;
        budget = c.budget;
        ASSERT_NO_THROW(ASSERT_EQ(TXIntegrate(tx.get(), &t, c.t1, y), 1)) << "until " << c.t1;
        EXPECT_LE(tx->h, 0.25);
        EXPECT_TRUE(std::isinf(c.end) || std::fabs(y[0] - c.end) < 1e-6) << y[0];
    }
}

// The size stays for 100 steps, and for ever where no error is asked for.
TEST(Limits, StepsWithoutErrorKeepTheirSizeForAWhile) {
    budget = 3 * 103 * 8;
    for (const double tolerance : {1e-6, 0.0}) {
        const OpenHandle tx = open_recording(constant, 1, tolerance, 0.125);
        double y = 0, t = 0;
        std::vector<double> sizes;
        for (int step = 0; step < 103; ++step) {
            ASSERT_EQ(TXStep(tx.get(), &t, &y), 1);
            sizes.push_back(tx->tlast - tx->tfirst);
        }
        EXPECT_EQ(std::count(sizes.begin(), sizes.end(), 0.125), tolerance > 0 ? 101 : 103);
        EXPECT_EQ(sizes[102], tolerance > 0 ? 0.5 : 0.125);
    }
    const OpenHandle tx = open_recording(constant, 1, 1e-6, 0.125);
    ASSERT_EQ(TXVarOpenTrajex(tx.get(), no_jacobian, 0), 1);
    double y = 0, t = 0, row[] = {1};
    double* Phi[] = {row};
    for (int step = 0; step < 103; ++step) ASSERT_EQ(TXVarStep(tx.get(), &t, &y, Phi), 1);
    EXPECT_EQ(tx->TX->h, 1);
}

// The stages of the step of size 1 stay outside (0.45, 0.55), the middle of the step does not.
void with_a_gap(double t, double*, double* f) {
    f[0] = t > 0.45 && t < 0.55 ? not_a_number : 1;
}
constexpr Cut at_three_tenths = [](double, double* y) { return y[0] - 0.3; };
thread_local std::vector<double> samples;
void take(double t, double* y) {
    samples.push_back(t);
    samples.push_back(y[0]);
}

TEST(Limits, DenseOutputThatIsNotFiniteIsAFailure) {
    using Operation = int (*)(Trajex*, double*, double*);
    struct {
        Operation operation;
        double end;  // time and state of the last good point
        const char* name;
    } const cases[] = {
        {[](Trajex* tx, double* t, double* y) { return TXIntegrate(tx, t, 0.3, y); }, 0,
         "TXInterpolate"},
        {[](Trajex* tx, double* t, double* y) { return TXPoincareStep(tx, t, y); }, 1,
         "TXPoincareStep"},
        {[](Trajex* tx, double* t, double* y) { return TXftableg(tx, t, 0.9, 9, y, take); }, 0,
         "TXftableg"},
        {[](Trajex* tx, double* t, double* y) {
             return TXStep(tx, t, y) - TXInterpolate(tx, 0.2, y);
         },
         1, "TXInterpolate"}};
    for (const auto& c : cases) {
        const OpenHandle tx = open_recording(with_a_gap, 1, 1e-6, 1);
        TXSetCut(tx.get(), at_three_tenths, 1e-8);
        double t = 0, y = 0;
        samples.clear();
        const int result = c.operation(tx.get(), &t, &y);
        EXPECT_EQ(result, c.operation == cases[3].operation ? 1 : 0) << c.name;
        EXPECT_EQ(tx->ErrorCode, 29) << c.name;
        EXPECT_EQ(t, c.end) << c.name;
        EXPECT_EQ(y, c.end) << c.name;
        EXPECT_LE(samples.size(), 2U) << "a sample beyond the first";
        tx->TerminateOnFatalError = 1;
        t = y = 0;
        tx->h = 1;
        EXPECT_EXIT(c.operation(tx.get(), &t, &y), ExitedWithCode(1), c.name);
    }
    const OpenHandle tx = open_recording(with_a_gap, 1, 1e-6, 1);
    TXSetCut(tx.get(), at_three_tenths, 1e-8);
    double t = 0, y = 0;
    EXPECT_EQ(CLOSESTCUT(tx.get(), &t, &y), 0);
    EXPECT_TRUE(t == 1 && y == 1);
    ASSERT_EQ(TXVarOpenTrajex(tx.get(), no_jacobian, 0), 1);
    double row[] = {1};
    double* Phi[] = {row};
    tx->TX->h = 1;
    tx->TX->TerminateOnFatalError = 0;
    t = y = 0;
    EXPECT_EQ(TXVarIntegrate(tx.get(), &t, 0.3, &y, Phi), 0);
    EXPECT_TRUE(tx->ErrorCode == 29 && t == 0 && y == 0 && row[0] == 1);
}

// Steps at t = 1e9 end where the rounded time says: the error is that of the tolerance.
TEST(Limits, LargeTimesAreIntegratedToWhereTheyAreTold) {
    for (const double start : {1e9, 1.7e9, -1e9}) {
        const OpenHandle tx = open_recording(Oscillator::flow, 2, 1e-9, 0.01);
        TXSetAbsTol(tx.get(), 1e-9);
        double y[] = {0, 1};
        double t = start;
        ASSERT_EQ(TXIntegrate(tx.get(), &t, start + 64, y), 1);
        EXPECT_NEAR(y[0], std::sin(64.0), 1e-7) << start;
        EXPECT_NEAR(y[1], std::cos(64.0), 1e-7) << start;
    }
}

// The exponent of exp(t ln 2) is 1 bit; its intervals are those of the clock.
TEST(Limits, ExponentsAtLargeTimes) {
    for (const double start : {0.0, 1.7e9}) {
        const OpenHandle tx = open_recording(
            [](double, double* y, double* f) { f[0] = std::log(2.0) * y[0]; }, 1, 1e-9, 1e-3);
        TXSetMaxStep(tx.get(), 1e-6);
        double y = 1e-3, t = start, exponent = 0;
        ASSERT_EQ(TXLyapCalc(tx.get(), &t, &y, 1e-6, 1.0 / 1024, 0, 4, &exponent, 1), 1);
        EXPECT_NEAR(exponent, 1, 1e-5) << start;
    }
}

// At most MaxNewtSteps + 1 iterates are tested; a call in vain leaves the one after them.
TEST(Limits, ClosestCutInterpolatesBeforeItGivesUp) {
    const OpenHandle tx = open_recording(Oscillator::flow, 2, 0, 0.0625);
    const auto iterate = [&](int limit, double* y) {
        TXSetCut(
            tx.get(), [](double, double* s) { return s[0] * s[0] * s[0] + s[0]; }, 1e-300);
        TXSetMaxNewtSteps(tx.get(), limit);
        y[0] = std::sin(0.3);
        y[1] = -std::cos(0.3);
        double t = 0;
        EXPECT_EQ(CLOSESTCUT(tx.get(), &t, y), 0);
        EXPECT_NEAR(y[0], std::sin(0.3 - t), 1e-6) << "time and state belong together";
        return t;
    };
    double y[2];
    // The plain secant iteration on the same dense output.
    const auto g = [&](double t) {
        TXInterpolate(tx.get(), t, y);
        return y[0] * y[0] * y[0] + y[0];
    };
    iterate(0, y);
    double t1 = 0, t2 = 0.0625;
    const double start = std::sin(0.3);
    double g1 = start * start * start + start;
    double g2 = g(t2);
    for (int k = 0; k < 2; ++k) {
        const double next = t2 - (t1 - t2) * g2 / (g1 - g2);
        t1 = t2;
        g1 = g2;
        t2 = next;
        g2 = g(t2);
    }
    EXPECT_NEAR(iterate(0, y), t2, 1e-12);
    EXPECT_NE(iterate(0, y), iterate(1, y));
}

TEST(Limits, HyperplanesOfSmallAndLargeFlows) {
    for (const double size : {1e-162, 1e-300, 1.0, 1e200, 1e308}) {
        const OpenHandle tx = open_recording(Oscillator::flow, 2);
        double y[] = {-0.8 * size, 0.6 * size};
        double state[2], normal[2];
        ASSERT_EQ(TXSetAutoCut(tx.get(), 0, y), 1) << size;
        ASSERT_EQ(TXCutSurface(tx.get(), state, normal), 1);
        EXPECT_NEAR(normal[0], 0.6, 1e-15);
        EXPECT_NEAR(normal[1], 0.8, 1e-15);
    }
}

TEST(Limits, NothingIsTouchedWithoutComponents) {
    double x[] = {1, 2}, v[] = {3, 4}, lengths[] = {5, 6}, scratch[] = {7, 8};
    for (const int n : {0, -1}) {
        GSR(v, lengths, n, scratch, 2);
        GSR(v, lengths, 2, scratch, n);
        SORTEIG(x, v, n);
        EXPECT_EQ(dot(x, v, n), 0);
    }
    EXPECT_TRUE(x[0] == 1 && x[1] == 2 && v[0] == 3 && v[1] == 4);
    EXPECT_TRUE(lengths[0] == 5 && lengths[1] == 6 && scratch[0] == 7 && scratch[1] == 8);
}

}  // namespace
