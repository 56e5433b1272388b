// Bordered chains against a plain matrix of the whole system, and where products of transfer
// matrices would have no digit left.
#include "cycles/chain_solver.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <random>
#include <vector>

using namespace trajex;

namespace {

using Complex = std::complex<double>;

/// Segments given by their blocks.
class GivenSegments : public Segments {
  public:
    GivenSegments(std::size_t n, std::size_t m, std::size_t N) : n_(n), m_(m), mesh_(N + 1, 0.0) {
        J.resize(N * m * n * m * n);
        K.resize(N * m * n * n);
    }
    std::size_t states() const override { return n_; }
    std::size_t inner_points() const override { return m_; }
    std::size_t scalars() const override { return 0; }
    const std::vector<double>& mesh() const override { return mesh_; }
    void set_mesh(const std::vector<double>&) override {}
    bool residual(const double*, const double*, double*) override { return false; }
    bool linearise(const double*, const double*, double*) override { return false; }
    void blocks(std::size_t i, const double* scale, std::size_t stride, double* inner,
                double* first) const override {
        const std::size_t height = m_ * n_;
        for (std::size_t a = 0; a < height; ++a) {
            for (std::size_t b = 0; b < height; ++b)
                inner[(a * height + b) * stride] =
                    J[(i * height + a) * height + b] * scale[b % n_] / scale[a % n_];
            for (std::size_t b = 0; b < n_; ++b)
                first[(a * n_ + b) * stride] =
                    K[(i * height + a) * n_ + b] * scale[b] / scale[a % n_];
        }
    }
    const double* scalar_columns() const override { return nullptr; }
    void apply(const double*, double*) const override {}
    void apply_transposed(const double*, double*) const override {}
    const double* velocities() override { return nullptr; }
    double divergence() const override { return 0; }
    void growth_rates(double*) override {}

    std::vector<double> J, K;

  private:
    std::size_t n_, m_;
    std::vector<double> mesh_;
};

Complex random_number(std::mt19937& random, Complex*) {
    std::normal_distribution<double> normal;
    return {normal(random), normal(random)};
}
double random_number(std::mt19937& random, double*) {
    return std::normal_distribution<double>()(random);
}

/// Solves a random system with a random solution, and the transposed one.
template <class Scalar>
void check_system(const GivenSegments& segments, const std::vector<double>& scale, Scalar closing,
                  std::size_t k, double tolerance, std::mt19937& random) {
    const std::size_t n = segments.states();
    const std::size_t height = segments.inner_points() * n;
    const std::size_t size = segments.equations();
    const auto numbers = [&](std::size_t count) {
        std::vector<Scalar> values(count);
        for (Scalar& v : values) v = random_number(random, static_cast<Scalar*>(nullptr));
        return values;
    };
    const auto columns = numbers(size * k), rows = numbers(k * size), corner = numbers(k * k);
    Condensation condensation;
    ChainFactors chain;
    BorderedChain<Scalar> bordered;
    ASSERT_TRUE(condensation.factor(segments, scale));
    chain.factor(condensation);
    ASSERT_TRUE(bordered.factor(condensation, chain, closing, k, columns.data(), rows.data(),
                                corner.data()));

    // The whole matrix, applied to (x, q) and, transposed, to the same numbers.
    const auto solution = numbers(size + k);
    std::vector<Scalar> image(size + k), transposed(size + k);
    const auto add = [&](std::size_t row, std::size_t column, Scalar value) {
        image[row] += value * solution[column];
        transposed[column] += value * solution[row];
    };
    for (std::size_t row = 0; row < size; ++row) {
        const std::size_t i = row / height;
        for (std::size_t b = 0; b < n; ++b) add(row, i * height + b, segments.K[row * n + b]);
        for (std::size_t b = 0; b < height; ++b) {
            const std::size_t column = (i * height + n + b) % size;
            const bool closes = i * height + n + b >= size;
            add(row, column, segments.J[row * height + b] * (closes ? closing : Scalar(1)));
        }
        for (std::size_t c = 0; c < k; ++c) add(row, size + c, columns[row * k + c]);
    }
    for (std::size_t r = 0; r < k; ++r) {
        for (std::size_t column = 0; column < size; ++column)
            add(size + r, column, rows[r * size + column]);
        for (std::size_t c = 0; c < k; ++c) add(size + r, size + c, corner[r * k + c]);
    }
    bordered.solve(image.data(), image.data() + size);
    bordered.solve_transposed(transposed.data(), transposed.data() + size);
    for (std::size_t a = 0; a < size + k; ++a) {
        EXPECT_LT(std::abs(image[a] - solution[a]), tolerance) << a;
        EXPECT_LT(std::abs(transposed[a] - solution[a]), tolerance) << a;
    }
}

TEST(ChainSolver, SolvesBorderedSystemsOfAnyClosing) {
    std::mt19937 random(7);
    std::normal_distribution<double> normal;
    for (const std::size_t N : {1, 2, 9}) {
        GivenSegments segments(3, 4, N);
        for (double& v : segments.J) v = normal(random);
        for (std::size_t a = 0; a < segments.equations(); ++a) segments.J[a * 12 + a % 12] += 8;
        for (double& v : segments.K) v = normal(random);
        const std::vector<double> scale{1, 30, 0.02};
        check_system(segments, scale, 1.0, 2, 1e-9, random);
        check_system(segments, scale, -1.0, 0, 1e-9, random);
        check_system(segments, scale, std::polar(1.0, 0.7), 3, 1e-9, random);
    }
}

// Along the chain solutions grow by 1e20 in one direction and decay by 1e-20 in another one, both
// turning; the product of the transfer matrices would be singular to working precision.
TEST(ChainSolver, KeepsDigitsWhereSolutionsGrowAndDecay) {
    constexpr std::size_t N = 60;
    std::mt19937 random(3);
    GivenSegments segments(3, 1, N);
    const double growth[] = {std::pow(10, 20.0 / N), 1, std::pow(10, -20.0 / N)};
    const auto frame = [](double angle, std::size_t a, std::size_t b) {
        const double rotation[3][3] = {{std::cos(angle), 0, -std::sin(angle)},
                                       {0, 1, 0},
                                       {std::sin(angle), 0, std::cos(angle)}};
        return rotation[a][b];
    };
    for (std::size_t i = 0; i < N; ++i) {
        for (std::size_t a = 0; a < 3; ++a) {
            segments.J[(i * 3 + a) * 3 + a] = 1;
            for (std::size_t b = 0; b < 3; ++b) {
                for (std::size_t c = 0; c < 3; ++c) {
                    segments.K[(i * 3 + a) * 3 + b] -=
                        frame(0.1 * static_cast<double>(i + 1), a, c) * growth[c] *
                        frame(0.1 * static_cast<double>(i), b, c);
                }
            }
        }
    }
    const std::vector<double> scale(3, 1.0);
    check_system(segments, scale, 1.0, 1, 1e-10, random);
    check_system(segments, scale, std::polar(1.0, 2.0), 1, 1e-10, random);
}

}  // namespace
