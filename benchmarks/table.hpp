// The table of results. One row per line, so that it can be read while the benchmark runs.
#pragma once

#include <cstdio>
#include <optional>
#include <string>

namespace benchmarks {

inline void print_row(const std::string& work, const std::string& against,
                      const std::string& target, const std::string& measured,
                      const std::string& verdict) {
    std::printf("| %-46s | %-30s | %8s | %10s | %-6s |\n", work.c_str(), against.c_str(),
                target.c_str(), measured.c_str(), verdict.c_str());
    std::fflush(stdout);
}

inline std::string number(double value) {
    char text[32];
    std::snprintf(text, sizeof text, value < 100 ? "%.3g" : "%.0f", value);
    return text;
}

/// A result that is to be at most `target`, where there is a target.
inline void report(const std::string& work, const std::string& against,
                   std::optional<double> target, double measured) {
    const bool met = target && measured <= *target;
    print_row(work, against, target ? "<= " + number(*target) : "", number(measured),
              !target ? ""
              : met   ? "met"
                      : "MISSED");
}

}  // namespace benchmarks
