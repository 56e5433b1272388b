// Lyapunov exponents of systems whose exponents are known, their file, and what is refused.
#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <filesystem>
#include <limits>
#include <numbers>
#include <stdexcept>
#include <string>
#include <vector>

#include "allocation.hpp"
#include "files.hpp"
#include "handles.hpp"
#include "tx.h"

namespace {

using std::numbers::ln2;
using testing_support::FailingAllocation;
using testing_support::full_device;
using testing_support::impossible_file;
using testing_support::open_recording;
using testing_support::OpenHandle;
using testing_support::TemporaryFile;

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double not_a_number = std::numeric_limits<double>::quiet_NaN();

int evaluations;
int throw_at;      // evaluation that throws; 0 for none
double good_from;  // before this time a perturbation along the first axis meets no number

class Lyapunov : public testing::Test {
  protected:
    void SetUp() override { evaluations = throw_at = 0, good_from = 0; }
};

void saddle(double, double* y, double* f) {
    f[0] = y[0];
    f[1] = -y[1];
}

// Eigenvalues 1, 0 and -2 (trace -1) behind a basis that is far from orthogonal, so that the
// directions have to be found.
void sheared(double, double* y, double* f) {
    f[0] = y[0] + 3 * y[1] - 4 * y[2];
    f[1] = 5 * y[2];
    f[2] = -2 * y[2];
}

// Exponents of 1 and -2 bits per unit of time. The origin stays where it is, and so do separations
// along the axes.
void bits(double t, double* y, double* f) {
    if (++evaluations == throw_at) throw std::runtime_error("right-hand side");
    const double factor = t < good_from && y[0] > 0 ? not_a_number : ln2;
    f[0] = factor * y[0];
    f[1] = -2 * factor * y[1];
}

TEST_F(Lyapunov, ExponentsAreInBits) {
    const OpenHandle tx = open_recording(saddle, 2, 1e-10);
    double t = 5;
    double y[] = {0, 0};
    double exponents[2];
    ASSERT_EQ(TXLyapCalc(tx.get(), &t, y, 1e-3, 0.5, 0, 20, exponents, 2), 1);
    EXPECT_NEAR(exponents[0], 1 / ln2, 1e-8);
    EXPECT_NEAR(exponents[1], -1 / ln2, 1e-8);
    EXPECT_EQ(t, 15);
    EXPECT_EQ(y[0], 0);
}

// The finite-time error of the directions decays as exp(-gap t) during the transient; what is left
// is that of the integration.
TEST_F(Lyapunov, TransientTurnsDirectionsIntoPlace) {
    const OpenHandle tx = open_recording(sheared, 3, 1e-10);
    double t = 0;
    double y[] = {0, 0, 0};
    double exponents[] = {0, 0, 0};
    ASSERT_EQ(TXLyapCalc(tx.get(), &t, y, 1e-3, 0.5, 80, 40, exponents, 3), 1);
    EXPECT_NEAR(exponents[0], 1 / ln2, 1e-7);
    EXPECT_NEAR(exponents[1], 0, 1e-7);
    EXPECT_NEAR(exponents[2], -2 / ln2, 1e-7);
    EXPECT_EQ(t, 60);

    // Fewer exponents than components: the largest ones, and no other entry is touched.
    double largest[] = {7, 7, 7};
    ASSERT_EQ(TXLyapCalc(tx.get(), &t, y, 1e-3, 0.5, 80, 40, largest, 1), 1);
    EXPECT_NEAR(largest[0], 1 / ln2, 1e-7);
    EXPECT_EQ(largest[1], 7);
}

struct Recording {
    long transient, counted;
    int period;
    const char* text;
};

TEST_F(Lyapunov, FileHasTheRunningEstimate) {
    const Recording runs[] = {
        {3, 6, 2,
         "         0.5            1           -2 \n"
         "         1.5            1           -2 \n"
         "         2.5            1           -2 \n"},
        {0, 3, 1,
         "         0.5            1           -2 \n"
         "           1            1           -2 \n"
         "         1.5            1           -2 \n"},
        {4, 5, 10, ""},
        {4, 5, 9, "         2.5            1           -2 \n"},
        {0, 5, 0, ""},
        {0, 5, -1, ""},
        {5, 0, 1, ""},
    };
    const OpenHandle tx = open_recording(bits, 2, 1e-10);
    const TemporaryFile file;
    for (const Recording& run : runs) {
        SCOPED_TRACE(testing::Message() << run.transient << " + " << run.counted << " intervals");
        double t = 0;
        double y[] = {0, 0};
        double exponents[2];
        ASSERT_EQ(TXLyapCalcFile(tx.get(), file.name(), &t, y, 1e-3, 0.5, run.transient,
                                 run.counted, exponents, 2, run.period),
                  1);
        EXPECT_TRUE(file.exists());
        EXPECT_EQ(file.text(), run.text);
        EXPECT_EQ(t, 0.5 * static_cast<double>(run.transient + run.counted));
        if (run.counted == 0) {
            EXPECT_TRUE(std::isnan(exponents[0]) && std::isnan(exponents[1]));
        } else {
            EXPECT_NEAR(exponents[0], 1, 1e-8);
            EXPECT_NEAR(exponents[1], -2, 1e-8);
        }
    }
}

TEST_F(Lyapunov, NonsenseIsRefused) {
    struct {
        double eps, interval;
        long transient, counted;
        int nn;
        int code;
    } const cases[] = {
        {1e-3, 0.5, 0, 5, 0, 26},     {1e-3, 0.5, 0, 5, 3, 26},
        {1e-3, 0.5, 0, 5, -1, 26},    {0, 0.5, 0, 5, 2, 23},
        {-1e-3, 0.5, 0, 5, 2, 23},    {not_a_number, 0.5, 0, 5, 2, 23},
        {infinity, 0.5, 0, 5, 2, 23}, {1e-3, 0, 0, 5, 2, 7},
        {1e-3, -0.5, 0, 5, 2, 7},     {1e-3, not_a_number, 0, 5, 2, 7},
        {1e-3, infinity, 0, 5, 2, 7}, {1e-3, 0.5, -1, 5, 2, 24},
        {1e-3, 0.5, 0, -1, 2, 24},    {1e-3, 1e-20, 0, 5, 2, 7},
    };
    const OpenHandle tx = open_recording(bits, 2);
    const TemporaryFile file;
    for (const auto& c : cases) {
        double t = 1;
        double y[] = {0, 0};
        double exponents[] = {7, 7};
        EXPECT_EQ(
            TXLyapCalc(tx.get(), &t, y, c.eps, c.interval, c.transient, c.counted, exponents, c.nn),
            0);
        EXPECT_EQ(tx->ErrorCode, c.code);
        EXPECT_EQ(TXLyapCalcFile(tx.get(), file.name(), &t, y, c.eps, c.interval, c.transient,
                                 c.counted, exponents, c.nn, 1),
                  0);
        EXPECT_EQ(tx->ErrorCode, c.code);
        EXPECT_EQ(exponents[0], 7);
        EXPECT_EQ(t, 1);
    }
    EXPECT_FALSE(file.exists());
    EXPECT_EQ(evaluations, 0);
}

// One copy fails in the first interval. All integrations after it succeed, and clear the code.
TEST_F(Lyapunov, FailedIntegrationDoesNotPassUnseen) {
    good_from = 0.25;
    const OpenHandle tx = open_recording(bits, 2, 1e-10);
    double t = 0;
    double y[] = {0, 0};
    double exponents[2];
    EXPECT_EQ(TXLyapCalc(tx.get(), &t, y, 1e-3, 0.5, 0, 50, exponents, 2), 1);
    EXPECT_EQ(tx->ErrorCode, 29);
    EXPECT_EQ(t, 25);
    EXPECT_NEAR(exponents[0], 49.0 / 50, 1e-8) << "the other 49 intervals count";
    EXPECT_NEAR(exponents[1], -2, 1e-8);
}

TEST_F(Lyapunov, FileErrorsAreReported) {
    const OpenHandle tx = open_recording(bits, 2, 1e-10);
    double t = 0;
    double y[] = {0, 0};
    double exponents[2];
    for (const char* name : {impossible_file, static_cast<const char*>(nullptr)}) {
        EXPECT_EQ(TXLyapCalcFile(tx.get(), name, &t, y, 1e-3, 0.5, 0, 5, exponents, 2, 1), 0);
        EXPECT_EQ(tx->ErrorCode, 25);
    }
    EXPECT_EQ(evaluations, 0);
    if (!std::filesystem::exists(full_device)) return;
    EXPECT_EQ(TXLyapCalcFile(tx.get(), full_device, &t, y, 1e-3, 0.5, 0, 5, exponents, 2, 4), 0);
    EXPECT_EQ(tx->ErrorCode, 25);
    EXPECT_EQ(t, 2.5) << "the computation is complete";
    EXPECT_NEAR(exponents[0], 1, 1e-8);
}

// Wherever the right-hand side throws, time and state belong together.
TEST_F(Lyapunov, SurvivesExceptions) {
    for (int nth = 1; nth < 400; nth += 13) {
        const OpenHandle tx = open_recording(bits, 2, 1e-8, 0.1);
        evaluations = 0;
        throw_at = nth;
        double t = 0;
        double y[] = {1, 1};
        double exponents[2];
        EXPECT_THROW(TXLyapCalc(tx.get(), &t, y, 1e-3, 0.1, 1, 1000, exponents, 2),
                     std::runtime_error);
        EXPECT_NEAR(y[0], std::exp2(t), 1e-6);
    }
}

TEST_F(Lyapunov, LackOfMemoryIsReported) {
    const OpenHandle tx = open_recording(bits, 2);
    double t = 0;
    double y[] = {0, 0};
    double exponents[2];
    const TemporaryFile file;
    int result = 1;
    {
        const FailingAllocation failing(1);
        result = TXLyapCalcFile(tx.get(), file.name(), &t, y, 1e-3, 0.5, 0, 5, exponents, 2, 1);
    }
    EXPECT_EQ(result, 0);
    EXPECT_EQ(tx->ErrorCode, 3);
    EXPECT_FALSE(file.exists());
}

TEST(GramSchmidt, OrthonormalisesInOrder) {
    double v[] = {3, 4, 0, 1, 0, 0, 5, -7, -2, 99};
    double norm[] = {0, 0, 0, 99};
    double x[3];
    GSR(v, norm, 3, x, 3);
    const double expected[] = {0.6, 0.8, 0, 0.8, -0.6, 0, 0, 0, -1};
    for (std::size_t i = 0; i < 9; ++i) EXPECT_NEAR(v[i], expected[i], 1e-14);
    EXPECT_NEAR(norm[0], 5, 1e-14);
    EXPECT_NEAR(norm[1], 0.8, 1e-14);
    EXPECT_NEAR(norm[2], 2, 1e-14);
    EXPECT_EQ(v[9], 99);
    EXPECT_EQ(norm[3], 99);

    double a[] = {1, 2, 3};
    double b[] = {4, -5, 6};
    EXPECT_EQ(dot(a, b, 3), 12);
    EXPECT_EQ(dot(a, b, 0), 0);
    EXPECT_EQ(dot(a, b, -1), 0);
}

}  // namespace
