// The right-hand side of y' = f(t, y; c) and its derivatives as the second layer sees them,
// whatever the application gave: a generic callable (exact derivatives through Taylor numbers), a
// callable for double with or without a Jacobian, a C function with a context pointer, one point or
// a block at a time. Immutable: all functions may be called from different threads at once. Points
// are contiguous: point k of a block begins at x + k n, its Jacobian (row-major, A_ij = df_i/dx_j)
// at A + k n n.
#pragma once

#include <cstddef>
#include <span>

#include "tx/jet.hpp"

namespace trajex {

class Equations {
  public:
    /// A component of a point and of a few directions there.
    using Directions = tx::Dual<4>;

    Equations(std::size_t states, std::size_t parameters) : n_(states), m_(parameters) {}
    Equations(const Equations&) = delete;
    Equations& operator=(const Equations&) = delete;
    virtual ~Equations() = default;

    std::size_t states() const { return n_; }
    std::size_t parameters() const { return m_; }

    /// f at `count` points, t[k] and x + k n, for one set of parameters.
    virtual void values(std::size_t count, const double* t, const double* x, const double* c,
                        double* f) const = 0;

    /// f and df/dx at `count` points.
    virtual void jacobians(std::size_t count, const double* t, const double* x, const double* c,
                           double* f, double* jacobian) const = 0;

    /// df/dc_j at `count` points.
    virtual void parameter_derivatives(std::size_t count, const double* t, const double* x,
                                       const double* c, std::size_t j, double* f_c) const = 0;

    /// Both, with df/dc_j for each j of `vary` (`count` n numbers one after the other); in one go
    /// where the callable gives derivatives along several directions at once.
    virtual void derivatives(std::size_t count, const double* t, const double* x, const double* c,
                             std::span<const std::size_t> vary, double* f, double* jacobian,
                             double* f_c) const {
        jacobians(count, t, x, c, f, jacobian);
        for (std::size_t k = 0; k < vary.size(); ++k)
            parameter_derivatives(count, t, x, c, vary[k], f_c + k * count * n_);
    }

    /// The coefficients f_0 ... f_order (rows of n) of f(t, x + s v; c + s d) in powers of s, exact
    /// to rounding. False, and nothing written, when the application's callable cannot give them
    /// (order > 5, neither generic nor a C function for them). `d` may be null.
    virtual bool taylor(int order, double t, const double* x, const double* v, const double* c,
                        const double* d, double* coefficients) const = 0;

    /// f and A v for as many directions v as a number has, which stand in x. `numbers` are the
    /// parameters c, too.
    virtual void along_directions(double t, const Directions* x, const double* c,
                                  const Directions* numbers, Directions* f) const = 0;

    /// Whether `jacobians` is exact to rounding, not made of differences.
    virtual bool has_exact_jacobian() const = 0;

  private:
    std::size_t n_;
    std::size_t m_;
};

}  // namespace trajex
