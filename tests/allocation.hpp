// Makes a chosen allocation of the library fail, and counts them. The program's operator new is
// replaced by one that counts; link allocation.cpp.
#pragma once

#include <atomic>

namespace testing_support {

/// While it lives, the nth allocation from now on fails (1 is the next one), and every later one.
struct FailingAllocation {
    static inline std::atomic<int> granted{-1};  // negative while none is to fail
    static inline std::atomic<bool> refused{false};
    static inline std::atomic<long> made{0};

    explicit FailingAllocation(int nth) { refused = false, granted = nth - 1; }
    ~FailingAllocation() { granted = -1; }
    FailingAllocation(const FailingAllocation&) = delete;
    FailingAllocation& operator=(const FailingAllocation&) = delete;

    /// Whether the program came as far as the failure.
    bool failed() const { return refused; }
};

/// How many allocations the program has made.
inline long allocations() {
    return FailingAllocation::made;
}

}  // namespace testing_support
