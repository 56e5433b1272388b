// Pseudo-arclength continuation of any problem with one dimension of freedom: from a point along
// its tangent, with the events decoded, located and named on the way, until there is a reason to
// stop. H. B. Keller, in Applications of Bifurcation Theory, Academic Press 1977, 359; E. L.
// Allgower and K. Georg, Numerical Continuation Methods, Springer 1990.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "branches/problem.hpp"
#include "tx/options.hpp"
#include "tx/results.hpp"

namespace trajex {

/// An accepted point of a branch.
struct TracePoint {
    std::vector<double> z;
    std::vector<double> tangent;  ///< of scaled length 1, oriented along the run
    Spectrum spectrum;
    Description description;
    double s = 0;  ///< scaled arclength from the start
    int newton_iterations = 0;
    double residual = 0;    ///< largest |F_i|
    double correction = 0;  ///< scaled length of the last Newton step
};

struct TraceSpecial {
    Finding finding;
    Description description;
    std::size_t after = 0;  ///< number of the accepted point before it
    double s = 0;
};

/// One half branch: from the start in the direction of its tangent.
struct Trace {
    std::vector<TracePoint> points;  ///< the first one is the start
    std::vector<TraceSpecial> specials;
    tx::StopReason stop;
    std::string stop_detail;
    std::size_t evaluations = 0;  ///< linearisations made
    double work = 0;              ///< and the unknowns of all of them
};

/// A function of a point whose zeros are recorded as "UZ", with its name as subtype.
struct Watched {
    std::string name;
    std::function<double(const TracePoint&)> value;
    bool stops = false;  ///< the run ends at the first zero
};

struct RunSettings {
    std::vector<tx::Window> windows;  ///< of the active parameters, the last unknowns
    std::size_t max_points = 5000;
    double max_work = 4e7;
    double h_first = 0.01;
    double h_max = 0.05;
    double h_min = 1e-7;
    double tol = 1e-10;
    tx::Detect detect;
    std::vector<Watched> watched;
    /// Called after each accepted point but the first; false cancels the run.
    std::function<bool(const TracePoint&)> on_point;
    /// The name of the known branch that this point belongs to; empty: none. Asked at each accepted
    /// point but the first.
    std::function<std::string(const TracePoint&)> known;
};

RunSettings run_settings(const tx::Options& options, std::vector<tx::Window> windows);

/// A tangent at a solution z, with the first active parameter growing (up) or falling; where it
/// does neither (a fold, a vertical branch) in the one or the other direction. False: F_z has a
/// larger kernel (a branch point), or F is not computable.
bool first_tangent(Problem& problem, const std::vector<double>& z, bool up,
                   std::vector<double>& tangent);

/// The half branch from the solution z along the tangent. z is corrected first. The problem is left
/// in the state of the last point.
Trace follow_half(Problem& problem, const std::vector<double>& z,
                  const std::vector<double>& tangent, const RunSettings& settings);

}  // namespace trajex
