#include "allocation.hpp"

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

// Allocations still granted; negative while none is to fail.
std::atomic<int> granted{-1};

std::atomic<bool> refused{false};

std::atomic<long> made{0};

bool refuse() {
    if (granted.load() < 0) return false;
    if (granted.load() == 0) {
        refused = true;
        return true;
    }
    granted.fetch_sub(1);
    return false;
}

}  // namespace

// Both forms of each: under a sanitizer the array form is not made of the other one.
void* operator new(std::size_t size) {
    ++made;
    void* memory = refuse() ? nullptr : std::malloc(size != 0 ? size : 1);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}

void* operator new[](std::size_t size) {
    return operator new(size);
}

void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    ++made;
    return refuse() ? nullptr : std::malloc(size != 0 ? size : 1);
}

void* operator new[](std::size_t size, const std::nothrow_t& tag) noexcept {
    return operator new(size, tag);
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

void operator delete[](void* memory) noexcept {
    std::free(memory);
}

void operator delete[](void* memory, std::size_t) noexcept {
    std::free(memory);
}

namespace testing_support {

FailingAllocation::FailingAllocation(int nth) {
    refused = false;
    granted = nth - 1;
}

FailingAllocation::~FailingAllocation() {
    granted = -1;
}

bool FailingAllocation::failed() const {
    return refused.load();
}

long allocations() {
    return made.load();
}

}  // namespace testing_support
