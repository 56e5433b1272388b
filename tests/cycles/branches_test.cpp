// Families of cycles as programs see them: bifurcations, coefficients, multipliers and periods that
// are known, with the default options. Each family once more in slower time and in skewed
// variables, where periods and multipliers follow; and trajectories beside the cycles, which decide
// what is stable.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <complex>
#include <functional>
#include <numbers>
#include <string>
#include <tx.hpp>
#include <utility>
#include <vector>

namespace {

constexpr double pi = std::numbers::pi;
using State = std::vector<double>;
using std::cos;
using std::exp;
using std::sqrt;

/// x -> y = M x with M = [1 s; 0 1] in the last two variables, whose condition is s^2, and a time
/// that runs `speed` times as fast.
struct Change {
    std::string name = "as it stands";
    double speed = 1;
    double shear = 0;
    double mesh_tol = 1e-6;
    bool verify = false;  // by integration
};

const Change changes[] = {{.verify = true},
                          {.name = "3 f", .speed = 3},
                          {.name = "sheared", .shear = std::sqrt(1e3)},
                          {.name = "on a finer mesh", .mesh_tol = 1e-8}};

template <class F>
auto changed(F f, const Change& change, std::size_t n) {
    return [=, speed = change.speed, shear = change.shear](auto t, auto& y, auto& c, auto& dy) {
        using Number = std::remove_cvref_t<decltype(dy[0])>;
        std::array<Number, 4> x{}, dx{};
        for (std::size_t i = 0; i < n; ++i) x[i] = y[i];
        x[n - 2] = y[n - 2] - shear * y[n - 1];
        f(speed * t, x, c, dx);
        for (std::size_t i = 0; i < n; ++i) dy[i] = speed * dx[i];
        dy[n - 2] = speed * (dx[n - 2] + shear * dx[n - 1]);
    };
}

struct Event {
    std::string type;
    double parameter;
    double tolerance;  // half a unit of the last digit that is known, as a rule
    double period;
    double period_tolerance;
    std::vector<std::pair<std::string, double>> coefficients{};
    std::string subtype{};
    double multiplier = 0;  // another one there, if not 0
};

/// The name is also that of the test; `start` of cycles is a state near one or at an equilibrium.
struct Family {
    std::string name;
    std::size_t n;
    std::function<tx::System(const Change&)> system;
    State start;
    bool from_hopf;
    double forcing;  // its period, 0: autonomous, -1: 2 pi over the parameter that varies
    std::string vary;
    tx::Window window;
    std::vector<Event> events;
};

/// A system under a change of variables, made when it is asked for.
template <class F>
std::function<tx::System(const Change&)> system(std::size_t n,
                                                const std::vector<tx::Parameter>& parameters, F f) {
    const std::vector<std::string> names{"x", "y", "z", "u"};
    const std::vector<std::string> states(names.begin(), names.begin() + static_cast<long>(n));
    return
        [=](const Change& change) { return tx::System(states, parameters, changed(f, change, n)); };
}

std::vector<Family> families() {
    const auto feedback = [](auto, auto& x, auto& c, auto& dx) {
        dx[0] = x[1];
        dx[1] = x[2];
        dx[2] = -c[0] * x[2] - x[1] - x[0] + x[0] * x[0];
    };
    const auto peroxidase = [](auto, auto& x, auto& c, auto& dx) {
        const auto first = 0.1631021 * x[0] * x[1] * x[2], second = 0.046875 * x[0] * x[1] * x[3];
        dx[0] = -first - second + c[0] - 0.1175 * x[0];
        dx[1] = -first - second + c[1];
        dx[2] = first - 2500.0 * x[2] * x[2] + 2.0 * second - 20.0 * x[2] + 0.001;
        dx[3] = -second + 2500.0 * x[2] * x[2] - 1.104 * x[3];
    };
    const auto ring = [](auto, auto& x, auto& c, auto& dx) {
        const auto r = sqrt(x[0] * x[0] + x[1] * x[1]);
        const auto growth = c[0] - (r - 1.0) * (r - 1.0), turn = 1.0 + c[1] * (r - 1.0);
        dx[0] = growth * x[0] - turn * x[1];
        dx[1] = growth * x[1] + turn * x[0];
    };
    // On the unit circle, z' = (c + k x) z - z^3, or - z^2.
    const auto circle = [](auto power) {
        return [power](auto, auto& x, auto& c, auto& dx) {
            const auto r2 = x[0] * x[0] + x[1] * x[1];
            dx[0] = x[0] - x[1] - x[0] * r2;
            dx[1] = x[0] + x[1] - x[1] * r2;
            dx[2] = (c[0] + 0.5 * x[0]) * x[2] - (power == 3 ? x[2] * x[2] * x[2] : x[2] * x[2]);
        };
    };
    const auto oscillator = [](auto t, auto& x, auto& c, auto& dx) {
        const auto r2 = x[0] * x[0] + x[1] * x[1], growth = c[0] + 0.7 * cos(t);
        dx[0] = growth * x[0] - 0.3 * x[1] - r2 * (x[0] + 0.5 * x[1]);
        dx[1] = growth * x[1] + 0.3 * x[0] - r2 * (x[1] - 0.5 * x[0]);
    };
    const auto predators = [](auto t, auto& x, auto& c, auto& dx) {
        const auto eaten = 4 * pi * x[0] * x[1] / (c[0] * (1.0 + c[1] * cos(2 * pi * t)) + x[0]);
        dx[0] = 2 * pi * (1.0 - x[0]) * x[0] - eaten;
        dx[1] = eaten - 2 * pi * x[1];
    };
    const auto duffing = [](auto t, auto& x, auto& c, auto& dx) {
        dx[0] = x[1];
        dx[1] = 0.6 * cos(c[0] * t) - 0.15 * x[1] - x[0] - x[0] * x[0] * x[0];
    };
    const auto neuron = [](auto, auto& x, auto& c, auto& dx) {
        dx[0] = x[0] - x[0] * x[0] * x[0] / 3.0 - x[1] + c[0];
        dx[1] = 0.08 * (x[0] + 0.7 - 0.8 * x[1]);
    };
    const auto rossler = [](auto, auto& x, auto& c, auto& dx) {
        dx[0] = -x[1] - x[2];
        dx[1] = x[0] + c[0] * x[1];
        dx[2] = 0.2 + x[2] * (x[0] - 5.7);
    };
    const auto prey = [=](double e) { return system(2, {{"b0", 0.5}, {"e", e}}, predators); };
    const double two_pi = 2 * pi, last = 5e-12;
    const double fold_1 = 2.00756062019, fold_2 = 1.48108537222;
    return {
        {"feedback",
         3,
         system(3, {{"al", 1}}, feedback),
         {0, 0, 0},
         true,
         0,
         "al",
         {0.5, 1.5},
         {{"PD",
           0.630302006160,
           last,
           6.364071339442,
           last,
           {{"a", 0.02098001602}, {"c", -1.94185683}},
           "supercritical",
           -std::exp(-0.630302006160 * 6.364071339442)}}},
        // A fold next to a canard: p = p0 + 3e-10 xi^2.
        {"FitzHugh-Nagumo",
         2,
         system(2, {{"I", 0.3}}, neuron),
         {-1, -0.37},
         true,
         0,
         "I",
         {0.25, 0.7},
         {{"LPC", 0.3241785225037, last, 68.52650321, 5e-7}}},
        // Small cycles all along which the parameter is the same to 1e-9.
        {"Roessler",
         3,
         system(3, {{"a", 0.1}}, rossler),
         {0, 0, 0},
         true,
         0,
         "a",
         {-0.1, 0.2},
         {{"PD", 0.1096389365182, last, 6.0481318276592, last, {}, "supercritical"}}},
        {"peroxidase in k7",
         4,
         system(4, {{"k7", 0.72}, {"k8", 0.5}}, peroxidase),
         {1.8, 25, 0.0152, 0.178},
         true,
         0,
         "k7",
         {0.65, 0.9},
         {{"NS", 0.71643356438, last, 10.912126878, 5e-9, {{"theta", 0.0830266584}}, ""},
          {"NS",
           0.818565885283,
           last,
           14.7224457225,
           5e-10,
           {{"theta", 0.998026453}, {"d", -0.0802639}},
           "supercritical"}}},
        {"peroxidase in k8",
         4,
         system(4, {{"k7", 1.5}, {"k8", 0.8}}, peroxidase),
         {5.9, 6.8, 0.0206, 0.357},
         true,
         0,
         "k8",
         {0.75, 0.9},
         {{"LPC", 0.84391361156, 5e-11, 13.3650379911, 5e-10, {}, "", 1.73356921},
          {"NS",
           0.82520223682,
           5e-11,
           15.0249244444,
           5e-10,
           {{"theta", 1.262217492}},
           "supercritical"}}},
        {"ring",
         2,
         system(2, {{"mu", 0.04}, {"s", 0.5}}, ring),
         {1.3, 0},
         false,
         0,
         "mu",
         {-0.1, 0.2},
         {{"LPC", 0, last, two_pi, last}}},
        {"pitchfork",
         3,
         system(3, {{"c", -0.3}}, circle(3)),
         {1, 0, 0.1},
         false,
         0,
         "c",
         {-0.5, 0.5},
         {{"BPC", 0, last, two_pi, last, {}, "pitchfork", std::exp(-4 * pi)}}},
        {"transcritical",
         3,
         system(3, {{"c", -0.3}}, circle(2)),
         {1, 0, 0.01},
         false,
         0,
         "c",
         {-0.5, 0.5},
         {{"BPC", 0, last, two_pi, last, {}, "transcritical", std::exp(-4 * pi)}}},
        {"forced normal form",
         2,
         system(2, {{"c", -0.2}}, oscillator),
         {0, 0},
         false,
         two_pi,
         "c",
         {-0.5, 0.5},
         {{"NS", 0, last, two_pi, last, {{"theta", 0.6 * pi}, {"d", -2}}}}},
        {"predators, e = 0",
         2,
         prey(0),
         {0.5, 0.3},
         false,
         1,
         "b0",
         {0.25, 0.8},
         {{"NS", 1.0 / 3, last, 1, last}}},
        {"predators, e = 0.2",
         2,
         prey(0.2),
         {0.5, 0.3},
         false,
         1,
         "b0",
         {0.25, 0.8},
         {{"NS", 0.33561742579, last, 1, last, {{"theta", 2.754451108}}, "supercritical"}}},
        {"predators, e = 0.3",
         2,
         prey(0.3),
         {0.5, 0.3},
         false,
         1,
         "b0",
         {0.25, 0.8},
         {{"NS", 0.33864952160, last, 1, last, {{"theta", 2.925237315}}, "supercritical"},
          {"PD", 0.37261543492, last, 1, last, {}, "subcritical"},
          {"PD", 0.39146403053, last, 1, last, {}, "subcritical"}}},
        {"Duffing",
         2,
         system(2, {{"w", 2.5}}, duffing),
         {0, 0},
         false,
         -1,
         "w",
         {0.5, 2.6},
         {{"LPC", fold_1, last, two_pi / fold_1, 5e-11, {}, "", 0.625337248},
          {"LPC", fold_2, last, two_pi / fold_2, 5e-11, {}, "", 0.529224446}}},
    };
}

tx::Branch follow(const Family& family, const Change& change) {
    const tx::System system = family.system(change);
    State start = family.start;
    start[family.n - 2] += change.shear * start[family.n - 1];
    const tx::Options options{.mesh_tol = change.mesh_tol, .verify = change.verify};
    if (family.from_hopf) {
        const tx::Branch equilibria =
            system.equilibrium(start).follow(family.vary, family.window, options);
        return equilibria["H1"].switch_branch(options).at(0);
    }
    if (family.forcing == 0) {
        return system.cycle(start, options).follow(family.vary, family.window, options);
    }
    const tx::ForcedSystem forced = family.forcing < 0
                                        ? system.forced({.frequency = family.vary})
                                        : system.forced({.fixed = family.forcing / change.speed});
    return forced.cycle(start, options).follow(family.vary, family.window, options);
}

void check_coefficients(const Event& expected, const tx::Special& found) {
    for (const auto& [name, value] : expected.coefficients) {
        EXPECT_NEAR(found.coefficient(name), value, 1e-6 * std::fabs(value)) << name;
    }
    EXPECT_TRUE(expected.subtype.empty() || found.subtype() == expected.subtype) << found.subtype();
}

void check_event(const Event& expected, const tx::Special& found, const Family& family,
                 const Change& change) {
    SCOPED_TRACE(found.text());
    EXPECT_EQ(found.type(), expected.type);
    EXPECT_EQ(found.status(), "located") << found.reason();
    const double away = std::fabs(found.parameter(family.vary) - expected.parameter);
    EXPECT_LE(away, expected.tolerance + 1e-3 * change.mesh_tol);
    EXPECT_LE(away, 2 * found.error() + expected.tolerance);  // the error handed out holds
    EXPECT_NEAR(change.speed * found.period(), expected.period,
                expected.period_tolerance + 1e-2 * change.mesh_tol);
    if (expected.multiplier != 0) {
        double nearest = 1;
        for (const std::complex<double> mu : found.multipliers()) {
            nearest = std::fmin(nearest, std::abs(mu / expected.multiplier - 1.0));
        }
        EXPECT_LT(nearest, 5e-9 + 0.3 * change.mesh_tol);
    }
    if (change.verify) {
        // Radicals of the peroxidase reaction come and go within 1e-3 of a period.
        EXPECT_LE(found.coefficient("shooting error"), family.n == 4 ? 1e-4 : 1e-6);
    }
    if (change.speed == 1 && change.shear == 0) check_coefficients(expected, found);
}

/// Where a branch turns before it meets an event the order is that of the branch; it is compared
/// by parameter.
void check_family(const Family& family, const Change& change) {
    SCOPED_TRACE(family.name + ", " + change.name);
    const tx::Branch branch = follow(family, change);
    std::vector<tx::Special> found = branch.specials();
    ASSERT_EQ(found.size(), family.events.size()) << branch.text();
    for (const Event& expected : family.events) {
        const auto nearest = std::min_element(
            found.begin(), found.end(), [&](const tx::Special& a, const tx::Special& b) {
                return std::fabs(a.parameter(family.vary) - expected.parameter) <
                       std::fabs(b.parameter(family.vary) - expected.parameter);
            });
        check_event(expected, *nearest, family, change);
    }
}

TEST(CycleBranches, BifurcateWhereIsKnownInAnyVariables) {
    for (const Family& family : families()) {
        for (const Change& change : changes) {
            const bool frequency_varies = family.forcing < 0 && change.speed != 1;
            if (!frequency_varies) check_family(family, change);
        }
    }
}

/// By how much the distance of a trajectory from the cycle it starts beside has grown after
/// `periods` periods, without the shift along it.
double growth(const tx::System& system, const tx::Point& cycle, double periods) {
    const State base = cycle.state();
    State beside = base;
    for (std::size_t i = 0; i < base.size(); ++i) {
        beside[i] += 1e-6 * (cycle.max()[i] - cycle.min()[i] + 1e-3) * (i % 2 == 0 ? 1 : -0.7);
    }
    const tx::IntegrateOptions options{.rel_tol = 1e-11, .abs_tol = 1e-14, .dense = false};
    const double end = periods * cycle.period();
    const State after = system.integrate(beside, end, options).back();
    const State still = system.integrate(base, end, options).back();
    const auto distance = [&](const State& a, const State& b, double t) {
        const State f = system.rhs(b, t);
        double along = 0, length = 0, sum = 0;
        for (std::size_t i = 0; i < f.size(); ++i) {
            along += f[i] * (a[i] - b[i]);
            length += f[i] * f[i];
        }
        for (std::size_t i = 0; i < f.size(); ++i) {
            sum += std::pow(a[i] - b[i] - along / length * f[i], 2);
        }
        return std::sqrt(sum);
    };
    return distance(after, still, end) / distance(beside, base, 0);
}

/// On each side of a bifurcation, the first point whose critical multiplier is clearly not 1.
void check_side(const Family& family, const tx::Branch& branch, const tx::Special& special,
                double side) {
    const auto parameter = branch.column(family.vary);
    const tx::System system = family.system({});
    for (std::size_t k = 0; k < branch.size(); ++k) {
        const double away = (parameter[k] - special.parameter(family.vary)) * side;
        if (away < 1e-4 || away > 0.1) continue;
        const tx::Point cycle = branch.point(k);
        double largest = -1e9;
        for (const auto& log : cycle.log_multipliers()) largest = std::fmax(largest, log.real());
        if (std::fabs(largest) < 0.03 || std::fabs(largest) > 2) continue;
        const double factor = growth(system.with(family.vary, parameter[k]), cycle,
                                     std::ceil(5 / std::fabs(largest)));
        EXPECT_EQ(cycle.stable(), factor < 1) << parameter[k] << ": " << factor;
        EXPECT_TRUE(factor < 0.3 || factor > 3) << factor;
        return;
    }
    ADD_FAILURE() << "no point to run from";
}

TEST(CycleBranches, AreStableWhereTrajectoriesStay) {
    for (const Family& family : families()) {
        if (family.name != "feedback" && family.name != "peroxidase in k7" &&
            family.name != "predators, e = 0.2") {
            continue;
        }
        SCOPED_TRACE(family.name);
        const tx::Branch branch = follow(family, {});
        for (const tx::Special& special : branch.specials()) {
            for (const double side : {-1.0, 1.0}) check_side(family, branch, special, side);
        }
    }
}

struct Known {
    std::string name;
    std::function<tx::Point(const tx::Options&)> cycle;
    double period, period_tolerance;
    std::vector<double> logs;  // of the moduli of the multipliers, the largest first
    double tolerance;
};

void check_cycle(const Known& known, double mesh_tol) {
    SCOPED_TRACE(known.name + ", " + std::to_string(1e9 * mesh_tol));
    const tx::Point cycle = known.cycle({.mesh_tol = mesh_tol});
    ASSERT_TRUE(static_cast<bool>(cycle)) << cycle.reason();
    EXPECT_NEAR(cycle.period(), known.period,
                known.period_tolerance + 1e-3 * mesh_tol * known.period);
    if (known.logs.empty()) return;
    std::vector<double> logs;
    for (const auto& log : cycle.log_multipliers()) logs.push_back(log.real());
    std::sort(logs.rbegin(), logs.rend());
    ASSERT_EQ(logs.size(), known.logs.size());
    for (std::size_t i = 0; i < logs.size(); ++i) {
        EXPECT_NEAR(logs[i], known.logs[i], known.tolerance + 0.3 * mesh_tol);
    }
}

TEST(CycleBranches, StartFromStatesAndGuessesWithKnownMultipliers) {
    const auto van_der_pol = [](double mu) {
        return tx::System({"x", "y"}, {{"mu", mu}}, [](auto, auto& x, auto& c, auto& dx) {
            dx[0] = x[1];
            dx[1] = c[0] * (1.0 - x[0] * x[0]) * x[1] - x[0];
        });
    };
    const tx::System lorenz({"x", "y", "z"}, {}, [](auto, auto& x, auto&, auto& dx) {
        dx[0] = 10.0 * (x[1] - x[0]);
        dx[1] = 28.0 * x[0] - x[1] - x[0] * x[2];
        dx[2] = x[0] * x[1] - 8.0 / 3.0 * x[2];
    });
    const tx::System round({"x", "y"}, {}, [](auto, auto& x, auto&, auto& dx) {
        const auto r2 = x[0] * x[0] + x[1] * x[1];
        dx[0] = 0.3 * x[0] - 2.0 * x[1] - r2 * x[0];
        dx[1] = 0.3 * x[1] + 2.0 * x[0] - r2 * x[1];
    });
    const tx::System damped({"x", "y"}, {{"w", 1.5}}, [](auto t, auto& x, auto& c, auto& dx) {
        dx[0] = x[1];
        dx[1] = 0.5 * cos(c[0] * t) - 0.2 * x[1] - 2.0 * x[0];
    });
    const double ten = std::log(10.0);
    using tx::Options;
    const auto three = [&](const char* name, State x, double T, double one, double two) {
        return Known{name,
                     [=](const Options& options) { return lorenz.cycle(x, T, options); },
                     T,
                     5e-13,
                     {std::log(one), std::log(two)},
                     5e-9};
    };
    const auto relaxing = [&](double mu) {
        return [=](const Options& options) { return van_der_pol(mu).cycle({2, 0}, options); };
    };
    const auto driven = [&](const Options& options) {
        return damped.forced({.frequency = "w"}).cycle({0, 0}, options);
    };
    const Known table[] = {
        {"van der Pol, mu = 10", relaxing(10), 19.078369567, 5e-10, {-135.43 * ten}, 0.005 * ten},
        {"van der Pol, mu = 100", relaxing(100), 162.83707109, 5e-9, {}, 0},
        {"Stuart-Landau",
         [&](const Options& options) {
             return round.cycle({0.1, 0}, options);
         },
         pi,
         1e-12,
         {-0.6 * pi},
         1e-10},
        {"linear oscillator",
         driven,
         2 * pi / 1.5,
         1e-12,
         {-0.1 * 2 * pi / 1.5, -0.1 * 2 * pi / 1.5},
         1e-10},
        three("Lorenz AAB", {-12.595115397689, -16.970525307084, 27}, 2.305907263939, 9.16549182,
              2.24625618e-15),
        three("Lorenz AAAB", {-11.998523280062, -15.684254096883, 27}, 3.023583703433, 16.1136589,
              7.02674762e-20),
    };
    for (const double mesh_tol : {1e-6, 1e-9}) {
        for (const Known& known : table) check_cycle(known, mesh_tol);
    }
    // The amplitude of forced linear oscillations.
    const double amplitude = 0.5 / std::hypot(2 - 1.5 * 1.5, 0.2 * 1.5);
    EXPECT_NEAR(driven({}).max()[0], amplitude, 1e-6);
}

// With b = 1 cycles of amplitude A of x begin as a = 1 - 0.9 A^2, T = 2 pi (1 + A^2 / 30): what is
// left over A^4 stays bounded.
TEST(CycleBranches, BeginAtHopfPointsAsTheirExpansion) {
    const Family family = families().front();
    const tx::Branch branch = follow(family, {});
    std::size_t compared = 0;
    for (std::size_t k = 0; k < branch.size(); ++k) {
        const double A = (branch.column("max x")[k] - branch.column("min x")[k]) / 2;
        if (A < 1e-3 || A > 0.2) continue;
        ++compared;
        const double A4 = std::pow(A, 4);
        EXPECT_NEAR(branch.column("al")[k], 1 - 0.9 * A * A, A4 + 1e-8);
        EXPECT_NEAR(branch.column("period")[k], 2 * pi * (1 + A * A / 30), A4 + 1e-8);
    }
    EXPECT_GE(compared, 3u);

    const tx::Branch back = branch.point(5).follow("al", {0.9, 1.1});
    EXPECT_TRUE(back.stop()[0] == tx::StopReason::hopf || back.stop()[1] == tx::StopReason::hopf);
    EXPECT_NEAR(back["H1"].parameter("al"), 1, 1e-9);
    EXPECT_NEAR(back["H1"].period(), 2 * pi, 1e-7);
}

// The unit of a parameter is its window: what is found is the same in any.
TEST(CycleBranches, BifurcateInNarrowWindowsToo) {
    const Family family = families().back();
    const tx::Branch branch = follow(family, {});
    const double fold = family.events[0].parameter;
    const auto w = branch.column("w");
    std::size_t beside = 0;
    for (std::size_t k = 0; k < branch.size(); ++k) {
        if (std::fabs(w[k] - fold) < std::fabs(w[beside] - fold)) beside = k;
    }
    for (const double margin : {0.1, 1e-3, 1e-5}) {
        const tx::Window window{std::fmin(fold, w[beside]) - margin,
                                std::fmax(fold, w[beside]) + margin};
        const tx::Branch close = branch.point(beside).follow("w", window);
        ASSERT_EQ(close.specials().size(), 1u) << close.text();
        EXPECT_EQ(close["LPC1"].status(), "located") << close["LPC1"].reason();
        EXPECT_NEAR(close["LPC1"].parameter("w"), fold, 1e-10);
    }
}

// A canard explosion: all along it the parameter is the same, by its expansion in eps, up to the
// error of the mesh, and nothing happens there.
TEST(CycleBranches, PassCanardsWithoutEvents) {
    struct Canard {
        double eps, mesh_tol, tolerance;
    };
    for (const auto& [eps, mesh_tol, tolerance] :
         {Canard{1e-2, 1e-6, 1e-8}, Canard{1e-2, 1e-8, 1e-8}, Canard{1e-3, 1e-6, 3e-6}}) {
        const tx::System system({"x", "y"}, {{"a", 1.1}, {"eps", eps}},
                                [](auto, auto& x, auto& c, auto& dx) {
                                    dx[0] = (x[1] - x[0] * x[0] * x[0] / 3.0 + x[0]) / c[1];
                                    dx[1] = c[0] - x[0];
                                });
        const tx::Special hopf = system.equilibrium({1.1, -0.65}).follow("a", {0.5, 1.2})["H1"];
        EXPECT_NEAR(hopf.parameter("a"), 1, 1e-11);
        const tx::Branch branch = hopf.switch_branch({.max_work = 1e7, .mesh_tol = mesh_tol}).at(0);
        EXPECT_TRUE(branch.specials().empty()) << branch.text();
        EXPECT_EQ(branch.stop()[1], eps < 1e-2 ? "work_bound" : "parameter_bound");
        const double plateau = 1 - eps * (1.0 / 8 + eps * (3.0 / 32 + eps * 173.0 / 1024));
        std::size_t compared = 0;
        double longest = 0;
        for (std::size_t k = 0; k < branch.size(); ++k) {
            const double T = branch.column("period")[k];
            longest = std::fmax(longest, T);
            // The parameter leaves the plateau where the period has fallen below 4 again.
            if (T < (T < longest ? 4 : 2.6)) continue;
            ++compared;
            EXPECT_NEAR(branch.column("a")[k], plateau, tolerance);
        }
        EXPECT_GE(compared, 10u);
    }
}

// Multipliers are exp((2 u - 4 u^2) T), u = r^2, for r' = r (mu + u - u^2), and exp(-4 pi c) for
// y' = (c + cos t) y - y^3.
TEST(CycleBranches, StateErrorsOfMultipliersThatHold) {
    const tx::System planar({"x", "y"}, {{"mu", -1}}, [](auto, auto& x, auto& c, auto& dx) {
        const auto u = x[0] * x[0] + x[1] * x[1];
        const auto growth = c[0] + u - u * u;
        dx[0] = growth * x[0] - (1 + 0.3 * u) * x[1];
        dx[1] = growth * x[1] + (1 + 0.3 * u) * x[0];
    });
    const tx::System forced({"y"}, {{"c", -0.5}}, [](auto t, auto& x, auto& c, auto& dx) {
        dx[0] = (c[0] + cos(t)) * x[0] - x[0] * x[0] * x[0];
    });
    const tx::Branch families[] = {
        planar.diagram("mu", {-1, 1}, {.start = {0, 0}}).branch(1),
        forced.forced({.fixed = 2 * pi}).diagram("c", {-0.5, 0.5}, {.start = {0}}).branch(1)};
    for (const tx::Branch& family : families) {
        const bool is_planar = family.vary()[0] == "mu";
        for (std::size_t k = 0; k < family.size(); ++k) {
            const double p = family.column(family.vary()[0])[k];
            double exact = -4 * pi * p;
            if (is_planar) {
                const double r = family.column("max x")[k];
                const double u = 0.5 + std::copysign(std::sqrt(0.25 + p), r * r - 0.5);
                exact = (2 * u - 4 * u * u) * family.column("period")[k];
            }
            if (exact < -14) continue;
            EXPECT_NEAR(family.eigenvalues(k)[0].real(), exact,
                        family.column("multiplier_error")[k])
                << p;
            EXPECT_LE(family.column("multiplier_error")[k], 1e-4) << p;
        }
    }
}

// Chua's circuit: a homoclinic orbit of a saddle-focus, about whose parameter folds accumulate.
TEST(CycleBranches, EndWhereFoldsAccumulate) {
    const tx::System chua({"x", "y", "z"}, {{"al", 6}}, [](auto, auto& x, auto& c, auto& dx) {
        dx[0] = c[0] * (x[1] - (2 * x[0] * x[0] * x[0] - x[0]) / 7);
        dx[1] = x[0] - x[1] + x[2];
        dx[2] = -100.0 / 7 * x[1];
    });
    const tx::Diagram diagram = chua.diagram("al", {4, 11}, {.depth = 2, .max_branches = 3});
    const tx::Branch family = diagram.branch(2);
    EXPECT_EQ(family.stop()[1], "homoclinic_suspected");
    EXPECT_EQ(family.stop_detail()[1].substr(0, 30), "folds without end about 9.7257");
    EXPECT_LE(family.specials().size(), 14u);
    for (const tx::Special& special : family.specials())
        EXPECT_NE(special.status(), "unresolved") << special.text();
}

/// Symmetric oscillators: symmetry is lost in pitchforks, and families end where it returns.
TEST(CycleBranches, OfDiagramsEndWhereTheyShould) {
    const auto hardening = [](auto t, auto& x, auto& c, auto& dx) {
        dx[0] = x[1];
        dx[1] = c[0] * cos(1.2 * t) - 0.2 * x[1] - x[0] - x[0] * x[0] * x[0];
    };
    const tx::System duffing({"x", "v"}, {{"A", 3}}, hardening);
    const tx::Diagram diagram =
        duffing.forced({.fixed = 2 * pi / 1.2}).diagram("A", {3, 23.5}, {.start = {0, 0}});
    std::string specials;
    for (const tx::Special& special : diagram.specials()) {
        EXPECT_EQ(special.status(), "located") << special.text();
        specials += special.type() + " ";
    }
    EXPECT_EQ(specials, "BPC BPC PD PD ") << diagram.text();
    ASSERT_GE(diagram.size(), 4U) << diagram.text();
    const char* const ends[] = {"parameter_bound", "branch_point", "known_branch", "branch_point"};
    for (std::size_t k = 0; k < 4; ++k) EXPECT_EQ(diagram.branch(k).stop()[1], ends[k]) << k;
    EXPECT_EQ(diagram.branch(1).stop_detail()[1], "back at symmetric cycles");
    EXPECT_EQ(diagram.branch(3).stop_detail()[1], "back at the cycle of half the period");
    EXPECT_NEAR(diagram["BPC1"].parameter("A"), 4.3899183781, 1e-8);
    EXPECT_NEAR(diagram["BPC2"].parameter("A"), 22.9824045141, 1e-8);
}

}  // namespace

// Most orbits of a branch are not kept: asked for, they are those that were there.
TEST(Orbits, AreComputedAgainWhereTheyWereNotKept) {
    const tx::System duffing{
        {"x", "v", "rest", "zero"}, {{"omega", 0.5}}, [](auto t, auto& x, auto& c, auto& dx) {
            dx[0] = x[1];
            dx[1] = 0.3 * cos(c[0] * t) - 0.1 * x[1] - x[0] - x[0] * x[0] * x[0];
            dx[2] = 0.7 / c[0] - x[2];
            dx[3] = x[2] - 0.7 / c[0] - x[3];
        }};
    const tx::System bistable{{"y"}, {{"c", 0.5}}, [](auto t, auto& x, auto& c, auto& dx) {
                                  dx[0] = (c[0] + cos(t)) * x[0] - x[0] * x[0] * x[0];
                              }};
    const tx::Point starts[] = {duffing.forced({.frequency = "omega"}).cycle({0.3, 0, 1.4, 0.1}),
                                bistable.forced({.fixed = 2 * pi}).cycle({1})};
    for (const tx::Point& start : starts) {
        const std::size_t n = start.state().size();
        const char* const vary = n == 4 ? "omega" : "c";
        const tx::Window window = n == 4 ? tx::Window{0.5, 2} : tx::Window{1e-4, 0.5};
        const tx::Branch kept = start.follow(vary, window, {.keep_all = true});
        const tx::Branch thin = start.follow(vary, window);
        ASSERT_EQ(kept.size(), thin.size());
        for (std::size_t i = 0; i < kept.size(); ++i) {
            const tx::Point a = kept.point(i);
            const tx::Point b = thin.point(i);
            for (const double part : {0.0, 0.3, 0.7}) {
                const State x = a.at(part * a.period());
                const State y = b.at(part * b.period());
                for (std::size_t k = 0; k < n; ++k)
                    EXPECT_NEAR(x[k], y[k], 1e-5) << i << ' ' << part;
            }
        }
    }
}
