// Opening and closing of the variational sub-record: which variable arguments are read.
#include "support.hpp"

namespace {

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
        EXPECT_EQ(tx->jac, jac);
        EXPECT_DOUBLE_EQ(tx->JacPert, JacPert);
        EXPECT_EQ(tx->paramjac, paramjac);
        EXPECT_DOUBLE_EQ(tx->ParamJacPert, ParamJacPert);
        EXPECT_EQ(tx->nparam, count);
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
    TXSetAbsTol(tx.get(), 1e-9);
    TXSetMaxStep(tx.get(), 0.5);
    ASSERT_EQ(TXVarOpenTrajex(tx.get(), no_jacobian, 2, &no_parameter_jacobian, &a, &b), 1);
    EXPECT_EQ(tx->TX->RelTol, 1e-7);
    EXPECT_EQ(tx->TX->AbsTol, 1e-9);
    EXPECT_EQ(tx->TX->h, 0.25);
    EXPECT_EQ(tx->TX->hmax, 0);
    EXPECT_EQ(tx->TX->TerminateOnFatalError, 1);
    for (int i = 0; i < 5; ++i) std::fill_n(tx->TX->j[i], 5, 1.0);
    for (int closing = 0; closing < 2; ++closing) {
        EXPECT_EQ(TXVarCloseTrajex(tx.get()), 1);
        EXPECT_EQ(tx->TX, nullptr);
        EXPECT_EQ(tx->nparam, 2);
        EXPECT_EQ(tx->c[1], &b);
        EXPECT_EQ(tx->cp[0] + tx->cp[1], 0);
    }
}

}  // namespace
