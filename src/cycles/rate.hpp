// The right-hand side of a cycle in scaled time. With t = t0 + tau T, one period is tau in [0, 1]:
//
//     dx/dtau = G(tau, x; q) = T f(t0 + tau T, x; c)
//
// q are the scalar unknowns: (T, p_1 ...) where the period is free, as in autonomous systems; (p_1
// ...) where it is a number or a function T(c) of the parameters, as in forced ones. This is the
// only place where the two differ.
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "model/equations.hpp"

namespace trajex {

/// Where the period of a cycle comes from.
struct Timing {
    enum class Period {
        free,       ///< an unknown: the system is autonomous
        fixed,      ///< q times `value`
        parameter,  ///< q times a parameter
        frequency,  ///< 2 pi q over a parameter
    };
    Period period = Period::free;
    std::size_t parameter = 0;
    double value = 0;
    int periods = 1;  ///< q
    double t0 = 0;

    bool autonomous() const { return period == Period::free; }
};

class Rate {
  public:
    /// `vary`: the parameters of the system that are unknowns; `values`: those of all.
    Rate(std::shared_ptr<const Equations> equations, const Timing& timing,
         std::vector<std::size_t> vary, std::vector<double> values);

    std::size_t states() const { return equations_->states(); }
    /// How many scalar unknowns there are, and whether the period is the first of them.
    std::size_t scalars() const { return vary_.size() + (free_period() ? 1 : 0); }
    bool free_period() const { return timing_.autonomous(); }
    const Timing& timing() const { return timing_; }
    const std::vector<std::size_t>& vary() const { return vary_; }
    const Equations& equations() const { return *equations_; }

    /// Takes the scalar unknowns. False: the period would not be positive, or a number is not
    /// finite.
    bool set(const double* q);
    double period() const { return period_; }
    const std::vector<double>& parameters() const { return c_; }

    /// G, or G and its Jacobian, at `count` points.
    void values(std::size_t count, const double* tau, const double* x, double* g);
    void jacobians(std::size_t count, const double* tau, const double* x, double* g,
                   double* jacobian);
    /// Both, and dG/dq_k for all k, `count` n numbers one after the other.
    void linearise(std::size_t count, const double* tau, const double* x, double* g,
                   double* jacobian, double* g_q);
    /// dG/dq_k; `g` is G at the same points.
    void scalar_derivatives(std::size_t count, const double* tau, const double* x, const double* g,
                            std::size_t k, double* g_q);

  private:
    double period_of_parameters() const;
    bool sets_period(std::size_t parameter) const;
    void take_times(std::size_t count, const double* tau);
    void difference(std::size_t count, const double* tau, const double* x, std::size_t parameter,
                    double* g_q);

    std::shared_ptr<const Equations> equations_;
    Timing timing_;
    std::vector<std::size_t> vary_;
    std::vector<double> c_;
    double period_ = 1;
    std::vector<double> times_;
    std::vector<double> work_;
};

}  // namespace trajex
