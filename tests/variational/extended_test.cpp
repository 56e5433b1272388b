// The extended system: state, fundamental matrix and sensitivities against closed forms and
// invariants.
#include "checksums.hpp"
#include "support.hpp"

namespace {

void expect_sensitivities(unsigned flags, jac_t paramjac, double RelTol) {
    constexpr double t1 = 1.5, error = 50;
    const double a = Uncoupled::a, b = Uncoupled::b, offset = Uncoupled::d / b;
    const double ea = std::exp(a * t1), eb = std::exp(b * t1);
    const double state[2] = {ea, (3 + offset) * eb - offset};
    const double by_parameter[3][2] = {
        {t1 * ea, 0}, {0, t1 * (3 + offset) * eb - offset / b * (eb - 1)}, {0, (eb - 1) / b}};

    const OpenHandle tx = open_variational(Uncoupled::flow, 2, Uncoupled::jacobian, paramjac,
                                           RelTol, &Uncoupled::a, &Uncoupled::b, &Uncoupled::d);
    std::vector<std::size_t> active;
    for (std::size_t q = 0; q < 3; ++q) {
        tx->cp[q] = (flags >> q & 1) != 0;
        if (tx->cp[q] != 0) active.push_back(q);
    }
    const std::size_t columns = 2 + active.size();
    Matrix Phi(2, 6, 77);
    for (std::size_t m = 0; m < 2 * columns; ++m)
        Phi[m / columns][m % columns] = m == 0 || m == columns + 1;
    double t = 0, y[2] = {1, 3};
    ASSERT_EQ(TXVarIntegrate(tx.get(), &t, t1, y, Phi), 1);
    EXPECT_EQ(t, t1);
    for (std::size_t i = 0; i < 2; ++i) {
        EXPECT_NEAR(y[i], state[i], error * RelTol);
        EXPECT_NEAR(Phi[i][i], i == 0 ? ea : eb, error * RelTol);
        EXPECT_EQ(Phi[i][1 - i], 0);
        for (std::size_t m = 0; m < active.size(); ++m) {
            EXPECT_NEAR(Phi[i][2 + m], by_parameter[active[m]][i], error * RelTol);
        }
        for (std::size_t k = columns; k < 6; ++k) EXPECT_EQ(Phi[i][k], 77);
    }
    // The sub-record holds the same: the state, then the rows one after the other.
    const double* const last = tx->TX->ylast;
    TXVarInterpolate(tx.get(), tx->TX->tlast, y, Phi);
    for (std::size_t i = 0; i < 2; ++i) {
        EXPECT_DOUBLE_EQ(last[i], y[i]);
        for (std::size_t k = 0; k < columns; ++k) {
            EXPECT_DOUBLE_EQ(last[2 + i * columns + k], Phi[i][k]);
        }
    }
    // With other parameters there is no such step.
    tx->cp[0] = tx->cp[0] == 0;
    tx->TX->TerminateOnFatalError = 0;
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

// det Phi = exp of the divergence integrated along the trajectory (Liouville).
TEST(ExtendedSystem, VolumesFollowTheDivergence) {
    double t = 0;
    double x[3] = {1, 2, 20};
    Matrix Phi = Matrix::identity(3, 3);
    const OpenHandle lorenz = open_variational(Lorenz::flow, 3, Lorenz::jacobian, nullptr, 1e-12);
    ASSERT_EQ(TXVarIntegrate(lorenz.get(), &t, 0.5, x, Phi), 1);
    EXPECT_NEAR(determinant(Phi, 3) / std::exp(-0.5 * (Lorenz::sigma + 1 + Lorenz::beta)), 1, 1e-6);

    for (const jac_t jac : {jac_t{}, jac_t{VanDerPol::jacobian}}) {
        const OpenHandle tx = open_variational(VanDerPol::flow, 2, jac, nullptr, 1e-11);
        const OpenHandle plain = open_recording(VanDerPol::flow_and_divergence, 3, 1e-11);
        double y[2] = {0.5, 1.5}, q[3] = {0.5, 1.5, 0};
        Matrix M = Matrix::identity(2, 2);
        t = 0;
        ASSERT_EQ(TXVarIntegrate(tx.get(), &t, 4, y, M), 1);
        t = 0;
        ASSERT_EQ(TXIntegrate(plain.get(), &t, 4, q), 1);
        EXPECT_NEAR(determinant(M, 2) / std::exp(q[2]), 1, jac != nullptr ? 1e-8 : 1e-4);
    }
}

// With fixed steps: halving the step divides the error inside it by 2^7.
TEST(ExtendedSystem, DenseOutputIsOfOrderSix) {
    const auto errors_inside = [](double h) {
        const OpenHandle tx = open_variational(Uncoupled::flow, 2, Uncoupled::jacobian,
                                               Uncoupled::parameter_jacobian, 0, &Uncoupled::a);
        tx->cp[0] = 1;
        tx->TX->h = h;
        double t = 0, y[] = {1, 0};
        const double inside = 0.3 * h, exact = std::exp(Uncoupled::a * inside);
        Matrix Phi = Matrix::identity(2, 5);
        EXPECT_EQ(TXVarStep(tx.get(), &t, y, Phi), 1);
        EXPECT_EQ(TXVarInterpolate(tx.get(), inside, y, Phi), 1);
        return std::array{std::fabs(Phi[0][0] - exact), std::fabs(Phi[0][2] - inside * exact)};
    };
    const auto wide = errors_inside(1), narrow = errors_inside(0.5);
    for (std::size_t m = 0; m < 2; ++m) EXPECT_NEAR(std::log2(wide[m] / narrow[m]), 7, 0.35);
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

TEST(VariationalSection, OscillatorCrossesAtOddMultiplesOfHalfPi) {
    const OpenHandle tx =
        open_variational(Oscillator::flow, 2, Oscillator::jacobian, nullptr, 1e-11);
    TXSetCut(tx.get(), first_component, 1e-9);
    double t = 0;
    double y[2] = {1, 0};
    Matrix Phi = Matrix::identity(2, 2);
    for (int crossing = 0; crossing < 4; ++crossing) {
        while (TXVarPoincareStep(tx.get(), &t, y, Phi) == 0) ASSERT_LT(t, 15);
        EXPECT_NEAR(t, (crossing + 0.5) * pi, 2e-9);
        EXPECT_LT(std::fabs(y[0]), 1e-9);
        EXPECT_EQ(std::signbit(y[0]), crossing % 2 == 0);  // beyond the section
        const double exact[] = {std::cos(t), std::sin(t), -std::sin(t), std::cos(t)};
        for (std::size_t m = 0; m < 4; ++m) EXPECT_NEAR(Phi[m / 2][m % 2], exact[m], 1e-9);
    }
}

// Differences start from the value that the stage has computed already.
TEST(ExtendedSystem, TakesOneEvaluationPerDifference) {
    const OpenHandle tx =
        open_variational(Probe::flow<Lorenz::flow>, 3, nullptr, nullptr, 1e-6, &Lorenz::rho);
    tx->cp[0] = 1;
    tx->TX->hmax = 1e-4;  // no attempt is rejected
    Matrix Phi(3, 4);
    double t = 0;
    double y[3] = {1, 1, 1};
    Probe::set(Probe::never);
    ASSERT_EQ(TXVarStep(tx.get(), &t, y, Phi), 1);
    EXPECT_EQ(Probe::calls, 8 * (1 + 3 + 1));
}

// The two flows are stepped on different records: neither disturbs the other.
TEST(VariationalRecord, IsIndependentOfTheHandle) {
    const OpenHandle tx = open_variational(Lorenz::flow, 3, nullptr, nullptr, 1e-8);
    double t = 0;
    double y[3] = {1, 1, 1};
    Matrix Phi = Matrix::identity(3, 3);
    ASSERT_EQ(TXStep(tx.get(), &t, y), 1);
    EXPECT_EQ(TXVarInterpolate(tx.get(), 0, y, Phi), 0);
    EXPECT_EQ(TXErrorTrajex(tx.get()), 0);
    EXPECT_EQ(TXErrorTrajex(tx->TX), 12);
    const double h = tx->h, tlast = tx->tlast;
    ASSERT_EQ(TXVarIntegrate(tx.get(), &t, 1, y, Phi), 1);
    EXPECT_EQ(tx->h, h);
    EXPECT_EQ(tx->tlast, tlast);
    const double sub_h = tx->TX->h;
    ASSERT_EQ(TXIntegrate(tx.get(), &t, 2, y), 1);
    EXPECT_EQ(tx->TX->h, sub_h);
    EXPECT_EQ(TXVarIntegrate(tx.get(), &t, 1, y, Phi), 0);
    EXPECT_EQ(TXErrorTrajex(tx.get()), 7);
}

}  // namespace
