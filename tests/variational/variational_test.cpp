// The variational sub-record: which variable arguments are read; numerical Jacobians against
// analytic ones; state, fundamental matrix and sensitivities against closed forms, and every bit as
// recorded.
#include "checksums.hpp"
#include "support.hpp"

namespace {

void expect_sensitivities(unsigned flags, jac_t paramjac, double RelTol) {
    constexpr double t1 = 1.5;
    const double a = Uncoupled::a, b = Uncoupled::b, offset = Uncoupled::d / b;
    const double ea = std::exp(a * t1), eb = std::exp(b * t1);
    // State, fundamental matrix and sensitivities by component.
    const std::vector<double> exact[2] = {
        {ea, ea, 0, t1 * ea, 0, 0},
        {(3 + offset) * eb - offset, 0, eb, 0, t1 * (3 + offset) * eb - offset / b * (eb - 1),
         (eb - 1) / b}};
    const OpenHandle tx = open_variational(Uncoupled::flow, 2, Uncoupled::jacobian, paramjac,
                                           RelTol, &Uncoupled::a, &Uncoupled::b, &Uncoupled::d);
    std::vector<std::size_t> taken{1, 2};  // of the columns of exact
    for (std::size_t q = 0; q < 3; ++q) {
        tx->cp[q] = (flags >> q & 1) != 0;
        if (tx->cp[q] != 0) taken.push_back(3 + q);
    }
    Matrix Phi = Matrix::identity(2, taken.size()), inside = Phi;
    double t = 0, y[2] = {1, 3};
    ASSERT_EQ(TXVarIntegrate(tx.get(), &t, t1, y, Phi), 1);
    EXPECT_EQ(t, t1);
    for (std::size_t i = 0; i < 2; ++i) {
        EXPECT_NEAR(y[i], exact[i][0], 50 * RelTol);
        for (std::size_t m = 0; m < taken.size(); ++m) {
            EXPECT_NEAR(Phi[i][m], exact[i][taken[m]], exact[i][taken[m]] == 0 ? 0 : 50 * RelTol);
        }
    }
    // The sub-record holds the last step: the state, then the rows one after the other.
    const double* last = tx->TX->ylast;
    ASSERT_EQ(TXVarInterpolate(tx.get(), tx->TX->tlast, y, inside), 1);
    for (const double component : y) EXPECT_DOUBLE_EQ(*last++, component);
    for (std::size_t i = 0; i < 2; ++i) {
        for (std::size_t m = 0; m < taken.size(); ++m) EXPECT_DOUBLE_EQ(*last++, inside[i][m]);
    }
    EXPECT_TRUE(Phi.untouched_outside() && inside.untouched_outside());
    // With other parameters there is no such step.
    tx->cp[0] = tx->cp[0] == 0;
    EXPECT_EQ(TXVarInterpolate(tx.get(), t, y, Phi), 0);
    EXPECT_EQ(tx->TX->ErrorCode, 12);
}

TEST(ExtendedSystem, CarriesTheActiveParametersInOrder) {
    for (unsigned flags = 0; flags < 8; ++flags) {
        for (const double RelTol : {1e-7, 1e-10}) {
            SCOPED_TRACE(testing::Message() << "active " << flags << ", tolerance " << RelTol);
            expect_sensitivities(flags, Uncoupled::parameter_jacobian, RelTol);
            expect_sensitivities(flags, nullptr, RelTol);
        }
    }
}

/// A ring with a coupling of every unit to the sum of all, so that no element of J is zero.
thread_local std::size_t n = 0;
double strength = 0.8;

void coupled(double t, double* y, double* f) {
    double sum = 0;
    for (std::size_t i = 0; i < n; ++i) sum += y[i];
    for (std::size_t i = 0; i < n; ++i) {
        f[i] = strength * y[(i + 1) % n] * t - y[i] * y[i] * y[i] + sum / double(n);
    }
}
void coupled_jacobian(double t, double* y, double** J) {
    for (std::size_t i = 0; i < n; ++i) {
        for (std::size_t k = 0; k < n; ++k) J[i][k] = 1 / double(n);
        J[i][i] -= 3 * y[i] * y[i];
        J[i][(i + 1) % n] += strength * t;
    }
}
void by_strength(double t, double* y, double** P) {
    for (std::size_t i = 0; i < n; ++i) P[i][0] = y[(i + 1) % n] * t;
}

// Recorded when plain loops over the method and over the product of matrices gave the same bits.
TEST(ExtendedSystem, HasTheRecordedBits) {
    Checksum sum;
    for (const std::size_t order : {1u, 2u, 3u, 4u, 5u, 6u, 7u, 8u, 9u, 10u, 13u, 50u, 200u}) {
        n = order;
        const OpenHandle tx =
            open_variational(coupled, int(n), coupled_jacobian, by_strength, 0, &strength);
        tx->cp[0] = 1;
        tx->TX->h = 0.0625;
        Numbers numbers(n);
        std::vector<double> y(n);
        for (double& component : y) component = numbers.next();
        Matrix Phi = Matrix::identity(n, n + 1);
        double t = 0;
        for (int step = 0; step < (n < 200 ? 6 : 2); ++step) {
            ASSERT_EQ(TXVarStep(tx.get(), &t, y.data(), Phi), 1);
            for (const double at : {t, 0.7 * tx->TX->tfirst + 0.3 * t}) {
                std::vector<double> inside(n);
                Matrix M(n, n + 1);
                ASSERT_EQ(TXVarInterpolate(tx.get(), at, inside.data(), M), 1);
                sum.add(inside.data(), n);
                for (std::size_t i = 0; i < n; ++i) sum.add(M[i], n + 1), sum.add(Phi[i], n + 1);
            }
            sum.add(y.data(), n);
        }
    }
    EXPECT_EQ(sum.value(), 5563663590148158303u);
}

// The two flows are stepped on different records: neither disturbs the other. Differences start
// from the value that the stage has computed already.
TEST(VariationalRecord, IsIndependentOfTheHandle) {
    const OpenHandle tx =
        open_variational(Probe::flow<Lorenz::flow>, 3, nullptr, nullptr, 1e-8, &Lorenz::rho);
    tx->cp[0] = 1;
    double t = 0, y[3] = {1, 1, 1};
    Matrix Phi = Matrix::identity(3, 4);
    ASSERT_EQ(TXStep(tx.get(), &t, y), 1);
    EXPECT_EQ(TXVarInterpolate(tx.get(), 0, y, Phi), 0);
    EXPECT_TRUE(TXErrorTrajex(tx.get()) == 0 && TXErrorTrajex(tx->TX) == 12);
    const double h = tx->h, tlast = tx->tlast;
    Probe::set(Probe::never);
    tx->TX->h = 1e-4;  // no attempt is rejected
    ASSERT_EQ(TXVarStep(tx.get(), &t, y, Phi), 1);
    EXPECT_EQ(Probe::calls, 8 * (1 + 3 + 1));
    EXPECT_TRUE(tx->h == h && tx->tlast == tlast);
    const double sub_h = tx->TX->h;
    ASSERT_EQ(TXIntegrate(tx.get(), &t, 2, y), 1);
    EXPECT_EQ(tx->TX->h, sub_h);
}

// ---- Numerical Jacobians ------------------------------------------------------------------------

double level = 1e-9;
constexpr Cut first_component_at_level = [](double, double* y) { return y[0] - level; };

// A forward difference of f errs by eps f'' / 2. The values are such that x + eps - eps is not x:
// only a saved value comes back exactly.
TEST(NumericalJacobian, ErrsByThePerturbationAndRestoresEveryBit) {
    const Temporarily mu(VanDerPol::mu, 1.1);
    for (const double eps : {1e-3, 1e-5}) {
        const OpenHandle tx = open_variational(Probe::flow<VanDerPol::flow>, 2, nullptr, nullptr,
                                               1e-6, &VanDerPol::mu, &level);
        TXSetCut(tx.get(), first_component_at_level, 1e-8);
        tx->JacPert = tx->ParamJacPert = eps;
        double y[2] = {1e-10, -1.3}, gradient[4];
        Matrix J(2, 2), exact(2, 2), P(2, 2), exact_P(2, 2);
        Probe::set(Probe::never);
        ASSERT_EQ(TXNumJac(tx.get(), 0, y, J), 1);
        ASSERT_EQ(TXNumParamJac(tx.get(), 0, y, P), 1);
        ASSERT_EQ(TXNumCutJac(tx.get(), 0, y, &level, &VanDerPol::mu, gradient), 1);
        EXPECT_EQ(Probe::calls, 3 + 3);
        EXPECT_TRUE(y[0] == 1e-10 && y[1] == -1.3 && VanDerPol::mu == 1.1 && level == 1e-9);

        VanDerPol::jacobian(0, y, exact);
        VanDerPol::parameter_jacobian(0, y, exact_P);
        exact[1][0] -= eps * VanDerPol::mu * y[1];
        const double rounding = 1e-15 / eps, exact_gradient[4] = {1, 0, -1, 0};
        for (std::size_t m = 0; m < 4; ++m) {
            EXPECT_NEAR(J[m / 2][m % 2], exact[m / 2][m % 2], rounding);
            EXPECT_NEAR(P[m / 2][m % 2], exact_P[m / 2][m % 2], rounding);
            EXPECT_NEAR(gradient[m], exact_gradient[m], rounding);
        }
    }
}

// ---- The sub-record -----------------------------------------------------------------------------

constexpr auto oscillator = Oscillator::flow;
constexpr jac_t numerical = nullptr;

void no_jacobian(double, double*, double**) {}
void no_parameter_jacobian(double, double*, double**) {}

double a, b;

// Each form of the arguments: a value read from the wrong place would show in what follows it.
TEST(VarOpen, ReadsTheArgumentsThatTheOthersAskFor) {
    const OpenHandle tx = open_recording(oscillator, 2, 1e-6);
    const auto expect_read = [&](int opened, jac_t jac, double JacPert, jac_t paramjac,
                                 double ParamJacPert, std::initializer_list<double*> parameters) {
        const int count = static_cast<int>(parameters.size());
        EXPECT_EQ(opened, 1);
        EXPECT_TRUE(tx->jac == jac && tx->paramjac == paramjac && tx->nparam == count);
        EXPECT_DOUBLE_EQ(tx->JacPert, JacPert);
        EXPECT_DOUBLE_EQ(tx->ParamJacPert, ParamJacPert);
        EXPECT_TRUE(std::equal(parameters.begin(), parameters.end(), tx->c));
        EXPECT_EQ(tx->TX->order, 2 * (2 + count) + 2 + 1);
    };
    expect_read(TXVarOpenTrajex(tx.get(), numerical, 1e-5, 0), nullptr, 1e-5, nullptr, 1e-3, {});
    expect_read(TXVarOpenTrajex(tx.get(), no_jacobian, 2, numerical, 1e-4, &a, &b), no_jacobian,
                1e-5, nullptr, 1e-4, {&a, &b});
    expect_read(TXVarOpenTrajex(tx.get(), numerical, 1e-7, 1, &no_parameter_jacobian, &b), nullptr,
                1e-7, no_parameter_jacobian, 1e-4, {&b});
    expect_read(TXVarOpenTrajex(tx.get(), numerical, 1e-3, 3, numerical, 1e-2, &a, &b, &a), nullptr,
                1e-3, nullptr, 1e-2, {&a, &b, &a});
}

// The settings of the handle, and room for the border; closing keeps the parameters of the handle.
TEST(VarOpen, MakesASubRecordWithTheSettingsOfTheHandle) {
    const OpenHandle tx = open_terminating(oscillator, 2, 1e-7, 0.25);
    tx->AbsTol = 1e-9, tx->hmax = 0.5;
    ASSERT_EQ(TXVarOpenTrajex(tx.get(), no_jacobian, 2, &no_parameter_jacobian, &a, &b), 1);
    const Trajex& sub = *tx->TX;
    EXPECT_TRUE(sub.RelTol == 1e-7 && sub.AbsTol == 1e-9 && sub.h == 0.25 && sub.hmax == 0);
    EXPECT_EQ(sub.TerminateOnFatalError, 1);
    std::fill_n(sub.j[0], 5 * 5, 1.0);
    for (int closing = 0; closing < 2; ++closing) {
        EXPECT_EQ(TXVarCloseTrajex(tx.get()), 1);
        EXPECT_TRUE(tx->TX == nullptr && tx->nparam == 2 && tx->c[1] == &b);
        EXPECT_EQ(tx->cp[0] + tx->cp[1], 0);
    }
}

}  // namespace
