#include "allocation.hpp"

#include <cstddef>
#include <cstdlib>
#include <new>

// Both forms of each: under a sanitizer the array form is not made of the other one.
void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    using Failing = testing_support::FailingAllocation;
    ++Failing::made;
    if (Failing::granted == 0) {
        Failing::refused = true;
        return nullptr;
    }
    if (Failing::granted > 0) --Failing::granted;
    return std::malloc(size != 0 ? size : 1);
}

void* operator new(std::size_t size) {
    if (void* const memory = operator new(size, std::nothrow)) return memory;
    throw std::bad_alloc();
}

void* operator new[](std::size_t size) {
    return operator new(size);
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
