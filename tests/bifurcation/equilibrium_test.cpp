// Location and classification of bifurcations of equilibria. Continuation runs locate more of them.
#include "bifurcation/record.hpp"
#include "continuation/recorder.hpp"
#include "support.hpp"

namespace {

double c = 0;
double unused = 5;

void two_folds(double, double* y, double* f) {  // at y = +-1 / sqrt 3
    f[0] = c + y[0] - y[0] * y[0] * y[0];
}
constexpr Flow never_critical = [](auto, auto y, auto f) { f[0] = c - y[0]; };
void undefined_above_zero(double, double* y, double* f) {
    f[0] = c > 0 ? std::nan("") : c - y[0];
}

/// A handle with a record that is ready to locate from a guess.
OpenHandle open(void (*f)(double, double*, double*), const std::vector<double>& guess,
                double& parameter = c) {
    const int n = static_cast<int>(guess.size());
    OpenHandle tx = open_variational(f, n, nullptr, nullptr, 1e-9, &unused, &parameter);
    tx->LambdaNewtRelTol = 1e-8;
    tx->JacPert = 1e-7;  // a bifurcation moves by about that times the curvature of f
    tx->NewtRelTol = tx->NewtAbsTol = 1e-16;  // the state is weighed with their roots
    start_at(*tx, guess, 0, 4);
    tx->txb->indir = 4;
    return tx;
}

TEST(EquilibriumBifurcation, FoldsAreExact) {
    for (const double side : {1.0, -1.0}) {
        const Temporarily start(c, side * -0.3);
        const OpenHandle tx = open(two_folds, {side * 0.6});
        const TrajexBif& bif = *tx->txb;
        ASSERT_EQ(TXLocateEquiBif(tx.get(), tx->txb, &c, nullptr), 1);
        EXPECT_NEAR(c, side * -2 / std::sqrt(27), 1e-8);
        EXPECT_NEAR(bif.y[0], side / std::sqrt(3), 1e-6);
        EXPECT_EQ(bif.c[1], c);
        EXPECT_EQ(bif.biftype + bif.indir, 0);
        EXPECT_EQ(bif.er[0], bif.Phi[0][0]);
        EXPECT_NEAR(bif.Phi[0][1], 1, 1e-8);  // df/dc
        ASSERT_EQ(TXCheckEquiBif(tx.get(), tx->txb, &c, 0.1, nullptr), 1);
        EXPECT_EQ(bif.biftype, trajex::saddle_node);
        EXPECT_STREQ(bif.btype, " ) or ( ");
    }
}

TEST(EquilibriumBifurcation, HopfPointsAreExact) {
    double& B = Brusselator::B;
    const Temporarily unit(Brusselator::A, 1.5);
    const Temporarily near(B, 3.1);
    const OpenHandle tx = open(Brusselator::flow, {1.5, 3.1 / 1.5}, B);
    const TrajexBif& bif = *tx->txb;
    ASSERT_EQ(TXLocateEquiBif(tx.get(), tx->txb, &B, nullptr), 1);
    EXPECT_NEAR(B, 1 + 1.5 * 1.5, 1e-6);
    EXPECT_NEAR(std::fabs(bif.ei[0]), 1.5, 1e-6);
    const double located = B;
    const TextStream state;
    ASSERT_EQ(TXLocateEquiBif(tx.get(), tx->txb, &B, state), 1);
    EXPECT_EQ(state.text(), ".") << "a located point is left alone";
    EXPECT_EQ(B, located);
    B = 17;  // the classification gives the application the parameters of the record
    ASSERT_EQ(TXCheckEquiBif(tx.get(), tx->txb, &B, 0.1, nullptr), 1);
    EXPECT_EQ(B, located);
    EXPECT_EQ(bif.biftype, trajex::hopf);
    EXPECT_STREQ(bif.btype, " -Oo- or -oO- ");
    EXPECT_NEAR(std::hypot(bif.trans[0], bif.trans[1]), 1, 1e-12);
}

TEST(EquilibriumBifurcation, TakesTheFirstOfEqualEigenvalues) {
    const OpenHandle tx = open(Lorenz::flow, {0, 0, 0}, Lorenz::rho);
    TrajexBif& bif = *tx->txb;
    const auto classify = [&](double ei1, double ei2) {
        for (int i = 0; i < 3; ++i) {
            std::fill_n(bif.Phi[i], 3, 0.0);
            bif.Phi[i][i] = 1 + i;
            bif.er[i] = i == 0 ? -4 : 1.5 - i;  // -4, 0.5, -0.5
        }
        bif.ei[1] = ei1;
        bif.ei[2] = ei2;
        EXPECT_EQ(TXCheckEquiBif(tx.get(), &bif, &Lorenz::rho, 0.1, nullptr), 1);
        return bif.biftype;
    };
    EXPECT_EQ(classify(0, 1), trajex::saddle_node);
    EXPECT_EQ(classify(1, 0), trajex::hopf);
}

TEST(EquilibriumBifurcation, MayNotBeFound) {
    const OpenHandle twice = open(never_critical, {0.5}, unused);
    for (double* const parameter :
         {&c, &unused}) {  // not the handle's, and not one of the handle's
        EXPECT_EQ(TXLocateEquiBif(twice.get(), twice->txb, parameter, nullptr), 0);
        EXPECT_EQ(TXCheckEquiBif(twice.get(), twice->txb, parameter, 0.1, nullptr), 0);
        EXPECT_EQ(twice->ErrorCode, 0);
        EXPECT_EQ(twice->txb->biftype, 4);
    }
    for (const auto flow : {never_critical, undefined_above_zero, two_folds}) {
        const Temporarily start(c, flow == two_folds ? -0.3 : 0.5);
        const OpenHandle tx = open(flow, {0.6});
        TXSetMaxNewtSteps(tx.get(), flow == two_folds ? 1 : 10);
        EXPECT_EQ(TXLocateEquiBif(tx.get(), tx->txb, &c, nullptr), 0);
        EXPECT_EQ(tx->ErrorCode, 30);
    }
}

struct Thrown {};
double entry_c = 0, raised_c = 0;

void throwing_where_raised(double, double* y, double* f) {
    if ((raised_c = c) != entry_c) throw Thrown();
    f[0] = c - y[0] * y[0];
}
void slope(double, double* y, double** J) {
    if ((raised_c = c) != entry_c) throw Thrown();
    J[0][0] = -2 * y[0];
}
constexpr jac_t parameter_slope = [](double, double*, double** J) { J[0][0] = 0, J[0][1] = 1; };

// The first evaluation with another parameter is one for a difference quotient: with numerical
// Jacobians that of f, with analytic ones that of the criterion.
TEST(Location, RestoresAPerturbedParameterExactly) {
    for (const bool analytic : {false, true}) {
        const Temporarily start(c, 1e-9);  // c + h - h is not c
        entry_c = c;
        const OpenHandle tx = open(throwing_where_raised, {0.25});
        tx->LambdaPert = 1e-5;
        if (analytic) {
            tx->jac = slope;
            tx->paramjac = parameter_slope;
        }
        EXPECT_THROW(TXLocateEquiBif(tx.get(), tx->txb, &c, nullptr), Thrown);
        EXPECT_EQ(c, entry_c);
        EXPECT_NEAR(raised_c, analytic ? tx->LambdaPert : tx->ParamJacPert, 2e-9);
        EXPECT_EQ(tx->txb->y[0], 0.25);
        tx->txb->T = 0.1;
        EXPECT_THROW(TXLocateBif(tx.get(), tx->txb, &c, 0, nullptr), Thrown);
        EXPECT_EQ(c, entry_c);
        EXPECT_EQ(tx->nparam, 2);
    }
}

}  // namespace
