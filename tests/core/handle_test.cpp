// Opening, defaults, setters; the policy, the texts and the stream of error reports.
#include <cerrno>

#include "core/errors.hpp"
#include "support.hpp"

namespace {

constexpr auto oscillator = Oscillator::flow;

TEST(Opening, SetsTheDocumentedDefaults) {
    constexpr double RelTol = 0x1p-20;
    const OpenHandle tx = open_terminating(oscillator, 3, RelTol, 0.01);
    EXPECT_TRUE(tx->fcn == oscillator && TXOrder(tx.get()) == 3);
    EXPECT_TRUE(tx->RelTol == RelTol && tx->h == 0.01);
    EXPECT_TRUE(tx->NewtRelTol == 1e4 * RelTol && tx->LambdaNewtRelTol == 5e5 * RelTol);
    EXPECT_EQ(tx->CutEps, 10 * RelTol);
    for (const double step : {tx->JacPert, tx->ParamJacPert, tx->LambdaPert}) {
        EXPECT_EQ(step, 1000 * RelTol);
    }
    for (const double zero :
         {tx->AbsTol, tx->NewtAbsTol, tx->LambdaNewtAbsTol, tx->tfirst, tx->tlast, tx->hmax}) {
        EXPECT_EQ(zero, 0);
    }
    EXPECT_TRUE(tx->MaxPoincareSteps == 100 && tx->MaxPeriodSteps == 1000);
    EXPECT_TRUE(tx->MaxNewtSteps == 10 && tx->MaxContSteps == 1000);
    EXPECT_TRUE(tx->CheckBifs == 1 && tx->TerminateOnFatalError == 1);
    EXPECT_EQ(tx->nparam + tx->CutSurfaceDefined + tx->StepTaken + tx->ErrorCode, 0);
    EXPECT_TRUE(!tx->j && !tx->c && !tx->cp && !tx->cut && !tx->jac && !tx->paramjac);
    EXPECT_TRUE(!tx->TX && !tx->txb);
}

// Every vector has its length and none overlaps another: each is filled with its own mark first,
// then all are read back.
TEST(Opening, GivesEveryVectorItsOwnRoom) {
    for (const int n : {1, 2, 3, 8, 64}) {
        const OpenHandle tx = open_terminating(oscillator, n);
        const struct {
            double* vector;
            int length;
        } rooms[] = {{tx->abs_err, n}, {tx->rel_err, n}, {tx->y5, n},      {tx->y6, n},
                     {tx->ynp1d2, n},  {tx->yfirst, n},  {tx->ylast, n},   {tx->y0, n},
                     {tx->yw, n},      {tx->istate, n},  {tx->ivector, n}, {tx->k, 12 * n}};
        double mark = 0;
        for (const auto& [vector, length] : rooms) std::fill_n(vector, length, ++mark);
        std::fill_n(tx->output, n + 1, 7);
        std::fill_n(tx->form, 9 * n + 9, 'f');
        mark = 0;
        for (const auto& [vector, length] : rooms) {
            EXPECT_EQ(std::count(vector, vector + length, ++mark), length);
        }
        EXPECT_EQ(std::count(tx->output, tx->output + n + 1, 7), n + 1);
        EXPECT_EQ(std::count(tx->form, tx->form + 9 * n + 9, 'f'), 9 * n + 9);
    }
}

TEST(Setters, StoreGoodValuesAndTheCodeOfTheLastCallIsKept) {
    const OpenHandle tx = open_recording(oscillator, 1);
    for (const double value : {0.0, 0.25}) {
        EXPECT_EQ(TXSetRelTol(tx.get(), value) + TXSetAbsTol(tx.get(), value), 2);
        EXPECT_EQ(TXSetMaxStep(tx.get(), value) + TXSetNewtTol(tx.get(), value), value > 0 ? 2 : 0);
        EXPECT_TRUE(tx->RelTol == value && tx->AbsTol == value);
    }
    EXPECT_TRUE(tx->hmax == 0.25 && tx->NewtRelTol == 0.25);
    EXPECT_DOUBLE_EQ(tx->CutEps, 1e-5) << "derived tolerances stay";
    // Asking does not clear the code. Outside the table is no reason to read outside it.
    testing::internal::CaptureStderr();
    for (int code = -1; code <= trajex::error_count; ++code) {
        const bool known = 0 <= code && code < trajex::error_count;
        EXPECT_EQ(TXFatalError(tx.get(), 1, code, "test"), 0);
        EXPECT_EQ(TXErrorTrajex(tx.get()), code);
        EXPECT_EQ(TXErrorTrajex(tx.get()), code);
        EXPECT_STREQ(TXStrErrorTrajex(tx.get()), known ? TrajexFatalError[code] : "Unknown error");
    }
    EXPECT_EQ(TXSetMaxStep(tx.get(), 1), 1);
    EXPECT_STREQ(TXStrErrorTrajex(tx.get()), "No error");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

// Character by character; the error of the system is added where there is a handle and one.
TEST(ReportDeathTest, IsWrittenAsDocumented) {
    const OpenHandle tx = open_terminating(oscillator, 1);
    const auto report = [](Trajex* handle, int system_error) {
        errno = system_error;
        TXFatalError(handle, 77, 29, "TXStep");
    };
    const auto expected = [](const std::string& kind, const std::string& end) {
        return testing::Eq(kind + " in tx (" + trajex::build_date + ") line 77\n" +
                           "'TXStep': Minimum stepsize reached" + end);
    };
    const auto ended = ExitedWithCode(1);
    EXPECT_EXIT(report(nullptr, ENOENT), ended, expected("ERROR", "\n"));
    EXPECT_EXIT(report(tx.get(), 0), ended, expected("Error", "\nTrajex Closed\n"));
    EXPECT_EXIT(report(tx.get(), ENOENT), ended,
                expected("Error", " (No such file or directory)\nTrajex Closed\n"));
    EXPECT_EXIT(TXOrder(nullptr), ended,
                "^ERROR in tx \\([JFMASOND][a-z]{2} [ 123][0-9] 20[0-9]{2}\\) line [1-9][0-9]*\n");

    char name[] = "sqrt";
    const auto fail = [&](int type) {
        struct exception error = {type, name, -1.0, 0.0, 0.0};
        errno = EDOM;
        return matherr(&error);
    };
    const auto text = std::string("\nFatal Error in tx (") + trajex::build_date +
                      ")\n'sqrt': Numerical argument out of domain\n"
                      "Aaaarrrrrggg!! Trajex Closed\n";
    for (const int type : {1, 2, 3, 5, 6}) EXPECT_EXIT(fail(type), ended, testing::Eq(text));
    EXPECT_EQ(fail(4), 0) << "an underflow is left to the mathematics library";
}

// A chosen stream takes the reports, until any opening or a null pointer.
TEST(ReportDeathTest, GoesToStandardErrorUnlessAStreamIsChosen) {
    const TemporaryFile file;
    const auto redirected = [&](auto fail) {
        TXSetErrorOutput(std::fopen(file.name(), "w"));
        fail();
    };
    const auto ended = ExitedWithCode(1);
    EXPECT_EXIT(redirected([] { TXFatalError(nullptr, 5, 4, "TXSomething"); }), ended, "^$");
    EXPECT_TRUE(file.text().ends_with("'TXSomething': Order of dynamical system not positive\n"));
    EXPECT_EXIT(redirected([] { TXSetRelTol(TXOpenTrajex(oscillator, 1, 1, 1), -1); }), ended,
                "'TXSetRelTol': Tolerance not positive");
    EXPECT_EXIT(redirected([] { TXSetErrorOutput(nullptr), TXOrder(nullptr); }), ended,
                "'TXOrder': Trajex not opened");
    EXPECT_EQ(file.text(), "");
}

}  // namespace
