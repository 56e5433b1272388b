// Branches of equilibria and of periodic orbits: exact ones, what a run writes, how it ends, and
// what is left of the application's when it fails or meets what is easily taken for something else.
#include "continuation/recorder.hpp"

namespace {

double c = 0, other = 3;

constexpr Flow line = [](auto, auto y, auto f) { f[0] = c - y[0]; };
constexpr Flow fold = [](auto, auto y, auto f) { f[0] = c - y[0] * y[0]; };
constexpr Flow pitchfork = [](auto, auto y, auto f) { f[0] = c * y[0] - y[0] * y[0] * y[0]; };
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
constexpr Flow uneven = [](auto t, auto y, auto f) {
    Circles::flow(t, y, f);
    const double u = y[0] - 1 - Circles::c1;
    f[0] -= 0.5 * u * y[1], f[1] += 0.5 * u * u;
};
// ---- Equilibria ---------------------------------------------------------------------------------

// Each combination of the bits, with a bit that means nothing. Only the extras whose bits are set
// are read: those behind them do no harm.
TEST(EquilibriumBranch, WritesWhatTheModeAsksFor) {
    Study run(line, {0}, c, 0);
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
        EXPECT_EQ(state.text().rfind("   Step: 0 ", 0) == 0, (mode & 1) != 0);
        EXPECT_EQ(state.text().find("\n   Stepsize: 0.5 .\n   Step: 1 ") < 1000, (mode & 1) != 0);
        EXPECT_EQ(path.text(), (mode & 2) != 0 ? "0 0 \n0.5 0.5 \n" : "");
        EXPECT_EQ(points.size(), (mode & 4) != 0 ? 2u : 0u);
    }
    ASSERT_EQ(run.follow(equilibria, -0.25, -1), 1);  // enough bifurcations at the start
    EXPECT_EQ(run.points.size(), 1u);
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
constexpr auto expect_even = [](auto& point) { expect_circle(point, 0, 1e-5); };
constexpr auto expect_uneven = [](auto& point) { expect_circle(point, 0.5, 2e-3); };
void expect_on_fold(const Point& point) {
    EXPECT_NEAR(c, point.y[0] * point.y[0], 2e-7);
    EXPECT_NEAR(point.er[0], -2 * point.y[0], 1e-5);
}

// A circle that grows, and one that turns faster: there the period alone moves. Two circles that
// meet, and equilibria: the run goes back along the other ones.
TEST(Branch, IsExact) {
    struct {
        Kind kind;
        Flow flow;
        double& c;
        double from, step, until;
        std::vector<double> y, located;
        int steps;
        void (*expect)(const Point&);  // with the parameter at its point
    } const cases[] = {
        {equilibria, fold, c, 1.21, -0.1, 1, {1}, {0}, 60, expect_on_fold},
        {cycles, Circles::flow, Circles::c1, 1, 0.1, 1.2, {3.1, 0.1}, {}, 25, expect_even},
        {cycles, Circles::flow, Circles::w, 1, 0.1, 1.2, {3.1, 0.1}, {}, 25, expect_even},
        {cycles, uneven, Circles::c1, -0.9, -0.05, -0.8, {1.24, 1e-3}, {-1}, 30, expect_uneven}};
    for (const auto& exact : cases) {
        const bool turns = !exact.located.empty();
        const Temporarily second(Circles::c2, exact.flow == uneven ? 2.0 : 0.0);
        Study run(exact.flow, exact.y, exact.c, exact.from);
        run->MaxContSteps = exact.steps;
        if (exact.kind == equilibria) run->NewtAbsTol = 1e-14;  // the location takes its root
        if (exact.flow == uneven)
            run->LambdaNewtRelTol = 1e-2, run->LambdaPert = 1e-4, run->CheckBifs = 0;
        ASSERT_EQ(run.follow(exact.kind, exact.step), 1);
        run.expect_stopped_there();
        EXPECT_GT((exact.c - exact.until) * run.dc, 0);
        EXPECT_EQ(run.dc * exact.step < 0, turns);
        run.expect_located(exact.located, 1e-5);
        if (exact.kind == cycles && !turns) {  // steps are measured in state and parameter
            const Point &first = run.points[0], &next = run.points[1];
            const double length = std::hypot(next.c[0] - first.c[0], next.y[0] - first.y[0]);
            EXPECT_NEAR(length, std::fabs(exact.step), 0.01 * std::fabs(exact.step));
        }
        const std::vector<double> sizes = run.step_sizes();
        for (std::size_t i = 1; i < sizes.size(); ++i) {
            const double growth = std::fabs(sizes[i] / sizes[i - 1]);
            EXPECT_TRUE(std::fabs(growth - 0.5) < 1e-5 || (growth > 0.70709 && growth < 1.41422));
            EXPECT_LT(std::fabs(sizes[i]), 1.00001 * std::fabs(exact.step));
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
                EXPECT_LT(search, run.text.find("\n+--"));
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

// ---- Ends -------------------------------------------------------------------------------------

// The failure of an integration or of a search is not the end of a run that can take a smaller
// step; where steps have become too small the run ends, under its own name and policy, at its last
// point, never past a bifurcation that is not located and classified: searches in vain leave
// nothing in the record. So it ends where not even a step to the section can be made.
TEST(RunLimits, AFailedRunIsAtItsLastPoint) {
    struct {
        Kind kind;
        Flow flow;
        std::vector<double> guess;
        double from, end;
    } const cases[] = {{equilibria, ends_at_half, {0}, 0, 0.5},
                       {equilibria, jumps, {0}, 0, 0.45},
                       {forced, ends_at_half, {0}, 0, 0.5},
                       {forced, unclassified, {0, 0.5}, -0.2, 0},
                       {cycles, cycle_up_to, {1.1, 0.1}, 1, 1.5}};
    for (const auto& [kind, flow, guess, from, end] : cases) {
        Study run(flow, guess, c, from);
        TrajexBif& bif = run.record();
        const std::size_t size = 7 * guess.size();  // of the vectors from there to `right`
        std::fill_n(bif.trans, size, 77.0);
        bif.ctop = bif.Ttop = 77;
        run.T = 2 * pi;
        EXPECT_EQ(run.follow(kind, 0.15), 0);
        EXPECT_EQ(run->ErrorCode, 29);
        EXPECT_EQ(run->nparam + run->TerminateOnFatalError, 1);
        const double smallest = 0.15 * run->NewtRelTol + run->NewtAbsTol;
        EXPECT_TRUE(run.dc < smallest && 2 * run.dc >= smallest);
        run.expect_stopped_there();
        EXPECT_TRUE(run.located().empty());
        EXPECT_EQ(std::count(bif.trans, bif.trans + size, 77.0), int(size));
        EXPECT_EQ(bif.ctop + bif.Ttop, 2 * 77);
        EXPECT_EQ(run.text.find(" Checking bifurcation ") < run.text.size(), flow == unclassified);
        const Point& last = run.points.back();
        EXPECT_TRUE(last.c[0] < end && last.c[0] > end - 1e-4);
        EXPECT_EQ(last.y, run.y);
        EXPECT_TRUE(kind != cycles || run.T == last.T);
        run->TerminateOnFatalError = 1;
        const char* const name = std::array{"TXEquiCont", "TXNonAutoCont", "TXAutoCont"}[kind];
        EXPECT_EXIT(run.follow(kind, 0.15), ExitedWithCode(1),
                    std::string(name) + "': Minimum stepsize reached");
    }
    // None that ever converges, with no smallest step.
    Study run(line, {0}, c, 0);
    run->NewtRelTol = run->NewtAbsTol = 0;
    run->jac = [](double, double*, double** J) { J[0][0] = not_a_number; };
    EXPECT_EQ(run.follow(equilibria, 0.1), 0);
    EXPECT_EQ(run->ErrorCode, 29);
}

TEST(RunLimits, WhatDoesNotStartChangesNothing) {
    const auto expect_refused = [](Study& study, Kind kind, double dc, int code) {
        EXPECT_EQ(study.follow(kind, dc), 0);
        EXPECT_EQ(study->ErrorCode, code);
        EXPECT_TRUE(study.points.empty());
    };
    Study run(line, {7}, c, 0.25, other);
    run.T = 8;
    for (const double dc : {infinity, -infinity, not_a_number}) {
        for (const Kind kind : {equilibria, forced, cycles}) expect_refused(run, kind, dc, 29);
    }
    EXPECT_EQ(run.y[0] + run.T + c + run->cp[0] + run->cp[1], 15.25);
    EXPECT_EQ(run->txb, nullptr);

    Study twice(line, {0}, c, 0, c), without(ends_at_half, {0}, c, 1);
    expect_refused(twice, equilibria, 0.1, 26);
    expect_refused(without, equilibria, 0.1, 30);
    Study circle(Circles::flow, {3, 0.1}, Circles::c1, 1);
    expect_refused(circle, forced, 0.1, 7);  // no period
    TXSetMaxNewtSteps(circle.tx.get(), 0);
    circle.T = 1;
    expect_refused(circle, forced, 0.1, 30);
    TXSetMaxPeriodSteps(circle.tx.get(), 0);  // the search for the section fails without a code
    expect_refused(circle, cycles, 0.1, 13);
}

// State and period of a run may be those of the record, or of an orbit in it, as where a run starts
// on a branch that an earlier one has found. It is the same run as with variables outside, also
// over a bifurcation, which is located in the record, and where a record with more room is made.
TEST(RunLimits, AStateInTheRecordIsCopied) {
    const std::vector<double> guess{0, 3.3, 1.8};
    Study outside(Roessler::flow, guess, Roessler::c, 2.7);
    TXSetCut(outside.tx.get(), first_component, 1e-9);
    outside->MaxContSteps = 12;
    ASSERT_EQ(outside.follow(cycles, 0.1), 1);
    outside.expect_located({2.832445}, 1e-5);
    const std::pair<double * TrajexBif::*, double TrajexBif::*> places[] = {
        {&TrajexBif::y, &TrajexBif::T},
        {&TrajexBif::top, &TrajexBif::Ttop},
        {&TrajexBif::left, &TrajexBif::Tleft}};
    for (const bool reopened : {false, true}) {
        for (const auto& [vector, period] : places) {
            Study run(Roessler::flow, guess, Roessler::c, 2.7);
            TXSetCut(run.tx.get(), first_component, 1e-9);
            run->MaxContSteps = 12;
            TrajexBif& bif = run.record();
            double *const inside = bif.*vector, *const T = &(bif.*period);
            std::copy(guess.begin(), guess.end(), inside);
            if (reopened) {
                TXVarOpenTrajex(run.tx.get(), nullptr, 1e-7, 2, nullptr, 1e-7, &run.c,
                                &Roessler::a);
            }
            ASSERT_EQ(TXAutoCont(run.tx.get(), 0, inside, 1, T, &run.c, &(run.dc = 0.1), 0, 4,
                                 Study::take, reinterpret_cast<FILE*>(&run.points)),
                      1);
            ASSERT_EQ(run.points.size(), outside.points.size());
            for (std::size_t i = 0; i < run.points.size(); ++i) {
                EXPECT_EQ(run.points[i].y, outside.points[i].y) << i;
            }
            if (reopened) continue;  // the old record is gone
            EXPECT_EQ(std::vector(inside, inside + 3), run.points.back().y);
            EXPECT_EQ(*T, run.points.back().T);
        }
    }
}

}  // namespace
