// Handles of different threads do not touch each other: four threads that run all operations at the
// same time, in different orders, get what one gets alone. Run under the thread sanitizer too,
// which sees what equal results might hide.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <thread>
#include <vector>

#include "operations.hpp"

namespace {

using namespace testing_support;
using Outcomes = std::vector<std::vector<double>>;

/// The outcomes of all operations, run from the given one on, in the order of the list.
Outcomes run_all(std::size_t first) {
    const std::vector<Operation>& all = operations();
    Outcomes outcomes(2 * all.size());
    for (std::size_t i = 0; i < 2 * all.size(); ++i) {
        const std::size_t which = (first + i) % (2 * all.size());
        Bench bench(which % 2 == 0);
        outcomes[which] = bench.outcome(all[which / 2].run(bench));
    }
    return outcomes;
}

TEST(Threads, WorkOnTheirOwnHandles) {
    const Outcomes alone = run_all(0);
    EXPECT_TRUE(std::all_of(alone.begin(), alone.end(), [](const auto& o) { return o[0] == 1; }));
    for (int round = 0; round < 3; ++round) {
        Outcomes outcomes[4];
        std::vector<std::thread> threads;
        for (std::size_t i = 0; i < 4; ++i) {
            threads.emplace_back([&outcomes, i] { outcomes[i] = run_all(13 * i); });
        }
        for (std::thread& thread : threads) thread.join();
        for (const Outcomes& there : outcomes) EXPECT_EQ(there, alone);
    }
}

}  // namespace
