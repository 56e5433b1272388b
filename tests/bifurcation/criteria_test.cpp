// The stability criteria, on spectra chosen for their ties and their ends.
#include "bifurcation/criteria.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <vector>

#include "handles.hpp"
#include "systems.hpp"
#include "tx.h"

namespace {

using testing_support::open_recording;
using testing_support::OpenHandle;

constexpr double not_a_number = std::numeric_limits<double>::quiet_NaN();

using Values = std::vector<double>;

/// A handle whose record has these eigenvalues.
class Spectrum {
  public:
    explicit Spectrum(const Values& er, Values ei = {}) {
        const int n = static_cast<int>(er.size());
        ei.resize(er.size());
        tx_ = open_recording(testing_support::Oscillator::flow, n);
        tx_->txb = TXCreateBif(tx_.get());
        std::copy(er.begin(), er.end(), tx_->txb->er);
        std::copy(ei.begin(), ei.end(), tx_->txb->ei);
    }
    operator Trajex*() const { return tx_.get(); }

  private:
    OpenHandle tx_;
};

TEST(Criteria, TheTrivialMultiplierGoesLast) {
    Values er = {0.5, 1, 0.2, 1}, ei = {0.1, 0.01, 0.2, -0.01};
    SORTEIG(er.data(), ei.data(), 4);
    EXPECT_EQ(er, (Values{0.5, 1, 0.2, 1}));
    EXPECT_EQ(ei, (Values{0.1, -0.01, 0.2, 0.01}));
    Values alone = {3}, zero = {0};
    SORTEIG(alone.data(), zero.data(), 1);
    EXPECT_EQ(alone, Values{3});
}

TEST(Criteria, OfMultipliers) {
    int place = 9;
    EXPECT_EQ(CRIT(Spectrum({0.5, -0.6, 1}, {0, 0.8, 0}), &place, 1), 1);
    EXPECT_EQ(place, 1);
    EXPECT_EQ(CRIT(Spectrum({0.75, -1.25, 1}), &place, 1), 0.75);  // the first of equal ones
    EXPECT_EQ(place, 0);
    EXPECT_EQ(CRIT(Spectrum({0.5, 0.2, not_a_number, 0.9}), &place, 0), 0.9);
    EXPECT_EQ(place, 3);
    for (const int left_out : {0, 1}) {
        EXPECT_EQ(CRIT(Spectrum({3}, {4}), &place, left_out), 5);
        EXPECT_EQ(place, 0);
    }
    const Spectrum units({-1, 0, 0, 1}, {0, 0, 1, 0});
    EXPECT_EQ(EUKLID2(units, 0), 0);
    EXPECT_EQ(EUKLID2(units, 1), 1);
    EXPECT_EQ(EUKLID2(units, 2), std::numbers::sqrt2);
    EXPECT_EQ(EUKLID2(units, 3), 0);
    EXPECT_EQ(
        trajex::stable_multipliers(Values{0.6, 0.5, -0.5}.data(), Values{0.8, 0, 0.5}.data(), 3),
        2);
}

TEST(Criteria, OfEigenvalues) {
    int place = 9;
    EXPECT_EQ(EQUICRIT(Spectrum({-3, 0.5, -0.2}), &place), -0.2);
    EXPECT_EQ(place, 2);
    EXPECT_EQ(EQUICRIT(Spectrum({0.5, -0.5, -1}), &place), 0.5);
    EXPECT_EQ(place, 0);
    EXPECT_EQ(trajex::stable_eigenvalues(Values{-1, 0, 2, not_a_number, -1e-300}.data(), 5), 2);
}

struct PairCase {
    Values er, ei;
    double value;
    int first, second;
};

TEST(Criteria, OfTwoCriticalMultipliers) {
    const PairCase cases[] = {
        {{-1, 0.3, 1}, {}, 0, 2, 0},                       // the greater real part first
        {{1, -1, 0.3}, {}, 0, 0, 1},                       // the nearest is in the first place
        {{0.9, 0.9}, {-0.1, 0.1}, std::sqrt(0.02), 1, 0},  // then the greater imaginary part
        {{0.2, 1, 0.2}, {}, 0.8, 1, 0},                    // the first of equal ones
    };
    for (const PairCase& expected : cases) {
        int first = 9, second = 9;
        const double value = CRIT2(Spectrum(expected.er, expected.ei), &first, &second);
        EXPECT_DOUBLE_EQ(value, expected.value);
        EXPECT_EQ(first, expected.first);
        EXPECT_EQ(second, expected.second);
    }
}

TEST(Criteria, OfTwoSmallestRealParts) {
    const PairCase cases[] = {
        {{-3, 0.5, -0.2}, {}, -0.2, 2, 0},
        {{-0.2, -0.2, 1}, {0.5, -0.5, 0}, -0.2, 0, 1},
        {{-0.2, -0.2, 1}, {-0.5, 0.5, 0}, -0.2, 1, 0},
        {{2, 1}, {}, 2, 0, 1},
    };
    for (const PairCase& expected : cases) {
        int first = 9, second = 9;
        EXPECT_EQ(EQUICRIT2(Spectrum(expected.er, expected.ei), &first, &second), expected.value);
        EXPECT_EQ(first, expected.first);
        EXPECT_EQ(second, expected.second);
    }
}

TEST(Criteria, HaveNoSecondOfOne) {
    for (const auto criterion : {CRIT2, EQUICRIT2}) {
        int first = 9, second = 9;
        EXPECT_EQ(criterion(Spectrum({0.5}), &first, &second),
                  std::numeric_limits<double>::infinity());
        EXPECT_EQ(first, 0);
        EXPECT_EQ(second, 0);
    }
}

TEST(Criteria, MatricesAreShownInBraces) {
    double rows[2][2] = {{1, -0.25}, {1.0 / 3, 1e20}};
    double* m[] = {rows[0], rows[1]};
    testing::internal::CaptureStdout();
    SHOWMAT(2, 2, m);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "\n"
              "{{               1,          -0.25},\n"
              " {    0.3333333333,          1e+20}}\n"
              "\n");
}

}  // namespace
