// A kind of problem that the library does not have, fixed points of maps, on the driver, the
// decoder, the location and the switching as they are.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <string>

#include "branches/continuer.hpp"
#include "branches/switching.hpp"
#include "linalg/dense.hpp"

namespace {

using namespace trajex;

/// g(x, p), its derivatives by x (rows) and then by p, for two variables.
using Map = std::function<void(const double* x, double p, double* g, double* g_x, double* g_p)>;

/// F = g(x; p) - x; exponents are the logarithms of the multipliers.
class FixedPoints : public Problem {
  public:
    explicit FixedPoints(Map map) : map_(std::move(map)), lu_(6) {}

    std::size_t equations() const override { return 2; }
    std::size_t unknowns() const override { return 3; }
    void metric(std::span<double> w) const override { w[0] = w[1] = 0.5, w[2] = 0.1; }
    bool residual(const double* z, double* f) override { return linearise(z, f); }
    bool linearise(const double* z, double* f) override {
        map_(z, z[2], f, g_x_, g_p_);
        for (int i : {0, 1}) f[i] -= z[i];
        return std::isfinite(f[0]) && std::isfinite(f[1]);
    }
    double F_z(std::size_t i, std::size_t j) const {
        return j == 2 ? g_p_[i] : g_x_[2 * i + j] - (i == j ? 1 : 0);
    }
    void apply(const double* v, double* out) const override {
        for (std::size_t i = 0; i < 2; ++i)
            out[i] = F_z(i, 0) * v[0] + F_z(i, 1) * v[1] + F_z(i, 2) * v[2];
    }
    void apply_transposed(const double* w, double* out) const override {
        for (std::size_t j = 0; j < 3; ++j) out[j] = w[0] * F_z(0, j) + w[1] * F_z(1, j);
    }
    bool factor(const Border& border) override {
        const std::size_t n = 3 + border.extra;
        double* m = lu_.matrix(n);
        std::fill(m, m + n * n, 0.0);
        for (std::size_t i = 0; i < 2; ++i) {
            for (std::size_t j = 0; j < 3; ++j) m[i * n + j] = F_z(i, j);
            for (std::size_t k = 0; k < border.extra; ++k)
                m[i * n + 3 + k] = border.columns[2 * k + i];
        }
        for (std::size_t i = 2; i < n; ++i) std::copy_n(border.rows + 3 * (i - 2), 3, m + i * n);
        return lu_.decompose_in_place() && !lu_.singular();
    }
    void solve(double* rhs) const override { lu_.solve(rhs); }
    void solve_transposed(double* rhs) const override { lu_.solve_transposed(rhs); }
    int determinant_sign() const override { return lu_.sign_det(); }
    EventNames event_names() const override { return {"LP", "BP", {}, "PD", "NS"}; }
    void spectrum(Spectrum& out) override {
        const double half = (g_x_[0] + g_x_[3]) / 2;
        const std::complex<double> root =
            std::sqrt(std::complex<double>(half * half - g_x_[0] * g_x_[3] + g_x_[1] * g_x_[2]));
        out.clear();
        for (const std::complex<double>& mu : {half + root, half - root}) {
            const auto real = mu.real() < 0 ? Exponent::Kind::alternating : Exponent::Kind::real;
            out.push_back({std::log(mu), 1e-15, mu.imag() != 0 ? Exponent::Kind::pair : real});
        }
    }
    Description describe(const double* z) override {
        Description description;
        description.parameters = {z[2]};
        description.state = {z[0], z[1]};
        return description;
    }
    void examine(Finding& finding) override {
        if (finding.type == "BP") name_branch_point(*this, finding);
    }
    std::unique_ptr<Problem> clone() const override { return std::make_unique<FixedPoints>(map_); }
    std::string_view kind() const override { return "fixed points"; }

  private:
    Map map_;
    double g_x_[4] = {}, g_p_[2] = {};
    DenseLu lu_;
};

void henon(const double* x, double a, double* g, double* g_x, double* g_p) {
    g[0] = 1 - a * x[0] * x[0] + x[1], g[1] = 0.3 * x[0];
    g_x[0] = -2 * a * x[0], g_x[1] = 1, g_x[2] = 0.3, g_x[3] = 0;
    g_p[0] = -x[0] * x[0], g_p[1] = 0;
}

void delayed_logistic(const double* x, double r, double* g, double* g_x, double* g_p) {
    g[0] = r * x[0] * (1 - x[1]), g[1] = x[0];
    g_x[0] = r * (1 - x[1]), g_x[1] = -r * x[0], g_x[2] = 1, g_x[3] = 0;
    g_p[0] = x[0] * (1 - x[1]), g_p[1] = 0;
}

struct Event {
    std::string type;
    double p;
};

void expect(const Trace& trace, const std::vector<Event>& events,
            tx::StopReason stop = tx::StopReason::parameter_bound) {
    ASSERT_EQ(trace.specials.size(), events.size());
    for (std::size_t i = 0; i < events.size(); ++i) {
        const Finding& finding = trace.specials[i].finding;
        EXPECT_EQ(finding.type, events[i].type);
        EXPECT_EQ(finding.status, "located") << finding.reason;
        EXPECT_NEAR(finding.z[2], events[i].p, 1e-10);
        EXPECT_LE(std::abs(finding.z[2] - events[i].p), finding.error + 1e-12);
    }
    EXPECT_EQ(trace.stop.value(), stop.value());
}

Trace follow_map(const Map& map, std::vector<double> z, tx::Window window, bool up) {
    FixedPoints problem(map);
    std::vector<double> tangent;
    EXPECT_TRUE(first_tangent(problem, z, up, tangent));
    return follow_half(problem, z, tangent, run_settings({}, {window}));
}

// With k = 1 - b: a fold at -k^2/4, a flip at 3 k^2/4 on one sheet; the other one goes to infinity
// at 0.
TEST(ToyProblem, FoldAndFlipOfTheHenonMap) {
    const double a = 1.0, k = 0.7;
    const double x = (-k + std::sqrt(k * k + 4 * a)) / (2 * a);
    expect(follow_map(henon, {x, 0.3 * x, a}, {-1, 1.5}, false),
           {{"PD", 3 * k * k / 4}, {"LP", -k * k / 4}}, tx::StopReason::max_points);
}

// From x = 0 through the transcritical point r = 1 to x = 1 - 1/r, where a torus begins at r = 2
// with multipliers exp(+-i pi/3).
TEST(ToyProblem, SwitchingAndTorus) {
    const Trace trivial = follow_map(delayed_logistic, {0, 0, 0.5}, {0.5, 1.5}, true);
    expect(trivial, {{"BP", 1}});
    const Finding& point = trivial.specials.front().finding;
    EXPECT_EQ(point.subtype, "transcritical");

    FixedPoints problem(delayed_logistic);
    const Crossing crossing = cross(problem, point.z, point.tangent);
    std::string note;
    const std::vector<HalfBranch> halves = half_branches(problem, crossing, note);
    ASSERT_EQ(halves.size(), 2U) << note;
    for (const HalfBranch& half : halves) {
        const bool up = half.z[2] > 1;
        const Trace trace =
            follow_half(problem, half.z, half.tangent, run_settings({}, {{0.4, 2.5}}));
        if (up)
            expect(trace, {{"NS", 2}});
        else
            expect(trace, {});
        const TracePoint& last = trace.points.back();
        EXPECT_NEAR(last.z[0], 1 - 1 / last.z[2], 1e-12);
    }
}

}  // namespace
