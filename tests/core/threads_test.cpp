// Handles of different threads do not touch each other: two threads that run all operations at the
// same time, in opposite orders, get what one gets alone. Run under the thread sanitizer, which
// sees what equal results might hide.
#include <gtest/gtest.h>

#include <algorithm>
#include <thread>
#include <vector>

#include "operations.hpp"
#include "tx.h"

namespace {

using namespace testing_support;
using Outcomes = std::vector<std::vector<double>>;

Outcomes run_all(bool backwards) {
    Outcomes outcomes;
    std::vector<Operation> order = operations();
    if (backwards) std::reverse(order.begin(), order.end());
    for (const Operation& operation : order) {
        for (const Jacobians jacobians : {Jacobians::analytic, Jacobians::numerical}) {
            Bench bench(jacobians);
            const int result = operation.run(bench);
            outcomes.push_back(bench.outcome(result));
        }
    }
    return outcomes;
}

TEST(Threads, WorkOnTheirOwnHandles) {
    const Outcomes forwards = run_all(false);
    const Outcomes backwards = run_all(true);
    for (int round = 0; round < 20; ++round) {
        Outcomes there;
        std::thread other([&there] { there = run_all(true); });
        const Outcomes here = run_all(false);
        other.join();
        ASSERT_EQ(here, forwards);
        ASSERT_EQ(there, backwards);
    }
}

}  // namespace
