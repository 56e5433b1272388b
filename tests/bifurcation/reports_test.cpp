// The reports of continuation runs, byte by byte.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <numbers>
#include <string>
#include <vector>

#include "bifurcation/record.hpp"
#include "continuation/recorder.hpp"
#include "handles.hpp"
#include "systems.hpp"
#include "tx.h"

namespace {

using testing_support::open_variational;
using testing_support::OpenHandle;
using testing_support::pi;
using testing_support::TextStream;

/// A handle whose record describes a point with numbers of all sizes and signs.
class Reports : public testing::Test {
  protected:
    void describe(int n, int m) {
        const auto flow = testing_support::Oscillator::flow;
        tx_ = m == 1 ? open_variational(flow, n, nullptr, nullptr, 1e-6, &own_[0])
                     : open_variational(flow, n, nullptr, nullptr, 1e-6, &own_[0], &own_[1]);
        bif_ = tx_->txb = TXCreateBif(tx_.get());
        bif_->T = 2 * pi;
        const auto fill = [](int count, double* vector, const double(&values)[2]) {
            std::copy_n(values, count, vector);
        };
        fill(m, bif_->c, {0.5, -1234.5678});
        fill(n, bif_->y, {-2, 1.0 / 3});
        fill(n, bif_->er, {0.25, -1.5});
        fill(n, bif_->ei, {n == 1 ? 0.0 : 0.5, 0});
        fill(n, bif_->trans, {0.6, -0.8});
        fill(n, bif_->tang, {1, 1e-5});
        fill(n, bif_->left, {-2.5, 1e10});
        fill(n, bif_->right, {-1.5, -1e-10});
        fill(n, bif_->top, {1, 0});
        fill(n, bif_->bot, {2, 3});
        bif_->cleft = 0.4;
        bif_->cright = 0.6;
        bif_->ctop = 0.45;
        bif_->cbot = 0.55;
    }
    void classify(int type, const char* text, int direction) {
        bif_->biftype = type;
        std::snprintf(bif_->btype, sizeof bif_->btype, "%s", text);
        bif_->indir = direction;
    }
    std::string text(void (*report)(Trajex*, FILE*)) const {
        const TextStream stream;
        report(tx_.get(), stream);
        return stream.text();
    }

    double own_[2] = {0.75, 1e-9};  // not the values in the record
    OpenHandle tx_;
    TrajexBif* bif_ = nullptr;
};

TEST_F(Reports, OfAPoint) {
    describe(2, 1);
    bif_->cindi[0] = trajex::equilibrium_path;
    bif_->steps = 7;
    EXPECT_EQ(text(TXStateOutput),
              "   Step: 7      \n"
              "   Parameters     State           Eigenvalue             Modulus\n"
              "    0.5           -2               0.250000+i0.500000    0.559017    \n"
              "                   0.33333333     -1.500000-i0.000000    1.5         \n"
              "....................................................................\n");

    describe(1, 2);
    bif_->cindi[0] = trajex::orbit_path;
    bif_->steps = 1234;
    EXPECT_EQ(text(TXStateOutput),
              "   Step: 1234     T=6.2831853    \n"
              "   Parameters     State           Eigenvalue             Modulus\n"
              "    0.5           -2               0.250000-i0.000000    0.25        \n"
              "   -1234.5678     \n"
              "--------------------------------------------------------------------\n");
}

TEST_F(Reports, HaveThePeriodAndTheRuleOfTheirPath) {
    describe(2, 1);
    const auto rule = [](char mark) { return std::string(68, mark) + "\n"; };
    const std::string rules[] = {"", rule('-'), rule('='), rule('.'), rule(':')};
    for (int kind = 0; kind <= 4; ++kind) {
        bif_->cindi[0] = kind;
        const std::string state = text(TXStateOutput);
        const std::string last_row = "-1.500000-i0.000000    1.5         \n";
        EXPECT_TRUE(state.ends_with(last_row + rules[kind])) << state;
        EXPECT_EQ(state.find("T=") != std::string::npos, kind <= 2) << state;
        EXPECT_EQ(text(TXStateBifOutput).find("T=") != std::string::npos, kind <= 2);
    }
}

TEST_F(Reports, OfABifurcationThatIsNotClassified) {
    describe(2, 1);
    bif_->cindi[0] = trajex::equilibrium_path;
    EXPECT_EQ(text(TXStateBifOutput),
              "\n"
              "+-------------------------------------------------------------------+\n"
              "|                        Bifurcation                                |\n"
              "|                                                                   |\n"
              "|                                                                   |\n"
              "| Parameters     State           Eigenvalue            Modulus      |\n"
              "|  0.75          -2               0.250000+i0.500000   0.559017     |\n"
              "|                 0.333333       -1.500000-i0.000000   1.5          |\n"
              "|                                                                   |\n"
              "+-------------------------------------------------------------------+\n");
}

TEST_F(Reports, OfAPitchforkOfAnOrbit) {
    describe(2, 1);
    bif_->cindi[0] = trajex::orbit_path;
    classify(trajex::pitchfork, " -(- 1->2", 1);
    EXPECT_EQ(text(TXStateBifOutput),
              "\n"
              "+-------------------------------------------------------------------+\n"
              "|                        PITCHFORK -(- 1->2                         |\n"
              "|                                                                   |\n"
              "|                            T=6.28319                              |\n"
              "|                                                                   |\n"
              "| Parameters     State           Eigenvalue            Modulus      |\n"
              "|  0.75          -2               0.250000+i0.500000   0.559017     |\n"
              "|                 0.333333       -1.500000-i0.000000   1.5          |\n"
              "|                                                                   |\n"
              "|                Transversal    Tangent                             |\n"
              "|                 0.6            1                                  |\n"
              "|                -0.8            1e-05                              |\n"
              "|                                                                   |\n"
              "|      Left           Right          Top *          Bottom          |\n"
              "|       0.4            0.6            0.45           0.55           |\n"
              "|      ............   ............   ............   ............    |\n"
              "|      -2.5           -1.5            1              2              |\n"
              "|       1e+10         -1e-10          0              3              |\n"
              "+-------------------------------------------------------------------+\n");
    classify(trajex::pitchfork, "", 2);
    EXPECT_NE(text(TXStateBifOutput).find("Left           Right          Top            Bottom *"),
              std::string::npos);
    classify(trajex::pitchfork, "", 3);
    EXPECT_NE(text(TXStateBifOutput).find("Left *         Right          Top            Bottom  "),
              std::string::npos);
}

TEST_F(Reports, OfASaddleNodeHaveNoTangent) {
    describe(1, 2);
    bif_->cindi[0] = trajex::equilibrium_path;
    classify(trajex::saddle_node, " ) or ( ", 4);
    EXPECT_EQ(text(TXStateBifOutput),
              "\n"
              "+-------------------------------------------------------------------+\n"
              "|                        SADDLE-NODE ) or (                         |\n"
              "|                                                                   |\n"
              "|                                                                   |\n"
              "| Parameters     State           Eigenvalue            Modulus      |\n"
              "|  0.75          -2               0.250000-i0.000000   0.25         |\n"
              "|  1e-09                                                            |\n"
              "|                                                                   |\n"
              "|                Transversal    Tangent                             |\n"
              "|                 0.6                                               |\n"
              "|                                                                   |\n"
              "|      Left           Right *        Top            Bottom          |\n"
              "|       0.4            0.6            0.45           0.55           |\n"
              "|      ............   ............   ............   ............    |\n"
              "|      -2.5           -1.5            1              2              |\n"
              "+-------------------------------------------------------------------+\n");
}

TEST_F(Reports, OfThePathNameTheContinuedParameters) {
    describe(2, 2);
    bif_->cindi[1] = 1;
    bif_->cindi[2] = 0;
    for (const int kind : {1, 3}) {
        bif_->cindi[0] = kind;
        EXPECT_EQ(text(TXPathOutput), "-1234.5678 -2 0.3333333333 \n");
    }
    for (const int kind : {2, 4}) {
        bif_->cindi[0] = kind;
        EXPECT_EQ(text(TXPathOutput), "-1234.5678 0.5 -2 0.3333333333 \n");
    }
}

}  // namespace
