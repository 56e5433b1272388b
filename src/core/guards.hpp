// Undo on scope exit. Applications' callbacks may throw through the library: whatever an operation
// changes for a while is changed through one of these, so that it is put back on every way out.
#pragma once

#include <algorithm>
#include <cstddef>

namespace trajex {

/// Gives a variable another value for the life of the guard, then its exact former value.
template <class T>
class [[nodiscard]] Temporarily {
  public:
    Temporarily(T& variable, T value) : variable_(variable), saved_(variable) { variable_ = value; }
    ~Temporarily() { variable_ = saved_; }
    Temporarily(const Temporarily&) = delete;
    Temporarily& operator=(const Temporarily&) = delete;

  private:
    T& variable_;
    T saved_;
};

/// Puts a vector back to the values it had, unless the operation succeeded and keeps the new ones.
class [[nodiscard]] RestoreUnlessKept {
  public:
    /// `storage` holds n doubles for the life of the guard.
    RestoreUnlessKept(double* vector, std::size_t n, double* storage)
        : vector_(vector), n_(n), storage_(storage) {
        std::copy_n(vector_, n_, storage_);
    }
    ~RestoreUnlessKept() {
        if (!kept_) std::copy_n(storage_, n_, vector_);
    }
    RestoreUnlessKept(const RestoreUnlessKept&) = delete;
    RestoreUnlessKept& operator=(const RestoreUnlessKept&) = delete;

    void keep() { kept_ = true; }

  private:
    double* vector_;
    std::size_t n_;
    double* storage_;
    bool kept_ = false;
};

}  // namespace trajex
