// What can be followed: N smooth equations F(z) = 0 in N + d unknowns,
//
//     z = (y, p_1 ... p_k),
//
// whose last k components (k = 1 or 2) are parameters of the system. The driver follows problems
// with d = 1: equilibria, cycles, forced cycles with k = 1, and curves of their bifurcations in two
// parameters. A curve stands on a problem with k = d = 2 and adds an equation to it. The driver
// (Continuer), the decoder of events, the location of special points and the switching of branches
// know nothing else of a problem. Virtual calls are coarse: each one costs at least an evaluation
// of F.
#pragma once

#include <complex>
#include <cstddef>
#include <initializer_list>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace trajex {

/// One exponent of the linearised dynamics: an eigenvalue of an equilibrium, or the logarithm of a
/// multiplier, log|mu| + i arg mu, of a cycle or map. Unstable means value.real() > 0 in both
/// cases.
struct Exponent {
    enum class Kind {
        real,         ///< an eigenvalue, or a positive multiplier, that is real
        alternating,  ///< a real negative multiplier
        pair,         ///< one of a complex conjugate pair
    };
    std::complex<double> value;
    double error = 0;  ///< absolute, of `value`, where it may cross
    Kind kind = Kind::real;
    bool resolved = true;   ///< false: so small that its size is not known
    double mesh_error = 0;  ///< absolute, of `value`, by the discretisation, wherever it is
};
using Spectrum = std::vector<Exponent>;

/// Vectors of unknowns that belong to a solution.
using Directions = std::initializer_list<std::vector<double>*>;

/// How the elementary events of a problem are called; an empty name: not an event there.
struct EventNames {
    std::string_view fold;    ///< dp/ds changes sign, no second branch ("LP", "LPC")
    std::string_view branch;  ///< another branch passes through ("BP", "BPC")
    std::string_view real;    ///< a real exponent crosses, neither of the above ("BT" on LP)
    std::string_view flip;    ///< an alternating exponent crosses ("PD")
    std::string_view pair;    ///< a complex pair crosses ("H", "NS"; "ZH", "HH" on curves)
};

/// A scalar whose sign changes mark a special point (codimension two on curves, degenerate forms).
struct Test {
    std::string_view name;  ///< type of the point, "CP"
    double value = 0;       ///< smooth along the curve; NaN: not defined here
};

/// Borders that make the N x (N + d) matrix F_z square:
///
///     [ F_z      columns ]      N rows
///     [ rows       0     ]      extra + d rows
///
/// `rows` is row-major, (extra + d) x (N + d); `columns` holds `extra` columns of N, one after
/// another.
struct Border {
    std::size_t extra = 0;
    const double* rows = nullptr;
    const double* columns = nullptr;
};

/// What is kept of a point: numbers for the columns of the result, and the orbit of a cycle.
struct Orbit;  // branches/orbit.hpp
struct Description {
    std::vector<double> parameters;  ///< all of the system, in its order
    std::vector<double> state;       ///< the equilibrium; the mean over a cycle
    std::vector<double> low, high;   ///< extremes over a cycle; empty for equilibria
    double norm = 0;                 ///< |x|; of a cycle the root mean square over the period
    double period = 0;               ///< 0 for equilibria
    double mesh_error = 0;
    double end_error = 0;  ///< where intervals end: less, and that of multipliers and periods
    /// Further columns, the same at all points.
    std::vector<std::pair<std::string_view, double>> more;
    std::shared_ptr<const Orbit> orbit;
};

/// The state of one located point while it is being named: the problem adds what it knows.
struct Finding {
    std::string type;                ///< "LP", "BP", "H", ...
    std::string subtype;             ///< "supercritical", "pitchfork", "undetermined", ...
    std::string status = "located";  ///< located | coincident | unresolved
    std::string reason;              ///< why it is unresolved or undetermined
    std::string criticality;  ///< of a pitchfork: "supercritical", "subcritical"; empty: not known
    std::vector<double> z;    ///< the point, polished
    std::vector<double> tangent;  ///< of the branch there, oriented along the run
    /// phi2, psi or q, p (real parts, then imaginary).
    std::vector<std::vector<double>> null_vectors;
    struct Coefficient {
        std::string name;
        double value;
        double error;
    };
    std::vector<Coefficient> coefficients;
    double error = 0;            ///< absolute, of the continuation parameter
    double bracket[2] = {0, 0};  ///< in the continuation parameter
    Spectrum spectrum;
    /// By arclength, of the function of which the point is a zero: scaled dp/ds where the branch
    /// turns, else the real part of the critical exponent. 0: not known.
    double slope = 0;
    double work = 0;  ///< unknowns of the linear systems solved to examine it
};

class Problem {
  public:
    Problem() = default;
    Problem(const Problem&) = delete;
    Problem& operator=(const Problem&) = delete;
    virtual ~Problem() = default;

    // ---- Unknowns ----

    /// N and N + d. They may change in `accepted` only.
    virtual std::size_t equations() const = 0;
    virtual std::size_t unknowns() const = 0;
    /// k: how many of the last unknowns are parameters of the system.
    virtual std::size_t active_parameters() const { return 1; }
    /// Weights w of the scaled inner product <z, z'> = sum w_i z_i z'_i, one for each unknown.
    /// Lengths in it are of order 1 when a solution changes wholly or a parameter crosses its
    /// window.
    virtual void metric(std::span<double> weights) const = 0;

    /// Length of a direction in units of the variables: what null vectors are normalised by. The
    /// square root of the sum of squares without the parameters, unless the problem knows better.
    virtual double length(const double* v) const;

    // ---- Equations and linear algebra ----

    /// F at z (N numbers). False: not computable there (not finite). Exceptions of callbacks pass
    /// through.
    virtual bool residual(const double* z, double* f) = 0;
    /// F at z, and F_z kept inside for `factor`. False: not computable.
    virtual bool linearise(const double* z, double* f) = 0;
    /// F_z v (N numbers) for the matrix of the last `linearise`; w^T F_z (N + d numbers).
    virtual void apply(const double* v, double* out) const = 0;
    virtual void apply_transposed(const double* w, double* out) const = 0;
    /// Factors the bordered matrix. False: singular to working precision.
    virtual bool factor(const Border& border) = 0;
    /// Where factors are so much dearer than F that an iteration does well to keep them for more
    /// than one step: a number that is another one after every factorisation. `residual` and
    /// `linearise` leave the factors as they are then. 0: they are not to be kept.
    virtual std::size_t kept_factors() const { return 0; }
    /// Solves with the factored matrix (or its transpose), in place, N + d + extra numbers.
    virtual void solve(double* rhs) const = 0;
    virtual void solve_transposed(double* rhs) const = 0;
    /// Sign of the determinant of the factored matrix; continuous along a branch for continuous
    /// borders.
    virtual int determinant_sign() const = 0;

    // ---- Dynamics ----

    virtual EventNames event_names() const = 0;
    /// Exponents at the point of the last `linearise`; empty when the problem has no dynamics.
    virtual void spectrum(Spectrum& out) = 0;
    /// Adds the exponents that are critical all along a curve, which `spectrum` leaves out there:
    /// for what is reported, not for what is decoded.
    virtual void add_critical(const double* z, Spectrum& out) const { (void)z, (void)out; }
    /// Scaled dp/ds below which its sign is not to be believed: where a discretisation makes p
    /// noisy the exponents tell better on which side of a fold a point lies.
    virtual double slope_noise() const { return 0; }
    /// How near a special point has to be found, over the step it lies in, before `examine` gets
    /// it.
    virtual double location_tolerance() const { return 0; }
    /// Test functions at the point of the last `linearise`, always the same number in the same
    /// order.
    virtual void tests(std::vector<Test>& out) { out.clear(); }

    // ---- Along a branch ----

    /// A point was accepted: new scales, phase reference, borders. The discretisation may be
    /// changed, and with it z and the directions there (the tangent and its derivatives by
    /// arclength); true then: the driver corrects z again.
    virtual bool accepted(std::vector<double>& z, Directions directions) {
        (void)z, (void)directions;
        return false;
    }
    /// Returns to the discretisation that the last `accepted` has changed; z is the solution there.
    virtual void restore(const double* z) { (void)z; }
    /// Whether two consecutive points can be neighbours on a branch (no slip to a double cover,
    /// ...).
    virtual bool neighbours(const double* before, const double* after) const {
        (void)before, (void)after;
        return true;
    }
    /// Scaled distance of two solutions, free of phase. `a` and `b` have the present
    /// discretisation.
    virtual double distance(const double* a, const double* b) const;
    /// Distance of z from a solution of an earlier discretisation, of which the description is
    /// left.
    virtual double distance_from(const double* z, const std::vector<double>& earlier,
                                 const Description& description) const {
        (void)description;
        return distance(z, earlier.data());
    }
    /// The signs of the variables by which a symmetry of the solution z maps a to b, two solutions
    /// near it; empty: none is known.
    virtual std::vector<int> mirror(const double* z, const double* a, const double* b) const {
        (void)z, (void)a, (void)b;
        return {};
    }
    /// Whether the family ends at this accepted point ("hopf", "homoclinic_suspected",
    /// "resolution", "period_bound", "norm_bound"); empty: it goes on. `finding` may be filled with
    /// the point of the end.
    virtual std::string_view end(const double* z, Finding& finding) {
        (void)z, (void)finding;
        return {};
    }

    // ---- Results ----

    virtual Description describe(const double* z) = 0;
    /// Called at a located point: polishes z where the problem knows a better system, verifies the
    /// type, adds coefficients and subtype; may set status to "unresolved" with a reason. The
    /// driver has filled in everything else. `finding.bracket` is the interval of the parameter to
    /// stay in.
    virtual void examine(Finding& finding) = 0;
    /// A problem like this one, at its initial discretisation of z, for an independent run (other
    /// direction, other branch): shares nothing mutable.
    virtual std::unique_ptr<Problem> clone() const = 0;
    /// "equilibria", "cycles", "forced cycles", "LP curve", ...
    virtual std::string_view kind() const = 0;
};

}  // namespace trajex
