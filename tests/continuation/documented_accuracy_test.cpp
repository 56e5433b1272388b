// The README says how exactly the Hopf point of the Lorenz equations is located under given
// settings. These are its figures.
#include <gtest/gtest.h>

#include <cmath>

#include "handles.hpp"

namespace {

using testing_support::open_recording;
using testing_support::OpenHandle;

double rho;

void lorenz(double, double* y, double* f) {
    f[0] = 10 * (y[1] - y[0]);
    f[1] = rho * y[0] - y[1] - y[0] * y[2];
    f[2] = y[0] * y[1] - 8.0 / 3 * y[2];
}

void jacobian(double, double* y, double** J) {
    J[0][0] = -10, J[0][1] = 10, J[0][2] = 0;
    J[1][0] = rho - y[2], J[1][1] = -1, J[1][2] = -y[0];
    J[2][0] = y[1], J[2][1] = y[0], J[2][2] = -8.0 / 3;
}

void rho_jacobian(double, double* y, double** J) {
    J[0][0] = 0;
    J[1][0] = y[0];
    J[2][0] = 0;
}

struct Settings {
    double RelTol;
    bool explicit_tolerances;
    bool analytic;
    double documented_error;
};

class DocumentedAccuracy : public testing::TestWithParam<Settings> {};

TEST_P(DocumentedAccuracy, HopfPointOfTheLorenzEquations) {
    const Settings& settings = GetParam();
    rho = 2;
    const OpenHandle tx = open_recording(lorenz, 3, settings.RelTol);
    double perturbation = 1000 * settings.RelTol;
    if (settings.explicit_tolerances) {
        perturbation = 1e-6;
        tx->NewtAbsTol = 1e-9;
        tx->LambdaNewtRelTol = 1e-8;
        tx->LambdaPert = perturbation;
    }
    if (settings.analytic) {
        TXVarOpenTrajex(tx.get(), jacobian, 1, rho_jacobian, &rho);
    } else {
        TXVarOpenTrajex(tx.get(), nullptr, perturbation, 1, nullptr, perturbation, &rho);
    }
    double y[] = {1.6, 1.6, 1};
    double step = 0.5;
    ASSERT_EQ(TXEquiCont(tx.get(), y, &rho, &step, 1, 0), 1);
    EXPECT_LE(std::fabs(rho - 470.0 / 19), 1.2 * settings.documented_error);
}

INSTANTIATE_TEST_SUITE_P(
    Readme, DocumentedAccuracy,
    testing::Values(Settings{1e-6, false, true, 7e-2}, Settings{1e-6, false, false, 7e-2},
                    Settings{1e-9, false, true, 8e-5}, Settings{1e-9, false, false, 4e-3},
                    Settings{1e-12, false, true, 5e-9}, Settings{1e-12, false, false, 4e-5},
                    Settings{1e-9, true, true, 2e-11}, Settings{1e-9, true, false, 3e-7}));

}  // namespace
