// LAPACK as OpenBLAS has it, on one thread.
#include <algorithm>
#include <vector>

#include "peers.hpp"

extern "C" {
void openblas_set_num_threads(int);
void dgesv_(const int* n, const int* columns, double* A, const int* lda, int* pivots, double* b,
            const int* ldb, int* info);
void dgeev_(const char* left, const char* right, const int* n, double* A, const int* lda,
            double* er, double* ei, double* vl, const int* ldvl, double* vr, const int* ldvr,
            double* work, const int* lwork, int* info);
}

namespace benchmarks {

void lapack_solve(const std::vector<double>& A, std::vector<double>& b) {
    static std::vector<double> factors;
    static std::vector<int> pivots;
    openblas_set_num_threads(1);
    factors = A;
    pivots.resize(b.size());
    const int n = static_cast<int>(b.size());
    const int one = 1;
    int info = 0;
    dgesv_(&n, &one, factors.data(), &n, pivots.data(), b.data(), &n, &info);
}

void lapack_values(const std::vector<double>& A, std::size_t order) {
    static std::vector<double> matrix, er, ei, work;
    openblas_set_num_threads(1);
    matrix = A;
    er.resize(order);
    ei.resize(order);
    work.resize(std::max<std::size_t>(64, 40 * order));
    const int n = static_cast<int>(order);
    const int one = 1;
    const int length = static_cast<int>(work.size());
    int info = 0;
    dgeev_("N", "N", &n, matrix.data(), &n, er.data(), ei.data(), nullptr, &one, nullptr, &one,
           work.data(), &length, &info);
}

}  // namespace benchmarks
