// Newton's method for N equations and one more, F(z) = 0 and <row, z> = value, on any problem with
// d = 1: the corrector of the driver, of location and of every start.
#pragma once

#include <cstddef>
#include <vector>

#include "branches/metric.hpp"
#include "branches/problem.hpp"

namespace trajex {

class BorderedNewton {
  public:
    enum class Outcome { converged, diverged, singular, not_computable };
    struct Report {
        Outcome outcome = Outcome::diverged;
        int iterations = 0;
        double contraction = 0;  ///< |dz_2| / |dz_1|; 0 when one step was enough
        double correction = 0;   ///< scaled length of the last step
        double residual = 0;     ///< largest |F_i| where it was last evaluated
        explicit operator bool() const { return outcome == Outcome::converged; }
    };

    explicit BorderedNewton(Problem& problem, double tol = 1e-10) : problem_(problem), tol_(tol) {}

    /// Moves z to the solution nearby. `row` holds N + 1 numbers. `again`: z is close to where the
    /// matrix was factored last, so that its factors may serve here too if it had the same row.
    Report correct(std::vector<double>& z, const double* row, double value, const Metric& metric,
                   bool again = false);

    /// The tangent at z: F_z t = 0, <row, t> > 0, |t| = 1; z is linearised here, and the matrix
    /// bordered by the row stays factored. `residual` becomes the largest |F_i|.
    Outcome tangent(const double* z, const double* row, const Metric& metric,
                    std::vector<double>& t, double& residual);

  private:
    Outcome step(std::vector<double>& z, const double* row, double value, bool keep_factors,
                 Report& report);

    Report iterate(std::vector<double>& z, const double* row, double value, const Metric& metric,
                   bool kept);
    bool factor(const double* row);
    bool has_factors(const double* row) const;

    Problem& problem_;
    double tol_;
    std::vector<double> step_, start_;
    std::vector<double> factored_row_;
    std::size_t factors_ = 0;  // that have this row; 0: none
};

}  // namespace trajex
