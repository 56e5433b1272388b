// Tables: rows byte by byte, the cost of samples, and what is left after a failure.
#include "support.hpp"

namespace {

std::vector<std::array<double, 3>> samples;
void take(double t, double* y) {
    samples.push_back({t, y[0], y[1]});
}

// y = (1 + t, 3 - 8 t) from (1, 3): exact in every step of every size.
constexpr Flow straight = [](double, double*, double* f) { f[0] = 1, f[1] = -8; };
constexpr Flow walled = [](auto t, auto, auto f) { f[0] = t < 0.45 ? 1 : not_a_number, f[1] = -8; };

class Tables : public testing::Test {
  protected:
    void restart() { Probe::set(Probe::never), samples.clear(), t = 0, y[0] = 1, y[1] = 3; }
    void SetUp() override { restart(); }
    void TearDown() override { Probe::set(Probe::never); }
    void expect_straight_to(double end) const {
        EXPECT_NEAR(t, end, 1e-13);
        EXPECT_NEAR(y[0], 1 + t, 1e-13);
        EXPECT_NEAR(y[1], 3 - 8 * t, 1e-13);
    }
    int write(const char* format, double t1, long n) {
        return TXftablef(tx.get(), file.name(), format, &t, t1, n, y);
    }

    OpenHandle tx = open_recording(Probe::flow<straight>, 2);
    const TemporaryFile file;
    double t, y[2];
};

const std::string five_rows =
    "0.0e+00 1.000000e+00 3.000000e+00 \n"
    "2.5e-01 1.250000e+00 1.000000e+00 \n"
    "5.0e-01 1.500000e+00 -1.000000e+00 \n"
    "7.5e-01 1.750000e+00 -3.000000e+00 \n"
    "1.0e+00 2.000000e+00 -5.000000e+00 \n";

// A file is emptied first; on an open stream tables follow one another, and are not flushed.
TEST_F(Tables, HaveOneRowPerSample) {
    for (int table = 0; table < 2; ++table, restart()) {
        EXPECT_EQ(write("166", 1, 4), 1);
        EXPECT_EQ(file.text(), five_rows);
        expect_straight_to(1);
    }
    FILE* stream = std::fopen(file.name(), "w");
    std::fputs("# t x y\n", stream);
    for (int table = 0; table < 2; ++table, restart()) {
        EXPECT_EQ(TXftablea(tx.get(), stream, "166", &t, 1, 4, y), 1);
        expect_straight_to(1);
    }
    EXPECT_EQ(file.text(), "");
    std::fclose(stream);
    EXPECT_EQ(file.text(), "# t x y\n" + five_rows + five_rows);
}

TEST_F(Tables, ShowTheColumnsOfTheFormat) {
    const std::pair<const char*, const char*> cases[] = {
        {"100", "-5.0e-01 \n"},
        {"066", "1.234568e+03 -2.000000e+00 \n"},
        {"090", "1.234567891e+03 \n"},
        {"012", "1.2e+03 -2.00e+00 \n"},
        {"1", "-5.0e-01 \n"},
        {"", "\n"},  // short: the other columns do not appear
        {nullptr, "\n"},
        {"x1:", "1.2e+03 \n"},
        {"%n1", "-2.0e+00 \n"},
        {"00199", "-2.0e+00 \n"}};
    for (const auto& [format, row] : cases) {
        t = -0.5, y[0] = 1234.5678912, y[1] = -2;
        EXPECT_EQ(write(format, t, 1), 1);
        EXPECT_EQ(file.text(), row);
    }
    // Exactly order + 1 characters and no end of string; the columns are left in the handle.
    restart();
    const std::vector<char> format{'3', '0', '9'};
    EXPECT_EQ(write(format.data(), t, 1), 1);
    EXPECT_EQ(file.text(), "0.000e+00 3.000000000e+00 \n");
    EXPECT_EQ(std::vector<int>(tx->output, tx->output + 3), (std::vector<int>{1, 0, 1}));
    EXPECT_STREQ(tx->form, "%9.3e ");
    EXPECT_STREQ(tx->form + 18, "%15.9e ");
}

// The samples are bit for bit those of steps and interpolations made by hand. All are there
// whatever the rounding; each step costs eight evaluations, and four more when it has samples.
TEST_F(Tables, SampleTheDenseOutputOfFreeSteps) {
    constexpr long n = 37;
    const OpenHandle by_hand = open_recording(Oscillator::flow, 2);
    tx->fcn = Oscillator::flow;
    double state[] = {1, 3}, sample[] = {1, 3}, reached = 0, next = 0;
    EXPECT_EQ(TXftableg(tx.get(), &t, 10, n, y, take), 1);
    ASSERT_EQ(samples.size(), n + 1);
    for (const auto& taken : samples) {
        while (reached < next) ASSERT_EQ(TXStep(by_hand.get(), &reached, state), 1);
        if (next > 0) TXInterpolate(by_hand.get(), next, sample);
        EXPECT_EQ(taken, (std::array<double, 3>{next, sample[0], sample[1]}));
        next += 10.0 / n;
    }
    EXPECT_EQ((std::array<double, 3>{t, y[0], y[1]}), samples.back());
    EXPECT_EQ(tx->h, by_hand->h);
    for (int count = 1; count <= 100; ++count) {
        tx = open_recording(Probe::flow<straight>, 2, 0, 0.3);
        restart();
        EXPECT_EQ(TXftableg(tx.get(), &t, 1, count, y, take), 1);
        EXPECT_EQ(samples.size(), static_cast<std::size_t>(count) + 1);
        EXPECT_EQ(Probe::calls, 8 * 4 + 4 * std::min(count, 4));
        expect_straight_to(1);
    }
}

TEST_F(Tables, HaveTheFirstRowOnlyWhereNoIntervalAdvances) {
    const double cases[][3] = {{2, 3, 0},
                               {2, 3, -5},
                               {2, 2, 4},
                               {2, 1, 4},
                               {2, 1, -4},
                               {2, infinity, 4},
                               {2, not_a_number, 4},
                               {not_a_number, 3, 4},
                               {1e17, 1e17 + 64, 1000}};
    for (const auto& [from, to, intervals] : cases) {
        SCOPED_TRACE(testing::Message() << from << " to " << to << ", intervals " << intervals);
        samples.clear();
        t = from;
        EXPECT_EQ(TXftableg(tx.get(), &t, to, long(intervals), y, take), 1);
        EXPECT_EQ(samples.size(), 1U);
        EXPECT_TRUE((t == from || std::isnan(from)) && y[0] == 1 && y[1] == 3);
    }
    EXPECT_EQ(Probe::calls, 0);
}

// Wherever the flow fails, time and state belong together and the file has been closed: its rows
// are there.
TEST_F(Tables, EndWithTheRowsUpToAFailure) {
    tx->fcn = walled;
    EXPECT_EQ(write("1", 1, 10), 0);
    EXPECT_EQ(tx->ErrorCode, 29);
    EXPECT_EQ(file.text(), "0.0e+00 \n1.0e-01 \n2.0e-01 \n3.0e-01 \n4.0e-01 \n");
    expect_straight_to(0.4);
    for (long calls = 0; calls < 8 * 5; ++calls) {
        tx = open_recording(Probe::flow<straight>, 2, 0, 0.2);
        restart();
        Probe::set(calls);
        EXPECT_THROW(write("166", 1, 4), Probe::Thrown);
        const std::string written = file.text();
        EXPECT_EQ(five_rows.substr(0, written.size()), written);
        expect_straight_to(0.25 * double(std::count(written.begin(), written.end(), '\n') - 1));
    }
}

TEST_F(Tables, TellThatTheFileIsIncomplete) {
    if (!std::filesystem::exists(full_device)) GTEST_SKIP() << "no " << full_device;
    EXPECT_EQ(TXftablef(tx.get(), full_device, "166", &t, 1, 4, y), 0);
    EXPECT_EQ(tx->ErrorCode, 25);
    expect_straight_to(1);
    FILE* stream = std::fopen(full_device, "w");
    std::setvbuf(stream, nullptr, _IONBF, 0);
    EXPECT_EQ(TXftablea(tx.get(), stream, "166", &t, 2, 4, y), 0);
    EXPECT_EQ(tx->ErrorCode, 25);
    EXPECT_EQ(t, 2);
    std::fclose(stream);
    tx->TerminateOnFatalError = 1;
    EXPECT_EXIT(TXftablef(tx.get(), full_device, "166", &t, 3, 4, y), ExitedWithCode(1),
                "'TXftablef': Unable to open output file \\(No space left on device\\)\n");
}

}  // namespace
