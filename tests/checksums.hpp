// A number for the bits of many numbers: results that must not change in any bit are compared with
// one that was recorded, under every instruction set.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>

namespace testing_support {

/// Fowler, Noll and Vo's hash, of 64-bit words; all NaN count as one value.
class Checksum {
  public:
    void add(double x) { hash_ = (hash_ ^ (x == x ? std::bit_cast<std::uint64_t>(x) : 1)) * prime; }
    void add(const double* x, std::size_t n) {
        for (std::size_t i = 0; i < n; ++i) add(x[i]);
    }
    std::uint64_t value() const { return hash_ ^ hash_ >> 32; }

  private:
    static constexpr std::uint64_t prime = 1099511628211;
    std::uint64_t hash_ = 14695981039346656037u;
};

/// Numbers in (-1, 1), the same everywhere.
class Numbers {
  public:
    explicit Numbers(std::uint64_t seed) : state_(seed * 2 + 1) {}
    double next() {
        state_ = state_ * 6364136223846793005u + 1442695040888963407u;
        return double(std::int64_t(state_) >> 11) / 0x1p52;
    }

  private:
    std::uint64_t state_;
};

}  // namespace testing_support
