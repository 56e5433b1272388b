// The public operations on matrices near the ends of the exponent range.
#include "support.hpp"

namespace {

struct Square {
    explicit Square(std::vector<double> elements)
        : order(static_cast<int>(std::lround(std::sqrt(static_cast<double>(elements.size()))))),
          a(std::move(elements)) {
        for (int i = 0; i < order; ++i) rows.push_back(a.data() + i * order);
    }
    int order;
    std::vector<double> a;
    std::vector<double*> rows;
};

TEST(MatrixLimits, EigenvaluesOfEveryScale) {
    const OpenHandle tx = open_recording(Oscillator::flow, 2);
    for (const double size : {1e-310, 1e-200, 1e-101, 1.0, 1e101, 1e200, 1e307}) {
        for (const bool whole : {true, false}) {
            Square rotation({0, size, -size, 0});
            double** const a = rotation.rows.data();
            double er[2], ei[2];
            ASSERT_EQ(whole ? TXEigen(tx.get(), 2, a, er, ei) : Hqr(tx.get(), a, 2, er, ei), 1);
            EXPECT_EQ(er[0], 0);
            EXPECT_EQ(er[1], 0);
            EXPECT_NEAR(std::fabs(ei[0] / size), 1, 1e-12) << size;
            EXPECT_EQ(ei[1], -ei[0]);
        }
        Square shifted({2 * size, size, 0, size, 2 * size, size, 0, size, 2 * size});
        double er[3], ei[3];
        ASSERT_EQ(TXEigen(tx.get(), 3, shifted.rows.data(), er, ei), 1);
        std::sort(er, er + 3);
        for (int k = 0; k < 3; ++k) {
            EXPECT_NEAR(er[k] / size, 2 + (k - 1) * std::sqrt(2.0), 1e-12) << size;
        }
    }
}

// Balancing is a similarity by powers of two: what it cannot do exactly it leaves.
TEST(MatrixLimits, BalancingStaysInRange) {
    const std::vector<std::vector<double>> matrices{
        {1e300, 1e300, 1e-300, 1e300},
        {1e-300, 1e200, 1e-250, 1e-300},
        {3e-308, 1e308, 1e-308, 1e308},
        {1, 1e300, 1e-300, 1e-310, 1, 1e-20, 1e-300, 1e300, 1}};
    for (const auto& elements : matrices) {
        Square m(elements);
        Balanc(m.rows.data(), m.order);
        for (int i = 0; i < m.order; ++i) {
            const auto at = [&](int row, int column) {
                return static_cast<std::size_t>(row * m.order + column);
            };
            EXPECT_EQ(m.a[at(i, i)], elements[at(i, i)]);
            for (int j = 0; j < m.order; ++j) {
                const double x = m.a[at(i, j)];
                ASSERT_TRUE(std::isfinite(x));
                if (elements[at(i, j)] == 0) continue;
                int exponent = 0, same = 0;
                EXPECT_EQ(std::frexp(x, &exponent), std::frexp(elements[at(i, j)], &same));
            }
        }
    }
}

// Rows of the given sizes, and right-hand sides whose solution is a vector of ones.
TEST(MatrixLimits, LinearSystemsOfEveryScale) {
    const OpenHandle tx = open_recording(Oscillator::flow, 2);
    struct {
        double p, q, r;
    } const cases[] = {{1e-310, 1e-310, 1e-310}, {1e-300, 1e-300, 1e-300}, {1e300, 1e300, 1e300},
                       {1e-310, 1, 1},           {1, 1, 1e-310},           {1e150, 1e150, 1}};
    for (const auto& [p, q, r] : cases) {
        SCOPED_TRACE(testing::Message() << p << ' ' << q << ' ' << r);
        Square m({2 * p, p, 0, q, 3 * q, q, 0, r, 4 * r});
        double b[] = {m.a[0] + m.a[1] + m.a[2], m.a[3] + m.a[4] + m.a[5], m.a[6] + m.a[7] + m.a[8]};
        double work[6];
        ASSERT_EQ(TXLinZero(tx.get(), 3, m.rows.data(), b, work), 1);
        for (const double x : b) EXPECT_NEAR(x, 1, 1e-12);
    }
    // Two columns so small that 1 over a pivot is infinite.
    Square m({1, 0, 0, 0, 2e-310, 1e-310, 1, 1e-310, 3e-310});
    double b[] = {1, 3e-310, 1 + 4e-310};
    double work[6];
    ASSERT_EQ(TXLinZero(tx.get(), 3, m.rows.data(), b, work), 1);
    EXPECT_NEAR(b[0], 1, 1e-12);
}

}  // namespace
