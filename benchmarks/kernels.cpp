// The kernels by themselves, for work on them.
#include <benchmark/benchmark.h>

#include <cstddef>
#include <vector>

#include "core/simd.hpp"
#include "own.hpp"
#include "plain_method.hpp"
#include "systems.hpp"
#include "variational/matrix_product.hpp"

namespace {

using namespace benchmarks;

template <class Advance>
void steps(benchmark::State& state, Advance advance) {
    components = static_cast<std::size_t>(state.range(0));
    const Handle tx = open_handle(rotation, components, 1e-6);
    TXSetMaxStep(tx.get(), 1e-3);
    std::vector<double> y(components, 1.0);
    double t = 0;
    for ([[maybe_unused]] auto _ : state) advance(tx.get(), &t, y.data());
}

void step(benchmark::State& state) {
    steps(state, TXStep);
}

void plain_step(benchmark::State& state) {
    steps(state,
          [](Trajex* tx, double* t, double* y) { plain::step(tx, tx->order, t, y, rotation); });
}

void dense_output(benchmark::State& state) {
    components = static_cast<std::size_t>(state.range(0));
    const Handle tx = open_handle(rotation, components, 1e-6);
    std::vector<double> y(components, 1.0);
    double t = 0;
    TXStep(tx.get(), &t, y.data());
    for ([[maybe_unused]] auto _ : state) TXInterpolate(tx.get(), 0.5 * t, y.data());
}

template <class Multiply>
void product(benchmark::State& state, Multiply multiply) {
    const auto n = static_cast<std::size_t>(state.range(0));
    std::vector<double> J(n * n, 0.5);
    std::vector<double> M(n * n, 0.25);
    std::vector<double> result(n * n);
    std::vector<double*> rows;
    for (std::size_t i = 0; i < n; ++i) rows.push_back(&J[i * n]);
    for ([[maybe_unused]] auto _ : state) {
        multiply(rows.data(), n, M.data(), n, result.data());
        benchmark::DoNotOptimize(result.data());
    }
}

void product_best(benchmark::State& state) {
    product(state,
            [](auto... arguments) { trajex::dispatch<trajex::MatrixProduct>(arguments...); });
}

void product_baseline(benchmark::State& state) {
    product(state, [](auto... arguments) {
        trajex::run_for_baseline<trajex::MatrixProduct<trajex::Pair>>(arguments...);
    });
}

std::vector<double> pattern(std::size_t n) {
    std::vector<double> A(n * n);
    for (std::size_t m = 0; m < A.size(); ++m) A[m] = std::sin(1.0 + 0.7 * static_cast<double>(m));
    return A;
}

void linear_system(benchmark::State& state) {
    const auto n = static_cast<std::size_t>(state.range(0));
    const Handle tx = open_handle(rotation, 1, 1e-6);
    const std::vector<double> original = pattern(n);
    std::vector<double> A(n * n), b(n), work(2 * n);
    std::vector<double*> rows;
    for (std::size_t i = 0; i < n; ++i) rows.push_back(&A[i * n]);
    for ([[maybe_unused]] auto _ : state) {
        A = original;
        b.assign(n, 1);
        TXLinZero(tx.get(), static_cast<int>(n), rows.data(), b.data(), work.data());
    }
}

void eigenvalues(benchmark::State& state) {
    const auto n = static_cast<std::size_t>(state.range(0));
    const Handle tx = open_handle(rotation, 1, 1e-6);
    const std::vector<double> original = pattern(n);
    std::vector<double> A(n * n), er(n), ei(n);
    std::vector<double*> rows;
    for (std::size_t i = 0; i < n; ++i) rows.push_back(&A[i * n]);
    for ([[maybe_unused]] auto _ : state) {
        A = original;
        TXEigen(tx.get(), static_cast<int>(n), rows.data(), er.data(), ei.data());
    }
}

BENCHMARK(step)->DenseRange(1, 8)->Arg(10)->Arg(50)->Arg(100)->Arg(1000)->Arg(10000);
BENCHMARK(plain_step)->DenseRange(1, 8)->Arg(10)->Arg(50)->Arg(100)->Arg(1000)->Arg(10000);
BENCHMARK(dense_output)->Arg(3)->Arg(10)->Arg(100)->Arg(1000);
BENCHMARK(product_best)->Arg(3)->Arg(5)->Arg(10)->Arg(20)->Arg(50)->Arg(200);
BENCHMARK(product_baseline)->Arg(3)->Arg(5)->Arg(10)->Arg(20)->Arg(50)->Arg(200);
BENCHMARK(linear_system)->Arg(4)->Arg(10)->Arg(50)->Arg(200)->Arg(500);
BENCHMARK(eigenvalues)->Arg(4)->Arg(10)->Arg(50)->Arg(100)->Arg(200);

}  // namespace

BENCHMARK_MAIN();
