// Branches of equilibria and of periodic orbits: exact ones, what a run writes, and how it ends.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "bifurcation/record.hpp"
#include "continuation/recorder.hpp"
#include "core/guards.hpp"
#include "handles.hpp"
#include "systems.hpp"
#include "tx.h"

namespace {

using namespace testing_support;
using trajex::Temporarily;

double c = 0;
double other = 3;

void line(double, double* y, double* f) {
    f[0] = c - y[0];
}
void fold(double, double* y, double* f) {
    f[0] = c - y[0] * y[0];
}
void pitchfork(double, double* y, double* f) {
    f[0] = c * y[0] - y[0] * y[0] * y[0];
}
/// A pitchfork that is located but not classified: the last component of its eigenvector is 0.
void unclassified(double t, double* y, double* f) {
    f[0] = c * y[0] - y[0] * y[0] * y[0];
    f[1] = std::cos(t) - y[1];
}
void ends_at_half(double, double* y, double* f) {
    f[0] = c > 0.5 ? not_a_number : c - y[0];
}
void turns_unstable_in_a_jump(double, double* y, double* f) {
    f[0] = c < 0.45 ? c - y[0] : y[0] - c;
}

// ---- Equilibria ---------------------------------------------------------------------------------

TEST(EquilibriumBranch, RunsBackBeyondAFold) {
    const OpenHandle tx = open_study(fold, 1, other, c);
    tx->NewtAbsTol = 1e-14;  // the location takes its root
    tx->MaxContSteps = 60;
    c = 1.21;
    double y = 1;
    Recording run;
    ASSERT_EQ(run.equilibria(tx, &y, c, -0.1), 1);
    EXPECT_GT(run.dc, 0) << "the parameter did not turn round";
    ASSERT_EQ(run.located().size(), 1u);
    EXPECT_NEAR(run.located()[0].c[1], 0, 1e-6);
    double previous = 1.2;
    for (const Point& point : run.points) {
        EXPECT_NEAR(point.c[1], point.y[0] * point.y[0], 2e-7);
        EXPECT_LT(point.y[0], previous);
        EXPECT_LE(previous - point.y[0], 0.15);
        EXPECT_NEAR(point.er[0], -2 * point.y[0], 1e-5);
        previous = point.y[0];
    }
    EXPECT_LT(y, -1);
    EXPECT_EQ(tx->txb->steps, 59);
    expect_stopped_at(*tx, run.points.back());
    const std::vector<double> sizes = run.step_sizes();
    for (std::size_t i = 1; i < sizes.size(); ++i) {
        const double growth = std::fabs(sizes[i] / sizes[i - 1]);
        EXPECT_TRUE(std::fabs(growth - 0.5) < 1e-5 || (growth > 0.70709 && growth < 1.41422));
    }
}

TEST(EquilibriumBranch, EndsAtItsLimits) {
    const OpenHandle tx = open_study(line, 1, c);
    Recording run;
    const auto points_of = [&](int steps, int nrbif) {
        tx->MaxContSteps = steps;
        double y = c = 0;
        EXPECT_EQ(run.equilibria(tx, &y, c, -0.25, nrbif), 1);
        return run.points.size();
    };
    EXPECT_EQ(points_of(1, 0), 1u);
    EXPECT_EQ(points_of(5, -1), 1u);
    EXPECT_EQ(points_of(5, 0), 5u);
    EXPECT_NEAR(c, -1, 1e-6);
    EXPECT_EQ(run.dc, -0.25);  // the length on entry is the largest, whatever its sign
    // A record with too little room for the parameters is replaced.
    TXVarOpenTrajex(tx.get(), nullptr, 1e-7, 3, jac_t{}, 1e-7, &other, &c, &other);
    EXPECT_EQ(points_of(3, 0), 3u);
    EXPECT_EQ(trajex::private_part(*tx->txb).parameters, 3u);
    expect_stopped_at(*tx, run.points.back());
}

constexpr char linear_text[] =
    "   Step: 0      \n"
    "   Parameters     State           Eigenvalue             Modulus\n"
    "    0              0              -1.000000-i0.000000    1           \n"
    "....................................................................\n"
    "   Stepsize: 0.5 .\n"
    "   Step: 1      \n"
    "   Parameters     State           Eigenvalue             Modulus\n"
    "    0.5            0.5            -1.000000-i0.000000    1           \n"
    "....................................................................\n";

// Each combination of the bits, with a bit that means nothing. Only the extras whose bits are set
// are read: those behind them do no harm.
TEST(EquilibriumBranch, WritesWhatTheModeAsksFor) {
    const OpenHandle tx = open_study(line, 1, c);
    tx->jac = [](double, double*, double** J) { J[0][0] = -1; };
    tx->paramjac = [](double, double*, double** J) { J[0][0] = 1; };
    tx->MaxContSteps = 2;
    for (int mode = 0; mode < 16; ++mode) {
        SCOPED_TRACE(mode);
        double y = c = 0;
        double dc = 0.5;
        const TextStream state, path;
        FILE *const s = state, *const p = path;
        Points points;
        const auto call = [&](auto... files) {
            return TXEquiCont(tx.get(), &y, &c, &dc, 0, mode, files..., Recording::record,
                              reinterpret_cast<FILE*>(&points));
        };
        const int bits = mode & 3;
        EXPECT_EQ(bits == 3 ? call(s, p) : bits == 2 ? call(p) : bits == 1 ? call(s) : call(), 1);
        EXPECT_EQ(state.text(), (mode & 1) != 0 ? linear_text : "");
        EXPECT_EQ(path.text(), (mode & 2) != 0 ? "0 0 \n0.5 0.5 \n" : "");
        EXPECT_EQ(points.size(), (mode & 4) != 0 ? 2u : 0u);
    }
}

TEST(EquilibriumBranch, EndsWithACode) {
    Recording run;
    OpenHandle tx;
    const auto expect_end = [&](int code, double step, auto flow, auto&... parameters) {
        tx = open_study(flow, 1, parameters...);
        double y = c = 0;
        EXPECT_EQ(run.equilibria(tx, &y, c, step), 0);
        EXPECT_EQ(tx->ErrorCode, code);
        EXPECT_EQ(run.points.empty(), code != 29);
        EXPECT_TRUE(y == 0 || code == 29);
    };
    expect_end(26, 0.1, line);
    expect_end(26, 0.1, line, other);
    expect_end(26, 0.1, line, c, c);
    expect_end(
        30, 0.1, [](double, double* y, double* f) { f[0] = 1 + y[0] * y[0]; }, c);
    expect_end(29, 0.15, ends_at_half, c);
    const double smallest = 0.15 * tx->NewtRelTol + tx->NewtAbsTol;
    EXPECT_TRUE(run.dc < smallest && 2 * run.dc >= smallest);
    EXPECT_NEAR(tx->txb->y[0], 0.5, 1e-5);  // the record keeps the last accepted point
    expect_end(29, 0.1, turns_unstable_in_a_jump, c);
    EXPECT_TRUE(run.located().empty());
    EXPECT_NEAR(tx->txb->c[0], 0.45, 1e-5);
    // A search that fails is the business of the run, also under the policy that ends the process.
    double start = c = 0;
    tx->TerminateOnFatalError = 1;
    EXPECT_EXIT(run.equilibria(tx, &start, c, 0.1), testing::ExitedWithCode(1),
                "'TXEquiCont': Minimum stepsize reached");

    // None that ever converges, with no smallest step.
    tx = open_study(line, 1, c);
    tx->NewtRelTol = tx->NewtAbsTol = 0;
    tx->jac = [](double, double*, double** J) { J[0][0] = not_a_number; };
    double y = c = 0;
    EXPECT_EQ(run.equilibria(tx, &y, c, 0.1), 0);
    EXPECT_EQ(tx->ErrorCode, 29);
}

// The README says how exactly the Hopf point of the Lorenz equations is located under given
// settings, with analytic Jacobians and with numerical ones. These are its figures.
TEST(EquilibriumBranch, LocatesAsExactlyAsDocumented) {
    struct Documented {
        double RelTol;
        bool explicit_tolerances;
        double analytic, numerical;  // error
    };
    for (const Documented& row : {Documented{1e-6, false, 7e-2, 7e-2},
                                  {1e-9, false, 8e-5, 4e-3},
                                  {1e-12, false, 5e-9, 4e-5},
                                  {1e-9, true, 2e-11, 3e-7}}) {
        for (const bool analytic : {true, false}) {
            const Temporarily start(Lorenz::rho, 2.0);
            const OpenHandle tx = open_recording(Lorenz::flow, 3, row.RelTol);
            const double h = row.explicit_tolerances ? 1e-6 : 1000 * row.RelTol;
            if (row.explicit_tolerances) {
                tx->NewtAbsTol = 1e-9;
                tx->LambdaNewtRelTol = 1e-8;
                tx->LambdaPert = h;
            }
            TXVarOpenTrajex(tx.get(), nullptr, h, 1, nullptr, h, &Lorenz::rho);
            if (analytic) {
                tx->jac = Lorenz::jacobian;
                tx->paramjac = [](double, double* y, double** J) {
                    J[0][0] = J[2][0] = 0;
                    J[1][0] = y[0];
                };
            }
            double y[] = {1.6, 1.6, 1};
            Recording run;
            ASSERT_EQ(run.equilibria(tx, y, Lorenz::rho, 0.5, 1), 1);
            EXPECT_LE(std::fabs(Lorenz::rho - 470.0 / 19),
                      1.2 * (analytic ? row.analytic : row.numerical));
        }
    }
}

// ---- Periodic orbits ----------------------------------------------------------------------------

/// The circle, its period and its multiplier; the trivial multiplier comes last.
void expect_circle(const Point& point) {
    const double r2 = Circles::squared_radius(), T = 2 * pi / Circles::w;
    EXPECT_NEAR(std::fabs(point.y[0] - 1 - Circles::c1), std::sqrt(r2), 1e-6);
    EXPECT_LE(std::fabs(point.y[1]), 1e-8);
    EXPECT_NEAR(point.T, T, 1e-6);
    EXPECT_NEAR(point.er[1], 1, 1e-5);
    EXPECT_NEAR(point.er[0], std::exp(r2 * (Circles::c2 - 2 * r2) * T / 10), 1e-5);
}
/// The published period at the start, and the series of the angular velocity for small mu.
void expect_van_der_pol(const Point& point) {
    const double m = VanDerPol::mu * VanDerPol::mu;
    const double velocity = 1 - m / 16 + 17 * m * m / 3072 + 35 * m * m * m / 884736;
    if (m < 0.09) {
        EXPECT_NEAR(point.T, 2 * pi / velocity, 1e-6);
    } else if (point.steps == 0) {
        EXPECT_NEAR(point.T, 6.66328685932, 1e-7);
    }
}
/// x'' + 0.3 x' + k x = cos t: the periodic solution is p cos t + q sin t.
double k = 2;
void oscillator(double t, double* y, double* f) {
    f[0] = y[1], f[1] = std::cos(t) - 0.3 * y[1] - k * y[0];
}
void expect_response(const Point& point) {
    const double squared_gain = (k - 1) * (k - 1) + 0.09;
    EXPECT_EQ(point.T, 2 * pi);
    EXPECT_NEAR(point.y[0], (k - 1) / squared_gain, 1e-6);
    EXPECT_NEAR(point.y[1], 0.3 / squared_gain, 1e-6);
    EXPECT_NEAR(std::hypot(point.er[1], point.ei[1]), std::exp(-pi * 0.3), 1e-6);
}

// A circle that grows, and one that turns faster: there the period alone moves.
TEST(OrbitBranch, IsExact) {
    struct {
        RightHandSide flow;
        double& c;
        double from, step, until;
        std::vector<double> y;
        int steps;
        void (*expect)(const Point&);  // with the parameter at its point
    } const cases[] = {
        {Circles::flow, Circles::c1, 1, 0.1, 1.2, {3.1, 0.1}, 25, expect_circle},
        {Circles::flow, Circles::w, 1, 0.1, 1.2, {3.1, 0.1}, 25, expect_circle},
        {VanDerPol::flow, VanDerPol::mu, 1, -0.05, 0.28, {2, 0.1}, 90, expect_van_der_pol},
        {oscillator, k, 2, -0.1, 0.7, {0, 0}, 90, expect_response}};
    for (const auto& exact : cases) {
        const Temporarily start(exact.c, exact.from);
        const OpenHandle tx = open_study(exact.flow, int(exact.y.size()), exact.c);
        tx->MaxContSteps = exact.steps;
        std::vector<double> y = exact.y;
        const bool forced = exact.flow == oscillator;
        Recording run;
        ASSERT_EQ(forced ? run.forced(tx, y.data(), 2 * pi, exact.c, exact.step)
                         : run.cycles(tx, y.data(), 1, exact.c, exact.step),
                  1);
        expect_stopped_at(*tx, run.points.back());
        EXPECT_GT((exact.c - exact.until) * exact.step, 0);
        if (!forced) {  // steps are measured in state and parameter
            const Point &first = run.points[0], &next = run.points[1];
            const double length = std::hypot(next.c[0] - first.c[0], next.y[0] - first.y[0]);
            EXPECT_NEAR(length, std::fabs(exact.step), 0.01 * std::fabs(exact.step));
        }
        for (const Point& point : run.points) {
            SCOPED_TRACE(exact.c = point.c[0]);
            exact.expect(point);
        }
    }
}

// Where the solution does not move with the parameter there is no tangent to follow: steps in the
// parameter alone, past a bifurcation that is located, and classified where that was asked for.
TEST(TrivialBranch, GoesOnInEitherDirection) {
    struct {
        bool forced;
        int check;
        double direction;
        const char* type;
    } const cases[] = {{false, 1, 1, ""},  // those of equilibria are left to the caller
                       {false, 1, -1, ""},
                       {true, 1, 1, "PITCHFORK 1 -(- 0"},
                       {true, 0, -1, ""}};
    for (const auto& [forced, check, direction, type] : cases) {
        c = -0.5 * direction;
        const OpenHandle tx = open_study(pitchfork, 1, c);
        tx->MaxContSteps = 20;
        tx->CheckBifs = check;
        double y = 0;
        Recording run;
        const double step = 0.1 * direction;
        ASSERT_EQ(forced ? run.forced(tx, &y, 1, c, step) : run.equilibria(tx, &y, c, step), 1);
        EXPECT_GT(c * direction, 0.5);
        EXPECT_EQ(run.points.back().y[0], 0);
        ASSERT_EQ(run.located().size(), 1u);
        EXPECT_NEAR(run.located()[0].c[0], 0, 1e-6);
        EXPECT_EQ(run.located()[0].type, type);
        const std::size_t search = run.text.find(".\nSearching for bifurcation .");
        const std::size_t box = run.text.find("\n+--", search);
        EXPECT_LT(box, run.text.find("--+\n   Step: ", search));
        EXPECT_EQ(run.text.find(" Checking bifurcation ", search) < box, forced && check == 1);
    }
}

// Nearer and nearer to a bifurcation that cannot be located, but never past it.
TEST(OrbitBranch, HalvesTheStepWhereASearchIsRejected) {
    const Temporarily start(Roessler::c, 2.7);
    const OpenHandle tx = open_study(Roessler::flow, 3, Roessler::c);
    TXSetCut(tx.get(), first_component, 1e-9);
    tx->LambdaNewtRelTol = 1e-30;
    double y[3] = {0, 3.3, 1.8};
    Recording run;
    EXPECT_EQ(run.cycles(tx, y, 1, Roessler::c, 0.1), 0);
    EXPECT_EQ(tx->ErrorCode, 29);
    EXPECT_TRUE(run.located().empty());
    for (const Point& point : run.points) EXPECT_LT(point.c[0], 2.832446);
    EXPECT_GT(run.points.back().c[0], 2.8324);
    EXPECT_EQ(Point::of(*tx), run.points.back());
    EXPECT_EQ(tx->nparam + tx->TerminateOnFatalError, 1);
}

TEST(OrbitBranch, KeepsItsLastPointInTheRecordAfterASearchInVain) {
    const OpenHandle tx = open_study(unclassified, 2, c);
    c = -0.2;
    double y[] = {0, 0.5};
    Recording run;
    EXPECT_EQ(run.forced(tx, y, 2 * pi, c, 0.05), 0);
    EXPECT_EQ(tx->ErrorCode, 29);
    EXPECT_NE(run.text.find(" Checking bifurcation "), std::string::npos);
    EXPECT_EQ(Point::of(*tx), run.points.back());
}

TEST(OrbitBranch, ReportsWhyItDidNotStart) {
    const OpenHandle tx = open_study(Circles::flow, 2, Circles::c1);
    double y[2] = {3, 0.1};
    Recording run;
    EXPECT_EQ(run.cycles(tx, y, 1, c, 0.1) + run.forced(tx, y, 1, c, 0.1), 0);
    EXPECT_EQ(tx->ErrorCode, 26);
    TXSetMaxNewtSteps(tx.get(), 0);
    EXPECT_EQ(run.forced(tx, y, 1, Circles::c1, 0.1), 0);
    EXPECT_EQ(tx->ErrorCode, 30);
    EXPECT_EQ(run.forced(tx, y, 0, Circles::c1, 0.1), 0);
    EXPECT_EQ(tx->ErrorCode, 7);
    TXSetMaxPeriodSteps(tx.get(), 0);  // the search for the section fails without a code
    EXPECT_EQ(run.cycles(tx, y, 1, Circles::c1, 0.1), 0);
    EXPECT_EQ(tx->ErrorCode, 13);
}

// The failure of an integration is not the end of a run that can take a smaller step: under either
// policy the run itself ends, where steps have become too small.
TEST(OrbitBranch, HalvesTheStepWhereTheFlowIsNotDefined) {
    const OpenHandle tx = open_study(ends_at_half, 1, c);
    double y = c = 0;
    Recording run;
    tx->TerminateOnFatalError = 1;
    EXPECT_EXIT(run.forced(tx, &y, 1, c, 0.15), testing::ExitedWithCode(1),
                "'TXNonAutoCont': Minimum stepsize reached");
    tx->TerminateOnFatalError = 0;
    EXPECT_EQ(run.forced(tx, &y, 1, c, 0.15), 0);
    EXPECT_EQ(tx->ErrorCode, 29);
    EXPECT_NEAR(run.points.back().c[0], 0.5, 1e-5);
}

}  // namespace
