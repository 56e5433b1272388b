// Whole trajectories against the method as its tables state it, with plain loops and nothing shared
// between stages, to the last bit; what an integration costs.
#include "support.hpp"

namespace {

using Vector = std::vector<double>;

constexpr double nodes[8] = {0, 1.0 / 6, 4.0 / 15, 2.0 / 3, 5.0 / 6, 1, 1.0 / 15, 1};

constexpr double coefficients[8][7] = {
    {},
    {1.0 / 6},
    {4.0 / 75, 16.0 / 75},
    {5.0 / 6, -8.0 / 3, 5.0 / 2},
    {-165.0 / 64, 55.0 / 6, -425.0 / 64, 85.0 / 96},
    {12.0 / 5, -8, 4015.0 / 612, -11.0 / 36, 88.0 / 255},
    {-8263.0 / 15000, 124.0 / 75, -643.0 / 680, -81.0 / 250, 2484.0 / 10625, 0},
    {3501.0 / 1720, -300.0 / 43, 297275.0 / 52632, -319.0 / 2322, 24068.0 / 84065, 0,
     3850.0 / 26703},
};

constexpr double fifth[8] = {13.0 / 160, 0, 2375.0 / 5984, 5.0 / 16, 12.0 / 85, 3.0 / 44, 0, 0};
constexpr double sixth[8] = {3.0 / 40,     0, 875.0 / 2244,  23.0 / 72,
                             264.0 / 1955, 0, 125.0 / 11592, 43.0 / 616};
constexpr double middle[9] = {121.0 / 1536, 0,          317125.0 / 861696, 397.0 / 6912,
                              -1.0 / 68,    17.0 / 704, 125.0 / 12096,     -817.0 / 14784,
                              1.0 / 32};

struct Integrator {
    Flow f;
    std::size_t n;
    double RelTol, AbsTol, h;

    Vector start = {}, end = {};  // the last accepted step
    double t_start = 0, t_end = 0;
    std::vector<Vector> F = std::vector<Vector>(12, Vector(n));
    int attempts = 0;

    Vector evaluate(double t, Vector y) {
        Vector value(n);
        f(t, y.data(), value.data());
        return value;
    }

    void step(double t, const Vector& y) {
        for (double err = 2; err > 1;) {
            h = (t + h) - t;
            err = attempt(t, y);
            t_end = t + h;
            if (err != 0) h *= 0.625 / std::sqrt(std::sqrt(err)) + 0.2;
        }
        t_start = t;
        start = y;
    }

    double attempt(double t, const Vector& y) {
        ++attempts;
        Vector lower(n), upper(n);
        for (std::size_t j = 0; j < 8; ++j) {
            Vector argument(n);
            for (std::size_t m = 0; m < j; ++m) {
                for (std::size_t i = 0; i < n; ++i) argument[i] += F[m][i] * coefficients[j][m];
            }
            for (std::size_t i = 0; i < n; ++i) argument[i] = h * argument[i] + y[i];
            F[j] = evaluate(t + h * nodes[j], argument);
            for (std::size_t i = 0; i < n; ++i) lower[i] += F[j][i] * fifth[j];
            for (std::size_t i = 0; i < n; ++i) upper[i] += F[j][i] * sixth[j];
        }
        double squares = 0;
        for (std::size_t i = 0; i < n; ++i) {
            lower[i] = h * lower[i] + y[i];
            upper[i] = h * upper[i] + y[i];
            const double error = std::fabs(upper[i] - lower[i]);
            const double term = error == 0 ? 0 : error / (AbsTol + std::fabs(upper[i]) * RelTol);
            squares += term * term;
        }
        end = upper;
        return std::sqrt(squares);
    }

    Vector dense_output(double t) {
        const double size = t_end - t_start;
        F[11] = evaluate(t_end, end);
        Vector half(n);
        for (std::size_t j = 0; j < 8; ++j) {
            for (std::size_t i = 0; i < n; ++i) half[i] += F[j][i] * middle[j];
        }
        for (std::size_t i = 0; i < n; ++i) {
            half[i] = size * (half[i] + F[11][i] * middle[8]) + start[i];
        }
        F[8] = evaluate(t_start + 0.5 * size, half);
        F[9] = evaluate(t_start + 0.9 * size,
                        hermite(size, half, 128.0 / 3125, 2592.0 / 3125, 81.0 / 625, 18.0 / 3125,
                                -162.0 / 3125, 162.0 / 3125));
        F[10] = evaluate(t_start + 0.95 * size,
                         hermite(size, half, 5427.0 / 400000, 380133.0 / 400000, 361.0 / 10000,
                                 1539.0 / 800000, -29241.0 / 800000, 3249.0 / 200000));
        return polynomial((t - t_start) / size, size);
    }

    Vector hermite(double size, const Vector& half, double k1, double k2, double k3, double k4,
                   double k5, double k6) const {
        Vector y(n);
        for (std::size_t i = 0; i < n; ++i) {
            y[i] = k1 * start[i] + k2 * end[i] + k3 * half[i] +
                   size * (k4 * F[0][i] + k5 * F[11][i] + k6 * F[8][i]);
        }
        return y;
    }

    Vector polynomial(double s, double size) const {
        const double s2 = s * s, s3 = s2 * s, s4 = s2 * s2, r = s - 1, r2 = r * r;
        const double d0 = (400 * s4 - 808 * s3 + 462 * s2 - 34 * s - 17) * (r2 / -17);
        const double d1 = (30200 * s3 - 65084 * s2 + 43806 * s - 8721) * (-s * r2 / 8721);
        const double d2 = (400 * s4 - 1608 * s3 + 2478 * s2 - 1766 * s + 513) * (s2 / 17);
        const double d3 = (3800 * s3 - 7396 * s2 + 4160 * s - 513) * (r * s2 / 51);
        const double d4 = (18400 * s2 - 33088 * s + 14877) * (-s2 * r2 / 918);
        const double d5 = (s2 * r2 / 918) * (100000 * s2 - 100000 * s + 7125);
        const double d6 = (s2 * r2 / 8721) * (-1600000 * s2 + 1600000 * s - 216000);
        Vector y(n);
        for (std::size_t i = 0; i < n; ++i) {
            y[i] =
                d0 * start[i] + d2 * end[i] +
                size * (d1 * F[0][i] + d3 * F[11][i] + d4 * F[8][i] + d5 * F[9][i] + d6 * F[10][i]);
        }
        return y;
    }
};

/// A driven ring of `order` units: every component feels its neighbour and the time. Where the
/// first one rests at zero, its error has no tolerance either.
thread_local int order = 0;
thread_local bool first_rests = false;
void ring(double t, double* y, double* f) {
    for (int i = 0; i < order; ++i) {
        f[i] = std::sin(3 * y[(i + 1) % order]) - 0.3 * y[i] + std::cos(t + i);
    }
    if (first_rests) f[0] = -y[0];
}

/// The library and the plain method side by side, from a step size that is far too large.
struct SideBySide {
    OpenHandle tx;
    Integrator plain;
    Vector y;
    double t = 0;

    SideBySide(double RelTol, double AbsTol)
        : tx(open_recording(ring, order, RelTol, 2)),
          plain{ring, static_cast<std::size_t>(order), RelTol, AbsTol, 2} {
        TXSetAbsTol(tx.get(), AbsTol);
        for (int i = 0; i < order; ++i) y.push_back(i == 0 && first_rests ? 0 : 1 + 0.1 * i);
    }
    Vector copy(const double* vector) const { return {vector, vector + y.size()}; }
    bool same_step() const {
        for (std::size_t j = 0; j < 8; ++j) {
            if (copy(tx->k + j * y.size()) != plain.F[j]) return false;
        }
        return tx->h == plain.h && tx->tfirst == plain.t_start && tx->tlast == plain.t_end &&
               copy(tx->yfirst) == plain.start && copy(tx->ylast) == plain.end;
    }
};

TEST(Textbook, StepsDenseOutputAndIntegrationsAreTheSameToTheLastBit) {
    for (order = 1; order <= 200; order += order < 21 ? 1 : 60) {
        for (const double tolerance : {1e-3, 1e-6, 1e-10}) {
            SCOPED_TRACE(testing::Message() << "order " << order << ", tolerance " << tolerance);
            first_rests = order % 2 == 0;
            SideBySide run(tolerance, first_rests ? 0 : tolerance / 10);
            auto& [tx, plain, y, t] = run;
            int steps = 0;
            for (; t < 3; ++steps) {
                plain.step(t, y);
                ASSERT_EQ(TXStep(tx.get(), &t, y.data()), 1);
                ASSERT_EQ(t, plain.t_end);
                ASSERT_EQ(y, plain.end);
                ASSERT_TRUE(run.same_step()) << t;
                Vector inside(y.size());
                for (const double part : {0.3, 1.0, 1.2}) {
                    const double at = tx->tfirst + part * (tx->tlast - tx->tfirst);
                    ASSERT_EQ(TXInterpolate(tx.get(), at, inside.data()), 1);
                    ASSERT_EQ(inside, plain.dense_output(at));
                }
            }
            EXPECT_GT(plain.attempts, steps) << "no attempt was rejected";
            // The last step ends beyond the end time; the next one starts there all the same.
            Vector expected = y;
            for (double reached = t; const double t1 : {t + 0.4, t + 1.9}) {
                for (; reached < t1; reached = plain.t_end, expected = plain.end) {
                    plain.step(reached, expected);
                }
                if (reached > t1) expected = plain.dense_output(reached = t1);
                ASSERT_EQ(TXIntegrate(tx.get(), &t, t1, y.data()), 1);
                EXPECT_EQ(t, t1);
                EXPECT_EQ(y, expected);
            }
        }
    }
}

// Where a fixed step ends, there is no interpolation; to reach where one is, nothing at all.
TEST(Integrate, EvaluatesNothingInVain) {
    for (const double t1 : {0.0, 1.0}) {
        const OpenHandle tx = open_recording(Probe::flow<Oscillator::flow>, 2, 0, 0.25);
        double y[] = {1, 2}, t = 0;
        Probe::set(Probe::never);
        EXPECT_EQ(TXIntegrate(tx.get(), &t, t1, y), 1);
        EXPECT_EQ(Probe::calls, t1 * 4 * 8);
        EXPECT_EQ(tx->StepTaken, t1);
        EXPECT_TRUE(t == t1 && y[0] == (t1 > 0 ? tx->ylast[0] : 1));
    }
}

}  // namespace
