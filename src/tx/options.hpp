// Options of runs. Part of tx.hpp, which is what applications include.
#ifndef TX_OPTIONS_HPP
#define TX_OPTIONS_HPP

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "tx/export.hpp"

namespace trajex {
class KnownSolutions;
}  // namespace trajex

namespace tx {

class Point;

/// Bounds of a parameter, lo < hi.
struct Window {
    double lo = 0;
    double hi = 0;
};

/// Two parameters and their windows, for curves.
struct ParameterPair {
    std::string first;
    std::string second;
};
struct WindowPair {
    Window first;
    Window second;
};

/// Both directions of the parameter from the start, or one of them.
enum class Direction { both, up, down };

/// Which special points are looked for: all, none, or those of the listed types ("LP", "H", ...).
struct Detect {
    bool everything = true;
    std::vector<std::string> types{};

    static Detect all() { return {}; }
    static Detect none() { return {false, {}}; }
    static Detect only(std::vector<std::string> types) { return {false, std::move(types)}; }
};

/// A function of a point that is watched along a branch: its zeros are located and recorded with
/// the label "UZ"; with `stops` the branch ends at the first one, for the reason `user`.
struct Monitor {
    std::string name;
    std::function<double(const Point&)> value;
    bool stops = false;
};

/// Called after each accepted point. A callable that returns false cancels the run; one that
/// returns nothing only watches.
class OnPoint {
  public:
    OnPoint() = default;
    template <class F>
    requires(!std::is_same_v<std::remove_cvref_t<F>, OnPoint> &&
             std::is_invocable_v<F&, const Point&>)
        OnPoint(F f) {  // NOLINT(google-explicit-constructor): takes a lambda
        if constexpr (std::is_void_v<std::invoke_result_t<F&, const Point&>>) {
            call_ = [f = std::move(f)](const Point& point) mutable { return f(point), true; };
        } else {
            call_ = std::move(f);
        }
    }
    explicit operator bool() const { return static_cast<bool>(call_); }
    bool operator()(const Point& point) const { return call_(point); }

  private:
    std::function<bool(const Point&)> call_;
};

/// How runs are made. The defaults are meant for every system: there is no step length to choose.
struct TX_EXPORT Options {
    Window window{};  ///< instead of the parent's, where a branch is entered or switched to
    std::vector<double> start{};  ///< a guess of the state; empty: found by integration
    Direction direction = Direction::both;
    std::size_t max_points = 5000;  ///< of a branch
    double max_work = 4e7;          ///< of a branch, and of all of a diagram: the unknowns of the
                                    ///< linear systems that are solved, added up
    double h_max = 0.05;  ///< longest step, in units of the windows and the sizes of the variables
    double tol = 1e-10;   ///< of Newton's method, relative to the sizes of the variables
    double mesh_tol = 1e-6;   ///< of the discretisation of cycles
    int m = 4;                ///< collocation points per interval, 2 to 7
    std::size_t N_max = 400;  ///< most intervals
    double max_period = 0;    ///< branches of cycles end there; 0: 1000 times the first period
    int depth = 3;            ///< generations of branches in a diagram
    Detect detect{};
    bool verify = false;  ///< special cycles are checked by integration
    std::vector<Monitor> monitors{};
    OnPoint on_point{};
    std::size_t max_branches = 50;  ///< of a diagram
    int max_doublings = 2;          ///< generations of period doublings in a diagram
    bool keep_all = false;          ///< keep every orbit, not each tenth and the special ones
    double norm_bound = 1e9;        ///< branches end where a variable exceeds the largest at the
                                    ///< start, and 1, by this factor
    double floor = 0;               ///< variables smaller than this count as zero; 0: automatic
    bool past_bt = true;            ///< Hopf curves go on beyond BT as neutral saddles
    std::shared_ptr<const trajex::KnownSolutions> known{};  ///< set by diagrams

    /// Record the points where `what` (a parameter, a variable, "norm" or "period") takes these
    /// values.
    Options& at(std::string_view what, std::vector<double> values);
    /// Record, under this name, the zeros of a function of the point.
    Options& when(std::string_view name, std::function<double(const Point&)> value);
    /// End the branch at the first zero of a function of the point.
    Options& stop_when(std::string_view name, std::function<double(const Point&)> value);
};

}  // namespace tx

#endif
