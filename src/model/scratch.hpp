// Uninitialised work memory of a function that must not share any with other threads: on the stack
// up to a limit, which ordinary systems do not reach, else on the heap.
#pragma once

#include <cstddef>
#include <memory>
#include <type_traits>

namespace trajex {

template <class T, std::size_t limit>
class Scratch {
    static_assert(std::is_trivially_destructible_v<T>);

  public:
    explicit Scratch(std::size_t count) {
        if (count > limit) heap_ = std::make_unique_for_overwrite<std::byte[]>(count * sizeof(T));
        data_ = reinterpret_cast<T*>(heap_ ? heap_.get() : stack_);
        std::uninitialized_default_construct_n(data_, count);
    }
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;
    ~Scratch() = default;

    T* data() { return data_; }
    T& operator[](std::size_t i) { return data_[i]; }

  private:
    alignas(T) std::byte stack_[limit * sizeof(T)];
    std::unique_ptr<std::byte[]> heap_;
    T* data_;
};

}  // namespace trajex
