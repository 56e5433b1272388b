// Continuation of equilibria f(y, c) = 0 in one parameter. The linearisation is A = [J | df/dc],
// and a point is stable where all eigenvalues of J have negative real parts.
#include <cstdarg>
#include <cstddef>

#include "bifurcation/criteria.hpp"
#include "continuation/branch.hpp"
#include "core/errors.hpp"
#include "core/workspace.hpp"
#include "linalg/matrix.hpp"
#include "variational/jacobians.hpp"

namespace trajex {

namespace {

class EquilibriumBranch final : public BranchProblem {
  public:
    EquilibriumBranch(Trajex& handle, const CallerState& state, double* parameter)
        : BranchProblem(handle, state.y(), parameter, order_of(handle) + 1),
          work_({}, {{&A_, n, n + 1}, {&parameter_columns_, n, parameters_of(handle)}}) {}

    PathKind kind() const override { return equilibrium_path; }

    bool converge_start() override {
        if (TXEquiPoint(&tx, y) != 1) return false;
        linearise();
        return true;
    }
    bool residual(double* r) override {
        tx.fcn(0, y, r);
        for (std::size_t i = 0; i < n; ++i) r[i] = -r[i];
        return true;
    }
    void linearise() override {
        linearise_flow(tx, 0, y, &record().cindi[1], 1, parameter_columns_, A_);
    }
    Stability stability(double** matrix, double* er, double* ei) override {
        copy_block(A_, n, n, matrix);
        TXEigen(&tx, tx.order, matrix, er, ei);
        return {stable_eigenvalues(er, n), critical_eigenvalue(er, n).value};
    }
    std::size_t tangent_system(double** matrix, double* v) override {
        copy_block(A_, n, n, matrix);
        for (std::size_t i = 0; i < n; ++i) v[i] = -A_[i][n];
        return n;
    }
    void newton_rows(double** matrix) override { copy_block(A_, n, n + 1, matrix); }
    int locate(FILE* state) override { return TXLocateEquiBif(&tx, tx.txb, c, state); }

  private:
    double** A_ = nullptr;
    double** parameter_columns_ = nullptr;
    Workspace work_;
};

}  // namespace

}  // namespace trajex

using namespace trajex;

int TXEquiCont(Trajex* handle, double* y, double* c, double* dc, int nrbif, int mode, ...) {
    constexpr const char* where = "TXEquiCont";
    Trajex& tx = enter_variational(handle, where);
    std::va_list extras;
    va_start(extras, mode);
    const Run run{where, dc, Outputs::read(mode, extras), nrbif};
    va_end(extras);
    return follow_branch<EquilibriumBranch>(run, tx, y, nullptr, c);
}
