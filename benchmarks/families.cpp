// Families of cycles that AUTO-07p follows too: benchmarks/auto/families.py runs both.
//
//     families NAME         milliseconds and points of the family, then a line for each special
//                           point: its type, the parameter, and the parameter on a finer mesh
//     families NAME start   the first cycle of the family as AUTO reads it, t and the state by rows
#include <cmath>
#include <cstdio>
#include <functional>
#include <string>
#include <tx.hpp>
#include <vector>

#include "measure.hpp"

namespace benchmarks {
namespace {

constexpr auto roessler_equations = [](auto, const auto& x, const auto& c, auto& dx) {
    dx[0] = -x[1] - x[2];
    dx[1] = x[0] + 0.2 * x[1];
    dx[2] = 0.2 + x[2] * (x[0] - c[0]);
};

constexpr auto duffing_equations = [](auto t, const auto& x, const auto& c, auto& dx) {
    using std::cos;
    dx[0] = x[1];
    dx[1] = 0.6 * cos(c[0] * t) - 0.15 * x[1] - x[0] - x[0] * x[0] * x[0];
};

/// Hodgkin and Huxley, J. Physiol. 117 (1952) 500, with the signs of today.
constexpr auto squid_axon = [](auto, const auto& x, const auto& c, auto& dx) {
    using std::exp;
    const auto &v = x[0], &m = x[1], &h = x[2], &n = x[3];
    dx[0] = c[0] - 120.0 * m * m * m * h * (v - 115.0) - 36.0 * n * n * n * n * (v + 12.0) -
            0.3 * (v - 10.599);
    dx[1] =
        (25.0 - v) / 10.0 / (exp((25.0 - v) / 10.0) - 1.0) * (1.0 - m) - 4.0 * exp(-v / 18.0) * m;
    dx[2] = 0.07 * exp(-v / 20.0) * (1.0 - h) - h / (exp((30.0 - v) / 10.0) + 1.0);
    dx[3] = (10.0 - v) / 100.0 / (exp((10.0 - v) / 10.0) - 1.0) * (1.0 - n) -
            0.125 * exp(-v / 80.0) * n;
};

struct Family {
    std::string parameter;
    tx::Point first;  ///< where the family does not begin at a Hopf point
    std::function<tx::Branch(const tx::Options&)> follow;
};

Family through(const tx::Point& cycle, const std::string& parameter, tx::Window window) {
    return {parameter, cycle,
            [=](const tx::Options& options) { return cycle.follow(parameter, window, options); }};
}

Family family(const std::string& name) {
    if (name == "roessler") {
        const tx::System system{{"x", "y", "z"}, {{"c", 2.5}}, roessler_equations};
        return through(system.cycle({1, 1, 0}), "c", {2.5, 8});
    }
    if (name == "duffing") {
        const tx::System system{{"x", "y"}, {{"w", 2.5}}, duffing_equations};
        return through(system.forced({.frequency = "w"}).cycle({0, 0}), "w", {0.5, 2.5});
    }
    const tx::System system{{"v", "m", "h", "n"}, {{"I", 0.0}}, squid_axon};
    const tx::Branch rest = system.equilibrium({0, 0.05, 0.6, 0.32}).follow("I", {0, 200});
    return {"I", {}, [origin = rest["H1"]](const tx::Options& options) {
                return origin.follow("I", {0, 200}, options);
            }};
}

void print_start(const Family& family) {
    constexpr int rows = 200;
    const double T = family.first.period();
    for (int k = 0; k <= rows; ++k) {
        const double t = T * k / rows;
        std::printf("%.15g", t);
        for (const double x : family.first.at(t)) std::printf(" %.15g", x);
        std::printf("\n");
    }
}

void print_family(const Family& family) {
    const tx::Branch branch = family.follow({});
    const Rounds rounds({[&] { family.follow({}); }}, 0.01, 9);
    std::printf("%.6g %zu\n", 1e3 * rounds.seconds(0), branch.size());
    const tx::Branch fine = family.follow({.mesh_tol = 1e-10, .m = 6});
    for (const tx::Special& special : branch.specials()) {
        double reference = std::nan("");
        const double value = special.parameter(family.parameter);
        for (const tx::Special& other : fine.specials()) {
            const double there = other.parameter(family.parameter);
            const bool nearer = !(std::fabs(there - value) >= std::fabs(reference - value));
            if (other.type() == special.type() && nearer) reference = there;
        }
        std::printf("%s %.13g %.13g\n", special.type().c_str(), value, reference);
    }
}

}  // namespace
}  // namespace benchmarks

int main(int argc, char** argv) {
    if (argc < 2) return 1;
    const benchmarks::Family family = benchmarks::family(argv[1]);
    if (argc > 2)
        benchmarks::print_start(family);
    else
        benchmarks::print_family(family);
}
