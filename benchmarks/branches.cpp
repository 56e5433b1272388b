// What a point on a branch of equilibria costs: three variables and fifty, with exact derivatives
// from a generic right-hand side, with a Jacobian, and with differences; the evaluations that it
// takes beside.
#include <cstddef>
#include <string>
#include <tx.hpp>
#include <vector>

#include "measure.hpp"
#include "table.hpp"

namespace benchmarks {
namespace {

long evaluations = 0;

/// The oxidation of carbon monoxide on platinum; folds and Hopf points lie on the branch.
constexpr auto oxidation = [](const auto& u, const auto& c, auto& du) {
    const auto free = 1 - u[0] - u[1] - u[2];
    du[0] = 5 * free * free - 2 * u[0] * u[0] - 10 * u[0] * u[1];
    du[1] = c[0] * free - 0.1 * u[1] - 10 * u[0] * u[1];
    du[2] = 0.0675 * (free - 0.4 * u[2]);
};

void oxidation_jacobian(double /*t*/, const double* u, const double* c, double* A) {
    ++evaluations;
    const double free = 10 * (1 - u[0] - u[1] - u[2]);
    A[0] = -free - 4 * u[0] - 10 * u[1], A[1] = -free - 10 * u[0], A[2] = -free;
    A[3] = -c[0] - 10 * u[1], A[4] = -c[0] - 0.1 - 10 * u[0], A[5] = -c[0];
    A[6] = -0.0675, A[7] = -0.0675, A[8] = -0.0675 * 1.4;
}

/// x'' + p exp(x) on [0, 1], x = 0 at the ends, by differences at n points: a fold at p = 3.51.
constexpr auto bratu = [](const auto& x, const auto& c, auto& dx) {
    using std::exp;
    const std::size_t n = x.size();
    const auto steps = static_cast<double>(n + 1);
    for (std::size_t i = 0; i < n; ++i) {
        dx[i] = c[0] * exp(x[i]) - 2 * steps * steps * x[i];
        if (i > 0) dx[i] += steps * steps * x[i - 1];
        if (i + 1 < n) dx[i] += steps * steps * x[i + 1];
    }
};

struct Case {
    std::string name;
    tx::System system;
    std::vector<double> start;
    std::string parameter;
    tx::Window window;
    std::optional<double> microseconds;
};

std::vector<std::string> numbered(std::size_t n) {
    std::vector<std::string> names;
    for (std::size_t i = 0; i < n; ++i) names.push_back("x" + std::to_string(i));
    return names;
}

std::vector<Case> cases() {
    const std::vector<tx::Parameter> rate{{"q2", 1.4}};
    const std::vector<double> clean{0.001, 0.7, 0.2};
    const tx::Window rates{0.5, 2};
    const auto generic = [](auto, const auto& u, const auto& c, auto& du) {
        ++evaluations;
        oxidation(u, c, du);
    };
    const auto plain = [](double, tx::View<const double> u, tx::View<const double> c,
                          tx::View<double> du) {
        ++evaluations;
        oxidation(u, c, du);
    };
    const auto large = [](auto, const auto& x, const auto& c, auto& dx) {
        ++evaluations;
        bratu(x, c, dx);
    };
    const std::vector<std::string> names{"x", "y", "s"};
    return {
        {"n = 3, generic", {names, rate, generic}, clean, "q2", rates, 15},
        {"n = 3, Jacobian", {names, rate, plain, oxidation_jacobian}, clean, "q2", rates, 15},
        {"n = 3, differences", {names, rate, plain}, clean, "q2", rates, {}},
        {"n = 50, generic",
         {numbered(50), {{"p", 1.0}}, large},
         std::vector(50, 0.1),
         "p",
         {0.5, 4},
         {}},
    };
}

void measure(const Case& one) {
    const tx::Point start = one.system.equilibrium(one.start);
    evaluations = 0;
    const tx::Branch branch = start.follow(one.parameter, one.window);
    const auto points = static_cast<double>(branch.size());
    const double per_point = static_cast<double>(evaluations) / points;
    const Rounds rounds({[&] { start.follow(one.parameter, one.window); }}, 0.01, 21);
    report("us per equilibrium, " + one.name, "", one.microseconds,
           1e6 * rounds.seconds(0) / points);
    report("calls of f and A per equilibrium, " + one.name, "", std::nullopt, per_point);
}

}  // namespace
}  // namespace benchmarks

int main() {
    for (const benchmarks::Case& one : benchmarks::cases()) benchmarks::measure(one);
}
