// The single-instance interface does what the operations on a handle do: each call is compared bit
// by bit with its namesake on a handle of the test's own.
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <functional>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "files.hpp"
#include "handles.hpp"
#include "systems.hpp"
#include "tx.h"

namespace {

using namespace testing_support;
using testing::ExitedWithCode;

constexpr auto oscillator = Oscillator::flow;
constexpr auto van_der_pol = VanDerPol::flow;

std::vector<std::array<double, 3>> samples;

void take(double t, double* y) {
    samples.push_back({t, y[0], y[1]});
}

class SingleInstance : public testing::Test {
  protected:
    void SetUp() override { openTrajex(2, 1e-6, 0.01); }
    void TearDown() override { closeTrajex(); }

    /// Both calls give the same result, and lead to the same time and state.
    void expect_same(double result, double own_result) const {
        EXPECT_EQ(result, own_result);
        EXPECT_EQ((std::array<double, 3>{t, y[0], y[1]}),
                  (std::array<double, 3>{own_t, own_y[0], own_y[1]}));
    }
    void expect_same_files() const {
        EXPECT_NE(file.text(), "");
        EXPECT_EQ(file.text(), own_file.text());
    }

    // The state of the single instance and that of the test's own handle, advanced side by side.
    double t = 0, own_t = 0;
    double y[2] = {1, 0.5}, own_y[2] = {1, 0.5};
    double e[2], own_e[2];
    const OpenHandle own = open_recording(van_der_pol, 2, 1e-6, 0.01);
    Trajex* const tx = own.get();
    const TemporaryFile file, own_file{"_own"};
};

// The system is that of the call; the step size goes on from one to the other.
TEST_F(SingleInstance, IntegratesWithItsSettings) {
    EXPECT_EQ(order(), 2);
    EXPECT_EQ(set_tol(1e-3), TXSetRelTol(tx, 1e-3));
    EXPECT_EQ(set_abs_tol(1e-4), TXSetAbsTol(tx, 1e-4));
    EXPECT_EQ(set_max_step(0.25), TXSetMaxStep(tx, 0.25));
    for (const auto f : {van_der_pol, oscillator, van_der_pol}) {
        tx->fcn = f;
        expect_same(step(&t, y, f), TXStep(tx, &own_t, own_y));
    }
    tx->fcn = oscillator;
    expect_same(integrate(&t, 3, y, oscillator), TXIntegrate(tx, &own_t, 3, own_y));
    EXPECT_LE(tx->tlast - tx->tfirst, 0.25 + 1e-15);
    tx->fcn = van_der_pol;
    expect_same(interpolate(2.99, y, van_der_pol), TXInterpolate(tx, 2.99, own_y));
}

TEST_F(SingleInstance, FindsSections) {
    TXSetCut(tx, first_component, 1e-8);
    int crossings = 0;
    for (int i = 0; i < 200; ++i) {
        const int crossed = poincare_step(&t, y, van_der_pol, first_component, 1e-8);
        expect_same(crossed, TXPoincareStep(tx, &own_t, own_y));
        crossings += crossed;
    }
    EXPECT_GT(crossings, 5);

    tx->fcn = oscillator;
    EXPECT_EQ(set_auto_cut(t, y, oscillator), TXSetAutoCut(tx, t, y));
    y[0] += 0.5;
    EXPECT_EQ(auto_cut(t, y), TXAutoCut(tx, t, y));
    EXPECT_EQ(cut_surface(y, e), TXCutSurface(tx, own_y, own_e));
    EXPECT_EQ(y[0], own_y[0]);
    EXPECT_EQ(e[1], own_e[1]);
}

TEST_F(SingleInstance, MeasuresExponents) {
    expect_same(lyap_calc(&t, y, 1e-5, 0.25, van_der_pol, 7, 11, e, 2),
                TXLyapCalc(tx, &own_t, own_y, 1e-5, 0.25, 7, 11, own_e, 2));
    EXPECT_EQ(e[0], own_e[0]);
    EXPECT_EQ(e[1], own_e[1]);
    tx->fcn = oscillator;
    expect_same(lyap_calc_file(file.name(), &t, y, 1e-5, 0.25, 3, 8, oscillator, e, 2, 4),
                TXLyapCalcFile(tx, own_file.name(), &own_t, own_y, 1e-5, 0.25, 3, 8, own_e, 2, 4));
    EXPECT_EQ(e[0], own_e[0]);
    expect_same_files();
}

TEST_F(SingleInstance, WritesTables) {
    expect_same(ftablef(file.name(), "369", &t, 2, 5, y, van_der_pol),
                TXftablef(tx, own_file.name(), "369", &own_t, 2, 5, own_y));
    expect_same_files();

    FILE* stream = std::fopen(file.name(), "a");
    FILE* own_stream = std::fopen(own_file.name(), "a");
    tx->fcn = oscillator;
    expect_same(ftablea(stream, "963", &t, 4, 5, y, oscillator),
                TXftablea(tx, own_stream, "963", &own_t, 4, 5, own_y));
    std::fclose(stream);
    std::fclose(own_stream);
    expect_same_files();

    tx->fcn = van_der_pol;
    const int result = ftableg(&t, 6, 5, y, van_der_pol, take);
    const auto taken = std::exchange(samples, {});
    expect_same(result, TXftableg(tx, &own_t, 6, 5, own_y, take));
    EXPECT_EQ(taken.size(), 6U);
    EXPECT_EQ(taken, std::exchange(samples, {}));
}

// Zero is refused, unlike by the setters of a handle, but as width of a section it is taken as it
// is, and no bisection meets it. The code is read without clearing it.
TEST_F(SingleInstance, RefusesSettingsUnderItsOwnNames) {
    const auto ended = ExitedWithCode(1);
    for (const double bad : {0.0, -1.0, std::numeric_limits<double>::quiet_NaN()}) {
        EXPECT_EXIT(set_tol(bad), ended, "'set_tol': Tolerance not positive");
        EXPECT_EXIT(set_abs_tol(bad), ended, "'set_abs_tol': Tolerance not positive");
        EXPECT_EXIT(set_max_step(bad), ended, "'set_max_step': Max time step not positive");
    }
    const auto reach_section = [&](double eps) {
        while (poincare_step(&t, y, van_der_pol, first_component, eps) == 0) {
        }
    };
    EXPECT_EXIT(reach_section(0), ended, "'TXPoincareStep': Unable to bracket");
    EXPECT_EQ(set_max_poincare_steps(1), 1);
    EXPECT_EXIT(reach_section(1e-8), ended, "'TXPoincareStep': Unable to bracket");
    EXPECT_EQ(set_max_poincare_steps(-1), 0);
    for (const int code : {1, 1}) EXPECT_EQ(errorTrajex(), code);
    EXPECT_EQ(order(), 2);
    EXPECT_EQ(errorTrajex(), 0);
}

TEST(SingleInstanceDeathTest, NothingWorksWhileClosed) {
    double t = 0;
    double y[] = {1, 0};
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
        {"cut_surface", [&] { cut_surface(y, y); }},
        {"auto_cut", [&] { auto_cut(t, y); }},
        {"set_auto_cut", [&] { set_auto_cut(t, y, oscillator); }},
        {"lyap_calc", [&] { lyap_calc(&t, y, 1e-3, 1, oscillator, 0, 1, y, 2); }},
        {"lyap_calc_file",
         [&] { lyap_calc_file("/dev/null", &t, y, 1e-3, 1, 0, 1, oscillator, y, 2, 1); }},
        {"ftablef", [&] { ftablef("/dev/null", "111", &t, 1, 2, y, oscillator); }},
        {"ftableg", [&] { ftableg(&t, 1, 2, y, oscillator, take); }},
        {"ftablea", [&] { ftablea(stdout, "111", &t, 1, 2, y, oscillator); }},
    };
    EXPECT_EQ(openTrajex(3, 1e-6, 0.01), 1);
    EXPECT_EQ(order(), 3);
    EXPECT_EQ(closeTrajex(), 1);
    for (const auto& [name, call] : calls) {
        EXPECT_EXIT(call(), ExitedWithCode(1),
                    "^ERROR in tx .*\n'" + std::string(name) + "': Trajex not opened\n$");
    }
}

}  // namespace
