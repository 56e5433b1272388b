// Location and classification of bifurcations of periodic orbits, where they are known.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "bifurcation/orbit_forms.hpp"
#include "bifurcation/record.hpp"
#include "continuation/recorder.hpp"
#include "core/guards.hpp"
#include "handles.hpp"
#include "systems.hpp"
#include "tx.h"

using namespace testing_support;
using namespace orbit_forms;

namespace {

constexpr double amplitude = 0.02;

struct Case {
    const char* title;
    void (*flow)(double, double*, double*);
    double& c;
    std::vector<double> y;  // the guess
    double guess, at;       // the bifurcation
    double T = 2 * pi;
    double (*cut)(double, double*) = nullptr;  // of an autonomous system

    friend void PrintTo(const Case& known, std::ostream* out) { *out << known.title; }
};

constexpr auto first_axis = first_component, second_axis = second_component;
constexpr const char* doubling = "PERIOD DOUBLING 2 -(- 1";
const Case cases[] = {
    {"PITCHFORK 1 -(- 0", forced<pitchfork>, c, {orbit(0, 0.29)}, 0.29, 0.3},
    {"TRANSCRITICAL -/- (1 0)", forced<transcritical>, c, {orbit(0, 0.31) + 0.01}, 0.31, 0.3},
    {"SADDLE-NODE 1 ( 0", forced<saddle_node>, c, {orbit(0, 0.3004) + 0.02}, 0.3004, 0.3},
    {doubling, Duffing::flow, Duffing::force, {0.4076, 0.3226}, 0.265, 0.265582},
    {doubling, Roessler::flow, Roessler::c, {0, 3.4, 1.9}, 2.83, 2.832445, 5.76982, first_axis},
    {"TORUS 2", Langford::flow, Langford::lambda, {1, 0, 0.99}, 1.99, 2, 8 * pi, second_axis}};
const Case &pitchfork_case = cases[0], &transcritical_case = cases[1];
const Case &duffing_case = cases[3], &roessler_case = cases[4];

/// A handle for a case, and the record of its bifurcation.
struct Study {
    explicit Study(const Case& study)
        : known(study),
          order(static_cast<int>(known.y.size())),
          mode(known.cut == nullptr ? 0 : 1),
          tx(open_variational(known.flow, order, nullptr, nullptr, 1e-9, &known.c)),
          bif(*(tx->txb = TXCreateBif(tx.get()))) {
        tx->NewtRelTol = 1e-6;
        tx->LambdaNewtRelTol = 1e-6;
        TXSetCut(tx.get(), known.cut, 1e-9);
        Duffing::damping = 0.3;  // two wells
        Duffing::stiffness = -1;
        Duffing::omega = 1.2;
    }
    int locate() { return locate(known.y.data(), known.guess, known.T, mode); }
    int locate(const double* y, double guess, double T, int turns) {
        known.c = guess;
        std::copy_n(y, order, bif.y);
        bif.t = 0;
        bif.T = T;
        return report(
            [&](FILE* file) { return TXLocateBif(tx.get(), &bif, &known.c, turns, file); });
    }
    int check(double size = amplitude) {
        return report(
            [&](FILE* file) { return TXCheckBif(tx.get(), &bif, &known.c, size, mode, file); });
    }
    int report(auto operation) {
        const TextStream state;
        const int result = operation(state);
        progress = state.text();
        return result;
    }

    const Case& known;
    int order, mode;
    OpenHandle tx;
    TrajexBif& bif;
    std::string progress;
};

class OrbitBifurcation : public testing::TestWithParam<Case>, protected Study {
  protected:
    OrbitBifurcation() : Study(GetParam()) {}

    void expect_orbit(const double* start, double at, double periods, double T, const char* what) {
        const trajex::Temporarily there(known.c, at);
        std::vector<double> y(start, start + order);
        double t = 0;
        TXIntegrate(tx.get(), &t, T, y.data());
        for (int i = 0; i < order; ++i) EXPECT_NEAR(y[i], start[i], 1e-4) << what;
        EXPECT_NEAR(T, periods * known.T, 0.1 * known.T) << what;
        EXPECT_NEAR(mode == 1 ? known.cut(0, y.data()) : 0, 0, 1e-4) << what;
    }
    /// The matrix of the record is the derivative of the image, here by a component and by c.
    void expect_linearised() const {
        const double h = 1e-3;
        for (const int column : {0, order}) {
            std::vector<double> ends[2];
            for (const int side : {0, 1}) {
                const double shift = side == 0 ? -h : h;
                ends[side].assign(bif.y, bif.y + order);
                if (column == 0) ends[side][0] += shift;
                const trajex::Temporarily there(known.c, known.c + (column == 0 ? 0 : shift));
                double t = 0;
                TXIntegrate(tx.get(), &t, bif.T, ends[side].data());
            }
            for (int i = 0; i < order; ++i) {
                EXPECT_NEAR(bif.Phi[i][column], (ends[1][i] - ends[0][i]) / (2 * h), 5e-3) << i;
            }
        }
    }
    /// Component of a displacement from the bifurcation along the transversal.
    double displaced(const double* y) const {
        double along = 0;
        for (int i = 0; i < order; ++i) along += bif.trans[i] * (y[i] - bif.y[i]);
        return along;
    }
};

TEST_P(OrbitBifurcation, IsLocatedAndClassified) {
    bif.biftype = bif.indir = 4;
    ASSERT_EQ(locate(), 1);
    EXPECT_NEAR(bif.T, known.T, 1e-5);
    EXPECT_EQ(bif.biftype + bif.indir, 0);
    expect_linearised();
    const double T = bif.T;
    bif.tang[0] = bif.cleft = -77;
    bif.intang[0] = 1;
    bif.left[0] = bif.y[0] - (known.c + 77);  // lies against that, but is not there
    if (mode == 1) {                          // the trivial multiplier may stand anywhere
        std::swap(bif.er[0], bif.er[order - 1]);
        std::swap(bif.ei[0], bif.ei[order - 1]);
    }
    ASSERT_EQ(check(), 1);
    EXPECT_EQ(bif.T, T);
    EXPECT_EQ(known.c, bif.c[0]);
    const std::string title = std::string(TrajexBifName[bif.biftype]) + bif.btype;
    EXPECT_EQ(title.substr(0, std::strlen(known.title)), known.title);
    // Two branches cross in the transcritical bifurcation: the equations are singular there, and an
    // orbit beside the branches closes to second order.
    const bool crosses = bif.biftype == trajex::transcritical;
    EXPECT_NEAR(known.c, known.at, crosses ? 2e-4 : 3e-6);
    if (bif.biftype == trajex::torus) {  // no orbits branch off: either side may be found
        EXPECT_EQ(title.substr(7), bif.ctop > known.c ? " -oO- 0" : " -Oo- 0");
    } else {
        const double periods = bif.biftype == trajex::period_doubling ? 2 : 1;
        expect_orbit(bif.top, bif.ctop, periods, bif.Ttop, "top");
        expect_orbit(bif.bot, bif.cbot, periods, bif.Tbot, "bottom");
        const double length = crosses ? 1 + slope : 1;  // of the transversal
        const double off = mode == 1 || crosses ? 0.2 * amplitude : 1e-6;
        EXPECT_NEAR(displaced(bif.top), length * amplitude, off);
        EXPECT_NEAR(displaced(bif.bot), -length * amplitude, off);
    }
    if (bif.biftype == trajex::saddle_node) {  // there is nothing on one side
        EXPECT_EQ(bif.cleft + bif.tang[0], -2 * 77);
        EXPECT_EQ(bif.indir, 2);
        return;
    }
    expect_orbit(bif.left, bif.cleft, 1, bif.Tleft, "left");
    expect_orbit(bif.right, bif.cright, 1, bif.Tright, "right");
    EXPECT_NEAR(order == 1 ? bif.tang[0] : -slope, -slope, 1e-3);  // towards the stable side
    if (bif.biftype != trajex::period_doubling) return;

    // A doubled orbit is recognised, and the search goes on with the orbit that it branched from.
    // Half a period is two crossings of the section with mode 2, half the time with mode 1.
    const std::vector<double> doubled(bif.top, bif.top + order);
    for (const int turns : {mode, 2 * mode}) {
        ASSERT_EQ(locate(doubled.data(), bif.ctop, bif.Ttop, turns), 1) << turns;
        EXPECT_NEAR(known.c, known.at, 1e-5) << turns;
        EXPECT_NEAR(bif.T, known.T, 1e-5) << turns;
        EXPECT_EQ(progress.rfind('%'), 0U) << progress;  // once, and at once
    }
}

INSTANTIATE_TEST_SUITE_P(Known, OrbitBifurcation, testing::ValuesIn(cases));

// Searches that end without a bifurcation leave no code: the run that asked takes a smaller step.
TEST(OrbitSearches, GiveUpQuietly) {
    Study study(pitchfork_case);
    for (const double period : {0.0, -1.0, std::nan("")}) {
        EXPECT_EQ(study.locate(study.known.y.data(), 0.29, period, 0) + study.check(), 0) << period;
    }
    TXSetMaxNewtSteps(study.tx.get(), 0);
    EXPECT_EQ(study.locate(), 0);
    const double start = orbit(0, 0.3);
    EXPECT_EQ(study.locate(&start, 0.3, 2 * pi, 0), 1) << "a point within tolerance is left alone";
    EXPECT_EQ(study.bif.y[0], start);
    EXPECT_EQ(study.progress, ".");
    EXPECT_EQ(study.check(amplitude / 64), 0);
    EXPECT_EQ(study.progress, "^");
    EXPECT_EQ(TXCheckBif(study.tx.get(), &study.bif, &c, amplitude / 64, 0, nullptr), 0);
    EXPECT_EQ(TXErrorTrajex(study.tx.get()), 0);

    Study lost(roessler_case);
    ASSERT_EQ(lost.locate(), 1);
    const auto nowhere = [](double, double* y) { return y[1] * y[1] + 1; };
    TXSetCut(lost.tx.get(), nowhere, 1e-9);
    EXPECT_EQ(lost.check() + lost.locate(lost.bif.y, 2.83, 5.77, 2), 0);
    EXPECT_EQ(TXErrorTrajex(lost.tx.get()), 0);
}

TEST(OrbitSearches, RefuseForeignParametersAndSmallRecords) {
    const Study study(pitchfork_case);
    Trajex* const tx = study.tx.get();
    double second = 0;
    const auto expect_refused = [&](double* parameter, int code) {
        EXPECT_EQ(TXLocateBif(tx, tx->txb, parameter, 0, nullptr), 0);
        EXPECT_EQ(std::exchange(tx->ErrorCode, 0), code);
        EXPECT_EQ(TXCheckBif(tx, tx->txb, parameter, amplitude, 0, nullptr), 0);
        EXPECT_EQ(std::exchange(tx->ErrorCode, 0), code);
    };
    expect_refused(&second, 0);
    TXVarOpenTrajex(tx, nullptr, 1e-6, 2, jac_t{}, 1e-6, &c, &second);
    expect_refused(&c, 28);
}

// The test orbit that lies against the incoming tangent, whichever it is.
TEST(OrbitClassification, MarksTheIncomingDirection) {
    Study study(transcritical_case);
    ASSERT_EQ(study.locate(), 1);
    const auto incoming = [&](double tangent, double size) {
        study.bif.intang[0] = tangent;
        EXPECT_EQ(study.check(size), 1);
        return study.bif.indir;
    };
    EXPECT_EQ(incoming(slope, amplitude), 3);
    EXPECT_EQ(incoming(slope + 1, amplitude), 2);
    EXPECT_EQ(incoming(slope + 1, -amplitude), 1);  // the displaced orbits change places
    EXPECT_STREQ(study.bif.btype, " -\\- (1 0)");
}

TEST(OrbitClassification, AdaptsTheAmplitude) {
    Study near(pitchfork_case);
    ASSERT_EQ(near.locate(), 1);
    ASSERT_EQ(near.check(amplitude / 64), 1);
    // Orbits fell back to the bifurcation. The bottom orbit starts from the amplitude that the top
    // orbit ended with; left and right start afresh.
    ASSERT_EQ(near.progress, std::string(std::max<std::size_t>(1, near.progress.size()), '^'));
    const double reached = amplitude / 64 * std::pow(2, near.progress.size());
    EXPECT_NEAR(near.bif.ctop - 0.3, reached * reached, 0.1 * reached * reached);
    EXPECT_NEAR(near.bif.ctop, near.bif.cbot, 0.2 * reached * reached);
    EXPECT_NEAR(near.bif.cright - c, amplitude / 64, 1e-12);

    Study far(duffing_case);
    ASSERT_EQ(far.locate(), 1);
    TXSetMaxNewtSteps(far.tx.get(), 4);
    ASSERT_EQ(far.check(0.5), 1);
    EXPECT_EQ(far.progress, std::string(std::max<std::size_t>(1, far.progress.size()), 'v'));
}

TEST(OrbitClassification, RestoresPeriodAndTypeWhenItFails) {
    Case failing = duffing_case;
    failing.flow = Failing::flow<Duffing::flow>;
    Study study(failing);
    for (const bool throws : {false, true}) {
        ASSERT_EQ(study.locate(), 1);
        study.bif.biftype = 4;
        Failing::throws = throws;
        Failing::calls_left = 700;
        if (throws) {
            EXPECT_THROW(study.check(), Failing::Thrown);
        } else {
            EXPECT_EQ(study.check(), 0);
            EXPECT_TRUE(study.progress.ends_with("vvvvvvvvvvv")) << study.progress;
        }
        Failing::calls_left = Failing::never;
        EXPECT_EQ(study.bif.T, 2 * pi);
        EXPECT_EQ(study.bif.biftype, 0);
    }
}

}  // namespace
