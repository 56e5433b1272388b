// Trajectories, sections, Lyapunov exponents of a System. Part of tx.hpp, which is what
// applications include.
#ifndef TX_TRAJECTORY_HPP
#define TX_TRAJECTORY_HPP

#include <cstddef>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tx/export.hpp"

namespace trajex {
struct TrajectoryData;
}  // namespace trajex

namespace tx {

/// How trajectories are computed: steps of order 6 whose estimated error is below rel_tol |x| +
/// abs_tol in every variable; for stiff systems, implicit steps of order 5.
struct IntegrateOptions {
    double t0 = 0;  ///< time of the initial state
    double rel_tol = 1e-9;
    double abs_tol = 1e-12;
    double h_max = 0;                 ///< longest step; 0: no limit
    std::size_t max_steps = 1000000;  ///< it stops there, and says so
    double sample = 0;                ///< keep points this far apart; 0: the ends of the steps
    bool dense = true;                ///< keep what `at` needs
    bool stiff = false;               ///< implicit steps; between their ends of order 3 only
};

/// Points of a trajectory, at steps, at samples or on a section.
class TX_EXPORT Trajectory {
  public:
    Trajectory() = default;
    explicit Trajectory(std::shared_ptr<const trajex::TrajectoryData> data)
        : data_(std::move(data)) {}

    /// Whether it came to the time or to the number of crossings asked for; if not, `reason` says
    /// why.
    explicit operator bool() const;
    const std::string& status() const;  ///< "complete" or "stopped"
    const std::string& reason() const;

    std::size_t size() const;
    bool empty() const { return size() == 0; }
    const std::vector<double>& times() const;
    /// One variable at all points.
    std::span<const double> column(std::string_view variable) const;
    std::vector<double> state(std::size_t point) const;
    /// The last point.
    std::vector<double> back() const { return state(size() - 1); }
    /// The state at any time that was integrated over, to the accuracy of the steps.
    std::vector<double> at(double t) const;
    std::size_t steps() const;

  private:
    const trajex::TrajectoryData& data() const;

    std::shared_ptr<const trajex::TrajectoryData> data_;
};

/// A surface that trajectories cross: where a variable has a value, or where a function of time and
/// state is zero.
struct Section {
    std::string variable{};
    double value = 0;
    std::function<double(double t, std::span<const double> x)> function{};
    int direction = 1;      ///< counts crossings where it rises (1), falls (-1), or both (0)
    double max_time = 1e4;  ///< it gives up after this time without a crossing
};

struct LyapunovOptions {
    enum class Method {
        variational,  ///< linearised equations beside the trajectory, orthonormalised every few
                      ///< steps
        nearby,       ///< perturbed trajectories, orthonormalised after each interval
    };
    std::size_t count = 0;   ///< how many, from the largest on; 0: all
    double transient = 100;  ///< time before those are measured
    double time = 1000;      ///< that they are measured over
    Method method = Method::variational;
    double interval = 0.2;       ///< of nearby trajectories
    double perturbation = 1e-5;  ///< of nearby trajectories, relative to the size of the state
    IntegrateOptions integrate{};
};

/// Exponents in units of e per unit of time, the largest first as a rule.
struct TX_EXPORT Lyapunov {
    std::vector<double> exponents;
    std::vector<double> spread;  ///< how far those of both halves of the time are apart
    double time = 0;             ///< that they were measured over
    std::size_t steps = 0;
    std::string status = "complete";  ///< or "stopped"
    std::string reason{};
    std::vector<double> state;  ///< at the end

    explicit operator bool() const { return status == "complete"; }
    double sum() const;
};

}  // namespace tx

#endif
