// The bifurcation record and the catalogue.
#include "bifurcation/record.hpp"

#include <gtest/gtest.h>

#include <algorithm>

#include "allocation.hpp"
#include "handles.hpp"
#include "systems.hpp"
#include "tx.h"

namespace {

using testing_support::FailingAllocation;
using testing_support::open_recording;
using testing_support::open_variational;
using testing_support::OpenHandle;
using testing_support::Uncoupled;

TEST(Record, IsOneBlockInTheStatedOrder) {
    for (const int m : {0, 2}) {
        const OpenHandle tx = m == 0 ? open_variational(Uncoupled::flow, 2, nullptr, nullptr, 1e-6)
                                     : open_variational(Uncoupled::flow, 2, nullptr, nullptr, 1e-6,
                                                        &Uncoupled::a, &Uncoupled::b);
        TrajexBif* bif = TXCreateBif(tx.get());
        ASSERT_NE(bif, nullptr);
        EXPECT_EQ(tx->txb, nullptr);  // the caller's, until it is stored there
        EXPECT_EQ(bif->tx, tx.get());
        EXPECT_EQ(bif->order, 2);
        EXPECT_EQ(bif->t, 0);
        EXPECT_EQ(bif->T, 0);
        EXPECT_EQ(bif->biftype + bif->cindi[0] + bif->steps, 0);
        const int rows = 2 + m + 1;
        EXPECT_EQ(bif->Phi[0], bif->y + 2);
        for (int i = 1; i < rows; ++i) EXPECT_EQ(bif->Phi[i], bif->Phi[i - 1] + rows);
        EXPECT_EQ(bif->c, bif->Phi[rows - 1] + rows);
        const double* next = bif->c + m;
        for (const double* vector : {bif->er, bif->ei, bif->trans, bif->tang, bif->intang, bif->top,
                                     bif->bot, bif->left, bif->right}) {
            EXPECT_EQ(vector, next);
            next += 2;
        }
        std::fill_n(bif->y, rows * rows + 10 * 2 + m, 1.0);  // all of it is there

        // Destroying the handle's own record leaves none behind that closing would destroy again.
        tx->txb = bif;
        EXPECT_EQ(TXDestroyBif(tx.get(), bif), 1);
        EXPECT_EQ(tx->txb, nullptr);
        EXPECT_EQ(TXDestroyBif(tx.get(), nullptr), 0);
        EXPECT_EQ(tx->ErrorCode, 0);
    }
}

TEST(Record, ReportsEveryFailedAllocation) {
    const OpenHandle tx = open_recording(Uncoupled::flow, 2);
    int refusals = 0;
    for (;; ++refusals) {
        const FailingAllocation failing(refusals + 1);
        tx->txb = TXCreateBif(tx.get());
        if (tx->txb != nullptr) break;
        ASSERT_TRUE(failing.failed());
        EXPECT_EQ(tx->ErrorCode, 3);
    }
    EXPECT_EQ(refusals, 3);
}

TEST(Record, TypesHaveTheirNamesAndIcons) {
    const char* const names[] = {"NOT DETERMINED",  "TORUS",     "TRANSCRITICAL", "SADDLE-NODE",
                                 "PERIOD DOUBLING", "PITCHFORK", "HOPF"};
    const char* const left[] = {"?", "-oO-", "-/-", "(", "-(-", "-(-"};
    const char* const right[] = {"?", "-Oo-", "-\\-", ")", "-)-", "-)-"};
    for (int type = 0; type < 7; ++type) EXPECT_STREQ(TrajexBifName[type], names[type]);
    for (int type = 0; type < 6; ++type) {
        EXPECT_STREQ(TrajexBifIconLeft[type], left[type]);
        EXPECT_STREQ(TrajexBifIconRight[type], right[type]);
    }
    EXPECT_EQ(TrajexBifIconLeft[6], nullptr);
    EXPECT_EQ(TrajexBifIconRight[6], nullptr);
}

}  // namespace
