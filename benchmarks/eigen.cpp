// Eigen: LU decomposition with partial pivoting, and eigenvalues without vectors.
#include <Eigen/Dense>
#include <vector>

#include "peers.hpp"

namespace benchmarks {

namespace {

using Matrix = Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;

Eigen::Map<const Matrix> square(const std::vector<double>& A, std::size_t n) {
    const auto size = static_cast<Eigen::Index>(n);
    return {A.data(), size, size};
}

}  // namespace

void eigen_solve(const std::vector<double>& A, std::vector<double>& b) {
    static Eigen::PartialPivLU<Eigen::MatrixXd> lu;
    lu.compute(square(A, b.size()));
    Eigen::Map<Eigen::VectorXd> x(b.data(), static_cast<Eigen::Index>(b.size()));
    x = lu.solve(x);
}

void eigen_values(const std::vector<double>& A, std::size_t n) {
    static Eigen::EigenSolver<Eigen::MatrixXd> solver;
    solver.compute(square(A, n), false);
}

}  // namespace benchmarks
