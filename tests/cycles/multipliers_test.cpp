// Multipliers of products that are known by construction.
#include "cycles/multipliers.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>
#include <random>
#include <string>
#include <vector>

#include "linalg/dense.hpp"

using namespace trajex;

namespace {

using Complex = std::complex<double>;
constexpr std::size_t count = 60;

// Factors S_{i+1} D_i S_i^-1 with random S_i of moderate condition, S_N = S_0: the multipliers are
// those of D_{N-1} ... D_0, blocks of order 1 or, for pairs, 2.
std::vector<double> factors(const std::vector<Complex>& logarithms, std::mt19937& random) {
    std::normal_distribution<double> normal;
    const std::size_t d = logarithms.size();
    const std::size_t size = d * d;
    std::vector<std::vector<double>> S(count);
    for (auto& s : S) {
        s.resize(size);
        for (double& v : s) v = 0.4 * normal(random) / std::sqrt(static_cast<double>(d));
        for (std::size_t a = 0; a < d; ++a) s[a * d + a] += 1;
    }
    std::vector<double> result(count * size);
    for (std::size_t i = 0; i < count; ++i) {
        // Growth is uneven along the product: shares with mean 1 / count.
        const double share =
            (1 + 0.8 * std::sin(2 * std::numbers::pi * static_cast<double>(i) / count)) / count;
        std::vector<double> D(size, 0.0);
        for (std::size_t a = 0; a < d; ++a) {
            const double modulus = std::exp(logarithms[a].real() * share);
            const double angle = logarithms[a].imag();
            if (angle == 0 || angle == std::numbers::pi) {
                D[a * d + a] = i == 0 && angle != 0 ? -modulus : modulus;
            } else {
                D[a * d + a] = modulus * std::cos(angle / count);
                const std::size_t other = angle > 0 ? a + 1 : a - 1;
                D[a * d + other] = -modulus * std::sin(angle / count);
            }
        }
        // X' = S_{i+1} D S_i^-1 transposed: S_i' X = D' S_{i+1}'.
        DenseLu lu(d);
        lu.decompose(S[i].data(), d);
        for (std::size_t row = 0; row < d; ++row) {
            std::vector<double> line(d, 0.0);
            for (std::size_t b = 0; b < d; ++b) {
                for (std::size_t k = 0; k < d; ++k)
                    line[b] += S[(i + 1) % count][row * d + k] * D[k * d + b];
            }
            lu.solve_transposed(line.data());
            std::copy(line.begin(), line.end(),
                      result.begin() + static_cast<std::ptrdiff_t>(i * size + row * d));
        }
    }
    return result;
}

Complex real(double multiplier) {
    return {std::log(std::fabs(multiplier)), multiplier < 0 ? std::numbers::pi : 0};
}

TEST(Multipliers, OfProductsOverManyPowersOfTen) {
    std::vector<Complex> fifty;
    for (int k = 0; k < 50; ++k) fifty.push_back(real(1e3 * std::pow(0.4, k)));
    const Complex slow(std::log(1.001), 0.3), near(std::log(0.999), 2.0);
    const std::vector<Complex> spectra[] = {
        {real(1e3), real(1), real(1e-10)},
        {real(1e10), real(1), real(-0.5), real(1e-10)},
        {real(50), real(1), {std::log(10.0) * -66, 0}},
        fifty,
        {slow, std::conj(slow), near, std::conj(near), real(-0.9), real(1e-12)},
        {real(-1.5), real(1.5)},
    };
    std::mt19937 random(11);
    for (const auto& spectrum : spectra) {
        ProductEigenvalues product;
        Spectrum found;
        ASSERT_TRUE(
            product.compute(spectrum.size(), count, factors(spectrum, random).data(), found));
        for (const Complex& expected : spectrum) {
            double best = 1;
            for (const Exponent& e : found) {
                best = std::min(best, std::abs(std::exp(e.value - expected) - 1.0));
            }
            EXPECT_LT(best, 1e-11) << spectrum.size() << " " << expected;
        }
    }
}

}  // namespace
