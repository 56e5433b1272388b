// Branches of equilibria: exact ones, their bifurcations, what a run writes, and how it ends.
#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <limits>
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

constexpr double not_a_number = std::numeric_limits<double>::quiet_NaN();
constexpr double infinity = std::numeric_limits<double>::infinity();

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
void ends_at_half(double, double* y, double* f) {
    f[0] = c > 0.5 ? not_a_number : c - y[0];
}
void turns_unstable_in_a_jump(double, double* y, double* f) {
    f[0] = c < 0.45 ? c - y[0] : y[0] - c;
}
void no_equilibrium(double, double* y, double* f) {
    f[0] = 1 + y[0] * y[0];
}

class EquilibriumBranch : public testing::Test {
  protected:
    template <class... Parameter>
    void open(void (*f)(double, double*, double*), int n, Parameter*... parameters) {
        tx_ = open_variational(f, n, nullptr, nullptr, 1e-9, parameters...);
        tx_->LambdaNewtRelTol = 1e-6;
        tx_->NewtAbsTol = 1e-14;  // locations take its root
        tx_->JacPert = 1e-7;
    }
    /// A run that records its points; returns the last step length.
    double run(double* y, double& parameter, double dc, int bifurcations = 0, int expected = 1) {
        points_.clear();
        EXPECT_EQ(TXEquiCont(tx_.get(), y, &parameter, &dc, bifurcations, 4, record_point,
                             as_stream(points_)),
                  expected);
        return dc;
    }
    /// The points that were located, not stepped to: they carry the number of the step before.
    Points located() const {
        Points found;
        for (std::size_t i = 1; i < points_.size(); ++i) {
            if (points_[i].steps == points_[i - 1].steps) found.push_back(points_[i]);
        }
        return found;
    }

    const Temporarily<double> restored_{c, 0};
    OpenHandle tx_;
    Points points_;
};

TEST_F(EquilibriumBranch, RunsBackBeyondAFold) {
    open(fold, 1, &other, &c);
    tx_->MaxContSteps = 60;
    c = 1.21;
    double y[] = {1};
    const double last = run(y, c, -0.1);
    EXPECT_GT(last, 0) << "the parameter did not turn round";
    EXPECT_LE(last, 0.1);
    ASSERT_EQ(located().size(), 1u);
    EXPECT_NEAR(located()[0].c[1], 0, 1e-6);
    EXPECT_NEAR(located()[0].y[0], 0, 1e-5);
    double previous = 2;
    for (const Point& point : points_) {
        EXPECT_NEAR(point.c[1], point.y[0] * point.y[0], 2e-7);
        EXPECT_LT(point.y[0], previous);
        EXPECT_LE(previous - point.y[0], previous == 2 ? 1 : 0.15);
        EXPECT_NEAR(point.er[0], -2 * point.y[0], 1e-5);
        EXPECT_EQ(point.c[0], other);
        previous = point.y[0];
    }
    EXPECT_LT(y[0], -1);
    expect_stopped_at(*tx_, points_.back());
}

TEST_F(EquilibriumBranch, LocatesTheHopfPointAndGoesOn) {
    const Temporarily restored(Brusselator::B, 1.2);
    open(Brusselator::flow, 2, &Brusselator::B);
    tx_->MaxContSteps = 30;
    double y[] = {1.1, 1.1};
    run(y, Brusselator::B, 0.1);
    ASSERT_EQ(located().size(), 1u);
    EXPECT_NEAR(located()[0].c[0], 2, 1e-6);
    EXPECT_GT(Brusselator::B, 2.5);
    for (const Point& point : points_) {
        EXPECT_NEAR(point.y[0], 1, 1e-6);
        EXPECT_NEAR(point.y[1], point.c[0], 1e-6);
    }

    // As the last thing asked for: the parameter stays where it was located.
    Brusselator::B = 1.2;
    y[1] = 1.2;
    run(y, Brusselator::B, 0.1, 1);
    EXPECT_NEAR(Brusselator::B, 2, 1e-6);
    ASSERT_EQ(located().size(), 1u);
    EXPECT_EQ(points_.back(), located()[0]);
    expect_stopped_at(*tx_, points_.back());
}

// Where the equilibrium does not move with the parameter there is no tangent to follow.
TEST_F(EquilibriumBranch, FollowsASolutionThatDoesNotMove) {
    open(pitchfork, 1, &c);
    tx_->MaxContSteps = 20;
    for (const double direction : {1.0, -1.0}) {
        c = -direction;
        double y[] = {0};
        const double last = run(y, c, 0.15 * direction);
        ASSERT_EQ(located().size(), 1u);
        EXPECT_NEAR(located()[0].c[0], 0, 1e-6);
        EXPECT_GT(c * direction, 0.5);
        EXPECT_GT(last * direction, 0);
        for (const Point& point : points_) EXPECT_EQ(point.y[0], 0);
    }
    const Temporarily restored(Lorenz::rho, 0.1);
    open(Lorenz::flow, 3, &Lorenz::rho);
    double y[] = {0, 0, 0};
    run(y, Lorenz::rho, 0.15, 1);
    EXPECT_NEAR(Lorenz::rho, 1, 1e-5);
}

const std::string linear_text =
    "   Step: 0      \n"
    "   Parameters     State           Eigenvalue             Modulus\n"
    "    0              0              -1.000000-i0.000000    1           \n"
    "....................................................................\n"
    "   Stepsize: 0.5 .\n"
    "   Step: 1      \n"
    "   Parameters     State           Eigenvalue             Modulus\n"
    "    0.5            0.5            -1.000000-i0.000000    1           \n"
    "....................................................................\n"
    "   Stepsize: 0.5 .\n"
    "   Step: 2      \n"
    "   Parameters     State           Eigenvalue             Modulus\n"
    "    1              1              -1.000000-i0.000000    1           \n"
    "....................................................................\n";
const std::string linear_path = "0 0 \n0.5 0.5 \n1 1 \n";

void minus_one(double, double*, double** J) {
    J[0][0] = -1;
}
void one(double, double*, double** J) {
    J[0][0] = 1;
}

// Each combination of the bits, with a bit that means nothing.
TEST_F(EquilibriumBranch, WritesWhatTheModeAsksFor) {
    open(line, 1, &c);
    tx_->jac = minus_one;
    tx_->paramjac = one;
    tx_->MaxContSteps = 3;
    for (int mode = 0; mode < 16; ++mode) {
        SCOPED_TRACE(mode);
        c = 0;
        double y[] = {0};
        double dc = 0.5;
        const TextStream state, path;
        Points points;
        const auto call = [&](auto... extras) {
            return TXEquiCont(tx_.get(), y, &c, &dc, 0, mode, extras...);
        };
        FILE* const s = state;
        FILE* const p = path;
        FILE* const u = as_stream(points);
        int result = 0;
        switch (mode & 7) {
            case 0:
                result = call();
                break;
            case 1:
                result = call(s);
                break;
            case 2:
                result = call(p);
                break;
            case 3:
                result = call(s, p);
                break;
            case 4:
                result = call(record_point, u);
                break;
            case 5:
                result = call(s, record_point, u);
                break;
            case 6:
                result = call(p, record_point, u);
                break;
            default:
                result = call(s, p, record_point, u);
        }
        EXPECT_EQ(result, 1);
        EXPECT_EQ(state.text(), (mode & 1) != 0 ? linear_text : "");
        EXPECT_EQ(path.text(), (mode & 2) != 0 ? linear_path : "");
        EXPECT_EQ(points.size(), (mode & 4) != 0 ? 3u : 0u);
        EXPECT_EQ(c, 1);
    }
}

TEST_F(EquilibriumBranch, ReportsABifurcationBetweenItsPoints) {
    open(pitchfork, 1, &c);
    tx_->MaxContSteps = 2;
    c = -0.25;
    double y[] = {0};
    double dc = 0.5;
    const TextStream state, path;
    ASSERT_EQ(TXEquiCont(tx_.get(), y, &c, &dc, 0, 3, static_cast<FILE*>(state),
                         static_cast<FILE*>(path)),
              1);
    const std::string text = state.text();
    const std::string search = "   Stepsize: 0.5 .\nSearching for bifurcation .";
    const std::size_t from = text.find(search);
    ASSERT_NE(from, std::string::npos) << text;
    const std::size_t marks_end = text.find_first_not_of(".!", from + search.size());
    EXPECT_EQ(text.substr(marks_end, 4), "\n+--") << text;
    EXPECT_NE(text.find("--+\n   Step: 1      \n", marks_end), std::string::npos) << text;
    EXPECT_EQ(path.text().substr(0, 9), "-0.25 0 \n");
    EXPECT_TRUE(path.text().ends_with(" 0 \n0.25 0 \n")) << path.text();
}

TEST_F(EquilibriumBranch, EndsAtItsLimits) {
    open(line, 1, &c);
    double y[] = {0.3};
    tx_->MaxContSteps = 1;
    run(y, c, 0.1);
    ASSERT_EQ(points_.size(), 1u);
    EXPECT_EQ(points_[0].steps, 0);
    EXPECT_NEAR(points_[0].y[0], 0, 1e-7);

    tx_->MaxContSteps = 5;
    run(y, c, 0.1, -1);
    EXPECT_EQ(points_.size(), 1u);

    // The length on entry is the largest, whatever its sign.
    EXPECT_EQ(run(y, c, -0.25), -0.25);
    ASSERT_EQ(points_.size(), 5u);
    EXPECT_NEAR(c, -1, 1e-6);
    EXPECT_EQ(tx_->txb->steps, 4);
}

TEST_F(EquilibriumBranch, RefusesAParameterThatIsNotOneOfItsOwn) {
    double y[] = {0.5};
    open(line, 1, &other);
    run(y, c, 0.1, 0, 0);
    EXPECT_EQ(tx_->ErrorCode, 26);
    open(line, 1, &c, &c);
    run(y, c, 0.1, 0, 0);
    EXPECT_EQ(tx_->ErrorCode, 26);
    open(line, 1);
    run(y, c, 0.1, 0, 0);
    EXPECT_EQ(tx_->ErrorCode, 26);
    EXPECT_EQ(y[0], 0.5);
    EXPECT_TRUE(points_.empty());
}

TEST_F(EquilibriumBranch, EndsWithTheCodeOfItsStart) {
    open(no_equilibrium, 1, &c);
    double y[] = {0.3};
    run(y, c, 0.1, 0, 0);
    EXPECT_EQ(tx_->ErrorCode, 30);
    EXPECT_EQ(y[0], 0.3);
    EXPECT_TRUE(points_.empty());
}

TEST_F(EquilibriumBranch, EndsWhereTheStepBecomesTooSmall) {
    open(ends_at_half, 1, &c);
    double y[] = {0};
    const double last = run(y, c, 0.15, 0, 0);
    EXPECT_EQ(tx_->ErrorCode, 29);
    EXPECT_LT(last, 0.15 * tx_->NewtRelTol + tx_->NewtAbsTol);
    EXPECT_LE(tx_->txb->y[0], 0.5);  // the record keeps the last accepted point
    EXPECT_GT(tx_->txb->y[0], 0.5 - 1e-5);

    open(turns_unstable_in_a_jump, 1, &c);
    c = y[0] = 0;
    run(y, c, 0.1, 0, 0);
    EXPECT_EQ(tx_->ErrorCode, 29);
    EXPECT_TRUE(located().empty());
    EXPECT_NEAR(tx_->txb->c[0], 0.45, 1e-5);
}

void no_slope(double, double*, double** J) {
    J[0][0] = not_a_number;
}

// No smallest step, and none that ever converges; a step without end or number.
TEST_F(EquilibriumBranch, NeverLoops) {
    open(line, 1, &c);
    tx_->NewtRelTol = tx_->NewtAbsTol = 0;
    tx_->jac = no_slope;
    double y[] = {0};
    run(y, c, 0.1, 0, 0);
    EXPECT_EQ(tx_->ErrorCode, 29);
    for (const double dc : {infinity, -infinity, not_a_number}) {
        SCOPED_TRACE(dc);
        open(line, 1, &c);
        c = y[0] = 0;
        run(y, c, dc, 0, 0);
        EXPECT_EQ(tx_->ErrorCode, 29);
    }
}

// A search that fails is the business of the run: under the policy that ends the process, too.
TEST_F(EquilibriumBranch, SurvivesAFailedSearchUnderEitherPolicy) {
    for (const int policy : {0, 1}) {
        open(turns_unstable_in_a_jump, 1, &c);
        tx_->TerminateOnFatalError = policy;
        tx_->MaxContSteps = 9;
        c = 0;
        double y[] = {0};
        run(y, c, 0.1);
        EXPECT_EQ(tx_->TerminateOnFatalError, policy);
        EXPECT_LT(points_.size(), 9u) << "nothing was rejected";
        EXPECT_LT(points_.back().c[0], 0.45);
    }
}

TEST_F(EquilibriumBranch, ReplacesARecordWithTooLittleRoom) {
    open(line, 1, &c);
    tx_->MaxContSteps = 3;
    double y[] = {0};
    run(y, c, 0.1);
    const TrajexBif* first = tx_->txb;
    run(y, c, 0.1);
    EXPECT_EQ(tx_->txb, first);
    ASSERT_EQ(TXVarOpenTrajex(tx_.get(), nullptr, 1e-7, 3, jac_t{}, 1e-7, &other, &c, &other), 1);
    run(y, c, 0.1);
    EXPECT_EQ(trajex::private_part(*tx_->txb).parameters, 3u);
    EXPECT_EQ(tx_->txb->cindi[1], 1);
    expect_stopped_at(*tx_, points_.back());
}

TEST(EquilibriumBranchDeathTest, ReportsUnderItsOwnName) {
    const OpenHandle tx = open_variational(ends_at_half, 1, nullptr, nullptr, 1e-9, &c);
    tx->TerminateOnFatalError = 1;
    double y[] = {0};
    double dc = 0.1;
    EXPECT_EXIT(TXEquiCont(tx.get(), y, &other, &dc, 0, 0), testing::ExitedWithCode(1),
                "'TXEquiCont': Wrong number of parameters");
    EXPECT_EXIT(TXEquiCont(tx.get(), y, &c, &dc, 0, 0), testing::ExitedWithCode(1),
                "'TXEquiCont': Minimum stepsize reached");
}

}  // namespace
