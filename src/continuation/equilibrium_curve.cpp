// Continuation of a fold or Hopf bifurcation of equilibria in two parameters: the curve on which
//
//     f(y, c1, c2) = 0,    g(y, c1, c2) = 0,
//
// g being the real part of the eigenvalue nearest to the imaginary axis. Its gradient is formed by
// forward differences.
#include <cstdarg>
#include <cstddef>

#include "bifurcation/equilibrium_criterion.hpp"
#include "continuation/curve.hpp"
#include "core/errors.hpp"
#include "core/workspace.hpp"
#include "linalg/matrix.hpp"

namespace trajex {

namespace {

class EquilibriumCurve final : public CurveProblem {
  public:
    EquilibriumCurve(Trajex& handle, double* first, double* second)
        : CurveProblem(handle, first, second, order_of(handle) + 2),
          work_({{&samples_, size}},
                {{&A_, n, size}, {&J_, n, n}, {&parameter_columns_, n, parameters_of(handle)}}) {}

    PathKind kind() const override { return equilibrium_curve; }

    bool residual(double* r) override {
        tx.fcn(record().t, record().y, r);
        for (std::size_t i = 0; i < n; ++i) r[i] = -r[i];
        linearise();
        r[n] = -critical_;
        return true;
    }
    void newton_rows(double** A) override {
        sample();
        finish_rows(A);
    }

  private:
    void starting_rows(double** A) override {
        sample();
        linearise();
        finish_rows(A);
    }
    void finish_rows(double** A) const {
        copy_block(A_, n, size, A);
        difference_row(samples_, size, critical_, tx.LambdaPert, A[n]);
    }
    /// [J | df/dc], the eigenvalues and g at the current point.
    void linearise() {
        TrajexBif& bif = record();
        int columns[2];
        columns[first_column() - n] = bif.cindi[1];
        columns[second_column() - n] = bif.cindi[2];
        linearise_flow(tx, bif.t, bif.y, columns, 2, parameter_columns_, A_);
        copy_block(A_, n, n, J_);
        critical_ = critical_real_part_of(tx, J_, bif.er, bif.ei);
    }
    void sample() {
        TrajexBif& bif = record();
        raise_unknowns([&](std::size_t column) {
            samples_[column] = critical_real_part(tx, bif.t, bif.y, J_, bif.er, bif.ei);
        });
    }

    double critical_ = 0;
    double* samples_ = nullptr;  // g with one unknown raised, for each of them
    double** A_ = nullptr;       // [J | df/dc]
    double** J_ = nullptr;
    double** parameter_columns_ = nullptr;
    Workspace work_;
};

}  // namespace

}  // namespace trajex

using namespace trajex;

int TXEqui2DCont(Trajex* handle, double* c1, double* c2, double* dc, int mode, ...) {
    constexpr const char* where = "TXEqui2DCont";
    Trajex& tx = enter_variational(handle, where);
    std::va_list extras;
    va_start(extras, mode);
    const Run run{where, dc, Outputs::read(mode, extras)};
    va_end(extras);
    return follow_curve<EquilibriumCurve>(run, tx, c1, c2);
}
