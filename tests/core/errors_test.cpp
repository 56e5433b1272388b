// Error reports: their texts character by character, the policy, the stream.
#include "core/errors.hpp"

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <string>

#include "files.hpp"
#include "handles.hpp"
#include "systems.hpp"
#include "tx.h"

namespace {

using namespace testing_support;
using testing::ExitedWithCode;

std::string heading(const std::string& kind, const std::string& line) {
    return kind + " in tx (" + trajex::build_date + ") line " + line + "\n";
}

TEST(ReportDeathTest, AddsTheSystemErrorWithAHandle) {
    const OpenHandle tx = open_terminating(Growth::flow, 1);
    const auto report = [](Trajex* handle, int system_error) {
        errno = system_error;
        TXFatalError(handle, 77, 29, "TXStep");
    };
    const std::string text = "'TXStep': Minimum stepsize reached";
    EXPECT_EXIT(report(nullptr, ENOENT), ExitedWithCode(1),
                testing::Eq(heading("ERROR", "77") + text + "\n"));
    EXPECT_EXIT(report(tx.get(), 0), ExitedWithCode(1),
                testing::Eq(heading("Error", "77") + text + "\nTrajex Closed\n"));
    EXPECT_EXIT(report(tx.get(), ENOENT), ExitedWithCode(1),
                testing::Eq(heading("Error", "77") + text +
                            " (No such file or directory)\nTrajex Closed\n"));
}

TEST(Policy, RecordsQuietlyWhenAsked) {
    const OpenHandle tx = open_recording(Growth::flow, 1);
    testing::internal::CaptureStderr();
    EXPECT_EQ(TXSetMaxStep(tx.get(), -1), 0);
    for (int query = 0; query < 2; ++query) {  // asking does not clear the code
        EXPECT_EQ(TXErrorTrajex(tx.get()), 11);
        EXPECT_STREQ(TXStrErrorTrajex(tx.get()), "Max time step not positive");
    }
    EXPECT_EQ(TXSetMaxStep(tx.get(), 1), 1);
    EXPECT_STREQ(TXStrErrorTrajex(tx.get()), "No error");

    // A number outside the table is no reason to read outside it.
    for (int code = -1; code <= trajex::error_count; ++code) {
        const bool known = 0 <= code && code < trajex::error_count;
        EXPECT_EQ(TXFatalError(tx.get(), 1, code, "test"), 0);
        EXPECT_EQ(TXErrorTrajex(tx.get()), code);
        EXPECT_STREQ(TXStrErrorTrajex(tx.get()), known ? TrajexFatalError[code] : "Unknown error");
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

// A chosen stream takes the reports, until any opening or a null pointer.
TEST(ErrorStreamDeathTest, IsStandardErrorUnlessChosen) {
    const TemporaryFile file;
    const auto redirected = [&](auto fail) {
        TXSetErrorOutput(std::fopen(file.name(), "w"));
        fail();
    };
    const auto ended = ExitedWithCode(1);
    EXPECT_EXIT(redirected([] { TXFatalError(nullptr, 5, 4, "TXSomething"); }), ended, "^$");
    EXPECT_EQ(file.text(),
              heading("ERROR", "5") + "'TXSomething': Order of dynamical system not positive\n");
    EXPECT_EXIT(redirected([] { TXSetRelTol(TXOpenTrajex(Growth::flow, 1, 1, 1), -1); }), ended,
                "^Error in tx \\([^)]+\\) line [1-9][0-9]*\n'TXSetRelTol': Tolerance not positive");
    EXPECT_EXIT(redirected([] { TXSetErrorOutput(nullptr), TXOrder(nullptr); }), ended,
                "'TXOrder': Trajex not opened");
    EXPECT_EQ(file.text(), "");
}

TEST(MathErrorDeathTest, OnlyUnderflowIsLeftToTheMathematicsLibrary) {
    char name[] = "sqrt";
    const std::string text = std::string("\nFatal Error in tx (") + trajex::build_date +
                             ")\n'sqrt': Numerical argument out of domain\n"
                             "Aaaarrrrrggg!! Trajex Closed\n";
    const auto fail = [&](int type) {
        struct exception error = {type, name, -1.0, 0.0, 0.0};
        errno = EDOM;
        return matherr(&error);
    };
    for (const int type : {1, 2, 3, 5, 6}) {
        EXPECT_EXIT(fail(type), ExitedWithCode(1), testing::Eq(text));
    }
    EXPECT_EQ(fail(4), 0);
}

// Without a handle every operation ends the process under its own name.
TEST(NullHandleDeathTest, IsRefusedByEveryOperation) {
    struct {
        const char* reported_as;
        void (*call)();
    } const calls[] = {
        {"TXCloseTrajex", [] { TXCloseTrajex(nullptr); }},
        {"TXOrder", [] { TXOrder(nullptr); }},
        {"TXSetMaxStep", [] { TXSetMaxStep(nullptr, 1); }},
        {"TXSetRelTol", [] { TXSetRelTol(nullptr, 1); }},
        {"TXSetAbsTol", [] { TXSetAbsTol(nullptr, 1); }},
        {"TXSetNewtTol", [] { TXSetNewtTol(nullptr, 1); }},
        {"TXSetMaxPoincareSteps", [] { TXSetMaxPoincareSteps(nullptr, 1); }},
        {"TXSetMaxPeriodSteps", [] { TXSetMaxPeriodSteps(nullptr, 1); }},
        {"TXSetMaxNewtSteps", [] { TXSetMaxNewtSteps(nullptr, 1); }},
        {"TXErrorTrajex", [] { TXErrorTrajex(nullptr); }},
        {"TXStrError", [] { TXStrErrorTrajex(nullptr); }},
    };
    for (const auto& refused : calls) {
        EXPECT_EXIT(refused.call(), ExitedWithCode(1),
                    std::string("^ERROR in tx \\([JFMASOND][a-z]{2} [ 123][0-9] 20[0-9]{2}\\) line "
                                "[1-9][0-9]*\n'") +
                        refused.reported_as + "': Trajex not opened\n$");
    }
}

}  // namespace
