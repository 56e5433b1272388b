// Timing on a machine that others use too: processor time, rounds in which all contestants run one
// after the other, medians over the rounds.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <ctime>
#include <functional>
#include <vector>

namespace benchmarks {

using Work = std::function<void()>;

inline double processor_seconds() {
    return static_cast<double>(std::clock()) / CLOCKS_PER_SEC;
}

inline double median(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

/// How often a piece of work must be repeated to last for about `seconds`.
inline long repetitions(const Work& work, double seconds) {
    for (long count = 1;; count *= 4) {
        const double start = processor_seconds();
        for (long i = 0; i < count; ++i) work();
        const double used = processor_seconds() - start;
        if (used > seconds / 8) {
            return std::max(1L, std::lround(static_cast<double>(count) * seconds / used));
        }
    }
}

/// Seconds per call, for each round and each contestant.
class Rounds {
  public:
    explicit Rounds(const std::vector<Work>& contestants, double seconds = 0.002, int rounds = 61)
        : seconds_(contestants.size()) {
        std::vector<long> counts;
        counts.reserve(contestants.size());
        for (const Work& work : contestants) counts.push_back(repetitions(work, seconds));
        for (int round = 0; round < rounds; ++round) {
            for (std::size_t c = 0; c < contestants.size(); ++c) {
                const double start = processor_seconds();
                for (long i = 0; i < counts[c]; ++i) contestants[c]();
                seconds_[c].push_back((processor_seconds() - start) /
                                      static_cast<double>(counts[c]));
            }
        }
    }

    double seconds(std::size_t contestant) const { return median(seconds_[contestant]); }

    /// The median over the rounds of a quantity that is computed from the times of one round.
    template <class OfRound>
    double median_of(OfRound quantity) const {
        std::vector<double> values;
        for (std::size_t r = 0; r < seconds_.front().size(); ++r) {
            values.push_back(quantity([&](std::size_t c) { return seconds_[c][r]; }));
        }
        return median(values);
    }

    /// One contestant's time over another's.
    double ratio(std::size_t contestant, std::size_t other) const {
        return median_of([&](auto seconds) { return seconds(contestant) / seconds(other); });
    }

  private:
    std::vector<std::vector<double>> seconds_;
};

}  // namespace benchmarks
