// SUNDIALS: ARKODE with the tableau of the library, and CVODES with forward sensitivities (Adams
// formulas, functional iteration, simultaneous corrector, sensitivities under error control).
#include <arkode/arkode_erkstep.h>
#include <cvodes/cvodes.h>
#include <nvector/nvector_serial.h>
#include <sunnonlinsol/sunnonlinsol_fixedpoint.h>

#include <algorithm>
#include <vector>

#include "peers.hpp"
#include "plain_method.hpp"
#include "systems.hpp"

namespace benchmarks {

namespace {

int problem_rhs(realtype t, N_Vector y, N_Vector f, void* data) {
    static_cast<const Problem*>(data)->f(t, N_VGetArrayPointer(y), N_VGetArrayPointer(f));
    return 0;
}

struct Jacobian {
    std::vector<double> elements = std::vector<double>(components * components);
    std::vector<double*> rows;
    Jacobian() {
        for (std::size_t i = 0; i < components; ++i) rows.push_back(&elements[i * components]);
    }
};

int coupled_rhs(realtype t, N_Vector y, N_Vector f, void*) {
    coupled(t, N_VGetArrayPointer(y), N_VGetArrayPointer(f));
    return 0;
}

int coupled_sensitivities(int count, realtype t, N_Vector y, N_Vector, N_Vector* s, N_Vector* ds,
                          void* data, N_Vector, N_Vector) {
    Jacobian& J = *static_cast<Jacobian*>(data);
    coupled_jacobian(t, N_VGetArrayPointer(y), J.rows.data());
    for (int q = 0; q < count; ++q) {
        const double* from = N_VGetArrayPointer(s[q]);
        double* to = N_VGetArrayPointer(ds[q]);
        for (std::size_t i = 0; i < components; ++i) {
            to[i] = 0;
            for (std::size_t l = 0; l < components; ++l) to[i] += J.rows[i][l] * from[l];
        }
    }
    return 0;
}

}  // namespace

long arkode_attempts(const Problem& problem, double tolerance) {
    SUNContext context = nullptr;
    SUNContext_Create(nullptr, &context);
    N_Vector y = N_VNew_Serial(static_cast<sunindextype>(problem.start.size()), context);
    std::copy(problem.start.begin(), problem.start.end(), N_VGetArrayPointer(y));
    void* solver = ERKStepCreate(problem_rhs, 0, y, context);
    double c[8], A[64], b[8], d[8];
    for (int j = 0; j < 8; ++j) {
        c[j] = plain::c[j];
        b[j] = plain::b6[j];
        d[j] = plain::b5[j];
        std::copy_n(plain::a[j], 8, A + 8 * j);
    }
    c[7] = 1 - 1e-8;  // a last node at 1 is taken for first-same-as-last
    ARKodeButcherTable table = ARKodeButcherTable_Create(8, 6, 5, c, A, b, d);
    ERKStepSetTable(solver, table);
    ERKStepSStolerances(solver, tolerance, tolerance);
    ERKStepSetUserData(solver, const_cast<Problem*>(&problem));
    ERKStepSetMaxStep(solver, 0.05);
    ERKStepSetMaxNumSteps(solver, 1000000);
    double t = 0;
    ERKStepEvolve(solver, problem.end, y, &t, ARK_NORMAL);
    long attempts = 0;
    ERKStepGetNumStepAttempts(solver, &attempts);
    ERKStepFree(&solver);
    ARKodeButcherTable_Free(table);
    N_VDestroy(y);
    SUNContext_Free(&context);
    return attempts;
}

std::vector<double> cvodes_variational(const Problem& problem, double tolerance) {
    const int n = static_cast<int>(components);
    Jacobian jacobian;
    SUNContext context = nullptr;
    SUNContext_Create(nullptr, &context);
    N_Vector y = N_VNew_Serial(n, context);
    std::copy_n(problem.start.begin(), components, N_VGetArrayPointer(y));
    N_Vector* s = N_VCloneVectorArray(n, y);
    for (int q = 0; q < n; ++q) {
        N_VConst(0, s[q]);
        N_VGetArrayPointer(s[q])[q] = 1;
    }
    void* solver = CVodeCreate(CV_ADAMS, context);
    CVodeInit(solver, coupled_rhs, 0, y);
    CVodeSStolerances(solver, tolerance, tolerance);
    CVodeSetUserData(solver, &jacobian);
    CVodeSetMaxNumSteps(solver, 1000000);
    CVodeSensInit(solver, n, CV_SIMULTANEOUS, coupled_sensitivities, s);
    std::vector<double> absolute(components, tolerance);
    CVodeSensSStolerances(solver, tolerance, absolute.data());
    CVodeSetSensErrCon(solver, SUNTRUE);
    SUNNonlinearSolver plain_iteration = SUNNonlinSol_FixedPoint(y, 0, context);
    CVodeSetNonlinearSolver(solver, plain_iteration);
    SUNNonlinearSolver iteration = SUNNonlinSol_FixedPointSens(n + 1, y, 0, context);
    CVodeSetNonlinearSolverSensSim(solver, iteration);
    double t = 0;
    CVode(solver, problem.end, y, &t, CV_NORMAL);
    CVodeGetSens(solver, &t, s);
    std::vector<double> Y(problem.start.size());
    std::copy_n(N_VGetArrayPointer(y), components, Y.begin());
    for (std::size_t q = 0; q < components; ++q) {
        for (std::size_t i = 0; i < components; ++i) {
            Y[components + i * components + q] = N_VGetArrayPointer(s[q])[i];
        }
    }
    CVodeFree(&solver);
    SUNNonlinSolFree(iteration);
    SUNNonlinSolFree(plain_iteration);
    N_VDestroyVectorArray(s, n);
    N_VDestroy(y);
    SUNContext_Free(&context);
    return Y;
}

}  // namespace benchmarks
