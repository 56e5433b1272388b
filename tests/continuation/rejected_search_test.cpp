// What a one-parameter run leaves in the record when it ends on a search in vain.
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

#include "continuation/recorder.hpp"
#include "core/guards.hpp"
#include "handles.hpp"
#include "tx.h"

using namespace testing_support;
using trajex::Temporarily;

namespace {

double c = 0;

/// A pitchfork that is located but not classified: the last component of its eigenvector is 0.
void unclassified(double t, double* y, double* f) {
    f[0] = c * y[0] - y[0] * y[0] * y[0];
    f[1] = std::cos(t) - y[1];
}

}  // namespace

TEST(RejectedSearch, LeavesTheLastPointInTheRecord) {
    const Temporarily start(c, -0.2);
    const OpenHandle tx = open_variational(unclassified, 2, nullptr, nullptr, 1e-9, &c);
    tx->LambdaNewtRelTol = 1e-6;
    double y[] = {0, 0.5};
    double dc = 0.05;
    Points points;
    const TextStream state;
    EXPECT_EQ(TXNonAutoCont(tx.get(), 0, y, 2 * std::numbers::pi, &c, &dc, 0, 1 | 4, (FILE*)state,
                            record_point, as_stream(points)),
              0);
    EXPECT_EQ(TXErrorTrajex(tx.get()), 29);
    EXPECT_NE(state.text().find(" Checking bifurcation "), std::string::npos);
    EXPECT_EQ(Point::of(*tx), points.back());
}
