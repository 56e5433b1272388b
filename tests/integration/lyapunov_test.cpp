// Lyapunov exponents of systems whose exponents are known, and their file.
#include <numbers>

#include "support.hpp"

namespace {

using std::numbers::ln2;

double good_from = 0;  // before this time a perturbation along the first axis meets no number

// Eigenvalues 1, 0 and -2 behind a basis that is far from orthogonal, so that the directions have
// to be found.
void sheared(double, double* y, double* f) {
    f[0] = y[0] + 3 * y[1] - 4 * y[2], f[1] = 5 * y[2], f[2] = -2 * y[2];
}

// Exponents of 1 and -2 bits per unit of time. The origin stays where it is, and so do separations
// along the axes.
void bits(double t, double* y, double* f) {
    const double factor = t < good_from && y[0] > 0 ? not_a_number : ln2;
    f[0] = factor * y[0], f[1] = -2 * factor * y[1];
}

class Lyapunov : public testing::Test {
  protected:
    OpenHandle tx = open_recording(bits, 2, 1e-10);
    double t = 0, y[3] = {0, 0, 0}, exponents[3] = {7, 7, 7};
};

// The finite-time error of the directions decays as exp(-gap t) during the transient; what is left
// is that of the integration. Of fewer exponents than components the largest are found.
TEST_F(Lyapunov, TransientTurnsDirectionsIntoPlace) {
    tx = open_recording(sheared, 3, 1e-10);
    const double exact[] = {1 / ln2, 0, -2 / ln2};
    for (const int count : {1, 3}) {
        ASSERT_EQ(TXLyapCalc(tx.get(), &t, y, 1e-3, 0.5, 80, 40, exponents, count), 1);
        for (int p = 0; p < count; ++p) EXPECT_NEAR(exponents[p], exact[p], 1e-7);
        EXPECT_EQ(exponents[2] == 7, count == 1);
    }
    EXPECT_EQ(t, 120);
}

TEST_F(Lyapunov, FileHasTheRunningEstimate) {
    const char *const first = "         0.5            1           -2 \n",
                      *const last = "         2.5            1           -2 \n";
    struct {
        long transient, counted;
        int period;
        std::string text;
    } const runs[] = {
        {3, 6, 2, std::string(first) + "         1.5            1           -2 \n" + last},
        {0, 2, 1, std::string(first) + "           1            1           -2 \n"},
        {4, 5, 10, ""},
        {4, 5, 9, last},
        {0, 5, 0, ""},
        {0, 5, -1, ""},
        {5, 0, 1, ""}};
    const TemporaryFile file;
    for (const auto& run : runs) {
        SCOPED_TRACE(testing::Message() << run.transient << " + " << run.counted << " intervals");
        t = 0;
        ASSERT_EQ(TXLyapCalcFile(tx.get(), file.name(), &t, y, 1e-3, 0.5, run.transient,
                                 run.counted, exponents, 2, run.period),
                  1);
        EXPECT_TRUE(file.exists());
        EXPECT_EQ(file.text(), run.text);
        EXPECT_EQ(t, 0.5 * static_cast<double>(run.transient + run.counted));
        const bool measured = run.counted > 0;
        EXPECT_TRUE(measured ? std::fabs(exponents[0] - 1) < 1e-8 : std::isnan(exponents[0]));
        EXPECT_TRUE(measured ? std::fabs(exponents[1] + 2) < 1e-8 : std::isnan(exponents[1]));
    }
    if (!std::filesystem::exists(full_device)) return;
    EXPECT_EQ(TXLyapCalcFile(tx.get(), full_device, &t, y, 1e-3, 0.5, 0, 5, exponents, 2, 4), 0);
    EXPECT_EQ(tx->ErrorCode, 25);
    EXPECT_EQ(t, 5) << "the computation is complete";
    EXPECT_NEAR(exponents[0], 1, 1e-8);
}

// One copy fails in the first interval. All integrations after it succeed, and clear the code.
TEST_F(Lyapunov, FailedIntegrationDoesNotPassUnseen) {
    const trajex::Temporarily start(good_from, 0.25);
    EXPECT_EQ(TXLyapCalc(tx.get(), &t, y, 1e-3, 0.5, 0, 50, exponents, 2), 1);
    EXPECT_EQ(tx->ErrorCode, 29);
    EXPECT_EQ(t, 25);
    EXPECT_NEAR(exponents[0], 49.0 / 50, 1e-8) << "the other 49 intervals count";
    EXPECT_NEAR(exponents[1], -2, 1e-8);
}

// Wherever the right-hand side throws, time and state belong together.
TEST_F(Lyapunov, SurvivesExceptions) {
    tx->fcn = Probe::flow<bits>;
    for (long calls = 0; calls < 400; calls += 13) {
        Probe::set(calls);
        t = 0, y[0] = y[1] = 1;
        EXPECT_THROW(TXLyapCalc(tx.get(), &t, y, 1e-3, 0.1, 1, 1000, exponents, 2), Probe::Thrown);
        EXPECT_NEAR(y[0], std::exp2(t), 1e-6);
    }
    Probe::set(Probe::never);
}

TEST(GramSchmidt, OrthonormalisesInOrder) {
    double v[] = {3, 4, 0, 1, 0, 0, 5, -7, -2}, norm[3], x[3];
    GSR(v, norm, 3, x, 3);
    const double expected[] = {0.6, 0.8, 0, 0.8, -0.6, 0, 0, 0, -1};
    for (std::size_t i = 0; i < 9; ++i) EXPECT_NEAR(v[i], expected[i], 1e-14);
    EXPECT_NEAR(norm[2], 2, 1e-14);
    EXPECT_DOUBLE_EQ(dot(v, v, 3), 1);
    double before[9];
    std::copy_n(v, 9, before);
    for (const int n : {0, -1}) {  // nothing is touched without components
        GSR(v, norm, n, x, 2), GSR(v, norm, 2, x, n), SORTEIG(v, x, n);
        EXPECT_EQ(dot(v, v, n), 0);
    }
    EXPECT_TRUE(std::equal(v, v + 9, before));
    EXPECT_NEAR(norm[2], 2, 1e-14);
}

}  // namespace
