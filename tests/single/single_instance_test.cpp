// The single-instance interface does what the operations on a handle do: each call is compared bit
// by bit with its namesake on a handle of the test's own.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "files.hpp"
#include "handles.hpp"
#include "tx.h"

namespace {

using testing::ExitedWithCode;
using testing_support::open_recording;
using testing_support::OpenHandle;
using testing_support::TemporaryFile;

void oscillator(double, double* y, double* f) {
    f[0] = y[1];
    f[1] = -y[0];
}

void van_der_pol(double, double* y, double* f) {
    f[0] = y[1];
    f[1] = (1 - y[0] * y[0]) * y[1] - y[0];
}

double first_component(double, double* y) {
    return y[0];
}

std::vector<double>& samples() {
    static std::vector<double> taken;
    return taken;
}

void take(double t, double* y) {
    samples().insert(samples().end(), {t, y[0], y[1]});
}

class SingleInstance : public testing::Test {
  protected:
    void SetUp() override { openTrajex(2, 1e-6, 0.01); }
    void TearDown() override { closeTrajex(); }

    // The state of the single instance and that of the test's own handle, advanced side by side.
    double t = 0;
    double y[2] = {1, 0.5};
    double own_t = 0;
    double own_y[2] = {1, 0.5};
    OpenHandle tx = open_recording(van_der_pol, 2, 1e-6, 0.01);

    void expect_same() const {
        EXPECT_EQ(t, own_t);
        EXPECT_EQ(y[0], own_y[0]);
        EXPECT_EQ(y[1], own_y[1]);
    }
};

TEST_F(SingleInstance, IntegratesTheSystemOfTheCall) {
    EXPECT_EQ(order(), 2);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(step(&t, y, van_der_pol), TXStep(tx.get(), &own_t, own_y));
        expect_same();
    }
    tx->fcn = oscillator;  // the step size of the other system goes on
    EXPECT_EQ(step(&t, y, oscillator), TXStep(tx.get(), &own_t, own_y));
    expect_same();
    EXPECT_EQ(integrate(&t, 3, y, oscillator), TXIntegrate(tx.get(), &own_t, 3, own_y));
    expect_same();
    EXPECT_EQ(t, 3);
    tx->fcn = van_der_pol;
    EXPECT_EQ(interpolate(2.99, y, van_der_pol), TXInterpolate(tx.get(), 2.99, own_y));
    expect_same();
}

TEST_F(SingleInstance, SettingsAct) {
    EXPECT_EQ(set_tol(1e-3), 1);
    EXPECT_EQ(set_abs_tol(1e-4), 1);
    EXPECT_EQ(set_max_step(0.25), 1);
    TXSetRelTol(tx.get(), 1e-3);
    TXSetAbsTol(tx.get(), 1e-4);
    TXSetMaxStep(tx.get(), 0.25);
    integrate(&t, 5, y, van_der_pol);
    TXIntegrate(tx.get(), &own_t, 5, own_y);
    expect_same();
    EXPECT_LE(tx->tlast - tx->tfirst, 0.25 + 1e-15);
}

TEST_F(SingleInstance, FindsSections) {
    TXSetCut(tx.get(), first_component, 1e-8);
    int crossings = 0;
    for (int i = 0; i < 200; ++i) {
        const int crossed = poincare_step(&t, y, van_der_pol, first_component, 1e-8);
        ASSERT_EQ(crossed, TXPoincareStep(tx.get(), &own_t, own_y));
        crossings += crossed;
    }
    EXPECT_GT(crossings, 5);
    expect_same();

    EXPECT_EQ(set_auto_cut(t, y, oscillator), 1);
    tx->fcn = oscillator;
    TXSetAutoCut(tx.get(), t, y);
    EXPECT_EQ(auto_cut(t, y), 0);
    y[0] += 0.5;
    EXPECT_EQ(auto_cut(t, y), TXAutoCut(tx.get(), t, y));
    double state[2], normal[2], own_state[2], own_normal[2];
    EXPECT_EQ(cut_surface(state, normal), 1);
    TXCutSurface(tx.get(), own_state, own_normal);
    EXPECT_EQ(state[0], own_state[0]);
    EXPECT_EQ(normal[1], own_normal[1]);
}

// eps = 0 is taken as it is, and no bisection meets it; nor does a single one meet any small eps.
TEST_F(SingleInstance, SectionToleranceIsNotTested) {
    const auto reach_section = [&](double eps) {
        while (poincare_step(&t, y, van_der_pol, first_component, eps) == 0) {
        }
        std::exit(0);
    };
    const char* report = "'TXPoincareStep': Unable to bracket Poincare section";
    EXPECT_EXIT(reach_section(1e-8), ExitedWithCode(0), "");
    EXPECT_EXIT(reach_section(0), ExitedWithCode(1), report);
    EXPECT_EQ(set_max_poincare_steps(1), 1);
    EXPECT_EXIT(reach_section(1e-8), ExitedWithCode(1), report);
}

TEST_F(SingleInstance, MeasuresExponents) {
    double exponents[2];
    double own[2];
    EXPECT_EQ(lyap_calc(&t, y, 1e-5, 0.25, van_der_pol, 7, 11, exponents, 2), 1);
    EXPECT_EQ(TXLyapCalc(tx.get(), &own_t, own_y, 1e-5, 0.25, 7, 11, own, 2), 1);
    expect_same();
    EXPECT_EQ(exponents[0], own[0]);
    EXPECT_EQ(exponents[1], own[1]);

    const TemporaryFile file;
    const TemporaryFile own_file("_own");
    EXPECT_EQ(lyap_calc_file(file.name(), &t, y, 1e-5, 0.25, 3, 8, van_der_pol, exponents, 2, 4),
              1);
    EXPECT_EQ(TXLyapCalcFile(tx.get(), own_file.name(), &own_t, own_y, 1e-5, 0.25, 3, 8, own, 2, 4),
              1);
    expect_same();
    EXPECT_EQ(exponents[0], own[0]);
    EXPECT_NE(file.text(), "");
    EXPECT_EQ(file.text(), own_file.text());
}

TEST_F(SingleInstance, WritesTables) {
    const TemporaryFile file;
    const TemporaryFile own_file("_own");
    EXPECT_EQ(ftablef(file.name(), "369", &t, 2, 5, y, van_der_pol), 1);
    EXPECT_EQ(TXftablef(tx.get(), own_file.name(), "369", &own_t, 2, 5, own_y), 1);
    expect_same();
    EXPECT_NE(file.text(), "");
    EXPECT_EQ(file.text(), own_file.text());

    FILE* stream = std::fopen(file.name(), "a");
    FILE* own_stream = std::fopen(own_file.name(), "a");
    EXPECT_EQ(ftablea(stream, "963", &t, 4, 5, y, van_der_pol), 1);
    EXPECT_EQ(TXftablea(tx.get(), own_stream, "963", &own_t, 4, 5, own_y), 1);
    std::fclose(stream);
    std::fclose(own_stream);
    EXPECT_EQ(file.text(), own_file.text());

    EXPECT_EQ(ftableg(&t, 6, 5, y, van_der_pol, take), 1);
    const std::vector<double> taken = std::exchange(samples(), {});
    EXPECT_EQ(TXftableg(tx.get(), &own_t, 6, 5, own_y, take), 1);
    EXPECT_EQ(taken.size(), 18U);
    EXPECT_EQ(taken, std::exchange(samples(), {}));
    expect_same();
}

TEST_F(SingleInstance, ErrorCodeIsReadWithoutClearing) {
    EXPECT_EQ(set_max_poincare_steps(-1), 0);
    EXPECT_EQ(errorTrajex(), 1);
    EXPECT_EQ(errorTrajex(), 1);
    EXPECT_EQ(order(), 2);
    EXPECT_EQ(errorTrajex(), 0);
}

// Zero is refused, unlike by the setters of a handle.
TEST_F(SingleInstance, RefusesSettingsUnderItsOwnNames) {
    const auto ended = ExitedWithCode(1);
    for (const double bad : {0.0, -1.0, std::numeric_limits<double>::quiet_NaN()}) {
        EXPECT_EXIT(set_tol(bad), ended, "'set_tol': Tolerance not positive");
        EXPECT_EXIT(set_abs_tol(bad), ended, "'set_abs_tol': Tolerance not positive");
        EXPECT_EXIT(set_max_step(bad), ended, "'set_max_step': Max time step not positive");
    }
    EXPECT_EXIT(cut_surface(y, y), ended, "'TXCutSurface': No Poincare-section defined");
    EXPECT_EXIT(integrate(&t, -1, y, oscillator), ended, "'TXIntegrate': Negative time step");
}

TEST(SingleInstanceDeathTest, NothingWorksWhileClosed) {
    double t = 0;
    double y[] = {1, 0};
    double e[2];
    struct {
        const char* name;
        std::function<void()> call;
    } const calls[] = {
        {"closeTrajex", [] { closeTrajex(); }},
        {"errorTrajex", [] { errorTrajex(); }},
        {"order", [] { order(); }},
        {"step", [&] { step(&t, y, oscillator); }},
        {"integrate", [&] { integrate(&t, 1, y, oscillator); }},
        {"interpolate", [&] { interpolate(t, y, oscillator); }},
        {"set_tol", [] { set_tol(1e-3); }},
        {"set_max_step", [] { set_max_step(1); }},
        {"set_abs_tol", [] { set_abs_tol(1e-3); }},
        {"poincare_step", [&] { poincare_step(&t, y, oscillator, first_component, 1e-6); }},
        {"set_max_poincare_steps", [] { set_max_poincare_steps(5); }},
        {"cut_surface", [&] { cut_surface(y, e); }},
        {"auto_cut", [&] { auto_cut(t, y); }},
        {"set_auto_cut", [&] { set_auto_cut(t, y, oscillator); }},
        {"lyap_calc", [&] { lyap_calc(&t, y, 1e-3, 1, oscillator, 0, 1, e, 2); }},
        {"lyap_calc_file",
         [&] { lyap_calc_file("/dev/null", &t, y, 1e-3, 1, 0, 1, oscillator, e, 2, 1); }},
        {"ftablef", [&] { ftablef("/dev/null", "111", &t, 1, 2, y, oscillator); }},
        {"ftableg", [&] { ftableg(&t, 1, 2, y, oscillator, take); }},
        {"ftablea", [&] { ftablea(stdout, "111", &t, 1, 2, y, oscillator); }},
    };
    openTrajex(2, 1e-6, 0.01);
    EXPECT_EQ(closeTrajex(), 1);
    for (const auto& [name, call] : calls) {
        EXPECT_EXIT(call(), ExitedWithCode(1),
                    "^ERROR in tx .*\n'" + std::string(name) + "': Trajex not opened\n$");
    }
}

// The handle that was open stays: this one's owner would be an application that kept its address.
TEST(SingleInstanceDeathTest, ReopeningStartsAfresh) {
    openTrajex(3, 1e-6, 0.01);
    closeTrajex();
    EXPECT_EQ(openTrajex(1, 1e-6, 0.01), 1);
    EXPECT_EQ(order(), 1);
    EXPECT_EQ(closeTrajex(), 1);
    EXPECT_EXIT(openTrajex(0, 1e-6, 0.01), ExitedWithCode(1),
                "'TXOpenTrajex': Order of dynamical system not positive");
}

}  // namespace
