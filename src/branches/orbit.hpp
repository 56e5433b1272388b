// A closed orbit as a piecewise polynomial: N intervals of scaled time, on each the values at the
// nodes j/m, j = 0 ... m. This is what results keep of a cycle.
#pragma once

#include <complex>
#include <cstddef>
#include <vector>

namespace trajex {

struct Orbit {
    std::size_t states = 0;
    std::size_t m = 4;         ///< degree
    std::vector<double> mesh;  ///< N + 1 numbers, from 0 to 1
    std::vector<double> x;     ///< N m + 1 points one after another, the last one closes the orbit
    double period = 1;
    double t0 = 0;    ///< time at the first point
    int periods = 1;  ///< of the forcing, after which it closes

    std::size_t intervals() const { return mesh.size() - 1; }
    std::size_t nodes() const { return intervals() * m + 1; }
    /// The scaled time of node k.
    double time_of_node(std::size_t k) const;

    /// The state at a scaled time, of which the integer part does not count.
    void at(double tau, double* out) const;
    /// `count` states at equal distances in scaled time, one after another.
    std::vector<double> sampled(std::size_t count, double shift = 0) const;
    /// Its derivative by scaled time.
    void derivative_at(double tau, double* out) const;
    /// Least and largest value of each state, of the polynomials and not of the nodes only.
    void extremes(double* low, double* high) const;
    /// Means over the period of each state and, returned, the root mean square of |x|.
    double means(double* mean) const;
    /// The integral of x_a e^{-2 pi i k tau}.
    std::complex<double> harmonic(std::size_t a, int k) const;
    /// Of a forced cycle: x_a has the part amplitude cos(omega t - phase), omega that of the
    /// forcing.
    struct Response {
        double amplitude, phase;
    };
    Response response(std::size_t a) const;
};

/// The interval of a mesh in which tau lies (0 <= tau <= 1).
std::size_t interval_of(const std::vector<double>& mesh, double tau);

}  // namespace trajex
