// What a continuation run writes, for tests: its text, and its points as the record holds them when
// they are reported.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "tx.h"

namespace testing_support {

struct Point {
    int steps = 0;
    double T = 0;
    std::vector<double> c;  // in the order of the handle's list
    std::vector<double> y;
    std::vector<double> er;
    std::vector<double> ei;

    static Point of(const Trajex& tx) {
        const TrajexBif& bif = *tx.txb;
        const auto copy = [](const double* first, int n) {
            return std::vector<double>(first, first + n);
        };
        return {bif.steps,
                bif.T,
                copy(bif.c, tx.nparam),
                copy(bif.y, tx.order),
                copy(bif.er, tx.order),
                copy(bif.ei, tx.order)};
    }
    bool operator==(const Point&) const = default;
};

/// A user output that appends the point to the vector it is given in place of a stream.
using Points = std::vector<Point>;
inline void record_point(Trajex* tx, FILE* points) {
    reinterpret_cast<Points*>(points)->push_back(Point::of(*tx));
}
inline FILE* as_stream(Points& points) {
    return reinterpret_cast<FILE*>(&points);
}

/// A stream into memory.
class TextStream {
  public:
    TextStream() : stream_(open_memstream(&text_, &length_)) {}
    ~TextStream() {
        std::fclose(stream_);
        std::free(text_);
    }
    TextStream(const TextStream&) = delete;
    TextStream& operator=(const TextStream&) = delete;

    operator FILE*() const { return stream_; }
    std::string text() const {
        std::fflush(stream_);
        return {text_, length_};
    }

  private:
    char* text_ = nullptr;
    std::size_t length_ = 0;
    FILE* stream_;
};

/// The step sizes that a state stream reports, in order.
inline std::vector<double> reported_step_sizes(const std::string& text) {
    static constexpr char label[] = "Stepsize: ";
    std::vector<double> sizes;
    for (std::size_t at = text.find(label); at != std::string::npos; at = text.find(label, at)) {
        at += sizeof label - 1;
        sizes.push_back(std::strtod(text.c_str() + at, nullptr));
    }
    return sizes;
}

/// Gives the handle a record at the state with the parameters' present values.
inline void start_at(Trajex& tx, const std::vector<double>& y, double T = 0) {
    tx.txb = TXCreateBif(&tx);
    tx.txb->T = T;
    std::copy(y.begin(), y.end(), tx.txb->y);
    for (int q = 0; q < tx.nparam; ++q) tx.txb->c[q] = *tx.c[q];
    for (int i = 0; i < tx.order; ++i) tx.txb->er[i] = tx.txb->ei[i] = 0;
}

/// The application's parameters are those of the record, which holds this point.
inline void expect_stopped_at(const Trajex& tx, const Point& point) {
    EXPECT_EQ(Point::of(tx), point);
    for (int q = 0; q < tx.nparam; ++q) EXPECT_EQ(*tx.c[q], tx.txb->c[q]) << "parameter " << q;
}

}  // namespace testing_support
