// Error reports: their texts character by character, the policy, the stream.
#include "core/errors.hpp"

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <string>

#include "handles.hpp"
#include "tx.h"

namespace {

using testing::ExitedWithCode;
using testing_support::open_recording;
using testing_support::open_terminating;
using testing_support::OpenHandle;

void decay(double, double* y, double* f) {
    f[0] = -y[0];
}

std::string heading(const std::string& kind, const std::string& line) {
    return kind + " in tx (" + trajex::build_date + ") line " + line + "\n";
}

TEST(Report, NamesTheBuildDateAsMonthDayAndYear) {
    std::array<char, 4> month{};
    int day = 0;
    int year = 0;
    int end = 0;
    ASSERT_EQ(std::sscanf(trajex::build_date, "%3s %d %d%n", month.data(), &day, &year, &end), 3);
    EXPECT_EQ(std::string(trajex::build_date).size(), static_cast<std::size_t>(end));
    EXPECT_NE(std::string("JanFebMarAprMayJunJulAugSepOctNovDec").find(month.data()),
              std::string::npos);
    EXPECT_TRUE(day >= 1 && day <= 31 && year >= 2025) << trajex::build_date;
}

TEST(ReportDeathTest, WithoutAHandleIsTwoLines) {
    EXPECT_EXIT(
        {
            errno = ENOENT;  // not part of this form
            TXFatalError(nullptr, 123, 3, "TXSomething");
        },
        ExitedWithCode(1),
        testing::Eq(heading("ERROR", "123") + "'TXSomething': Not enough memory\n"));
}

TEST(ReportDeathTest, WithAHandleAddsTheSystemError) {
    const OpenHandle tx = open_terminating(decay, 1);
    const std::string text = heading("Error", "77") + "'TXStep': Minimum stepsize reached";
    EXPECT_EXIT(
        {
            errno = 0;
            TXFatalError(tx.get(), 77, 29, "TXStep");
        },
        ExitedWithCode(1), testing::Eq(text + "\nTrajex Closed\n"));
    EXPECT_EXIT(
        {
            errno = ENOENT;
            TXFatalError(tx.get(), 77, 29, "TXStep");
        },
        ExitedWithCode(1), testing::Eq(text + " (No such file or directory)\nTrajex Closed\n"));
}

TEST(ReportDeathTest, OfAnOperationCarriesItsLine) {
    const OpenHandle tx = open_terminating(decay, 1);
    EXPECT_EXIT(
        {
            errno = 0;
            TXSetMaxStep(tx.get(), -1);
        },
        ExitedWithCode(1),
        "^Error in tx \\([^)]+\\) line [1-9][0-9]*\n"
        "'TXSetMaxStep': Max time step not positive\n"
        "Trajex Closed\n$");
}

TEST(Policy, RecordsQuietlyWhenAsked) {
    const OpenHandle tx = open_recording(decay, 1);
    testing::internal::CaptureStderr();
    EXPECT_EQ(TXSetMaxStep(tx.get(), -1), 0);
    for (int query = 0; query < 2; ++query) {  // asking does not clear the code
        EXPECT_EQ(TXErrorTrajex(tx.get()), 11);
        EXPECT_STREQ(TXStrErrorTrajex(tx.get()), "Max time step not positive");
    }
    EXPECT_EQ(TXSetMaxStep(tx.get(), 1), 1);
    EXPECT_EQ(TXErrorTrajex(tx.get()), 0);
    EXPECT_STREQ(TXStrErrorTrajex(tx.get()), "No error");

    // Every code has its text; a number outside the table is no reason to read outside it.
    for (int code = 0; code < trajex::error_count; ++code) {
        EXPECT_EQ(TXFatalError(tx.get(), 1, code, "test"), 0);
        EXPECT_EQ(TXErrorTrajex(tx.get()), code);
        EXPECT_STREQ(TXStrErrorTrajex(tx.get()), TrajexFatalError[code]);
    }
    for (const int code : {-1, trajex::error_count}) {
        TXFatalError(tx.get(), 1, code, "test");
        EXPECT_STREQ(TXStrErrorTrajex(tx.get()), "Unknown error");
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

// A report on a chosen stream leaves standard error empty; what the child process wrote to the
// file is read here.
class ErrorStream : public testing::Test {
  protected:
    struct CloseFile {
        void operator()(FILE* file) const { std::fclose(file); }
    };
    std::string written() {
        std::rewind(file_.get());
        std::array<char, 512> buffer{};
        return {buffer.data(), std::fread(buffer.data(), 1, buffer.size(), file_.get())};
    }
    std::unique_ptr<FILE, CloseFile> file_{std::tmpfile()};
};

using ErrorStreamDeathTest = ErrorStream;

TEST_F(ErrorStreamDeathTest, TakesTheReports) {
    EXPECT_EXIT(
        {
            TXSetErrorOutput(file_.get());
            TXFatalError(nullptr, 5, 4, "TXSomething");
        },
        ExitedWithCode(1), "^$");
    EXPECT_EQ(written(),
              heading("ERROR", "5") + "'TXSomething': Order of dynamical system not positive\n");
}

TEST_F(ErrorStreamDeathTest, IsStandardErrorAgainAfterAnyOpening) {
    EXPECT_EXIT(
        {
            TXSetErrorOutput(file_.get());
            const OpenHandle tx = open_terminating(decay, 1);
            TXSetRelTol(tx.get(), -1);
        },
        ExitedWithCode(1), "'TXSetRelTol': Tolerance not positive");
    EXPECT_EXIT(
        {
            EXPECT_EQ(TXSetErrorOutput(file_.get()), 1);
            EXPECT_EQ(TXSetErrorOutput(nullptr), 1);
            TXOrder(nullptr);
        },
        ExitedWithCode(1), "'TXOrder': Trajex not opened");
    EXPECT_EQ(written(), "");
}

TEST(MathErrorDeathTest, OnlyUnderflowIsLeftToTheMathematicsLibrary) {
    char name[] = "sqrt";
    for (const int type : {1, 2, 3, 5, 6}) {
        struct exception error = {type, name, -1.0, 0.0, 0.0};
        EXPECT_EXIT(
            {
                errno = EDOM;
                matherr(&error);
            },
            ExitedWithCode(1),
            testing::Eq(std::string("\nFatal Error in tx (") + trajex::build_date +
                        ")\n'sqrt': Numerical argument out of domain\n"
                        "Aaaarrrrrggg!! Trajex Closed\n"));
    }
    struct exception underflow = {4, name, 1e-300, 1e-300, 0.0};
    EXPECT_EQ(matherr(&underflow), 0);
}

struct NullCall {
    const char* reported_as;
    void (*call)();
};

// Without a handle every operation ends the process under its own name.
TEST(NullHandleDeathTest, IsRefusedByEveryOperation) {
    const NullCall calls[] = {
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
    for (const NullCall& refused : calls) {
        EXPECT_EXIT(refused.call(), ExitedWithCode(1),
                    std::string("^ERROR in tx \\([^)]+\\) line [1-9][0-9]*\n'") +
                        refused.reported_as + "': Trajex not opened\n$");
    }
}

}  // namespace
