// Cycles of autonomous and of periodically forced systems as solutions that can be followed:
//
//     R_i(x; q) = 0          the segments of the chain (N m n equations)
//     <x - x_r, x_r'> = 0    the phase, where the system is autonomous; x_r: the last accepted
//     cycle
//
// with unknowns z = (points of the chain, T where it is free, parameters). Reference for the phase
// condition: Doedel, Keller and Kernevez, Int. J. Bifurcation and Chaos 1 (1991) 493, 745.
#pragma once

#include <array>
#include <cstddef>
#include <initializer_list>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

#include "branches/orbit.hpp"
#include "branches/problem.hpp"
#include "cycles/chain_solver.hpp"
#include "cycles/collocation.hpp"
#include "cycles/homoclinic.hpp"
#include "cycles/mesh.hpp"
#include "cycles/multipliers.hpp"
#include "cycles/rate.hpp"
#include "cycles/symmetry.hpp"

namespace trajex {

struct CycleCoefficient;
struct RefinedPoint;

struct CycleSettings {
    std::vector<double> widths;  ///< of the windows of the parameters that vary
    double mesh_tol = 1e-6;
    std::size_t m = 4;
    std::size_t most_intervals = 400;
    double max_period = 0;        ///< 0: 1000 times the first one
    double norm_bound = 1e9;      ///< times the largest of 1 and the first sizes
    double floor = 0;             ///< least scale of a variable
    std::vector<double> sizes{};  ///< least scale of each: how large cycles become
    bool verify = false;          ///< special cycles are checked by integration
};

class CycleProblem final : public Problem {
  public:
    /// Starts with the mesh, the points and the period of `start`; `values`: of all parameters.
    CycleProblem(std::shared_ptr<const Equations> equations, const Timing& timing,
                 std::vector<std::size_t> vary, std::vector<double> values, CycleSettings settings,
                 const Orbit& start);

    /// The unknowns at the start; those of an orbit with the present mesh, and back.
    std::vector<double> start() const;
    Orbit orbit(const double* z) const;
    double period(const double* z) const;

    /// Places intervals, and changes their number, where the cycle z asks for it. True: it was
    /// done, z and the directions (which may be empty) are those of the new mesh.
    bool adapt_mesh(std::vector<double>& z, Directions directions, bool eagerly);
    /// What the last call of `spectrum` found beside the multipliers.
    const MultiplierCheck& check() const { return multipliers_.check(); }
    double mesh_error() const { return monitor_.error; }
    const Collocation& segments() const { return segments_; }
    const Timing& timing() const { return timing_; }
    /// The signs of a reflection that maps the cycle to itself half a period later; empty: none.
    std::vector<int> symmetry(const double* z) const;
    /// The same problem for cycles of twice the period, starting from z run twice.
    std::unique_ptr<CycleProblem> doubled(const Orbit& twice, const std::vector<double>& z) const;
    /// Factors of the segments and of the chain at the point of the last `linearise`; null:
    /// singular.
    const Condensation* condensation();
    ChainFactors& chain() { return chain_; }
    const std::vector<double>& scale() const { return scale_; }

    std::size_t equations() const override { return state_size() + phase_rows(); }
    std::size_t unknowns() const override { return state_size() + segments_.scalars(); }
    std::size_t active_parameters() const override { return vary_.size(); }
    void metric(std::span<double> weights) const override;

    double length(const double* v) const override;

    bool residual(const double* z, double* f) override;
    bool linearise(const double* z, double* f) override;
    void apply(const double* v, double* out) const override;
    void apply_transposed(const double* w, double* out) const override;
    bool factor(const Border& border) override;
    std::size_t kept_factors() const override { return factors_; }
    void solve(double* rhs) const override;
    void solve_transposed(double* rhs) const override;
    int determinant_sign() const override;

    EventNames event_names() const override;
    /// Special cycles are solved for once more on a finer mesh.
    double location_tolerance() const override { return 1e-7; }
    double slope_noise() const override { return 2 * monitor_.error; }
    void spectrum(Spectrum& out) override;

    bool accepted(std::vector<double>& z, Directions directions) override;
    void restore(const double* z) override;
    bool neighbours(const double* before, const double* after) const override;
    double distance(const double* a, const double* b) const override;
    double distance_from(const double* z, const std::vector<double>& earlier,
                         const Description& description) const override;
    std::vector<int> mirror(const double* z, const double* a, const double* b) const override;
    std::string_view end(const double* z, Finding& finding) override;

    Description describe(const double* z) override;
    void examine(Finding& finding) override;
    std::unique_ptr<Problem> clone() const override;
    std::string_view kind() const override {
        return timing_.autonomous() ? "cycles" : "forced cycles";
    }

  private:
    std::size_t state_size() const { return segments_.equations(); }
    std::size_t phase_rows() const { return timing_.autonomous() ? 1 : 0; }
    double parameter_of(const double* z) const {
        return z[state_size() + segments_.scalars() - vary_.size()];
    }
    double amplitude(const double* x) const;
    double mesh_error_of(const double* z) const;
    void take_scales(const double* x, bool first);
    void take_reference(const double* x);
    double phase(const double* x) const;
    void keep_phase(const double* z, Directions directions);
    void set_mesh(const std::vector<double>& mesh, const double* z);
    void remember(const double* z);
    double distance_of_orbit(const double* z, const double* scalars, const Orbit& other) const;
    bool hopf_end(const double* z, Finding& finding);
    std::unique_ptr<CycleProblem> halved(const Finding& finding, std::vector<double>& z,
                                         std::vector<double>& tangent) const;
    bool take_refined(Finding& finding, const RefinedPoint& refined) const;
    std::unique_ptr<CycleProblem> refine(Finding& finding, std::vector<double>& z) const;
    void refine_branch_point(Finding& finding) const;
    void examine_fold(Finding& finding);
    void examine_branch_point(Finding& finding);
    void examine_doubling(Finding& finding);
    void examine_torus(Finding& finding);
    static double note_symmetry(Finding& finding, const CycleProblem& problem,
                                const std::vector<double>& z, const std::vector<double>& v);
    void classify(Finding& finding);
    static double critical_angle(const Finding& finding);
    void describe_coefficient(Finding& finding, const char* name,
                              const CycleCoefficient& coefficient) const;

    std::shared_ptr<const Equations> equations_;
    Timing timing_;
    std::vector<std::size_t> vary_;
    std::vector<double> values_;
    CycleSettings settings_;
    Orbit start_;
    std::size_t n_;
    Collocation segments_;

    // Scales and phase.
    std::vector<double> scale_;
    std::vector<double> first_scale_;
    double period_scale_ = 1;
    std::vector<double> phase_row_;
    double phase_value_ = 0;

    // Linear algebra at the point of the last `linearise`.
    bool condensed_ = false;
    bool condensable_ = false;
    std::size_t factors_ = 0;
    Condensation condensation_;
    ChainFactors chain_;
    BorderedChain<double> bordered_;
    std::vector<double> columns_, rows_, corner_;
    Multipliers multipliers_;
    std::vector<double> velocities_, transfers_;

    // Along the branch.
    MeshMonitor monitor_;
    double balanced_error_ = 0;  // with intervals of equal shares
    std::vector<double> growth_;
    std::size_t accepted_count_ = 0;
    std::size_t last_mesh_change_ = 0;
    std::vector<double> mesh_before_;  // it
    struct Past {
        double parameter, period, amplitude;
    };
    void remember_symmetries(const double* z);
    std::vector<Past> past_;
    BrokenSymmetry doubling_, reflection_;
    HomoclinicApproach homoclinic_;
};

/// Newton's method at fixed parameters, then meshes until the error is that of the settings. False:
/// no convergence.
bool solve_cycle(CycleProblem& problem, std::vector<double>& z, double tolerance = 1e-10);

}  // namespace trajex
