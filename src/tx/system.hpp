// Systems: named variables, named parameters, a right-hand side. Part of tx.hpp, which is what
// applications include.
#ifndef TX_SYSTEM_HPP
#define TX_SYSTEM_HPP

#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tx/export.hpp"
#include "tx/options.hpp"
#include "tx/results.hpp"
#include "tx/right_hand_side.hpp"
#include "tx/trajectory.hpp"

namespace trajex {
class Equations;
struct Model;
}  // namespace trajex

namespace tx {

/// A parameter and its value.
struct Parameter {
    std::string name;
    double value = 0;
};

/// An interval for each variable, in which equilibria are looked for.
using Box = std::vector<Window>;

/// What a search for all equilibria found, and how hard it looked.
struct TX_EXPORT Equilibria {
    std::vector<Point> points;
    std::size_t starts = 0;     ///< Newton searches made
    std::size_t fruitless = 0;  ///< of them, after the last new solution
    std::string text() const;
};

/// How a system is forced; one of the first three is given.
struct Forcing {
    std::string frequency{};  ///< parameter that is the angular frequency: T = 2 pi q / omega
    std::string period{};     ///< parameter that is the period: T = q period
    double fixed = 0;         ///< the period: T = q fixed
    int periods = 1;          ///< q: a cycle closes after so many periods
    double t0 = 0;            ///< phase: cycles begin at this time
};

class ForcedSystem;

/// A system y' = f(t, y; c). The right-hand side is a callable object f(t, x, c, dx), where t is a
/// double and x, c, dx can be indexed; c has the parameters in the order in which they are given
/// here.
///
/// Where the callable is generic (`[](auto t, auto& x, auto& c, auto& dx) {...}`), all derivatives
/// are exact: it is called with Taylor numbers too, so its own variables have to be `auto`, and
/// functions called by their plain names (`exp`, after `using std::exp;` where needed). Where it is
/// written for double, a Jacobian jac(t, x, c, A) with A[i n + j] = df_i/dx_j may be given, and
/// after it one with respect to the parameters, A[i m + j] = df_i/dc_j; what is not given is found
/// by differences.
///
/// A System cannot be changed, and copies share it. The callable is called from several threads at
/// once if the system is used from several. What it throws passes through.
class TX_EXPORT System {
  public:
    template <class F, class... Jacobians>
    requires trajex::Takes<F, double> System(std::vector<std::string> states,
                                             std::vector<Parameter> parameters, F f,
                                             Jacobians... jacobians)
        : System(states, parameters,
                 std::make_shared<const trajex::Callable<F, Jacobians...>>(
                     states.size(), parameters.size(), std::move(f), std::move(jacobians)...)) {}
    System(const std::vector<std::string>& states, const std::vector<Parameter>& parameters,
           const CFunctions& functions, std::string text = {});
    explicit System(std::shared_ptr<const trajex::Model> model) : model_(std::move(model)) {}

    const std::vector<std::string>& states() const;
    const std::vector<std::string>& parameters() const;
    double parameter(std::string_view name) const;

    /// The same system with other values of parameters.
    System with(std::string_view name, double value) const;
    System with(const std::vector<Parameter>& values) const;

    /// f at the state x, and its Jacobian by rows.
    std::vector<double> rhs(const std::vector<double>& x, double t = 0) const;
    std::vector<double> jacobian(const std::vector<double>& x, double t = 0) const;

    /// The equilibrium that Newton's method finds from a guess; its status says whether it found
    /// one.
    Point equilibrium(const std::vector<double>& guess, const Options& options = {}) const;
    /// All equilibria in a box that searches from scattered starts find.
    Equilibria equilibria(const Box& box, const Options& options = {}) const;

    /// The stable cycle that the trajectory from `state` comes to, or, with a guess of the period,
    /// the cycle near `state`.
    Point cycle(const std::vector<double>& state, const Options& options = {}) const;
    Point cycle(const std::vector<double>& state, double period, const Options& options = {}) const;
    /// The cycle near a table of states at increasing times over one period.
    Point cycle(const std::vector<double>& times, const std::vector<std::vector<double>>& states,
                const Options& options = {}) const;

    /// The trajectory from `state` at options.t0 to the time t_end, later or earlier.
    Trajectory integrate(const std::vector<double>& state, double t_end,
                         const IntegrateOptions& options = {}) const;
    /// The first crossings of a section: one is the first return of a state on it.
    Trajectory section(const std::vector<double>& state, const Section& section,
                       std::size_t crossings = 1, const IntegrateOptions& options = {}) const;
    /// The Lyapunov exponents of the trajectory from `state`.
    Lyapunov lyapunov(const std::vector<double>& state, const LyapunovOptions& options = {}) const;

    /// The system as one whose right-hand side is periodic in t.
    ForcedSystem forced(const Forcing& forcing) const;

    /// Equilibria and what branches from them, in a window of a parameter.
    Diagram diagram(std::string_view parameter, Window window, const Options& options = {}) const;

    const std::shared_ptr<const trajex::Model>& model() const { return model_; }

  private:
    System(const std::vector<std::string>& states, const std::vector<Parameter>& parameters,
           std::shared_ptr<const trajex::RightHandSide> rhs, std::string text = {});

    std::shared_ptr<const trajex::Model> model_;
};

/// A system whose right-hand side is periodic in t; its solutions of that period, or of a multiple
/// of it, are cycles whose phase is given.
class TX_EXPORT ForcedSystem {
  public:
    explicit ForcedSystem(std::shared_ptr<const trajex::Model> model) : model_(std::move(model)) {}

    double parameter(std::string_view name) const;
    ForcedSystem with(std::string_view name, double value) const;
    ForcedSystem with(const std::vector<Parameter>& values) const;
    /// The time after which a cycle closes, at the present parameters.
    double period() const;

    /// The cycle near the trajectory from `state` at the time t0 of the forcing.
    Point cycle(const std::vector<double>& state, const Options& options = {}) const;
    Diagram diagram(std::string_view parameter, Window window, const Options& options = {}) const;

    const std::shared_ptr<const trajex::Model>& model() const { return model_; }

  private:
    std::shared_ptr<const trajex::Model> model_;
};

}  // namespace tx

#endif
