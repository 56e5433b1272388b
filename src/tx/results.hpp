// Points, branches, special points and diagrams. Part of tx.hpp, which is what applications
// include.
#ifndef TX_RESULTS_HPP
#define TX_RESULTS_HPP

#include <array>
#include <complex>
#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tx/export.hpp"
#include "tx/options.hpp"

namespace trajex {
struct PointData;
struct BranchData;
}  // namespace trajex

namespace tx {

class Branch;
struct Access;  // how the library reaches the data behind the handles

/// Why a branch ended.
class TX_EXPORT StopReason {
  public:
    enum Value {
        parameter_bound,  ///< the window's end, landed on exactly
        period_bound,
        norm_bound,
        max_points,
        user,  ///< a stop function
        step_too_small,
        closed,        ///< back at its start (isola)
        known_branch,  ///< ran into a branch that the diagram has already
        hopf,          ///< the cycle shrank to an equilibrium
        homoclinic_suspected,
        not_computable,  ///< the right-hand side is not finite, or no start was found
        resolution,      ///< more intervals than allowed would be needed
        cancelled,
        branch_point,  ///< a half branch begins or ends here
        start,         ///< only the other direction was wanted
        inconsistent,  ///< indicators of the point contradict one another
        work_bound,    ///< more linear systems than allowed would be solved
    };
    StopReason(Value value = parameter_bound)
        : value_(value) {}  // NOLINT(google-explicit-constructor)
    Value value() const { return value_; }
    std::string_view text() const;
    std::string str() const { return std::string(text()); }
    operator std::string_view() const { return text(); }  // NOLINT(google-explicit-constructor)
    operator std::string() const { return str(); }        // NOLINT(google-explicit-constructor)
    friend bool operator==(StopReason a, StopReason b) { return a.value_ == b.value_; }
    friend bool operator==(StopReason a, Value b) { return a.value_ == b; }
    friend bool operator==(StopReason a, std::string_view b) { return a.text() == b; }
    friend bool operator==(StopReason a, const char* b) { return a.text() == b; }

  private:
    Value value_;
};

/// A solution: an equilibrium, a cycle or a forced cycle at given parameters.
class TX_EXPORT Point {
  public:
    Point() = default;
    explicit Point(std::shared_ptr<const trajex::PointData> data) : data_(std::move(data)) {}

    /// Whether it was found; if not, `status` says "not found" and `reason` why.
    explicit operator bool() const;
    std::string status() const;
    std::string reason() const;

    double parameter(std::string_view name) const;
    /// The equilibrium; of a cycle the point at its phase 0.
    std::vector<double> state() const;
    /// One variable of it.
    double operator[](std::string_view name) const;
    double norm() const;
    /// 0 for equilibria.
    double period() const;
    std::vector<std::complex<double>> eigenvalues() const;
    /// Of a cycle, without the trivial one; and their logarithms log|mu| + i arg mu, which hold
    /// multipliers too small or large for a double.
    std::vector<std::complex<double>> multipliers() const;
    std::vector<std::complex<double>> log_multipliers() const;
    /// Bounds of the errors of these: of a point of a branch one for all, where the mesh is that of
    /// the branch; of a cycle by itself one each.
    std::vector<double> log_multiplier_errors() const;
    bool stable() const;
    std::size_t unstable() const;  ///< how many eigenvalues or multipliers are unstable
    /// Of a cycle: state at the time t from phase 0, extremes over the period.
    std::vector<double> at(double t) const;
    std::vector<double> min() const;
    std::vector<double> max() const;
    /// Everything in one line.
    std::string text() const;

    /// The branch through this point.
    Branch follow(std::string_view parameter, Window window, const Options& options = {}) const;

  protected:
    std::shared_ptr<const trajex::PointData> data_;
    friend struct Access;
};

/// A special point of a branch.
class TX_EXPORT Special {
  public:
    Special() = default;
    Special(std::shared_ptr<const trajex::BranchData> branch, std::size_t index)
        : branch_(std::move(branch)), index_(index) {}

    std::string id() const;           ///< "H1"
    std::string type() const;         ///< "LP", "BP", "H", "UZ", ...
    std::string subtype() const;      ///< "supercritical", "pitchfork", "undetermined", ...
    std::string criticality() const;  ///< of a pitchfork: "supercritical", "subcritical", ""
    std::string status() const;       ///< "located", "coincident" or "unresolved"
    std::string reason() const;       ///< why it is unresolved or undetermined
    double parameter(std::string_view name) const;
    std::vector<double> state() const;
    double operator[](std::string_view name) const;
    double period() const;
    std::vector<std::complex<double>> eigenvalues() const;
    std::vector<std::complex<double>> multipliers() const;
    std::vector<std::complex<double>> log_multipliers() const;
    /// "l1", "Re c1", "omega", "a", "b", "c", "slope", ...
    double coefficient(std::string_view name) const;
    std::vector<std::string> coefficients() const;
    /// Bound of the error of the coefficient, from two ways to compute it.
    double coefficient_error(std::string_view name) const;
    /// Of the continuation parameter.
    double error() const;
    /// The interval of the parameter that it was found in.
    std::array<double, 2> bracket() const;
    std::vector<double> tangent() const;
    std::vector<std::vector<double>> null_vectors() const;
    Point point() const;
    std::string text() const;

    /// The branches that leave the branch here: others through a branch point, the cycles of a Hopf
    /// point, the doubled cycles of a period doubling.
    std::vector<Branch> switch_branch(const Options& options = {}) const;
    /// One parameter: the cycles from H, the doubled ones from PD, else the branch through the
    /// point.
    Branch follow(std::string_view parameter, Window window, const Options& options = {}) const;
    /// Two parameters: the curve of points of this type.
    Branch follow(const ParameterPair& parameters, const WindowPair& windows,
                  const Options& options = {}) const;

  private:
    std::shared_ptr<const trajex::BranchData> branch_;
    std::size_t index_ = 0;
    friend struct Access;
};

/// A curve of solutions.
class TX_EXPORT Branch {
  public:
    Branch() = default;
    explicit Branch(std::shared_ptr<const trajex::BranchData> data) : data_(std::move(data)) {}

    std::string id() const;
    /// "equilibria", "cycles", "forced cycles", "LP curve", ...
    std::string kind() const;
    /// The parameters that vary.
    std::vector<std::string> vary() const;
    /// The special point it starts from, empty: none.
    std::string parent() const;
    std::size_t size() const;
    bool empty() const { return size() == 0; }
    /// Why it ends at its first and at its last point, and the reason in words.
    std::array<StopReason, 2> stop() const;
    std::array<std::string, 2> stop_detail() const;
    /// One number per point: "s", parameters and variables by name (of a cycle the mean), "norm",
    /// "min NAME", "max NAME", "period", "n_unstable", "stable", "pdot", "newton_iterations",
    /// "residual", "mesh_error", "multiplier_error". Where a variable or parameter has one of these
    /// names it is meant; the other has a "_" behind its name then.
    std::span<const double> column(std::string_view name) const;
    std::vector<std::string> columns() const;
    std::vector<std::complex<double>> eigenvalues(std::size_t point) const;
    Point point(std::size_t index) const;
    std::vector<Special> specials() const;
    Special operator[](std::string_view id) const;
    /// One line.
    std::string text() const;
    /// A line of column names, then a line per point; numbers that are not finite are left empty.
    std::string csv() const;
    std::string json(bool orbits_inline = true) const;

  private:
    std::shared_ptr<const trajex::BranchData> data_;
    friend struct Access;
};

/// Branches together, each special point under its own name.
class TX_EXPORT Diagram {
  public:
    Diagram() = default;

    /// Takes a branch in, its special points renamed where their names are taken.
    void add(const Branch& branch);
    std::size_t size() const { return branches_.size(); }
    const std::vector<Branch>& branches() const& { return branches_; }
    std::vector<Branch> branches() && { return std::move(branches_); }
    Branch branch(std::size_t index) const;
    std::vector<Special> specials() const;
    Special operator[](std::string_view id) const;
    /// What was not followed, and why.
    const std::vector<std::string>& log() const& { return log_; }
    std::vector<std::string> log() && { return std::move(log_); }
    void note(std::string line) { log_.push_back(std::move(line)); }
    /// A table: branches, their ends, their special points.
    std::string text() const;
    /// The whole as JSON: system, branches with their columns, spectra, special points and orbits.
    /// Numbers are written so that reading them gives the same doubles; what is not finite is null.
    std::string json() const;
    /// Writes the JSON file. Throws std::runtime_error where that fails.
    void save(const std::string& path) const;

  private:
    std::vector<Branch> branches_;
    std::vector<std::string> log_;
};

}  // namespace tx

#endif
