// Makes a chosen allocation of the library fail, and counts them. The program's operator new is
// replaced by one that counts; link allocation.cpp.
#pragma once

namespace testing_support {

/// While it lives, the nth allocation from now on fails (1 is the next one), and every later one.
class FailingAllocation {
  public:
    explicit FailingAllocation(int nth);
    ~FailingAllocation();
    FailingAllocation(const FailingAllocation&) = delete;
    FailingAllocation& operator=(const FailingAllocation&) = delete;

    /// Whether the program came as far as the failure.
    bool failed() const;
};

/// How many allocations the program has made.
long allocations();

}  // namespace testing_support
