// Opening and closing of the variational sub-record: which variable arguments are read, and what is
// left after a failure.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <limits>

#include "allocation.hpp"
#include "handles.hpp"
#include "systems.hpp"
#include "tx.h"

namespace {

using testing_support::FailingAllocation;
using testing_support::open_recording;
using testing_support::open_terminating;
using testing_support::OpenHandle;

constexpr auto oscillator = testing_support::Oscillator::flow;

constexpr double not_a_number = std::numeric_limits<double>::quiet_NaN();
constexpr jac_t numerical = nullptr;
constexpr double* missing = nullptr;

void no_jacobian(double, double*, double**) {}
void no_parameter_jacobian(double, double*, double**) {}

// Each form of the arguments: a value read from the wrong place would show in what follows it.
TEST(VarOpen, ReadsTheArgumentsThatTheOthersAskFor) {
    const OpenHandle tx = open_recording(oscillator, 2, 1e-6);
    double a = 1, b = 2;

    ASSERT_EQ(TXVarOpenTrajex(tx.get(), numerical, 1e-5, 0), 1);
    EXPECT_EQ(tx->JacPert, 1e-5);
    EXPECT_DOUBLE_EQ(tx->ParamJacPert, 1e-3);
    EXPECT_EQ(tx->nparam, 0);
    EXPECT_EQ(tx->TX->order, 2 * 2 + 2 + 1);

    ASSERT_EQ(TXVarOpenTrajex(tx.get(), no_jacobian, 2, numerical, 1e-4, &a, &b), 1);
    EXPECT_EQ(tx->jac, &no_jacobian);
    EXPECT_EQ(tx->JacPert, 1e-5);
    EXPECT_EQ(tx->ParamJacPert, 1e-4);
    EXPECT_EQ(tx->c[0], &a);
    EXPECT_EQ(tx->c[1], &b);

    ASSERT_EQ(TXVarOpenTrajex(tx.get(), numerical, 1e-7, 1, &no_parameter_jacobian, &b), 1);
    EXPECT_EQ(tx->jac, nullptr);
    EXPECT_EQ(tx->JacPert, 1e-7);
    EXPECT_EQ(tx->paramjac, &no_parameter_jacobian);
    EXPECT_EQ(tx->c[0], &b);

    ASSERT_EQ(TXVarOpenTrajex(tx.get(), numerical, 1e-3, 3, numerical, 1e-2, &a, &b, &a), 1);
    EXPECT_EQ(tx->JacPert, 1e-3);
    EXPECT_EQ(tx->ParamJacPert, 1e-2);
    EXPECT_EQ(tx->paramjac, nullptr);
    EXPECT_EQ(tx->c[2], &a);
    EXPECT_EQ(tx->TX->order, 2 * (2 + 3) + 2 + 1);
}

TEST(VarOpen, MakesASubRecordWithTheSettingsOfTheHandle) {
    const OpenHandle tx = open_terminating(oscillator, 2, 1e-7, 0.25);
    TXSetAbsTol(tx.get(), 1e-9);
    TXSetMaxStep(tx.get(), 0.5);
    double a = 1, b = 2;
    ASSERT_EQ(TXVarOpenTrajex(tx.get(), no_jacobian, 2, &no_parameter_jacobian, &a, &b), 1);
    EXPECT_EQ(tx->TX->RelTol, 1e-7);
    EXPECT_EQ(tx->TX->AbsTol, 1e-9);
    EXPECT_EQ(tx->TX->h, 0.25);
    EXPECT_EQ(tx->TX->hmax, 0);
    EXPECT_EQ(tx->TX->TerminateOnFatalError, 1);
    EXPECT_EQ(tx->cp[0] + tx->cp[1], 0);
    for (int i = 0; i < 5; ++i) std::fill_n(tx->TX->j[i], 5, 1.0);  // room for the border

    // Closing the sub-record keeps what the handle knows of its parameters.
    EXPECT_EQ(TXVarCloseTrajex(tx.get()), 1);
    EXPECT_EQ(tx->TX, nullptr);
    EXPECT_EQ(tx->nparam, 2);
    EXPECT_EQ(tx->c[1], &b);
    EXPECT_EQ(tx->cp[1], 0);
    EXPECT_EQ(TXVarCloseTrajex(tx.get()), 1);
}

/// After a failure the handle can be opened again; it is closed at the end of the test.
void expect_reopens(Trajex* tx) {
    double a = 1;
    EXPECT_EQ(TXVarOpenTrajex(tx, no_jacobian, 1, &no_parameter_jacobian, &a), 1);
    EXPECT_EQ(tx->ErrorCode, 0);
    EXPECT_EQ(tx->c[0], &a);
}

TEST(VarOpen, RefusesPerturbationsThatAreNotPositive) {
    double a = 1;
    for (const double eps : {0.0, -1e-6, not_a_number}) {
        const OpenHandle tx = open_recording(oscillator, 2, 1e-6);
        EXPECT_EQ(TXVarOpenTrajex(tx.get(), numerical, eps, 0), 0);
        EXPECT_EQ(tx->ErrorCode, 23);
        EXPECT_EQ(tx->TX, nullptr);
        EXPECT_EQ(TXVarOpenTrajex(tx.get(), no_jacobian, 1, numerical, eps, &a), 0);
        EXPECT_EQ(tx->ErrorCode, 23);
        EXPECT_EQ(tx->TX, nullptr);
        EXPECT_DOUBLE_EQ(tx->JacPert, 1e-3);
        EXPECT_DOUBLE_EQ(tx->ParamJacPert, 1e-3);
        if (eps < 0) expect_reopens(tx.get());
    }
}

TEST(VarOpen, RefusesBadParameters) {
    const OpenHandle tx = open_recording(oscillator, 2);
    double a = 1, b = 2, c = 3;
    EXPECT_EQ(TXVarOpenTrajex(tx.get(), no_jacobian, -1), 0);
    EXPECT_EQ(tx->ErrorCode, 24);
    EXPECT_EQ(tx->nparam, 0);
    EXPECT_EQ(tx->TX, nullptr);

    EXPECT_EQ(TXVarOpenTrajex(tx.get(), no_jacobian, 4, numerical, 1e-6, &a, &b, &c, missing), 0);
    EXPECT_EQ(tx->ErrorCode, 26);
    EXPECT_EQ(tx->c[2], &c);
    expect_reopens(tx.get());
    EXPECT_EQ(TXVarOpenTrajex(tx.get(), no_jacobian, 1, &no_parameter_jacobian, missing), 0);
    EXPECT_EQ(tx->ErrorCode, 26);
}

TEST(VarOpen, RefusesExtendedSystemsBeyondAnInt) {
    const OpenHandle large = open_recording(oscillator, 46341);
    EXPECT_EQ(TXVarOpenTrajex(large.get(), no_jacobian, 0), 0);
    EXPECT_EQ(large->ErrorCode, 15);
    EXPECT_EQ(large->TX, nullptr);
    const OpenHandle small = open_recording(oscillator, 2);
    EXPECT_EQ(TXVarOpenTrajex(small.get(), no_jacobian, std::numeric_limits<int>::max(),
                              &no_parameter_jacobian),
              0);
    EXPECT_EQ(small->ErrorCode, 15);
    expect_reopens(small.get());
}

// A failed allocation is recorded (code 15, or 3), or, where it is reported on the new sub-record,
// which terminates, ends the process; either way with nothing left behind.
TEST(VarOpenDeathTest, ReportsEveryFailedAllocation) {
    constexpr int recorded = 17, succeeded = 18;
    bool opened = false;
    int recordings = 0;
    for (int nth = 1; !opened; ++nth) {
        ASSERT_LT(nth, 100);
        const auto attempt = [nth] {
            OpenHandle tx = open_recording(oscillator, 2);
            double a = 1;
            int result = 0;
            bool failed = false;
            {
                const FailingAllocation failing(nth);
                result = TXVarOpenTrajex(tx.get(), no_jacobian, 1, &no_parameter_jacobian, &a);
                failed = failing.failed();
            }
            if (!failed) std::exit(result == 1 ? succeeded : 1);
            const bool told = result == 0 && (tx->ErrorCode == 15 || tx->ErrorCode == 3);
            expect_reopens(tx.get());
            tx.reset();
            std::exit(told && !testing::Test::HasFailure() ? recorded : 1);
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
    const auto ended = testing::ExitedWithCode(1);
    EXPECT_EXIT(TXNumJac(tx.get(), 0, y, nullptr), ended, "'TXNumJac': Trajex not opened");
    EXPECT_EXIT(TXEquiPoint(tx.get(), y), ended, "'TXEquiPoint': Trajex not opened");
    EXPECT_EXIT(TXVarOpenTrajex(nullptr, no_jacobian, 0), ended,
                "'TXVarOpenTrajex': Trajex not opened");
}

}  // namespace
