// Opening, defaults, setters, closing.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "allocation.hpp"
#include "handles.hpp"
#include "tx.h"

namespace {

using testing_support::FailingAllocation;
using testing_support::open_recording;
using testing_support::open_terminating;
using testing_support::OpenHandle;

constexpr double not_a_number = std::numeric_limits<double>::quiet_NaN();

void decay(double, double* y, double* f) {
    f[0] = -y[0];
}

TEST(Opening, SetsTheDocumentedDefaults) {
    const OpenHandle tx = open_terminating(decay, 3, 1e-6, 0.01);
    EXPECT_EQ(tx->fcn, &decay);
    EXPECT_EQ(tx->order, 3);
    EXPECT_EQ(TXOrder(tx.get()), 3);
    EXPECT_EQ(tx->RelTol, 1e-6);
    EXPECT_EQ(tx->h, 0.01);

    // Multiples of RelTol.
    EXPECT_DOUBLE_EQ(tx->NewtRelTol, 1e-2);
    EXPECT_DOUBLE_EQ(tx->LambdaNewtRelTol, 0.5);
    EXPECT_DOUBLE_EQ(tx->CutEps, 1e-5);
    EXPECT_DOUBLE_EQ(tx->JacPert, 1e-3);
    EXPECT_DOUBLE_EQ(tx->ParamJacPert, 1e-3);
    EXPECT_DOUBLE_EQ(tx->LambdaPert, 1e-3);

    for (const double zero :
         {tx->AbsTol, tx->NewtAbsTol, tx->LambdaNewtAbsTol, tx->tfirst, tx->tlast, tx->hmax}) {
        EXPECT_EQ(zero, 0);
    }
    EXPECT_EQ(tx->MaxPoincareSteps, 100);
    EXPECT_EQ(tx->MaxPeriodSteps, 1000);
    EXPECT_EQ(tx->MaxNewtSteps, 10);
    EXPECT_EQ(tx->MaxContSteps, 1000);
    EXPECT_EQ(tx->CheckBifs, 1);
    EXPECT_EQ(tx->TerminateOnFatalError, 1);
    for (const int zero : {tx->nparam, tx->CutSurfaceDefined, tx->StepTaken, tx->ErrorCode}) {
        EXPECT_EQ(zero, 0);
    }

    EXPECT_EQ(tx->j, nullptr);
    EXPECT_EQ(tx->c, nullptr);
    EXPECT_EQ(tx->cp, nullptr);
    EXPECT_EQ(tx->cut, nullptr);
    EXPECT_EQ(tx->jac, nullptr);
    EXPECT_EQ(tx->paramjac, nullptr);
    EXPECT_EQ(tx->TX, nullptr);
    EXPECT_EQ(tx->txb, nullptr);
}

// Every vector has its length and none overlaps another: each is filled with its own mark first,
// then all are read back.
TEST(Opening, GivesEveryVectorItsOwnRoom) {
    for (const int n : {1, 2, 3, 8, 64}) {
        const OpenHandle tx = open_terminating(decay, n);
        double* const vectors[] = {tx->abs_err, tx->rel_err, tx->y5,     tx->y6,
                                   tx->ynp1d2,  tx->yfirst,  tx->ylast,  tx->y0,
                                   tx->yw,      tx->istate,  tx->ivector};
        double mark = 0;
        for (double* vector : vectors) std::fill_n(vector, n, ++mark);
        std::fill_n(tx->k, 12 * n, ++mark);
        std::fill_n(tx->output, n + 1, 7);
        std::fill_n(tx->form, 9 * n + 9, 'f');
        mark = 0;
        for (double* vector : vectors) EXPECT_EQ(std::count(vector, vector + n, ++mark), n);
        EXPECT_EQ(std::count(tx->k, tx->k + 12 * n, ++mark), 12 * n);
        EXPECT_EQ(std::count(tx->output, tx->output + n + 1, 7), n + 1);
        EXPECT_EQ(std::count(tx->form, tx->form + 9 * n + 9, 'f'), 9 * n + 9);
    }
}

TEST(Opening, AcceptsAZeroTolerance) {
    const OpenHandle tx = open_terminating(decay, 1, 0.0, 1.0);
    for (const double derived : {tx->RelTol, tx->NewtRelTol, tx->LambdaNewtRelTol, tx->CutEps,
                                 tx->JacPert, tx->ParamJacPert, tx->LambdaPert}) {
        EXPECT_EQ(derived, 0);
    }
}

TEST(OpeningDeathTest, EndsTheProcessOnBadArguments) {
    const auto ended = testing::ExitedWithCode(1);
    EXPECT_EXIT(TXOpenTrajex(decay, 0, 1e-6, 0.01), ended,
                "'TXOpenTrajex': Order of dynamical system not positive\n$");
    EXPECT_EXIT(TXOpenTrajex(decay, -1, -1, -1), ended,
                "Order of dynamical system not positive\n$");
    EXPECT_EXIT(TXOpenTrajex(decay, 1, -1e-6, 0), ended, "Tolerance not positive\n$");
    EXPECT_EXIT(TXOpenTrajex(decay, 1, not_a_number, 0.01), ended, "Tolerance not positive\n$");
    for (const double h : {0.0, -0.01, not_a_number}) {
        EXPECT_EXIT(TXOpenTrajex(decay, 1, 1e-6, h), ended, "Negative time step attempted\n$");
    }
}

TEST(OpeningDeathTest, ReportsEveryFailedAllocation) {
    int nth = 1;
    for (bool opened = false; !opened; ++nth) {
        ASSERT_LT(nth, 100);
        const auto attempt = [nth] {
            Trajex* tx = nullptr;
            {
                const FailingAllocation failing(nth);
                tx = TXOpenTrajex(decay, 2, 1e-6, 0.01);
                if (!failing.failed()) std::exit(17);
            }
            TXCloseTrajex(tx);
        };
        const auto as_expected = [&opened](int status) {
            opened = testing::ExitedWithCode(17)(status);
            return opened || testing::ExitedWithCode(1)(status);
        };
        EXPECT_EXIT(attempt(), as_expected, "^$|'TXOpenTrajex': Not enough memory\n$");
    }
    EXPECT_GT(nth, 2) << "no allocation was made to fail";
}

struct RealSetter {
    const char* name;
    int (*set)(Trajex*, double);
    double Trajex::*field;
    bool zero_allowed;
    int refused_as;
};

TEST(Setters, StoreGoodValuesAndRefuseTheOthers) {
    const RealSetter setters[] = {
        {"TXSetMaxStep", TXSetMaxStep, &Trajex::hmax, false, 11},
        {"TXSetRelTol", TXSetRelTol, &Trajex::RelTol, true, 5},
        {"TXSetAbsTol", TXSetAbsTol, &Trajex::AbsTol, true, 5},
        {"TXSetNewtTol", TXSetNewtTol, &Trajex::NewtRelTol, false, 17},
    };
    for (const RealSetter& setter : setters) {
        SCOPED_TRACE(setter.name);
        const OpenHandle tx = open_recording(decay, 1);
        const auto expect_refused = [&](double value) {
            EXPECT_EQ(setter.set(tx.get(), value), 0);
            EXPECT_EQ(tx->ErrorCode, setter.refused_as);
            EXPECT_EQ((*tx).*setter.field, 0.25);
        };
        EXPECT_EQ(setter.set(tx.get(), 0.25), 1);
        expect_refused(-1.0);
        expect_refused(not_a_number);
        if (!setter.zero_allowed) expect_refused(0.0);
        EXPECT_EQ(setter.set(tx.get(), 0.5), 1);
        EXPECT_EQ(tx->ErrorCode, 0);
        EXPECT_EQ((*tx).*setter.field, 0.5);
        if (setter.zero_allowed) {
            EXPECT_EQ(setter.set(tx.get(), 0.0), 1);
            EXPECT_EQ((*tx).*setter.field, 0.0);
        }
    }
}

TEST(Setters, LeaveTheDerivedTolerancesAlone) {
    const OpenHandle tx = open_recording(decay, 1, 1e-6);
    TXSetRelTol(tx.get(), 1e-9);
    TXSetNewtTol(tx.get(), 1e-4);
    EXPECT_DOUBLE_EQ(tx->CutEps, 1e-5);
    EXPECT_DOUBLE_EQ(tx->JacPert, 1e-3);
    EXPECT_DOUBLE_EQ(tx->LambdaNewtRelTol, 0.5);
    EXPECT_EQ(tx->NewtAbsTol, 0);
}

struct LimitSetter {
    const char* name;
    int (*set)(Trajex*, int);
    int Trajex::*field;
};

// A negative limit never ends the process: this handle would, on any other failure.
TEST(Setters, RefuseNegativeLimitsQuietly) {
    const LimitSetter setters[] = {
        {"TXSetMaxPoincareSteps", TXSetMaxPoincareSteps, &Trajex::MaxPoincareSteps},
        {"TXSetMaxPeriodSteps", TXSetMaxPeriodSteps, &Trajex::MaxPeriodSteps},
        {"TXSetMaxNewtSteps", TXSetMaxNewtSteps, &Trajex::MaxNewtSteps},
    };
    const OpenHandle tx = open_terminating(decay, 1);
    testing::internal::CaptureStderr();
    for (const LimitSetter& setter : setters) {
        SCOPED_TRACE(setter.name);
        EXPECT_EQ(setter.set(tx.get(), 12), 1);
        EXPECT_EQ(setter.set(tx.get(), -1), 0);
        EXPECT_EQ(tx->ErrorCode, 1);
        EXPECT_EQ((*tx).*setter.field, 12);
        EXPECT_EQ(setter.set(tx.get(), 0), 1);
        EXPECT_EQ(tx->ErrorCode, 0);
        EXPECT_EQ((*tx).*setter.field, 0);
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

}  // namespace
