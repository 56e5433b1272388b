// Curves of folds in two parameters, for any problem with k = d = 2: F(y, p1, p2) = 0 and F_y
// singular.
//
//     [ F_y  b ] [ v ]   [ 0 ]
//     [ c'   0 ] [ g ] = [ 1 ],     g = 0 where F_y is singular
//
// The curve is smooth in (y, p1, p2) through cusps and Bogdanov-Takens points.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string_view>
#include <vector>

#include "branches/derivatives.hpp"
#include "branches/problem.hpp"
#include "linalg/dense.hpp"

namespace trajex {

/// What the curve and the points on it are called; an empty name: not looked for.
struct FoldNames {
    std::string_view kind;         ///< "LP curve"
    std::string_view cusp;         ///< "CP"
    std::string_view double_zero;  ///< "BT": <w, v> = 0, where the residual is the vector field
    std::string_view pair;         ///< "ZH"
    std::string_view flip;         ///< an alternating exponent crosses
};

class FoldCurve : public Problem {
  public:
    /// Adds to a located point what is known of its type: coefficients, verdicts.
    using Examiner = std::function<void(FoldCurve&, Finding&)>;

    FoldCurve(std::unique_ptr<Problem> base, const FoldNames& names, Examiner examiner = {});

    /// Finds the null vectors at a fold nearby. False: F_y has no simple small singular value
    /// there.
    bool begin(const double* z);

    /// The quadratic coefficient w^T F_yy(v, v) / (2 |v|^2 |w|) at the point of the last linearise;
    /// z is that point.
    bool quadratic(const double* z, double& a);
    /// The null vectors there: of N + 2 numbers, the last two 0, and of N.
    const std::vector<double>& right() const { return v_; }
    const std::vector<double>& left() const { return w_; }
    Problem& base() { return *base_; }

    std::size_t equations() const override { return base_->equations() + 1; }
    std::size_t unknowns() const override { return base_->unknowns(); }
    std::size_t active_parameters() const override { return 2; }
    void metric(std::span<double> weights) const override { base_->metric(weights); }
    double length(const double* v) const override { return base_->length(v); }

    bool residual(const double* z, double* f) override;
    bool linearise(const double* z, double* f) override;
    void apply(const double* v, double* out) const override;
    void apply_transposed(const double* w, double* out) const override;
    bool factor(const Border& border) override;
    void solve(double* rhs) const override;
    void solve_transposed(double* rhs) const override;
    int determinant_sign() const override { return base_->determinant_sign(); }

    EventNames event_names() const override;
    void spectrum(Spectrum& out) override;
    void add_critical(const double*, Spectrum& out) const override { out.emplace_back(); }
    void tests(std::vector<Test>& out) override;

    bool accepted(std::vector<double>& z, Directions directions) override;
    bool neighbours(const double* before, const double* after) const override {
        return base_->neighbours(before, after);
    }
    double distance(const double* a, const double* b) const override {
        return base_->distance(a, b);
    }
    std::string_view end(const double* z, Finding& finding) override {
        return base_->end(z, finding);
    }

    Description describe(const double* z) override { return base_->describe(z); }
    void examine(Finding& finding) override;
    std::unique_ptr<Problem> clone() const override;
    std::string_view kind() const override { return names_.kind; }

  private:
    void resize();
    bool solve_borders(const double* z, double* f);
    void renew_borders();
    bool eliminate_corner(const Border& border);

    std::unique_ptr<Problem> base_;
    FoldNames names_;
    Examiner examiner_;
    Derivatives derivatives_;
    std::vector<double> z_;                 // of the last linearise
    std::vector<double> b_, rows_;          // borders: b, and c and the rows of the two parameters
    std::vector<double> v_, w_, gradient_;  // null vectors, g_z
    double g_ = 0;
    std::vector<double> work_, border_rows_, mix_, second_;
    DenseLu gram_;
};

}  // namespace trajex
