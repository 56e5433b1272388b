// Opening and closing of the variational sub-record: which variable arguments are read, and what is
// left after a failure.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <initializer_list>
#include <limits>

#include "allocation.hpp"
#include "handles.hpp"
#include "systems.hpp"
#include "tx.h"

namespace {

using namespace testing_support;

constexpr auto oscillator = Oscillator::flow;
constexpr jac_t numerical = nullptr;
constexpr double* missing = nullptr;

void no_jacobian(double, double*, double**) {}
void no_parameter_jacobian(double, double*, double**) {}

double a, b, c;

// Each form of the arguments: a value read from the wrong place would show in what follows it.
TEST(VarOpen, ReadsTheArgumentsThatTheOthersAskFor) {
    const OpenHandle tx = open_recording(oscillator, 2, 1e-6);
    const auto expect_read = [&](int opened, jac_t jac, double JacPert, jac_t paramjac,
                                 double ParamJacPert, std::initializer_list<double*> parameters) {
        const int count = static_cast<int>(parameters.size());
        EXPECT_EQ(opened, 1);
        EXPECT_EQ(tx->jac, jac);
        EXPECT_DOUBLE_EQ(tx->JacPert, JacPert);
        EXPECT_EQ(tx->paramjac, paramjac);
        EXPECT_DOUBLE_EQ(tx->ParamJacPert, ParamJacPert);
        EXPECT_EQ(tx->nparam, count);
        EXPECT_TRUE(std::equal(parameters.begin(), parameters.end(), tx->c));
        EXPECT_EQ(tx->TX->order, 2 * (2 + count) + 2 + 1);
    };
    expect_read(TXVarOpenTrajex(tx.get(), numerical, 1e-5, 0), nullptr, 1e-5, nullptr, 1e-3, {});
    expect_read(TXVarOpenTrajex(tx.get(), no_jacobian, 2, numerical, 1e-4, &a, &b), no_jacobian,
                1e-5, nullptr, 1e-4, {&a, &b});
    expect_read(TXVarOpenTrajex(tx.get(), numerical, 1e-7, 1, &no_parameter_jacobian, &b), nullptr,
                1e-7, no_parameter_jacobian, 1e-4, {&b});
    expect_read(TXVarOpenTrajex(tx.get(), numerical, 1e-3, 3, numerical, 1e-2, &a, &b, &a), nullptr,
                1e-3, nullptr, 1e-2, {&a, &b, &a});
}

// The settings of the handle, and room for the border; closing keeps the parameters of the handle.
TEST(VarOpen, MakesASubRecordWithTheSettingsOfTheHandle) {
    const OpenHandle tx = open_terminating(oscillator, 2, 1e-7, 0.25);
    TXSetAbsTol(tx.get(), 1e-9);
    TXSetMaxStep(tx.get(), 0.5);
    ASSERT_EQ(TXVarOpenTrajex(tx.get(), no_jacobian, 2, &no_parameter_jacobian, &a, &b), 1);
    EXPECT_EQ(tx->TX->RelTol, 1e-7);
    EXPECT_EQ(tx->TX->AbsTol, 1e-9);
    EXPECT_EQ(tx->TX->h, 0.25);
    EXPECT_EQ(tx->TX->hmax, 0);
    EXPECT_EQ(tx->TX->TerminateOnFatalError, 1);
    for (int i = 0; i < 5; ++i) std::fill_n(tx->TX->j[i], 5, 1.0);
    for (int closing = 0; closing < 2; ++closing) {
        EXPECT_EQ(TXVarCloseTrajex(tx.get()), 1);
        EXPECT_EQ(tx->TX, nullptr);
        EXPECT_EQ(tx->nparam, 2);
        EXPECT_EQ(tx->c[1], &b);
        EXPECT_EQ(tx->cp[0] + tx->cp[1], 0);
    }
}

/// After a failure the handle can be opened again; it is closed at the end of the test.
void expect_reopens(Trajex* tx) {
    EXPECT_EQ(TXVarOpenTrajex(tx, no_jacobian, 1, &no_parameter_jacobian, &a), 1);
    EXPECT_EQ(tx->ErrorCode, 0);
    EXPECT_EQ(tx->c[0], &a);
}

TEST(VarOpen, RefusesBadArguments) {
    const auto expect_refused = [](int code, int order, jac_t jac, auto... arguments) {
        const OpenHandle tx = open_recording(oscillator, order, 1e-6);
        EXPECT_EQ(TXVarOpenTrajex(tx.get(), jac, arguments...), 0);
        EXPECT_EQ(tx->ErrorCode, code);
        EXPECT_EQ(tx->TX == nullptr, code != 26);
        EXPECT_DOUBLE_EQ(tx->JacPert, 1e-3);
        EXPECT_EQ(tx->nparam, code == 26 ? 3 : 0);  // those before the null address
        if (order == 2) expect_reopens(tx.get());
    };
    for (const double eps : {0.0, -1e-6, not_a_number}) {
        expect_refused(23, 2, numerical, eps, 0);
        expect_refused(23, 2, no_jacobian, 1, numerical, eps, &a);
    }
    expect_refused(24, 2, no_jacobian, -1);
    expect_refused(26, 2, no_jacobian, 4, &no_parameter_jacobian, &a, &b, &c, missing);
    constexpr int largest = std::numeric_limits<int>::max();  // extended systems beyond an int
    expect_refused(15, 2, no_jacobian, largest, &no_parameter_jacobian);
    expect_refused(15, 46341, no_jacobian, 0);
}

// A failed allocation is recorded (code 15, or 3), or, where it is reported on the new sub-record,
// which terminates, ends the process; either way with nothing left behind. The parameters of the
// opening before it stay registered.
TEST(VarOpenDeathTest, ReportsEveryFailedAllocation) {
    constexpr int recorded = 17, succeeded = 18, wrong = 19;
    bool opened = false;
    int recordings = 0;
    for (int nth = 1; !opened; ++nth) {
        ASSERT_LT(nth, 100);
        const auto attempt = [nth] {
            OpenHandle tx = open_recording(oscillator, 2);
            TXVarOpenTrajex(tx.get(), no_jacobian, 1, &no_parameter_jacobian, &c);
            int result = 0;
            bool failed = false;
            {
                const FailingAllocation failing(nth);
                result = TXVarOpenTrajex(tx.get(), no_jacobian, 2, &no_parameter_jacobian, &a, &b);
                failed = failing.failed();
            }
            if (!failed) std::exit(result == 1 ? succeeded : wrong);
            const bool told = result == 0 && (tx->ErrorCode == 15 || tx->ErrorCode == 3);
            EXPECT_TRUE(tx->nparam == 1 && tx->c[0] == &c && tx->cp[0] == 0);
            expect_reopens(tx.get());
            tx.reset();
            std::exit(told && !testing::Test::HasFailure() ? recorded : wrong);
        };
        const auto as_expected = [&](int status) {
            opened = testing::ExitedWithCode(succeeded)(status);
            const bool told = testing::ExitedWithCode(recorded)(status);
            recordings += told;
            return opened || told || testing::ExitedWithCode(1)(status);
        };
        EXPECT_EXIT(attempt(), as_expected, "^$|'TXVarOpenTrajex': Not enough memory");
    }
    EXPECT_GE(recordings, 4);
}

TEST(VarDeathTest, OperationsNeedTheSubRecord) {
    const OpenHandle tx = open_recording(oscillator, 2);
    double y[] = {1, 0};
    double T = 1;
    const auto ended = testing::ExitedWithCode(1);
    EXPECT_EXIT(TXNumJac(tx.get(), 0, y, nullptr), ended, "'TXNumJac': Trajex not opened");
    EXPECT_EXIT(TXEquiPoint(tx.get(), y), ended, "'TXEquiPoint': Trajex not opened");
    EXPECT_EXIT(TXAutoOrbit(tx.get(), 0, y, nullptr, 1, &T), ended,
                "'TXAutoOrbit': Trajex not opened");
    EXPECT_EXIT(TXNonAutoOrbit(tx.get(), 0, y, nullptr, T), ended,
                "'TXNonAutoOrbit': Trajex not opened");
    EXPECT_EXIT(TXVarOpenTrajex(nullptr, no_jacobian, 0), ended,
                "'TXVarOpenTrajex': Trajex not opened");
}

}  // namespace
