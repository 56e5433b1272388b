// Searches for bifurcations of orbits that must end, and what they tell where they have to be told
// a section first.
#include "continuation/recorder.hpp"
#include "support.hpp"

namespace {

double c = 0;

/// The multiplier reaches 1 only at infinite c, where the second component is infinitely stiff.
void receding(double t, double* y, double* f) {
    f[0] = -std::exp(-1e-3 * c) * y[0];
    f[1] = (1 + c * c) * (std::cos(t) - y[1]);
}
/// A pitchfork beside a forced oscillation, in a parameter that has to move far.
void gentle_pitchfork(double t, double* y, double* f) {
    f[0] = std::cos(t) - y[0];
    f[1] = 1e-4 * c * y[1] - y[1] * y[1] * y[1];
}

OpenHandle open_at(void (*flow)(double, double*, double*), std::vector<double> y) {
    OpenHandle tx = open_study(flow, static_cast<int>(y.size()), c);
    start_at(*tx, y, 2 * pi);
    return tx;
}

TEST(BifurcationLimits, ALocationThatRunsAwayEnds) {
    const Temporarily start(c, 0.0);
    const OpenHandle tx = open_at(Probe::flow<receding>, {0, 0.5});
    const Temporarily limit(Probe::left, 1'000'000L);
    int result = 1;
    EXPECT_NO_THROW(result = TXLocateBif(tx.get(), tx->txb, &c, 0, nullptr));
    EXPECT_EQ(result, 0);
    EXPECT_EQ(tx->nparam, 1);
}

// Along the branch displaced by A the parameter is 10000 A^2.
TEST(BifurcationLimits, ATestOrbitFarAwayIsLookedForNearer) {
    const Temporarily start(c, -20.0);
    const OpenHandle tx = open_at(gentle_pitchfork, {0.5, 0});
    tx->LambdaPert = 1e-3;
    ASSERT_EQ(TXLocateBif(tx.get(), tx->txb, &c, 0, nullptr), 1);
    const TextStream progress;
    ASSERT_EQ(TXCheckBif(tx.get(), tx->txb, &c, 2, 0, progress), 1);
    EXPECT_EQ(progress.text().substr(0, 1), "v");
    EXPECT_LT(std::fabs(tx->txb->ctop), 1e4 * (1 + std::fabs(tx->txb->c[0])));
    EXPECT_STREQ(TrajexBifName[tx->txb->biftype], "PITCHFORK");
}

// Other failures on the way are the search's own; to set a section is the application's business.
TEST(BifurcationLimits, AMissingSectionIsReported) {
    const Temporarily start(Roessler::c, 2.83);
    const OpenHandle tx = open_study(Roessler::flow, 3, Roessler::c);
    tx->NewtRelTol = 1e-6;
    TXSetCut(tx.get(), first_component, 1e-9);
    start_at(*tx, {0, 3.4, 1.9}, 5.76982);
    ASSERT_EQ(TXLocateBif(tx.get(), tx->txb, &Roessler::c, 1, nullptr), 1);
    const double located = Roessler::c;
    TXSetCut(tx.get(), nullptr, 1e-9);
    EXPECT_EQ(TXCheckBif(tx.get(), tx->txb, &Roessler::c, 0.02, 1, nullptr), 0);
    EXPECT_EQ(tx->ErrorCode, 8);
    Roessler::c = located - 0.01;
    EXPECT_EQ(TXLocateBif(tx.get(), tx->txb, &Roessler::c, 1, nullptr), 0);
    EXPECT_EQ(tx->ErrorCode, 8);
    tx->TerminateOnFatalError = 1;
    Roessler::c = located - 0.01;
    EXPECT_EXIT(TXLocateBif(tx.get(), tx->txb, &Roessler::c, 1, nullptr), ExitedWithCode(1),
                "'TXLocateBif': No Poincare-section defined");
}

}  // namespace
