// Opening, defaults, setters, closing.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

#include "allocation.hpp"
#include "handles.hpp"
#include "systems.hpp"
#include "tx.h"

namespace {

using namespace testing_support;
using testing::ExitedWithCode;

constexpr auto growth = Growth::flow;

TEST(Opening, SetsTheDocumentedDefaults) {
    for (const double RelTol : {1e-6, 0.0}) {
        const OpenHandle tx = open_terminating(growth, 3, RelTol, 0.01);
        EXPECT_EQ(tx->fcn, growth);
        EXPECT_EQ(TXOrder(tx.get()), 3);
        EXPECT_EQ(tx->RelTol, RelTol);
        EXPECT_EQ(tx->h, 0.01);
        EXPECT_DOUBLE_EQ(tx->NewtRelTol, 1e4 * RelTol);
        EXPECT_DOUBLE_EQ(tx->LambdaNewtRelTol, 5e5 * RelTol);
        EXPECT_DOUBLE_EQ(tx->CutEps, 10 * RelTol);
        for (const double perturbation : {tx->JacPert, tx->ParamJacPert, tx->LambdaPert}) {
            EXPECT_DOUBLE_EQ(perturbation, 1000 * RelTol);
        }
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
        EXPECT_EQ(tx->nparam + tx->CutSurfaceDefined + tx->StepTaken + tx->ErrorCode, 0);
        EXPECT_TRUE(!tx->j && !tx->c && !tx->cp && !tx->cut && !tx->jac && !tx->paramjac);
        EXPECT_TRUE(!tx->TX && !tx->txb);
    }
}

// Every vector has its length and none overlaps another: each is filled with its own mark first,
// then all are read back.
TEST(Opening, GivesEveryVectorItsOwnRoom) {
    for (const int n : {1, 2, 3, 8, 64}) {
        const OpenHandle tx = open_terminating(growth, n);
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

TEST(OpeningDeathTest, EndsTheProcessOnBadArguments) {
    struct {
        int order;
        double RelTol, h;
        const char* text;
    } const cases[] = {
        {0, 1e-6, 0.01, "'TXOpenTrajex': Order of dynamical system not positive\n$"},
        {-1, -1, -1, "Order of dynamical system not positive\n$"},
        {1, -1e-6, 0, "Tolerance not positive\n$"},
        {1, not_a_number, 0.01, "Tolerance not positive\n$"},
        {1, 1e-6, 0, "Negative time step attempted\n$"},
        {1, 1e-6, not_a_number, "Negative time step attempted\n$"},
    };
    for (const auto& c : cases) {
        EXPECT_EXIT(TXOpenTrajex(growth, c.order, c.RelTol, c.h), ExitedWithCode(1), c.text);
    }
}

TEST(OpeningDeathTest, ReportsEveryFailedAllocation) {
    constexpr int succeeded = 17;
    int nth = 0;
    for (bool opened = false; !opened;) {
        ASSERT_LT(++nth, 100);
        const auto attempt = [nth] {
            bool failed = false;
            Trajex* tx = nullptr;
            {
                const FailingAllocation failing(nth);
                tx = TXOpenTrajex(growth, 2, 1e-6, 0.01);
                failed = failing.failed();
            }
            TXCloseTrajex(tx);
            std::exit(failed ? 2 : succeeded);
        };
        const auto as_expected = [&opened](int status) {
            opened = ExitedWithCode(succeeded)(status);
            return opened || ExitedWithCode(1)(status);
        };
        EXPECT_EXIT(attempt(), as_expected, "^$|'TXOpenTrajex': Not enough memory\n$");
    }
    EXPECT_GT(nth, 2) << "no allocation was made to fail";
}

TEST(Setters, StoreGoodValuesAndRefuseTheOthers) {
    struct {
        int (*set)(Trajex*, double);
        double Trajex::*field;
        bool zero_allowed;
        int refused_as;
    } const setters[] = {{TXSetMaxStep, &Trajex::hmax, false, 11},
                         {TXSetRelTol, &Trajex::RelTol, true, 5},
                         {TXSetAbsTol, &Trajex::AbsTol, true, 5},
                         {TXSetNewtTol, &Trajex::NewtRelTol, false, 17}};
    const OpenHandle tx = open_recording(growth, 1);
    for (const auto& setter : setters) {
        const auto expect_set = [&](double value, bool accepted) {
            SCOPED_TRACE(testing::Message() << "code " << setter.refused_as << " for " << value);
            EXPECT_EQ(setter.set(tx.get(), 0.25), 1);
            EXPECT_EQ(setter.set(tx.get(), value), accepted);
            EXPECT_EQ(tx->ErrorCode, accepted ? 0 : setter.refused_as);
            EXPECT_EQ((*tx).*setter.field, accepted ? value : 0.25);
        };
        expect_set(-1, false);
        expect_set(not_a_number, false);
        expect_set(0, setter.zero_allowed);
        expect_set(0.5, true);
    }
    EXPECT_DOUBLE_EQ(tx->CutEps, 1e-5) << "derived tolerances stay";
}

// A negative limit never ends the process: this handle would, on any other failure.
TEST(Setters, RefuseNegativeLimitsQuietly) {
    struct {
        int (*set)(Trajex*, int);
        int Trajex::*field;
    } const setters[] = {{TXSetMaxPoincareSteps, &Trajex::MaxPoincareSteps},
                         {TXSetMaxPeriodSteps, &Trajex::MaxPeriodSteps},
                         {TXSetMaxNewtSteps, &Trajex::MaxNewtSteps}};
    const OpenHandle tx = open_terminating(growth, 1);
    for (const auto& [set, field] : setters) {
        for (const int value : {12, -1, 0}) {
            EXPECT_EQ(set(tx.get(), value), value >= 0);
            EXPECT_EQ(tx->ErrorCode, value < 0);
            EXPECT_EQ((*tx).*field, value < 0 ? 12 : value);
        }
    }
}

}  // namespace
