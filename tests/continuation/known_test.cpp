// Bifurcations of periodic orbits where they are known: found on a branch, located from a guess,
// classified with the orbits that branch off, and followed in a second parameter.
#include <numeric>

#include "continuation/recorder.hpp"

namespace {

/// Forced orbits with exact bifurcations: y = q(t; c) + z, where q is an orbit of the period 2 pi
/// that moves with the parameter and z' = F(z; c - at) is a normal form. Orbits of that period are
/// the equilibria of the form; z = 0 is q itself.
double c = 0.3, at = 0.3;

double orbit(double t, double parameter) {
    return (1 + parameter / 2) * std::cos(t + 1);
}
const double slope = std::cos(1.0) / 2;  // dq/dc at t = 0

template <double (*Form)(double, double)>
void forced_form(double t, double* y, double* f) {
    f[0] = -(1 + c / 2) * std::sin(t + 1) + Form(c - at, y[0] - orbit(t, c));
}
using Form = double (*)(double, double);
constexpr Form pitchfork = [](double mu, double z) { return mu * z - z * z * z; };
constexpr Form transcritical = [](double mu, double z) { return mu * z - z * z; };
constexpr Form saddle_node = [](double mu, double z) { return mu - z * z; };

/// A system with its two parameters, and where a transient starts, at time 0.
struct Family {
    Flow flow;
    double &c, &second;
    std::vector<double> y;
    Cut cut = first_component;
};
const Family roessler{Roessler::flow, Roessler::c, Roessler::a, {1, 1, 1}},
    pendulum{Duffing::flow, Duffing::force, Duffing::omega, {1, 0}},
    spring{Duffing::flow, Duffing::omega, Duffing::force, {0, 0}},
    pitchforks{forced_form<pitchfork>, c, at, {orbit(0, 0.21)}},
    crossings{forced_form<transcritical>, c, at, {orbit(0, 0.2)}},
    folds{forced_form<saddle_node>, c, at, {orbit(0, 0.5) + 0.44}},
    langford{Langford::flow, Langford::lambda, Langford::b, {0.85, 0, 1.17}, second_component};

struct Known {
    const char* title;
    const Family& family;
    double at, accuracy, T;
    double transient, from, step;
    int turns, nth;     // no turns: forced
    double curve_step;  // 0 for no curve
};

constexpr double turn = 2 * pi, long_ago = 100 * turn;
constexpr const char* doubling = "PERIOD DOUBLING 2 -(- 1";
const Known known_ones[] = {
    {doubling, roessler, 2.832445, 2e-6, 5.76982, 505, 2.5, 0.1, 1, 1, 0.1},
    // Downward, the doubled orbit comes to its end at the doubling of the other one.
    {doubling, roessler, 2.832445, 2e-6, 5.76982, 502, 3.2, -0.1, 2, 1, 0},
    {doubling, roessler, 3.83736, 1e-5, 11.57269, 502, 3.2, 0.1, 2, 1, 0},
    {doubling, pendulum, 0.2655818, 1e-6, turn, long_ago + 1, 0.2, 0.01, 0, 1, 0.05},
    {"SADDLE-NODE 2 ) 1", spring, 1.65767, 1e-5, turn, long_ago, 0.9, 0.05, 0, 1, -0.1},
    {"SADDLE-NODE 2 ( 1", spring, 1.42306, 1e-5, turn, long_ago, 0.9, 0.05, 0, 2, -0.1},
    {"TORUS 2", langford, 2, 1e-6, 4 * turn, 400, 1.9, 0.05, 1, 1, -0.05},
    {"PITCHFORK 1 -(- 0", pitchforks, 0.3, 3e-6, turn, 0, 0.21, 0.02, 0, 1, 0},
    // Two branches cross: the equations are singular there, and an orbit beside the branches
    // closes to second order.
    {"TRANSCRITICAL -/- (1 0)", crossings, 0.3, 2e-4, turn, 0, 0.2, 0.03, 0, 1, 0},
    {"SADDLE-NODE 0 ( 1", folds, 0.3, 3e-6, turn, 0, 0.5, -0.05, 0, 1, 0.05}};
const Known& roessler_doubling = known_ones[0];
const Known &known_pitchfork = known_ones[7], &known_transcritical = known_ones[8];

constexpr double amplitude = 0.02;

/// A study of a bifurcation, with its record.
struct KnownStudy : Study {
    explicit KnownStudy(const Known& study)
        : Study(study.family.flow, study.family.y, study.family.c, study.from, study.family.second),
          known(study),
          order(int(y.size())),
          bif(record()),
          damping(Duffing::damping, &study.family == &pendulum ? 0.3 : 0.2),
          stiffness(Duffing::stiffness, &study.family == &pendulum ? -1.0 : 1.0),
          put_back(known.family.second, &study.family == &pendulum ? 1.2 : known.family.second) {
        tx->NewtRelTol = 1e-5;
        TXSetCut(tx.get(), known.family.cut, 1e-9);
    }
    void expect_found_located_classified_and_followed();
    int locate(const std::vector<double>& guess, double parameter, double period, int mode) {
        c = parameter;
        std::copy_n(guess.begin(), order, bif.y);
        bif.t = known.transient, bif.T = period;
        return report([&](FILE* file) { return TXLocateBif(tx.get(), &bif, &c, mode, file); });
    }
    int check(double size = amplitude) {
        return report(
            [&](FILE* file) { return TXCheckBif(tx.get(), &bif, &c, size, known.turns, file); });
    }
    int report(auto operation) {
        const TextStream state;
        const int result = operation(state);
        progress = state.text();
        return result;
    }
    std::vector<double> state() const { return {bif.y, bif.y + order}; }

    void expect_orbit(const double* from, double parameter, double period, const char* what) {
        const Temporarily there(c, parameter);
        y.assign(from, from + order);
        TXIntegrate(tx.get(), &(t = bif.t), bif.t + period, y.data());
        for (int i = 0; i < order; ++i) EXPECT_NEAR(y[i], from[i], 1e-4) << what;
        EXPECT_NEAR(known.turns > 0 ? known.family.cut(0, y.data()) : 0, 0, 1e-4) << what;
    }
    bool has_title() const { return Point::of(*tx).type.rfind(known.title, 0) == 0; }
    /// Component of a displacement from the bifurcation along the transversal.
    double displaced(const double* point) const {
        double along = 0;
        for (int i = 0; i < order; ++i) along += bif.trans[i] * (point[i] - bif.y[i]);
        return along;
    }
    /// The orbits beside the bifurcation; there is nothing on one side of a fold.
    void expect_neighbours() {
        const bool crosses = bif.biftype == trajex::transcritical;
        const double periods = bif.biftype == trajex::period_doubling ? 2 : 1;
        if (bif.biftype != trajex::torus) {
            expect_orbit(bif.top, bif.ctop, bif.Ttop, "top");
            expect_orbit(bif.bot, bif.cbot, bif.Tbot, "bottom");
            EXPECT_NEAR(bif.Ttop / periods, known.T, 0.1 * known.T);
            EXPECT_NEAR(bif.Tbot / periods, known.T, 0.1 * known.T);
            const double length = (crosses ? 1 + slope : 1) * amplitude;  // of the transversal
            const double off = known.turns > 0 || crosses ? 0.2 * amplitude : 1e-6;
            EXPECT_NEAR(std::fabs(displaced(bif.top)), length, off);
            EXPECT_NEAR(displaced(bif.top) + displaced(bif.bot), 0, off);
        }
        if (bif.biftype == trajex::saddle_node) {
            EXPECT_EQ(bif.cleft + bif.tang[0], -2 * 77);
            const bool top_is_stabler = bif.btype[1] > bif.btype[5];
            EXPECT_EQ(displaced(bif.top) * dc > 0, top_is_stabler);
            return;
        }
        expect_orbit(bif.left, bif.cleft, bif.Tleft, "left");
        expect_orbit(bif.right, bif.cright, bif.Tright, "right");
        EXPECT_NEAR(order == 1 ? bif.tang[0] : -slope, -slope, 1e-3);  // towards the stable side
    }
    void expect_critical(const Point& p) const {
        const double torus = 1.5 * p.c[0] + Langford::d * (1 - p.c[0] * p.c[0] / 4);
        EXPECT_NEAR(&known.family == &langford ? p.c[1] : torus, torus, 1e-5) << p.steps;
        EXPECT_NEAR(&known.family == &folds ? p.c[1] : p.c[0], p.c[0], 1e-5) << p.steps;
        std::vector<double> there = p.y;
        EXPECT_NEAR(turns > 0 ? known.family.cut(0, there.data()) : 0, 0, 1e-9);
        double nearest = 1;
        for (int i = 0; i < order; ++i) {
            const double re = p.er[i], im = p.ei[i];
            const bool complex = bif.biftype == trajex::torus && im != 0;
            const double critical = bif.biftype == trajex::period_doubling ? -1 : 1;
            nearest =
                std::min(nearest, std::fabs(complex ? std::hypot(re, im) - 1 : re - critical));
        }
        EXPECT_LT(nearest, 1e-5) << p.steps;
    }

    const Known& known;
    int order;
    TrajexBif& bif;
    std::string progress;
    const Temporarily<double> damping, stiffness, put_back;
};

void KnownStudy::expect_found_located_classified_and_followed() {
    TXIntegrate(tx.get(), &t, known.transient, y.data());
    T = known.T, turns = known.turns;
    ASSERT_EQ(follow(turns == 0 ? forced : cycles, known.step, known.nth), 1);
    const Point found = points.back();
    expect_critical(found);
    for (const Point& p : points) {
        const double exact = orbit(0, p.c[0]);
        EXPECT_NEAR(&known.family == &pitchforks ? p.y[0] : exact, exact, 1e-5);
    }
    EXPECT_EQ(located().size(), std::size_t(known.nth));
    EXPECT_TRUE(has_title());
    EXPECT_NEAR(found.c[0], known.at, known.accuracy);
    EXPECT_NEAR(found.T, known.T, turns == 0 ? 0 : 2e-5);
    EXPECT_EQ(found.c[0], c);  // where it was located, the parameter stays
    EXPECT_EQ(found, Point::of(*tx));
    EXPECT_NE(bif.intang[order - 1], 0);
    EXPECT_EQ(text.find('%') != std::string::npos, known.step == -0.1);
    if (turns == 2) return;  // searches from doubled orbits are those below

    // Once more, from beside it.
    std::vector<double> guess = state();
    guess[0] += 1e-4;
    tx->NewtRelTol = 1e-6;
    bif.tang[0] = bif.cleft = -77;
    ASSERT_EQ(locate(guess, c + 1e-4, bif.T, turns), 1);
    EXPECT_EQ(bif.biftype + bif.indir, 0);
    EXPECT_NEAR(c, known.at, known.accuracy);
    // The matrix of the record is the derivative of the image by the state, which has the
    // multipliers and carries the flow of an autonomous system round, and by c, known for the
    // normal forms.
    double trace = 0, flow[3];
    known.family.flow(bif.t, bif.y, flow);
    for (int i = 0; i < order; ++i) {
        trace += bif.Phi[i][i] - bif.er[i];
        const double carried = std::inner_product(flow, flow + order, bif.Phi[i], 0.0);
        EXPECT_NEAR(turns > 0 ? carried : flow[i], flow[i], 1e-4);
    }
    EXPECT_NEAR(trace, 0, 1e-9);
    EXPECT_NEAR(order == 1 ? bif.Phi[0][1] : 0, &known.family == &folds ? turn : 0, 5e-3);
    if (turns > 0) {  // the trivial multiplier may stand anywhere
        std::swap(bif.er[0], bif.er[order - 1]);
        std::swap(bif.ei[0], bif.ei[order - 1]);
    }
    ASSERT_EQ(check(std::copysign(amplitude, dc)), 1);
    EXPECT_TRUE(has_title());
    EXPECT_EQ(c, bif.c[0]);
    expect_neighbours();
    if (bif.biftype == trajex::period_doubling) {
        // A doubled orbit is recognised, and the search goes on with the orbit that it branched
        // from. Half a period is two crossings of the section with mode 2, half the time with 1.
        const std::vector<double> doubled(bif.top, bif.top + order);
        for (const int mode : {turns, 2 * turns}) {
            ASSERT_EQ(locate(doubled, bif.ctop, bif.Ttop, mode), 1) << mode;
            EXPECT_NEAR(c, known.at, 1e-5) << mode;
            EXPECT_NEAR(bif.T, known.T, 1e-5) << mode;
            EXPECT_EQ(progress.rfind('%'), 0U) << progress;  // once, and at once
        }
        bif.biftype = trajex::period_doubling;
    }
    if (known.curve_step == 0) return;
    tx->MaxContSteps = 6;
    ASSERT_EQ(
        curve(turns > 0 ? TXAuto2DCont : TXNonAuto2DCont, c, known.family.second, known.curve_step),
        1);
    ASSERT_EQ(points.size(), 7U);
    for (const Point& p : points) expect_critical(p);
    expect_stopped_there();
    EXPECT_GT(std::fabs(points[6].c[1] - points[0].c[1]), 0.01);
    expect_orbit(bif.y, c, bif.T, "last of the curve");
}

TEST(KnownBifurcation, IsFoundLocatedClassifiedAndFollowed) {
    for (const Known& known : known_ones) {
        SCOPED_TRACE(testing::Message() << known.title << " at " << known.at);
        KnownStudy(known).expect_found_located_classified_and_followed();
    }
}

// Searches that end without a bifurcation leave no code: the run that asked takes a smaller step.
TEST(OrbitSearches, GiveUpQuietly) {
    KnownStudy study(known_pitchfork);
    const std::vector<double> beside{orbit(0, 0.29)}, there{orbit(0, 0.3)};
    for (const double period : {0.0, -1.0, not_a_number}) {
        EXPECT_EQ(study.locate(beside, 0.29, period, 0) + study.check(), 0) << period;
    }
    TXSetMaxNewtSteps(study.tx.get(), 0);
    EXPECT_EQ(study.locate(beside, 0.29, turn, 0), 0);
    EXPECT_EQ(study.locate(there, 0.3, turn, 0), 1) << "a point within tolerance is left alone";
    EXPECT_EQ(study.state(), there);
    EXPECT_EQ(study.progress, ".");
    EXPECT_EQ(study.check(amplitude / 64), 0);
    EXPECT_EQ(study.progress, "^");
    double stranger = 0;
    EXPECT_EQ(TXLocateBif(study.tx.get(), &study.bif, &stranger, 0, nullptr), 0);
    EXPECT_EQ(TXCheckBif(study.tx.get(), &study.bif, &stranger, amplitude, 0, nullptr), 0);
    EXPECT_EQ(study->ErrorCode, 0);

    KnownStudy lost(roessler_doubling);
    ASSERT_EQ(lost.locate({0, 3.4, 1.9}, 2.83, 5.76, 1), 1);
    TXSetCut(
        lost.tx.get(), [](double, double* y) { return y[1] * y[1] + 1; }, 1e-9);
    EXPECT_EQ(lost.check() + lost.locate(lost.state(), 2.83, 5.77, 2) + lost->ErrorCode, 0);

    // To set a section is the application's business.
    TXSetCut(lost.tx.get(), nullptr, 1e-9);
    EXPECT_EQ(lost.check(), 0);
    EXPECT_EQ(lost->ErrorCode, 8);
    lost->TerminateOnFatalError = 1;
    EXPECT_EXIT(lost.locate(lost.state(), 2.83, 5.77, 1), ExitedWithCode(1),
                "'TXLocateBif': No Poincare-section defined");
}

// The test orbit that lies against the incoming tangent, whichever it is.
TEST(OrbitClassification, MarksTheIncomingDirection) {
    KnownStudy study(known_transcritical);
    ASSERT_EQ(study.locate({orbit(0, 0.31) + 0.01}, 0.31, turn, 0), 1);
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
    KnownStudy near(known_pitchfork);
    ASSERT_EQ(near.locate({orbit(0, 0.29)}, 0.29, turn, 0), 1);
    ASSERT_EQ(near.check(amplitude / 64), 1);
    // Orbits fell back to the bifurcation. The bottom orbit starts from the amplitude that the top
    // orbit ended with; left and right start afresh.
    ASSERT_EQ(near.progress, std::string(std::max<std::size_t>(1, near.progress.size()), '^'));
    const double reached = amplitude / 64 * std::pow(2, near.progress.size());
    EXPECT_NEAR(near.bif.ctop - 0.3, reached * reached, 0.1 * reached * reached);
    EXPECT_NEAR(near.bif.ctop, near.bif.cbot, 0.2 * reached * reached);
    EXPECT_NEAR(near.bif.cright - c, amplitude / 64, 1e-12);
}

}  // namespace
