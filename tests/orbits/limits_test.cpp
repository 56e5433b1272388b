// Searches for equilibria and orbits that must end, and answers that are none.
#include "allocation.hpp"
#include "support.hpp"

namespace {

constexpr Flow logarithm = [](auto, auto y, auto f) { f[0] = std::log(y[0]), f[1] = y[1]; };
constexpr Flow reciprocal = [](auto, auto y, auto f) { f[0] = 1 / (y[0] * y[0]), f[1] = y[1]; };
void nowhere(double, double* y, double* f) {
    f[0] = std::sqrt(-1 - y[0] * y[0]);
    f[1] = y[1];
}

// A component that is exactly 0 has no tolerance: it is not examined, but has to be a number.
TEST(SearchLimits, NoEquilibriumIsWhereTheFlowIsNotFinite) {
    for (const auto flow : {logarithm, reciprocal, nowhere}) {
        const OpenHandle tx = open_variational(flow, 2, nullptr, nullptr, 1e-8);
        tx->NewtAbsTol = 0;
        double y[] = {0, 0};
        EXPECT_EQ(TXEquiPoint(tx.get(), y), 0);
        EXPECT_EQ(tx->ErrorCode, 30);
    }
}

/// x' = (1 - arctan x) / 10 draws Newton's method away from its equilibrium; the other component is
/// stiffer the farther away it is, with a power of the distance.
template <int power>
void receding(double t, double* y, double* f) {
    f[0] = 0.1 * (1 - std::atan(y[0]));
    f[1] = (1 + std::pow(std::fabs(y[0]), power)) * (std::cos(t) - y[1]);
}
template <int power>
void receding_slope(double t, double* y, double** J) {
    const double distance = std::fabs(y[0]);
    J[0][0] = -0.1 / (1 + y[0] * y[0]);
    J[0][1] = 0;
    J[1][0] = power * std::pow(distance, power - 1) * (y[0] < 0 ? -1 : 1) * (std::cos(t) - y[1]);
    J[1][1] = -1 - std::pow(distance, power);
}

// From 5 the next iterate is far away, or near enough but with a period that takes too many steps.
TEST(SearchLimits, ForcedOrbitsThatRunAwayAreNotFollowed) {
    struct {
        void (*flow)(double, double*, double*);
        jac_t slope;
        long evaluations;
    } const cases[] = {{Probe::flow<receding<1>>, receding_slope<1>, 300'000},
                       {Probe::flow<receding<3>>, receding_slope<3>, 30'000'000}};
    for (const auto& c : cases) {
        const OpenHandle tx = open_variational(c.flow, 2, c.slope, nullptr, 1e-6);
        const Temporarily limit(Probe::left, c.evaluations);
        double y[] = {5, 0.5};
        Matrix Phi(2, 2);
        int result = 1;
        EXPECT_NO_THROW(result = TXNonAutoOrbit(tx.get(), 0, y, Phi, 2 * pi));
        EXPECT_EQ(result, 0);
        EXPECT_EQ(tx->ErrorCode, 30);
    }
}

double damping = 0;
constexpr Flow damped = [](auto, auto y, auto f) { f[0] = y[1], f[1] = -y[0] - damping * y[1]; };

TEST(SearchLimits, AnEquilibriumIsNoOrbit) {
    for (const double strength : {0.02, 0.2, 0.6}) {
        for (const double guess : {1e-9, 0.5, 5.0}) {
            const Temporarily set(damping, strength);
            const OpenHandle tx = open_variational(damped, 2, nullptr, nullptr, 1e-9);
            TXSetCut(tx.get(), second_component, 1e-9);
            double y[] = {guess, 0.1 * guess};
            double T = 0;
            Matrix Phi(2, 2);
            EXPECT_EQ(TXAutoOrbit(tx.get(), 0, y, Phi, 1, &T), 0);
            EXPECT_EQ(tx->ErrorCode, 20) << strength << ' ' << guess;
            EXPECT_LT(std::hypot(y[0], y[1]), 1e-7);
        }
    }
    // A small orbit is one, as long as the tolerance tells its points apart.
    const Temporarily small(Cycle::a, 1e-10);
    const OpenHandle tx = open_variational(Cycle::flow, 2, nullptr, nullptr, 1e-12);
    TXSetCut(tx.get(), second_component, 1e-12);
    double y[] = {1e-5, 1e-7};
    double T = 0;
    Matrix Phi(2, 2);
    tx->NewtAbsTol = 1e-7;
    EXPECT_EQ(TXAutoOrbit(tx.get(), 0, y, Phi, 1, &T), 1);
    tx->NewtAbsTol = 1e-4;
    EXPECT_EQ(TXAutoOrbit(tx.get(), 0, y, Phi, 1, &T), 0);
    EXPECT_EQ(tx->ErrorCode, 20);
}

// Whichever allocation fails, the application that records failures goes on. So it does where no
// step could be made on the sub-record.
TEST(SearchLimits, ASubRecordThatCannotBeOpenedIsRecorded) {
    double c = 0;
    const auto open = [&c](Trajex* tx) {
        return TXVarOpenTrajex(tx, Oscillator::jacobian, 1, nullptr, 1e-6, &c);
    };
    bool failed = true;
    for (int nth = 1; failed && nth < 100; ++nth) {
        const OpenHandle tx = open_recording(Oscillator::flow, 2);
        int result = 0;
        {
            const FailingAllocation failing(nth);
            result = open(tx.get());
            failed = failing.failed();
        }
        EXPECT_EQ(result, failed ? 0 : 1);
        EXPECT_TRUE(!failed || tx->ErrorCode == 15 || tx->ErrorCode == 3) << nth;
        EXPECT_EQ(open(tx.get()), 1);
    }
    EXPECT_FALSE(failed);
    for (const auto& [RelTol, h] : {std::pair{-1e-9, 0.1},
                                    {not_a_number, 0.1},
                                    {1e-9, 0.0},
                                    {1e-9, -0.1},
                                    {1e-9, not_a_number}}) {
        const OpenHandle tx = open_recording(Oscillator::flow, 2);
        tx->RelTol = RelTol;
        tx->h = h;
        EXPECT_EQ(open(tx.get()), 0);
        EXPECT_EQ(tx->ErrorCode, 15);
        EXPECT_EQ(tx->TX, nullptr);
    }
}

}  // namespace
