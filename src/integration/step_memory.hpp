// Work vectors of a step for an owner without a handle.
#pragma once

#include <cstddef>
#include <vector>

#include "core/step_work.hpp"

namespace trajex {

/// Memory for steps of up to n_max components; it is asked for here and in reserve only.
template <class Method>
class StepMemory {
  public:
    explicit StepMemory(std::size_t n_max = 0) { reserve(n_max); }
    ~StepMemory() = default;
    StepMemory(StepMemory&&) noexcept = default;
    StepMemory& operator=(StepMemory&&) noexcept = default;
    StepMemory(const StepMemory&) = delete;  // the work points into the memory
    StepMemory& operator=(const StepMemory&) = delete;

    /// The vectors become others, and hold no step, where they were too short.
    void reserve(std::size_t n_max) {
        if (n_max <= n_max_) return;
        n_max_ = n_max;
        memory_.assign((Method::rows + 8) * n_max, 0.0);
        double* next = memory_.data();
        double** const vectors[] = {&work_.first, &work_.last,  &work_.y0,     &work_.argument,
                                    &work_.lower, &work_.upper, &work_.middle, &work_.error};
        for (double** vector : vectors) {
            *vector = next;
            next += n_max;
        }
        work_.k = next;
    }

    StepWork& work() { return work_; }

  private:
    std::size_t n_max_ = 0;
    std::vector<double> memory_;
    StepWork work_;
};

}  // namespace trajex
