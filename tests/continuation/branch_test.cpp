// Branches of equilibria and of periodic orbits: exact ones, what a run writes, how it ends, and
// what is left of the application's when it fails or meets what is easily taken for something else.
#include "continuation/recorder.hpp"

namespace {

double c = 0, other = 3, k = 2;

constexpr Flow line = [](auto, auto y, auto f) { f[0] = c - y[0]; };
constexpr Flow fold = [](auto, auto y, auto f) { f[0] = c - y[0] * y[0]; };
constexpr Flow pitchfork = [](auto, auto y, auto f) { f[0] = c * y[0] - y[0] * y[0] * y[0]; };
constexpr Flow nowhere = [](auto, auto y, auto f) { f[0] = 1 + y[0] * y[0]; };
constexpr Flow ends_at_half = [](auto, auto y, auto f) { f[0] = c > 0.5 ? NAN : c - y[0]; };
constexpr Flow jumps = [](auto, auto y, auto f) { f[0] = c < 0.45 ? c - y[0] : y[0] - c; };
/// A pitchfork that is located but not classified: the last component of its eigenvector is 0.
constexpr Flow unclassified = [](auto t, auto y, auto f) {
    pitchfork(t, y, f), f[1] = std::cos(t) - y[1];
};
/// A cycle that grows up to c = 1.5.
constexpr Flow cycle_up_to = [](auto t, auto y, auto f) {
    const Temporarily radius(Cycle::a, c);
    Cycle::flow(t, y, f);
    if (c > 1.5) f[0] = not_a_number;
};
/// Hopf bifurcations of one equilibrium at c = 0 and, with another frequency, at c = 0.05.
constexpr Flow two_hopf_points = [](auto, auto y, auto f) {
    for (const int i : {0, 2}) {
        const double growth = c - 0.025 * i - y[i] * y[i] - y[i + 1] * y[i + 1];
        f[i] = growth * y[i] - (1 + i) * y[i + 1], f[i + 1] = growth * y[i + 1] + (1 + i) * y[i];
    }
};
/// Circles run through with a speed that varies: over a half period one is no copy of itself.
constexpr Flow eccentric = [](auto t, auto y, auto f) {
    Circles::flow(t, y, f);
    const double u = y[0] - 1 - Circles::c1;
    f[0] -= 0.5 * u * y[1], f[1] += 0.5 * u * u;
};
/// x'' + 0.3 x' + k x = cos t: the periodic solution is p cos t + q sin t.
constexpr Flow oscillator = [](auto t, auto y, auto f) {
    f[0] = y[1], f[1] = std::cos(t) - 0.3 * y[1] - k * y[0];
};

// ---- Equilibria ---------------------------------------------------------------------------------

TEST(EquilibriumBranch, RunsBackBeyondAFold) {
    Study run(fold, {1}, c, 1.21, other, c);
    run->NewtAbsTol = 1e-14;  // the location takes its root
    run->MaxContSteps = 60;
    ASSERT_EQ(run.follow(equilibria, -0.1), 1);
    EXPECT_GT(run.dc, 0) << "the parameter did not turn round";
    run.expect_located({0}, 1e-6);
    double previous = 1.2;
    for (const Point& point : run.points) {
        EXPECT_NEAR(point.c[1], point.y[0] * point.y[0], 2e-7);
        EXPECT_TRUE(point.y[0] < previous && previous - point.y[0] <= 0.15);
        EXPECT_NEAR(point.er[0], -2 * point.y[0], 1e-5);
        previous = point.y[0];
    }
    EXPECT_LT(run.y[0], -1);
    EXPECT_EQ(run->txb->steps, 59);
    run.expect_stopped_there();
    const std::vector<double> sizes = run.step_sizes();
    for (std::size_t i = 1; i < sizes.size(); ++i) {
        const double growth = std::fabs(sizes[i] / sizes[i - 1]);
        EXPECT_TRUE(std::fabs(growth - 0.5) < 1e-5 || (growth > 0.70709 && growth < 1.41422));
    }
}

TEST(EquilibriumBranch, EndsAtItsLimits) {
    Study run(line, {0}, c, 0);
    const auto points_of = [&](int steps, int nrbif) {
        run->MaxContSteps = steps;
        run.y[0] = c = 0;
        EXPECT_EQ(run.follow(equilibria, -0.25, nrbif), 1);
        return run.points.size();
    };
    EXPECT_EQ(points_of(1, 0), 1u);
    EXPECT_EQ(points_of(5, -1), 1u);
    EXPECT_EQ(points_of(5, 0), 5u);
    EXPECT_NEAR(c, -1, 1e-6);
    EXPECT_EQ(run.dc, -0.25);  // the length on entry is the largest, whatever its sign
    // A record with too little room for the parameters is replaced.
    TXVarOpenTrajex(run.tx.get(), nullptr, 1e-7, 3, jac_t{}, 1e-7, &other, &c, &other);
    EXPECT_EQ(points_of(3, 0), 3u);
    run.expect_stopped_there();
}

// Each combination of the bits, with a bit that means nothing. Only the extras whose bits are set
// are read: those behind them do no harm.
TEST(EquilibriumBranch, WritesWhatTheModeAsksFor) {
    const std::string head =
        "   Parameters     State           Eigenvalue             Modulus\n"
        "    0";
    const std::string row = "            -1.000000-i0.000000    1           \n";
    const std::string end = row + std::string(68, '.') + "\n";
    const std::string text = "   Step: 0      \n" + head + "              0  " + end +
                             "   Stepsize: 0.5 .\n   Step: 1      \n" + head + ".5            0.5" +
                             end;
    Study run(line, {0}, c, 0);
    run->jac = [](double, double*, double** J) { J[0][0] = -1; };
    run->paramjac = [](double, double*, double** J) { J[0][0] = 1; };
    run->MaxContSteps = 2;
    for (int mode = 0; mode < 16; ++mode) {
        SCOPED_TRACE(mode);
        double y = c = 0, dc = 0.5;
        const TextStream state, path;
        FILE *const s = state, *const p = path;
        Points points;
        const auto call = [&](auto... files) {
            return TXEquiCont(run.tx.get(), &y, &c, &dc, 0, mode, files..., Study::take,
                              reinterpret_cast<FILE*>(&points));
        };
        const int bits = mode & 3;
        EXPECT_EQ(bits == 3 ? call(s, p) : bits == 2 ? call(p) : bits == 1 ? call(s) : call(), 1);
        EXPECT_EQ(state.text(), (mode & 1) != 0 ? text : "");
        EXPECT_EQ(path.text(), (mode & 2) != 0 ? "0 0 \n0.5 0.5 \n" : "");
        EXPECT_EQ(points.size(), (mode & 4) != 0 ? 2u : 0u);
    }
}

// The README says how exactly the Hopf point of the Lorenz equations is located under given
// settings, with analytic Jacobians and with numerical ones. These are its figures.
TEST(EquilibriumBranch, LocatesAsExactlyAsDocumented) {
    struct {
        double RelTol;
        bool explicit_tolerances;
        double errors[2];  // with numerical and with analytic Jacobians
    } const table[] = {{1e-6, false, {7e-2, 7e-2}},
                       {1e-9, false, {4e-3, 8e-5}},
                       {1e-12, false, {4e-5, 5e-9}},
                       {1e-9, true, {3e-7, 2e-11}}};
    for (const auto& row : table) {
        for (const bool analytic : {false, true}) {
            Study run(Lorenz::flow, {1.6, 1.6, 1}, Lorenz::rho, 2);
            const double h = row.explicit_tolerances ? 1e-6 : 1000 * row.RelTol;
            run.tx = open_recording(Lorenz::flow, 3, row.RelTol);
            if (row.explicit_tolerances) {
                run->NewtAbsTol = 1e-9, run->LambdaNewtRelTol = 1e-8, run->LambdaPert = h;
            }
            TXVarOpenTrajex(run.tx.get(), nullptr, h, 1, nullptr, h, &Lorenz::rho);
            if (analytic) {
                run->jac = Lorenz::jacobian;
                run->paramjac = [](auto, auto y, auto J) { J[0][0] = J[2][0] = 0, J[1][0] = y[0]; };
            }
            ASSERT_EQ(run.follow(equilibria, 0.5, 1), 1);
            EXPECT_NEAR(Lorenz::rho, 470.0 / 19, 1.2 * row.errors[analytic]);
        }
    }
}

// ---- Periodic orbits ----------------------------------------------------------------------------

/// The circle, its period and its multiplier; the trivial multiplier comes last. Where they are
/// nearly equal only their product is exact.
void expect_circle(const Point& point, double slowest, double accuracy) {
    const double s = std::pow(point.y[0] - 1 - Circles::c1, 2);
    const double T = 2 * pi / std::sqrt(Circles::w * Circles::w - slowest * slowest * s);
    EXPECT_NEAR(Circles::growth(s), 0, 1e-6);
    EXPECT_LE(std::fabs(point.y[1]), 1e-8);
    EXPECT_NEAR(point.T, T, 1e-6);
    EXPECT_NEAR(point.er[1], 1, accuracy);
    EXPECT_NEAR(point.er[0] * point.er[1], std::exp(s * (Circles::c2 - 2 * s) * T / 10), 1e-5);
}
/// The published period at the start, and the series of the angular velocity for small mu.
void expect_van_der_pol(const Point& point) {
    const double m = VanDerPol::mu * VanDerPol::mu;
    const double velocity = 1 - m / 16 + 17 * m * m / 3072 + 35 * m * m * m / 884736;
    if (m < 0.09 || point.steps == 0) {
        EXPECT_NEAR(point.T, m < 0.09 ? 2 * pi / velocity : 6.66328685932, m < 0.09 ? 1e-6 : 1e-7);
    }
}
constexpr auto expect_even = [](auto& point) { expect_circle(point, 0, 1e-5); };
constexpr auto expect_eccentric = [](auto& point) { expect_circle(point, 0.5, 2e-3); };
void expect_response(const Point& point) {
    const double squared_gain = (k - 1) * (k - 1) + 0.09;
    EXPECT_EQ(point.T, 2 * pi);
    EXPECT_NEAR(point.y[0], (k - 1) / squared_gain, 1e-6);
    EXPECT_NEAR(point.y[1], 0.3 / squared_gain, 1e-6);
    EXPECT_NEAR(std::hypot(point.er[1], point.ei[1]), std::exp(-pi * 0.3), 1e-6);
}

// A circle that grows, and one that turns faster: there the period alone moves. Two circles that
// meet: the run goes on along the inner one.
TEST(OrbitBranch, IsExact) {
    struct {
        Flow flow;
        double& c;
        double from, step, until;
        std::vector<double> y;
        int steps;
        void (*expect)(const Point&);  // with the parameter at its point
    } const cases[] = {
        {Circles::flow, Circles::c1, 1, 0.1, 1.2, {3.1, 0.1}, 25, expect_even},
        {Circles::flow, Circles::w, 1, 0.1, 1.2, {3.1, 0.1}, 25, expect_even},
        {eccentric, Circles::c1, -0.9, -0.05, -0.8, {1.24, 1e-3}, 30, expect_eccentric},
        {VanDerPol::flow, VanDerPol::mu, 1, -0.05, 0.28, {2, 0.1}, 90, expect_van_der_pol},
        {oscillator, k, 2, -0.1, 0.7, {0, 0}, 90, expect_response}};
    for (const auto& exact : cases) {
        const bool meets = exact.from < 0, is_forced = exact.flow == oscillator;
        const Temporarily second(Circles::c2, meets ? 2.0 : 0.0);
        Study run(exact.flow, exact.y, exact.c, exact.from);
        run->MaxContSteps = exact.steps;
        run.T = 2 * pi;
        if (meets) run->LambdaNewtRelTol = 1e-2, run->LambdaPert = 1e-4, run->CheckBifs = 0;
        ASSERT_EQ(run.follow(is_forced ? forced : cycles, exact.step), 1);
        run.expect_stopped_there();
        EXPECT_GT((exact.c - exact.until) * run.dc, 0);
        EXPECT_EQ(run.dc * exact.step < 0, meets);
        run.expect_located(meets ? std::vector{-1.0} : std::vector<double>(), 1e-5);
        if (!is_forced && !meets) {  // steps are measured in state and parameter
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

// Where the solution does not move with the parameter, or by less than the tolerance, there is no
// tangent to follow: steps in the parameter alone, past a bifurcation that is located, and
// classified where that was asked for. Those of equilibria are left to the caller.
TEST(TrivialBranch, GoesOnInEitherDirection) {
    for (const Kind kind : {equilibria, forced}) {
        for (const double guess : {0.0, 1e-12, 1e-10, -1e-9}) {
            for (const double direction : {1, -1}) {
                Study run(pitchfork, {guess}, c, -0.5 * direction);
                run->MaxContSteps = 20;
                run->CheckBifs = direction > 0;
                run.T = 1;
                ASSERT_EQ(run.follow(kind, 0.1 * direction), 1) << guess;
                EXPECT_GT(c * direction, 0.5);
                EXPECT_NEAR(run.y[0], 0, guess == 0 ? 0 : 1e-7);
                run.expect_located({0}, 1e-6);
                if (guess != 0) continue;
                const bool checked = kind == forced && direction > 0;
                EXPECT_EQ(run.located()[0].type, checked ? "PITCHFORK 1 -(- 0" : "");
                const std::size_t search = run.text.find(".\nSearching for bifurcation .");
                const std::size_t box = run.text.find("\n+--", search);
                EXPECT_LT(box, run.text.find("--+\n   Step: ", search));
                EXPECT_EQ(run.text.find(" Checking bifurcation ", search) < box, checked);
            }
        }
    }
}

// ---- Searches on the way ------------------------------------------------------------------------

TEST(RunLimits, ABifurcationIsOneOfTheStep) {
    Study run(two_hopf_points, {0, 0, 0, 0}, c, -0.01);
    run->MaxContSteps = 12;
    ASSERT_EQ(run.follow(equilibria, 0.05), 1);
    run.expect_located({0, 0.05}, 1e-6);
}

// Nearer and nearer to a bifurcation that cannot be located, but never past it.
TEST(RunLimits, HalvesTheStepWhereASearchIsRejected) {
    Study run(Roessler::flow, {0, 3.3, 1.8}, Roessler::c, 2.7);
    TXSetCut(run.tx.get(), first_component, 1e-9);
    run->LambdaNewtRelTol = 1e-30;
    EXPECT_EQ(run.follow(cycles, 0.1), 0);
    EXPECT_EQ(run->ErrorCode, 29);
    EXPECT_TRUE(run.located().empty());
    for (const Point& point : run.points) EXPECT_LT(point.c[0], 2.832446);
    EXPECT_GT(run.points.back().c[0], 2.8324);
    run.expect_stopped_there();
    EXPECT_EQ(run->nparam + run->TerminateOnFatalError, 1);
}

TEST(RunLimits, ASearchInVainLeavesNothingInTheRecord) {
    Study run(unclassified, {0, 0.5}, c, -0.2);
    TrajexBif& bif = run.record();
    double* const vectors[] = {bif.trans, bif.tang, bif.intang, bif.top,
                               bif.bot,   bif.left, bif.right};
    for (double* const vector : vectors) std::fill_n(vector, 2, 77.0);
    bif.ctop = bif.Ttop = 78;
    run.T = 2 * pi;
    EXPECT_EQ(run.follow(forced, 0.05), 0);
    EXPECT_EQ(run->ErrorCode, 29);
    EXPECT_NE(run.text.find(" Checking bifurcation "), std::string::npos);
    for (const double* const vector : vectors) EXPECT_EQ(vector[0] + vector[1], 154);
    EXPECT_EQ(bif.ctop + bif.Ttop, 156);
    run.expect_stopped_there();
}

// ---- Ends -------------------------------------------------------------------------------------

// At the start nothing is reported. The failure of an integration or of a search is not the end of
// a run that can take a smaller step; where steps have become too small the run ends, under its own
// name and policy, at its last point. So it does where not even a step to the section can be made.
TEST(RunLimits, AFailedRunIsAtItsLastPoint) {
    struct {
        Kind kind;
        Flow flow;
        double from, end;
        const char* name;
    } const cases[] = {{equilibria, ends_at_half, 0, 0.5, "'TXEquiCont'"},
                       {equilibria, jumps, 0, 0.45, "'TXEquiCont'"},
                       {forced, ends_at_half, 0, 0.5, "'TXNonAutoCont'"},
                       {cycles, cycle_up_to, 1, 1.5, "'TXAutoCont'"}};
    for (const auto& [kind, flow, from, end, name] : cases) {
        std::vector<double> guess{0};
        if (kind == cycles) guess = {1.1, 0.1};
        Study run(flow, guess, c, from);
        run.T = 1;
        EXPECT_EQ(run.follow(kind, 0.15), 0);
        EXPECT_EQ(run->ErrorCode, 29);
        const double smallest = 0.15 * run->NewtRelTol + run->NewtAbsTol;
        EXPECT_TRUE(run.dc < smallest && 2 * run.dc >= smallest);
        run.expect_stopped_there();
        EXPECT_TRUE(run.located().empty());
        const Point& last = run.points.back();
        EXPECT_NEAR(last.c[0], end, 1e-4);
        EXPECT_EQ(last.y, run.y);
        EXPECT_TRUE(kind != cycles || run.T == last.T);
        run->TerminateOnFatalError = 1;
        EXPECT_EXIT(run.follow(kind, 0.15), ExitedWithCode(1),
                    std::string(name) + ": Minimum stepsize reached");
    }
    // None that ever converges, with no smallest step.
    Study run(line, {0}, c, 0);
    run->NewtRelTol = run->NewtAbsTol = 0;
    run->jac = [](double, double*, double** J) { J[0][0] = not_a_number; };
    EXPECT_EQ(run.follow(equilibria, 0.1), 0);
    EXPECT_EQ(run->ErrorCode, 29);
}

TEST(RunLimits, WhatDoesNotStartChangesNothing) {
    Study run(line, {7}, c, 0.25, c, other);
    const auto expect_refused = [](Study& study, int result, int code) {
        EXPECT_EQ(result, 0);
        EXPECT_EQ(study->ErrorCode, code);
        EXPECT_TRUE(study.points.empty());
    };
    run.T = 8;
    for (const double dc : {infinity, -infinity, not_a_number}) {
        for (const Kind kind : {equilibria, forced, cycles}) {
            expect_refused(run, run.follow(kind, dc), 29);
        }
    }
    EXPECT_EQ(run.y[0] + run.T + c + run->cp[0] + run->cp[1], 15.25);
    EXPECT_EQ(run->txb, nullptr);

    Study twice(line, {0}, c, 0, c, c), without(nowhere, {0}, c, 0);
    expect_refused(twice, twice.follow(equilibria, 0.1), 26);
    expect_refused(without, without.follow(equilibria, 0.1), 30);
    Study circle(Circles::flow, {3, 0.1}, Circles::c1, 1);
    TXSetMaxNewtSteps(circle.tx.get(), 0);
    circle.T = 1;
    expect_refused(circle, circle.follow(forced, 0.1), 30);
    circle.T = 0;
    expect_refused(circle, circle.follow(forced, 0.1), 7);
    TXSetMaxPeriodSteps(circle.tx.get(), 0);  // the search for the section fails without a code
    expect_refused(circle, circle.follow(cycles, 0.1), 13);
}

// The state of a run may be that of the record, or one of the orbits in it, as where a run starts
// on a branch that an earlier one has found. It is the same run as with variables outside, also
// over a bifurcation, which is located in the record, and where a record with more room is made.
TEST(RunLimits, AStateInTheRecordIsCopied) {
    double &A = Brusselator::A, &B = Brusselator::B;
    Study outside(Brusselator::flow, {1, 1.7}, B, 1.7);
    outside->MaxContSteps = 8;
    ASSERT_EQ(outside.follow(equilibria, 0.1), 1);
    outside.expect_located({2}, 1e-4);
    for (const bool reopened : {false, true}) {
        for (const auto vector : {&TrajexBif::y, &TrajexBif::top, &TrajexBif::left}) {
            Study run(Brusselator::flow, {1, 1.7}, B, 1.7);
            double* const inside = run.record().*vector;
            run->MaxContSteps = 8;
            inside[0] = 1, inside[1] = 1.7;
            if (reopened) TXVarOpenTrajex(run.tx.get(), nullptr, 1e-6, 2, nullptr, 1e-6, &B, &A);
            double dc = 0.1;
            ASSERT_EQ(TXEquiCont(run.tx.get(), inside, &B, &dc, 0, 4, Study::take,
                                 reinterpret_cast<FILE*>(&run.points)),
                      1);
            ASSERT_EQ(run.points.size(), outside.points.size());
            for (std::size_t i = 0; i < run.points.size(); ++i) {
                EXPECT_EQ(run.points[i].y, outside.points[i].y) << i;
            }
            if (reopened) continue;  // the old record is gone
            EXPECT_EQ(std::vector(inside, inside + 2), run.points.back().y);
        }
    }
    // Past a doubling the orbits found there lie in the record, too.
    Study cycle(Roessler::flow, {0, 3.3, 1.8}, Roessler::c, 2.7);
    TXSetCut(cycle.tx.get(), first_component, 1e-9);
    TrajexBif& bif = cycle.record();
    cycle->MaxContSteps = 12;
    double dc = 0.1;
    ASSERT_EQ(TXAutoCont(cycle.tx.get(), 0, bif.y, 1, &bif.Ttop, &cycle.c, &dc, 0, 0), 1);
    EXPECT_GT(cycle.c, 2.84);
    EXPECT_NEAR(bif.T, 5.77, 0.05);
    EXPECT_EQ(bif.Ttop, bif.T);
}

}  // namespace
