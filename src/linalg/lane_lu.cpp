#include "linalg/lane_lu.hpp"

#include <cmath>

#include "core/simd.hpp"

namespace trajex {

namespace {

constexpr std::size_t lanes = LaneLu::lanes;

// Threshold pivoting allows multipliers of this size: an element may grow by as much at each pivot,
// and hardly ever does.
constexpr double largest_multiplier = 16;

/// The numbers of all lanes at one place.
template <class Vector>
struct Lanes {
    static constexpr std::size_t parts = lanes / width<Vector>;
    Vector part[parts];

    [[gnu::always_inline]] inline void get(const double* from) {
        for (std::size_t p = 0; p < parts; ++p) load(part[p], from + p * width<Vector>);
    }
    [[gnu::always_inline]] inline void put(double* to) const {
        for (std::size_t p = 0; p < parts; ++p) store(part[p], to + p * width<Vector>);
    }
    [[gnu::always_inline]] inline void subtract_product(const Lanes& x, const Lanes& y) {
        for (std::size_t p = 0; p < parts; ++p) part[p] -= x.part[p] * y.part[p];
    }
    [[gnu::always_inline]] inline void multiply(const Lanes& x) {
        for (std::size_t p = 0; p < parts; ++p) part[p] *= x.part[p];
    }
    [[gnu::always_inline]] inline void invert() {
        for (std::size_t p = 0; p < parts; ++p) part[p] = 1.0 / part[p];
    }
    [[gnu::always_inline]] inline void keep_magnitude_of(const Lanes& x) {
        for (std::size_t p = 0; p < parts; ++p) {
            Vector size = x.part[p];
            take_magnitude(size);
            keep_larger(part[p], size);
        }
    }
};

// A kernel: A becomes L and U with inverted diagonal; `largest`, the largest multiplier of each
// lane. Two pivots at a time, so that a row below them is loaded and stored once for both.
template <class Vector>
struct DecomposeLanes {
    [[gnu::always_inline]] static inline void run(double* a, std::size_t n, double* largest) {
        Number most;
        most.get(largest);
        std::size_t k = 0;
        for (; k + 2 <= n; k += 2) {
            Number inverted[2];
            invert_pivot(inverted[0], at(a, n, k, k));
            eliminate_first(a, n, k, inverted[0], most);
            invert_pivot(inverted[1], at(a, n, k + 1, k + 1));
            std::size_t r = k + 2;
            for (; r + 2 <= n; r += 2) eliminate<2>(a, n, k, r, inverted, most);
            if (r < n) eliminate<1>(a, n, k, r, inverted, most);
        }
        Number last;
        if (k < n) invert_pivot(last, at(a, n, k, k));
        most.put(largest);
    }

  private:
    using Number = Lanes<Vector>;

    [[gnu::always_inline]] static inline double* at(double* a, std::size_t n, std::size_t i,
                                                    std::size_t j) {
        return a + (i * n + j) * lanes;
    }
    [[gnu::always_inline]] static inline void invert_pivot(Number& pivot, double* place) {
        pivot.get(place);
        pivot.invert();
        pivot.put(place);
    }
    // The multiplier of an element below a pivot takes its place.
    [[gnu::always_inline]] static inline void take_multiplier(Number& element, double* place,
                                                              const Number& inverted,
                                                              Number& most) {
        element.multiply(inverted);
        element.put(place);
        most.keep_magnitude_of(element);
    }
    // Row k + 1 loses its part along the pivot row k.
    [[gnu::always_inline]] static inline void eliminate_first(double* a, std::size_t n,
                                                              std::size_t k, const Number& inverted,
                                                              Number& most) {
        Number l;
        l.get(at(a, n, k + 1, k));
        take_multiplier(l, at(a, n, k + 1, k), inverted, most);
        for (std::size_t c = k + 1; c < n; ++c) {
            Number u, x;
            u.get(at(a, n, k, c));
            x.get(at(a, n, k + 1, c));
            x.subtract_product(l, u);
            x.put(at(a, n, k + 1, c));
        }
    }
    // Rows r ... lose their parts along the pivot rows k and k + 1.
    template <std::size_t rows>
    [[gnu::always_inline]] static inline void eliminate(double* a, std::size_t n, std::size_t k,
                                                        std::size_t r, const Number (&inverted)[2],
                                                        Number& most) {
        Number l[rows][2], u[2];
        u[0].get(at(a, n, k, k + 1));
        for (std::size_t i = 0; i < rows; ++i) {
            l[i][0].get(at(a, n, r + i, k));
            l[i][1].get(at(a, n, r + i, k + 1));
            take_multiplier(l[i][0], at(a, n, r + i, k), inverted[0], most);
            l[i][1].subtract_product(l[i][0], u[0]);
            take_multiplier(l[i][1], at(a, n, r + i, k + 1), inverted[1], most);
        }
        for (std::size_t c = k + 2; c < n; ++c) {
            u[0].get(at(a, n, k, c));
            u[1].get(at(a, n, k + 1, c));
            for (std::size_t i = 0; i < rows; ++i) {
                Number x;
                x.get(at(a, n, r + i, c));
                x.subtract_product(l[i][0], u[0]);
                x.subtract_product(l[i][1], u[1]);
                x.put(at(a, n, r + i, c));
            }
        }
    }
};

/// A matrix or its transpose: element (i, j) stands at i row + j column.
struct Elements {
    const double* first;
    std::size_t row, column;
    [[gnu::always_inline]] inline const double* at(std::size_t i, std::size_t j) const {
        return first + i * row + j * column;
    }
};

// A kernel: B becomes the solutions of (lower triangle)(upper triangle) X = B, where the inverted
// diagonal belongs to the lower one, or to the upper one, and that of the other one is 1. A strip
// of a few columns goes through both, two rows at a time in registers.
template <class Vector>
struct SubstituteLanes {
    [[gnu::always_inline]] static inline void run(Elements a, bool lower_divides, std::size_t n,
                                                  double* B, std::size_t k) {
        constexpr std::size_t strip = 3;
        std::size_t c = 0;
        for (; c + strip <= k; c += strip)
            substitute<strip>(a, lower_divides, n, B + c * lanes, k * lanes);
        if (k - c == 2) substitute<2>(a, lower_divides, n, B + c * lanes, k * lanes);
        if (k - c == 1) substitute<1>(a, lower_divides, n, B + c * lanes, k * lanes);
    }

  private:
    using Number = Lanes<Vector>;

    template <std::size_t count>
    [[gnu::always_inline]] static inline void substitute(const Elements& a, bool lower_divides,
                                                         std::size_t n, double* B,
                                                         std::size_t stride) {
        std::size_t i = 0;
        for (; i + 2 <= n; i += 2) {
            Number sums[2][count];
            get_rows(sums, B + i * stride, stride);
            subtract_rows(sums, a, i, 0, i, B, stride);
            finish(sums[0], a, i, lower_divides, B, stride);
            subtract_row(sums[1], a.at(i + 1, i), sums[0]);
            finish(sums[1], a, i + 1, lower_divides, B, stride);
        }
        if (i < n) one_row<count>(a, i, 0, i, lower_divides, B, stride);
        for (i = n; i >= 2; i -= 2) {
            Number sums[2][count];
            get_rows(sums, B + (i - 2) * stride, stride);
            subtract_rows(sums, a, i - 2, i, n, B, stride);
            finish(sums[1], a, i - 1, !lower_divides, B, stride);
            subtract_row(sums[0], a.at(i - 2, i - 1), sums[1]);
            finish(sums[0], a, i - 2, !lower_divides, B, stride);
        }
        if (i == 1) one_row<count>(a, 0, 1, n, !lower_divides, B, stride);
    }

    template <std::size_t count>
    [[gnu::always_inline]] static inline void one_row(const Elements& a, std::size_t i,
                                                      std::size_t first, std::size_t last,
                                                      bool divides, double* B, std::size_t stride) {
        Number sums[1][count];
        get_rows(sums, B + i * stride, stride);
        subtract_rows(sums, a, i, first, last, B, stride);
        finish(sums[0], a, i, divides, B, stride);
    }

    // Rows i ... of the sums lose the terms of the unknowns first ... last - 1.
    template <std::size_t rows, std::size_t count>
    [[gnu::always_inline]] static inline void subtract_rows(Number (&sums)[rows][count],
                                                            const Elements& a, std::size_t i,
                                                            std::size_t first, std::size_t last,
                                                            const double* B, std::size_t stride) {
        for (std::size_t j = first; j < last; ++j) {
            Number known[count];
            for (std::size_t c = 0; c < count; ++c) known[c].get(B + j * stride + c * lanes);
            for (std::size_t r = 0; r < rows; ++r) subtract_row(sums[r], a.at(i + r, j), known);
        }
    }
    template <std::size_t count>
    [[gnu::always_inline]] static inline void subtract_row(Number (&row)[count],
                                                           const double* element,
                                                           const Number (&known)[count]) {
        Number factor;
        factor.get(element);
        for (std::size_t c = 0; c < count; ++c) row[c].subtract_product(factor, known[c]);
    }
    template <std::size_t rows, std::size_t count>
    [[gnu::always_inline]] static inline void get_rows(Number (&sums)[rows][count],
                                                       const double* from, std::size_t stride) {
        for (std::size_t r = 0; r < rows; ++r) {
            for (std::size_t c = 0; c < count; ++c) sums[r][c].get(from + r * stride + c * lanes);
        }
    }
    template <std::size_t count>
    [[gnu::always_inline]] static inline void finish(Number (&row)[count], const Elements& a,
                                                     std::size_t i, bool divides, double* B,
                                                     std::size_t stride) {
        Number inverted;
        inverted.get(a.at(i, i));
        for (std::size_t c = 0; c < count; ++c) {
            if (divides) row[c].multiply(inverted);
            row[c].put(B + i * stride + c * lanes);
        }
    }
};

}  // namespace

double* LaneLu::matrix(std::size_t n) {
    n_ = n;
    if (elements_.size() < n * n * lanes) elements_.resize(n * n * lanes);
    return elements_.data();
}

std::array<bool, LaneLu::lanes> LaneLu::decompose() {
    double largest[lanes] = {};
    dispatch<DecomposeLanes>(elements_.data(), n_, &largest[0]);
    std::array<bool, lanes> good{};
    for (std::size_t l = 0; l < lanes; ++l) {
        good[l] = largest[l] <= largest_multiplier;
        for (std::size_t i = 0; i < n_; ++i) {
            const double inverted = elements_[i * (n_ + 1) * lanes + l];
            good[l] = good[l] && std::isfinite(inverted) && inverted != 0;
        }
    }
    return good;
}

void LaneLu::solve(double* B, std::size_t k) const {
    const Elements a{elements_.data(), n_ * lanes, lanes};
    dispatch<SubstituteLanes>(a, false, n_, B, k);
}

// A' = U' L'
void LaneLu::solve_transposed(double* B, std::size_t k) const {
    const Elements a{elements_.data(), lanes, n_ * lanes};
    dispatch<SubstituteLanes>(a, true, n_, B, k);
}

}  // namespace trajex
