// What the public results are handles of. Filled once by a run, immutable afterwards, shared.
#pragma once

#include <complex>
#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "branches/problem.hpp"
#include "model/model.hpp"
#include "tx/options.hpp"
#include "tx/results.hpp"

namespace trajex {

/// The solution types that a single point can have.
enum class SolutionKind { equilibrium, cycle, forced_cycle };

struct PointData {
    ModelPtr model;  ///< of the start; the point's own values are in `description.parameters`
    SolutionKind kind = SolutionKind::equilibrium;
    std::string status = "found";
    std::string reason;
    Description description;
    Spectrum spectrum;
    std::vector<double> state;  ///< the equilibrium; of a cycle its point at phase 0
    std::vector<std::complex<double>> exponents;    ///< of `spectrum`
    std::vector<std::complex<double>> multipliers;  ///< their exponentials, cycles only
    double residual = 0;
};

struct SpecialData {
    std::string id;
    Finding finding;
    PointData point;
    std::size_t after = 0;  ///< the point of the branch that comes before it
};

struct BranchData {
    std::string id;
    std::string kind;
    ModelPtr model;
    SolutionKind solution = SolutionKind::equilibrium;
    std::vector<std::size_t> vary;  ///< indices of the parameters
    std::vector<std::string> vary_names;
    std::vector<tx::Window> windows;  ///< of them
    tx::Options options;              ///< of the run
    std::string parent;               ///< name of the special point that it starts from
    std::shared_ptr<const BranchData> parent_branch;  ///< where that point is,
    std::size_t parent_special = 0;                   ///< and its number there
    std::string image;  ///< the branch that this one stands for too, in words; empty: none
    std::vector<int> image_signs;  ///< of the variables, which take this branch to that one
    std::shared_ptr<const BranchData> original;  ///< of a branch renamed by a diagram: what it was
    double work = 0;  ///< unknowns of the linear systems solved on the way
    tx::StopReason stop[2];
    std::string stop_detail[2];

    std::vector<std::string> column_names;  ///< filled by begin_columns and append_point only
    std::vector<std::vector<double>> columns;
    std::vector<std::vector<std::complex<double>>> exponents;  ///< one spectrum per point
    std::vector<std::shared_ptr<const Orbit>> orbits;  ///< of the points that keep theirs, or null
    std::vector<SpecialData> specials;

    std::size_t size() const { return orbits.size(); }
};

/// What a run knows of one of its points beside the solution, its description and its spectrum.
struct PointRecord {
    double s = 0;     ///< arclength from the start, in scaled units
    double pdot = 0;  ///< component of the unit tangent along the (first) parameter
    int newton_iterations = 0;
    double residual = 0;  ///< scaled length of the last correction
};

/// Names the columns of a branch whose model, solution kind and varied parameters are set.
void begin_columns(BranchData& branch);

/// Adds a point behind the others: its numbers to the columns, its exponents, its orbit. Of cycles
/// the first, the last and every tenth keep theirs, and those that the parameter determines badly;
/// the others can be computed from these again.
void append_point(BranchData& branch, const Description& description, const Spectrum& spectrum,
                  const PointRecord& record);

/// A branch of no points that could not be begun, and the reason.
std::shared_ptr<BranchData> branch_without_points(const PointData& start,
                                                  std::vector<std::size_t> vary,
                                                  std::vector<tx::Window> windows,
                                                  const std::string& reason);

/// The point number `index` of a branch, as a start for other runs.
PointData point_of(const BranchData& branch, std::size_t index);

/// Fills what follows from `description` and `spectrum` of a point: its state, exponents,
/// multipliers.
void complete(PointData& point);

/// How many exponents are unstable.
std::size_t unstable_exponents(const Spectrum& spectrum);

}  // namespace trajex
