// Steps and their dense output: every bit as recorded, their orders, the limits of the step size,
// and the ways in which a step can fail; steps that carry no information on their error, right-hand
// sides that are defined in part, times far from zero.
#include "checksums.hpp"
#include "support.hpp"

namespace {

/// A driven ring of `order` units: every component feels its neighbour and the time. Where the
/// first one rests at zero, its error has no tolerance either.
thread_local int order = 0;
constexpr Flow ring = [](auto t, auto y, auto f) {
    for (int i = 0; i < order; ++i) {
        f[i] =
            2 * y[(i + 1) % order] * (1 - y[i] * y[i]) - 3 * y[i] * y[i] * y[i] + t * (t - i % 3);
    }
    if (order % 2 == 0) f[0] = -y[0];
};

// Recorded when a plain writing of the method as its tables state it, with nothing shared between
// stages, gave the same bits. The last step ends beyond the end time; the next one starts there all
// the same.
TEST(Step, HasTheRecordedBits) {
    Checksum sum;
    for (order = 1; order <= 200; order += order < 21 ? 1 : 60) {
        for (const double tolerance : {1e-3, 1e-6, 1e-10}) {
            const OpenHandle tx = open_recording(ring, order, tolerance, 2);
            TXSetAbsTol(tx.get(), order % 2 == 0 ? 0 : tolerance / 10);
            const auto n = static_cast<std::size_t>(order);
            std::vector<double> y(n), inside(n);
            for (std::size_t i = order % 2 == 0; i < n; ++i) y[i] = 0.5 + double(i % 8) / 8;
            double t = 0;
            const auto add = [&](auto*... vectors) { (sum.add(vectors, n), ...); };
            while (t < 3) {
                ASSERT_EQ(TXStep(tx.get(), &t, y.data()), 1);
                for (const double x : {t, tx->h, tx->tfirst, tx->tlast}) sum.add(x);
                add(y.data(), tx->yfirst, tx->ylast);
                sum.add(tx->k, 8 * n);
                for (const double part : {0.3, 1.0, 1.2}) {
                    const double at = tx->tfirst + part * (tx->tlast - tx->tfirst);
                    ASSERT_EQ(TXInterpolate(tx.get(), at, inside.data()), 1);
                    add(inside.data());
                }
            }
            for (const double t1 : {t + 0.4, t + 1.9}) {
                ASSERT_EQ(TXIntegrate(tx.get(), &t, t1, y.data()), 1);
                EXPECT_EQ(t, t1);
                add(y.data());
            }
        }
    }
    EXPECT_EQ(sum.value(), 5619779513462367502u);
}

// Where a fixed step ends, there is no interpolation; to reach where one is, nothing at all.
TEST(Integrate, EvaluatesNothingInVain) {
    for (const double t1 : {0.0, 1.0}) {
        const OpenHandle tx = open_recording(Probe::flow<Oscillator::flow>, 2, 0, 0.25);
        double y[] = {1, 2}, t = 0;
        Probe::set(Probe::never);
        EXPECT_EQ(TXIntegrate(tx.get(), &t, t1, y), 1);
        EXPECT_EQ(Probe::calls, t1 * 4 * 8);
        EXPECT_EQ(tx->StepTaken, t1);
        EXPECT_TRUE(t == t1 && y[0] == (t1 > 0 ? tx->ylast[0] : 1));
    }
}

// In the first attempt only the stage that the solution of order 6 does not use is different from
// zero: an estimated error in a component that is exactly zero. Later there is no error at all over
// the zero weight.
constexpr Flow nothing_but_an_error = [](auto, auto y, auto f) {
    f[0] = Probe::calls == 5 ? 1 : 0, f[1] = -y[1];
};

// An error that is none cuts the size most; hmax bounds the first step and all after it.
TEST(Step, KeepsItsSizeWithinTheLimits) {
    OpenHandle tx = open_terminating(Probe::flow<nothing_but_an_error>, 2, 1e-6, 0.01);
    double y[] = {0, 1}, t = 0;
    Probe::set(Probe::never);
    for (const int evaluations : {16, 24}) {
        ASSERT_EQ(TXStep(tx.get(), &t, y), 1);
        EXPECT_EQ(Probe::calls, evaluations);
    }
    EXPECT_DOUBLE_EQ(tx->tfirst, 0.01 * 0.2);
    EXPECT_EQ(y[0], 0);
    tx = open_recording(Oscillator::flow, 2, 1e-3, 0.1);
    TXSetMaxStep(tx.get(), 0.05);
    t = 0;
    for (const double end : {0.05, 0.1, 0.15}) {
        ASSERT_EQ(TXStep(tx.get(), &t, y), 1);
        EXPECT_DOUBLE_EQ(t, end);
    }
    tx->hmax = 0;
    for (const double h : {0.0, -0.01, 1e-20, 1e-320, infinity, not_a_number, 1e308}) {
        const double start = h < 1e308 ? 1 : 1e308;  // the step would end at infinity
        tx->h = h, t = start;
        EXPECT_EQ(TXStep(tx.get(), &t, y), 0) << h;
        EXPECT_TRUE(tx->ErrorCode == 29 && t == start);
    }
}

constexpr Flow not_defined = [](auto, auto, auto f) { f[0] = not_a_number; };
constexpr Flow unbounded = [](auto, auto, auto f) { f[0] = infinity; };
constexpr Flow ends_at_one = [](auto t, auto y, auto f) { f[0] = t <= 1 ? -y[0] : NAN; };
constexpr Flow blows_up = [](auto, auto y, auto f) { f[0] = y[0] * y[0]; };  // y = 1 / (1 - t)

// Code 29, and the caller has what it had: at once, or where the solution ends.
TEST(Step, EndsWhereTheSystemIsNotDefined) {
    struct {
        Flow f;
        double tolerance, end;
    } const cases[] = {{not_defined, 1e-6, 0}, {not_defined, 0, 0},    {unbounded, 1e-6, 0},
                       {unbounded, 0, 0},      {ends_at_one, 1e-6, 1}, {blows_up, 1e-6, 1}};
    using Operation = int (*)(Trajex*, double*, double*);
    const Operation integrate = [](auto tx, auto t, auto y) {
        return TXIntegrate(tx, t, *t + 2, y);
    };
    for (const auto& c : cases) {
        const OpenHandle tx = open_recording(c.f, 1, c.tolerance, 0.01);
        TXSetCut(tx.get(), first_component, 1e-8);
        double t = 0, y = 1;
        for (const Operation operation : {integrate, Operation{TXPoincareStep}}) {
            const std::array before{t, y, tx->h};
            EXPECT_EQ(operation(tx.get(), &t, &y), 0);
            EXPECT_EQ(tx->ErrorCode, 29);
            EXPECT_EQ((std::array{t, y, tx->h}), before);
            EXPECT_EQ(TXInterpolate(tx.get(), t, &y), 0);
            EXPECT_EQ(tx->ErrorCode, 12);
            for (int steps = 0; TXStep(tx.get(), &t, &y) == 1;) ASSERT_LT(++steps, 5000);
            EXPECT_NEAR(t, c.end, 1e-5);
        }
        tx->TerminateOnFatalError = 1;
        EXPECT_EXIT(TXStep(tx.get(), &t, &y), ExitedWithCode(1),
                    "'TXStep': Minimum stepsize reached");
    }
}

thread_local double hole;
constexpr Flow with_a_hole = [](auto t, auto, auto f) { f[0] = t == hole ? NAN : std::cos(t); };

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

// ---- Steps without an estimate ------------------------------------------------------------------

constexpr Flow jumps = [](auto t, auto, auto f) { f[0] = t < 0.5 ? 1 : 2; };
constexpr jac_t no_jacobian = [](auto, auto, auto J) { J[0][0] = 0; };

// After a jump the step is tiny and its error exactly 0 from then on. It stays for 100 steps, and
// for ever where no error is asked for; then it grows to the largest.
TEST(Limits, StepsWithoutErrorKeepTheirSizeForAWhile) {
    struct {
        double tolerance, hmax, h;  // after 103 steps
    } const cases[] = {{1e-6, 0, 1}, {1e-6, 0.4, 0.4}, {0, 0, 0.125}};
    for (const auto& [tolerance, hmax, h] : cases) {
        const OpenHandle tx = open_recording(jumps, 1, tolerance, 0.125);
        ASSERT_EQ(TXVarOpenTrajex(tx.get(), no_jacobian, 0), 1);
        tx->hmax = tx->TX->hmax = hmax;
        double y = 0, t = 1, row[] = {1}, *Phi[] = {row};
        for (int step = 0; step < 103; ++step) {
            ASSERT_EQ(TXStep(tx.get(), &t, &y), 1);
            ASSERT_EQ(TXVarStep(tx.get(), &t, &y, Phi), 1);
        }
        EXPECT_TRUE(tx->h == h && tx->TX->h == h);
    }
    const OpenHandle tx = open_recording(Probe::flow<jumps>, 1, 1e-8, 0.1);
    double y = 0, t = 0;
    Probe::set(40000);
    ASSERT_NO_THROW(ASSERT_EQ(TXIntegrate(tx.get(), &t, 20, &y), 1));
    Probe::set(Probe::never);
    EXPECT_NEAR(y, 39.5, 1e-6);
}

// ---- What is defined in part, and far away ------------------------------------------------------

// The stages of the step of size 1 stay outside (0.45, 0.55), the middle of the step does not.
constexpr Flow with_a_gap = [](auto t, auto, auto f) { f[0] = t > 0.45 && t < 0.55 ? NAN : 1; };
constexpr Cut at_three_tenths = [](auto, auto y) { return y[0] - 0.3; };
thread_local int samples = 0;
double row[] = {1}, *Phi[] = {row};

// Time and state are those of the last good point.
TEST(Limits, DenseOutputThatIsNotFiniteIsAFailure) {
    struct {
        int (*operation)(Trajex* tx, double* t, double* y);
        double end;
        const char* name;
    } const cases[] = {
        {[](auto tx, auto t, auto y) { return TXIntegrate(tx, t, 0.3, y); }, 0, "TXInterpolate"},
        {[](auto tx, auto t, auto y) { return TXPoincareStep(tx, t, y); }, 1, "TXPoincareStep"},
        {[](auto tx, auto t, auto y) {
             return TXftableg(tx, t, 0.9, 9, y, [](double, double*) { ++samples; });
         },
         0, "TXftableg"},
        {[](auto tx, auto t, auto y) { return TXStep(tx, t, y) * TXInterpolate(tx, 0.2, y); }, 1,
         "TXInterpolate"},
        {[](auto tx, auto t, auto y) { return TXVarIntegrate(tx, t, 0.3, y, Phi); }, 0,
         "TXInterpolate"},
        {CLOSESTCUT, 1, nullptr}};
    for (const auto& [operation, end, name] : cases) {
        const OpenHandle tx = open_recording(with_a_gap, 1, 1e-6, 1);
        ASSERT_EQ(TXVarOpenTrajex(tx.get(), no_jacobian, 0), 1);
        tx->TX->TerminateOnFatalError = 0;
        TXSetCut(tx.get(), at_three_tenths, 1e-8);
        double t = 0, y = 0;
        samples = 0;
        EXPECT_EQ(operation(tx.get(), &t, &y), 0);
        EXPECT_TRUE(t == end && y == end && row[0] == 1);
        EXPECT_LE(samples, 1) << "a sample beyond the first";
        if (name == nullptr) continue;  // what has no code has no report
        EXPECT_EQ(tx->ErrorCode, 29) << name;
        tx->TerminateOnFatalError = tx->TX->TerminateOnFatalError = 1;
        t = y = 0, tx->h = 1;
        EXPECT_EXIT(operation(tx.get(), &t, &y), ExitedWithCode(1), name);
    }
}

// Steps at t = 1e9 end where the rounded time says: the error is that of the tolerance. Intervals
// of exponents are those of the clock; that of exp(t ln 2) is 1 bit.
TEST(Limits, LargeTimesAreIntegratedToWhereTheyAreTold) {
    for (const double start : {1e9, 1.7e9, -1e9}) {
        const OpenHandle tx = open_recording(Oscillator::flow, 2, 1e-9, 0.01);
        TXSetAbsTol(tx.get(), 1e-9);
        double y[] = {0, 1}, t = start, exponent = 0;
        ASSERT_EQ(TXIntegrate(tx.get(), &t, start + 64, y), 1);
        EXPECT_NEAR(y[0], std::sin(64.0), 1e-7) << start;
        EXPECT_NEAR(y[1], std::cos(64.0), 1e-7) << start;
        const OpenHandle bit = open_recording(
            [](auto, auto s, auto f) { f[0] = std::log(2.0) * s[0]; }, 1, 1e-9, 1e-3);
        TXSetMaxStep(bit.get(), 1e-6);
        t = start, y[0] = 1e-3;
        ASSERT_EQ(TXLyapCalc(bit.get(), &t, y, 1e-6, 1.0 / 1024, 0, 4, &exponent, 1), 1);
        EXPECT_NEAR(exponent, 1, 1e-5) << start;
    }
}

}  // namespace
