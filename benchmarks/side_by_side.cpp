// The library beside its plain form and beside other libraries, as one table.
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <random>
#include <string>
#include <tx.hpp>
#include <vector>

#include "counted.hpp"
#include "measure.hpp"
#include "own.hpp"
#include "peers.hpp"
#include "plain_method.hpp"
#include "systems.hpp"
#include "table.hpp"
#include "work_precision.hpp"

namespace benchmarks {

namespace {

/// The chain with n components, or Lorenz for n = 3.
Problem trajectory_problem(std::size_t n) {
    if (n == 3) return {"Lorenz, n = 3", lorenz, {1, 1, 20}, 10};
    components = n;
    std::vector<double> y(n);
    const std::vector<double> positions = waves(n / 2);
    for (std::size_t i = 0; i < n / 2; ++i) y[i] = positions[i];
    return {"chain, n = " + std::to_string(n), chain, y, 20};
}

std::string with_order(const char* work, std::size_t n) {
    return std::string(work) + ", n = " + std::to_string(n);
}

void compare_steps() {
    for (const std::size_t n : {3, 10, 100, 1000}) {
        const Problem problem = trajectory_problem(n);
        const Handle own = open_handle(problem.f, n, 1e-8);
        const Handle plain = open_handle(problem.f, n, 1e-8);
        std::vector<double> y = problem.start;
        std::vector<double> z = problem.start;
        double t = 0;
        double s = 0;
        const Rounds rounds(
            {[&] { TXStep(own.get(), &t, y.data()); },
             [&] { plain::step(plain.get(), plain->order, &s, z.data(), problem.f); }});
        report("time of a step, " + problem.name, "plain form",
               n == 3 ? std::optional(0.45) : std::nullopt, rounds.ratio(0, 1));
    }
}

/// Nanoseconds of a step beside its evaluations.
double own_nanoseconds(std::size_t n) {
    components = n;
    const Handle tx = open_handle(rotation, n, 1e-6);
    TXSetMaxStep(tx.get(), 1e-3);
    std::vector<double> y(n, 1.0);
    std::vector<double> f(n);
    double t = 0;
    const Rounds rounds({[&] { TXStep(tx.get(), &t, y.data()); },
                         [&] {
                             for (int j = 0; j < 8; ++j)
                                 tx->fcn(t, tx->yw, tx->k + j % 8 * tx->order);
                         }},
                        0.002, 31);
    return 1e9 * (rounds.seconds(0) - rounds.seconds(1));
}

void report_growth() {
    const double at_100 = own_nanoseconds(100);
    const double at_1000 = own_nanoseconds(1000);
    const double at_5000 = own_nanoseconds(5000);
    const double at_100000 = own_nanoseconds(100000);
    const double slope = (at_1000 - at_100) / 900;
    report("growth: ns per component, n = 100 to 1000", "", std::nullopt, slope);
    report("growth: slope beyond n = 5000", "slope from 100 to 1000", 3,
           (at_100000 - at_5000) / 95000 / slope);
}

#ifdef TX_WITH_SUNDIALS
void compare_with_arkode() {
    for (const std::size_t n : {2, 10, 100, 1000}) {
        components = n;
        const Problem problem{"", rotation, std::vector<double>(n, 1.0), n < 1000 ? 20.0 : 5.0};
        const long attempts = arkode_attempts(problem, 1e-6);
        const Handle tx = open_handle(rotation, n, 1e-6);
        TXSetMaxStep(tx.get(), 0.05);
        std::vector<double> y = problem.start;
        double t = 0;
        const Rounds rounds(
            {[&] { TXStep(tx.get(), &t, y.data()); }, [&] { arkode_attempts(problem, 1e-6); }},
            0.002, 61);
        report(with_order("time of a step", n), "ARKODE, same tableau", 0.08,
               rounds.ratio(0, 1) * static_cast<double>(attempts));
    }
}
#endif

struct Target {
    const char* peer;
    Solve solve;
    std::optional<double> ratio;
};

void compare_at_equal_error(const Problem& problem, const Solve& own,
                            const std::vector<Target>& targets) {
    const std::vector<double> reference = own(problem, 1e-13);
    std::vector<Solve> solvers{own};
    for (const Target& target : targets) solvers.push_back(target.solve);
    const std::vector<double> ratios = ratios_at_error(solvers, problem, reference, 1e-6);
    for (std::size_t s = 0; s < targets.size(); ++s) {
        report(problem.name + ", to 1e-6", targets[s].peer, targets[s].ratio, ratios[s]);
    }
}

void compare_trajectories() {
    struct Ratios {
        std::size_t n;
        double odeint;
        std::optional<double> gsl;
    };
    for (const Ratios& at : {Ratios{3, 1.6, 0.6}, Ratios{10, 0.75, 0.5}, Ratios{1000, 0.8, {}}}) {
        std::vector<Target> targets;
#ifdef TX_WITH_ODEINT
        targets.push_back({"Odeint, dopri5", odeint_solve, at.odeint});
#endif
#ifdef TX_WITH_GSL
        targets.push_back({"GSL, rkf45", gsl_solve, at.gsl});
#endif
        compare_at_equal_error(trajectory_problem(at.n), own_solve, targets);
    }
}

#ifdef TX_WITH_ODEINT
std::vector<double> collected;
void collect(double, double* y) {
    collected.insert(collected.end(), y, y + 3);
}

std::vector<double> own_samples(const Problem& problem, double tolerance) {
    const Handle tx = open_handle(problem.f, 3, tolerance);
    std::vector<double> y = problem.start;
    double t = 0;
    collected.clear();
    TXftableg(tx.get(), &t, problem.end, 1000, y.data(), collect);
    return collected;
}

void compare_samples() {
    Problem problem = trajectory_problem(3);
    problem.name = "1000 samples of Lorenz to T = 10";
    compare_at_equal_error(problem, own_samples,
                           {{"Odeint, dense output of dopri5", odeint_samples, {}}});
    problem.end = 20;
    const Rounds rounds(
        {[&] { own_samples(problem, 1e-8); }, [&] { odeint_samples(problem, 1e-8); }});
    report("1000 samples of Lorenz to T = 20, both at 1e-8", "Odeint, dense output of dopri5", 1,
           rounds.ratio(0, 1));
}

void compare_exponents() {
    const Rounds rounds({[] {
                             const Handle tx = open_handle(lorenz, 3, 1e-8, 1e-2);
                             double t = 0;
                             double y[3] = {1, 1, 20};
                             double exponents[3];
                             TXLyapCalc(tx.get(), &t, y, 1e-6, 0.5, 0, 100, exponents, 3);
                         },
                         [] {
                             double exponents[3];
                             exponents_with_odeint(0.5, 100, 1e-8, exponents);
                         }},
                        0.005, 31);
    report("Lyapunov spectrum of Lorenz, 1e-8", "Odeint, dopri5, same method", 1.5,
           rounds.ratio(0, 1));
}

std::vector<double> own_divergence(const tx::System& system, const Problem& problem,
                                   double tolerance) {
    tx::LyapunovOptions options{.transient = 0, .time = problem.end};
    options.integrate.rel_tol = options.integrate.abs_tol = tolerance;
    return {system.lyapunov(problem.start, options).sum()};
}

/// By linearised equations: at the same tolerance, and at the same error of the sum of all
/// exponents, which is the divergence -41/3 of the equations whatever the trajectory is.
void compare_linearised_exponents() {
    const std::vector<std::string> names{"x", "y", "z"};
    const auto equations = [](auto, const auto& x, const auto&, auto& dx) {
        dx[0] = 10 * (x[1] - x[0]);
        dx[1] = x[0] * (28 - x[2]) - x[1];
        dx[2] = x[0] * x[1] - 8.0 / 3 * x[2];
    };
    const auto plain = [equations](double t, tx::View<const double> x, tx::View<const double> c,
                                   tx::View<double> dx) { equations(t, x, c, dx); };
    const auto jacobian = [](double, const double* x, const double*, double* A) {
        A[0] = -10, A[1] = 10, A[2] = 0;
        A[3] = 28 - x[2], A[4] = -1, A[5] = -x[0];
        A[6] = x[1], A[7] = x[0], A[8] = -8.0 / 3;
    };
    struct Given {
        const char* how;
        tx::System system;
    };
    for (const Given& given : {Given{"generic", {names, {}, equations}},
                               Given{"Jacobian", {names, {}, plain, jacobian}}}) {
        const Problem problem{
            std::string("linearised Lorenz, ") + given.how, nullptr, {1, 1, 20}, 100};
        const Solve own = [&](const Problem& p, double tolerance) {
            return own_divergence(given.system, p, tolerance);
        };
        const Rounds rounds(
            {[&] { own(problem, 1e-8); }, [&] { odeint_divergence(problem, 1e-8); }}, 0.005, 31);
        const char* const peer = "Odeint, dopri5, 12 equations";
        report(problem.name + ", both at 1e-8", peer, 1, rounds.ratio(0, 1));
        report(problem.name + ", sum to 1e-8", peer, 1,
               ratios_at_error({own, odeint_divergence}, problem, {-41.0 / 3}, 1e-8)[0]);
    }
}
#endif

void compare_variational() {
    for (const std::size_t n : {20, 50}) {
        components = n;
        const Problem problem = extended_problem(n, 5);
        const Handle own = open_variational(n, 1e-6);
        const Handle plain = open_variational(n, 1e-6);
        TXSetMaxStep(own->TX, 0.01);
        TXSetMaxStep(plain->TX, 0.01);
        std::vector<double> Y = problem.start;
        std::vector<double> Z = problem.start;
        std::vector<double*> Phi = rows_of_Phi(Y, n);
        double t = 0;
        double s = 0;
        const Rounds rounds({[&] { TXVarStep(own.get(), &t, Y.data(), Phi.data()); },
                             [&] {
                                 plain::step(plain->TX, static_cast<int>(Z.size()), &s, Z.data(),
                                             [&](double at, double* V, double* F) {
                                                 plain::extended(plain.get(), at, V, F);
                                             });
                             }});
        report(with_order("time of a variational step", n), "plain form", 0.2, rounds.ratio(0, 1));

        std::vector<Target> targets;
#ifdef TX_WITH_ODEINT
        targets.push_back({"Odeint, dopri5", odeint_solve, 1});
#endif
#ifdef TX_WITH_GSL
        targets.push_back({"GSL, rkf45", gsl_solve, 1});
#endif
#ifdef TX_WITH_SUNDIALS
        targets.push_back({"CVODES, Adams", cvodes_variational, 0.08});
#endif
        compare_at_equal_error(problem, own_variational, targets);
    }
}

std::vector<double> random_matrix(std::size_t n) {
    std::mt19937 generator(7);
    std::normal_distribution<double> normal;
    std::vector<double> A(n * n);
    for (double& element : A) element = normal(generator);
    return A;
}

/// The library works in place: it is given a copy, as the others make one.
struct OwnMatrix {
    explicit OwnMatrix(const std::vector<double>& A, std::size_t n)
        : tx(open_handle(lorenz, 3, 1e-6)), original(A), elements(A), work(2 * n), er(n), ei(n) {
        for (std::size_t i = 0; i < n; ++i) rows.push_back(&elements[i * n]);
    }
    void solve(std::vector<double>& b) {
        elements = original;
        TXLinZero(tx.get(), static_cast<int>(b.size()), rows.data(), b.data(), work.data());
    }
    void values() {
        elements = original;
        TXEigen(tx.get(), static_cast<int>(rows.size()), rows.data(), er.data(), ei.data());
    }

    Handle tx;
    const std::vector<double>& original;
    std::vector<double> elements;
    std::vector<double> work, er, ei;
    std::vector<double*> rows;
};

struct SizeTarget {
    std::size_t n;
    double ratio;
};

/// What tx is compared with, where it was found, and the largest ratio aimed at.
struct Peer {
    const char* name;
    std::optional<double> target;
    Work work;
};

void compare(const std::string& what, const Work& own, const std::vector<Peer>& peers) {
    std::vector<Work> contestants{own};
    for (const Peer& peer : peers) contestants.push_back(peer.work);
    const Rounds rounds(contestants, 0.002, 31);
    for (std::size_t p = 0; p < peers.size(); ++p) {
        report(what, peers[p].name, peers[p].target, rounds.ratio(0, p + 1));
    }
}

void compare_linear_systems() {
    for (const SizeTarget& at : {SizeTarget{4, 0.6}, SizeTarget{10, 0.75}, SizeTarget{50, 0.8},
                                 SizeTarget{200, 1}, SizeTarget{500, 1.2}}) {
        const std::vector<double> A = random_matrix(at.n);
        OwnMatrix own(A, at.n);
        std::vector<double> b(at.n);
        const auto solving = [&](auto solve) {
            return [&b, solve] {
                b.assign(b.size(), 1);
                solve(b);
            };
        };
        std::vector<Peer> peers;
#ifdef TX_WITH_EIGEN
        peers.push_back({"Eigen, PartialPivLU", at.ratio,
                         solving([&](std::vector<double>& x) { eigen_solve(A, x); })});
#endif
#ifdef TX_WITH_LAPACK
        peers.push_back({"OpenBLAS, dgesv", std::nullopt,
                         solving([&](std::vector<double>& x) { lapack_solve(A, x); })});
#endif
        compare(with_order("linear system", at.n),
                solving([&](std::vector<double>& x) { own.solve(x); }), peers);
    }
}

void compare_eigenvalues() {
    for (const SizeTarget& at : {SizeTarget{4, 1}, SizeTarget{10, 0.8}, SizeTarget{50, 0.75},
                                 SizeTarget{100, 0.6}, SizeTarget{200, 0.6}}) {
        const std::vector<double> A = random_matrix(at.n);
        OwnMatrix own(A, at.n);
        std::vector<Peer> peers;
#ifdef TX_WITH_EIGEN
        peers.push_back({"Eigen, EigenSolver", at.ratio, [&] { eigen_values(A, at.n); }});
#endif
#ifdef TX_WITH_LAPACK
        peers.push_back({"OpenBLAS, dgeev", std::nullopt, [&] { lapack_values(A, at.n); }});
#endif
        compare(
            with_order("eigenvalues", at.n), [&] { own.values(); }, peers);
    }
}

void report_evaluations() {
    report("evaluations per crossing of Roessler, 1e-10", "beyond those of the steps", 6,
           evaluations_per_crossing(1000, 1e-10));
    report("evaluations per point, TXEquiCont, n = 2", "", std::nullopt,
           evaluations_per_equilibrium(50));
    report("evaluations per point, TXAutoCont, n = 2", "", std::nullopt,
           evaluations_per_autonomous_orbit(30));
    report("evaluations per point, TXNonAutoCont, n = 2", "", std::nullopt,
           evaluations_per_forced_orbit(30));
}

void compare_all() {
    compare_steps();
#ifdef TX_WITH_SUNDIALS
    compare_with_arkode();
#endif
    compare_trajectories();
#ifdef TX_WITH_ODEINT
    compare_samples();
    compare_exponents();
    compare_linearised_exponents();
#endif
    compare_variational();
    compare_linear_systems();
    compare_eigenvalues();
    report_evaluations();
    report_growth();
}

}  // namespace

}  // namespace benchmarks

int main() {
    benchmarks::compare_all();
}
