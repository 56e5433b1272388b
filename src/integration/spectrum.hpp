// Lyapunov exponents by nearby trajectories: perturbed copies of the state are integrated beside
// the reference trajectory, and after every interval their separations are orthonormalised
// (classical Gram-Schmidt). The mean logarithms of the lengths are the exponents, in base 2.
// Benettin, Galgani, Giorgilli, Strelcyn, Meccanica 15 (1980) 9-20 and 21-30.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numbers>

#include "integration/gram_schmidt.hpp"

namespace trajex {

/// What is measured.
struct Measurement {
    double eps;       ///< size of the perturbation
    double interval;  ///< time between orthonormalisations
    long transient;   ///< intervals before those that count
    long counted;
    int exponents;
};

/// The sums of the logarithms of the growth factors, one per exponent, over intervals.
struct GrowthSums {
    double* sums;
    double interval;
    std::size_t count;

    /// sums[p] as an exponent in bits per unit of time, after m counted intervals. Without any it
    /// is 0/0, not a number: nothing was measured.
    double exponent(std::size_t p, unsigned long m) const {
        return sums[p] / (std::numbers::ln2 * counted_time(m));
    }
    double counted_time(unsigned long m) const { return interval * static_cast<double>(m); }
};

/// Work memory for `count` exponents of a system of order n.
struct SpectrumVectors {
    double* v;        ///< count n: directions between intervals, perturbed states during one
    double* lengths;  ///< count: those that the orthonormalisation found
    double* scratch;  ///< n
};

/// One interval of the trajectory and of its perturbed copies: directions in, separations out. Time
/// and state of the trajectory stay together even where a callback throws in between.
template <class Integrate>
void advance_interval(std::size_t n, const Measurement& m, std::size_t count, double* v, double* t,
                      double* y, Integrate& integrate) {
    const double inv_eps = 1.0 / m.eps;
    for (std::size_t p = 0; p < count; ++p) {
        double* const vp = v + p * n;
        for (std::size_t i = 0; i < n; ++i) vp[i] = m.eps * vp[i] + y[i];
    }
    const double t0 = *t;
    const double t1 = t0 + m.interval;
    integrate(t, t1, y);
    for (std::size_t p = 0; p < count; ++p) {
        double* const vp = v + p * n;
        double time = t0;
        integrate(&time, t1, vp);
        for (std::size_t i = 0; i < n; ++i) vp[i] = (vp[i] - y[i]) * inv_eps;
    }
}

/// Follows the trajectory through all intervals by `integrate(t, t1, y)`, which moves time and
/// state to t1, and calls `sink.after_interval(sums, l, m)` after each one counted: interval l,
/// counted interval m. At the end the sums have become the exponents.
template <class Integrate, class Sink>
void measure_spectrum(std::size_t n, const Measurement& m, const GrowthSums& sums,
                      const SpectrumVectors& vectors, double* t, double* y, Integrate&& integrate,
                      Sink&& sink) {
    std::fill_n(vectors.v, sums.count * n, 0.0);
    for (std::size_t p = 0; p < sums.count; ++p) {
        sums.sums[p] = 0;
        vectors.v[p * n + p] = 1;
    }
    const auto transient = static_cast<unsigned long>(m.transient);
    const auto total = transient + static_cast<unsigned long>(m.counted);
    for (unsigned long l = 1; l <= total; ++l) {
        advance_interval(n, m, sums.count, vectors.v, t, y, integrate);
        orthonormalise(vectors.v, vectors.lengths, n, vectors.scratch, sums.count);
        if (l <= transient) continue;
        for (std::size_t p = 0; p < sums.count; ++p) sums.sums[p] += std::log(vectors.lengths[p]);
        sink.after_interval(sums, l, l - transient);
    }
    for (std::size_t p = 0; p < sums.count; ++p) {
        sums.sums[p] = sums.exponent(p, static_cast<unsigned long>(m.counted));
    }
}

}  // namespace trajex
