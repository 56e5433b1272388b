// Instruction sets. The library is compiled for the baseline of its platform, so that one binary
// runs everywhere; a kernel that gains from wider vectors is compiled a second time for AVX2, and
// the processor found at run time decides. Both come from one body: the same operations in the same
// order, never contracted to fused multiply-adds, hence the same results to the last bit.
//
// A kernel is a type with one static function:
//
//     struct Scale {
//         [[gnu::always_inline]] static inline void run(double factor, double* x, std::size_t n) {
//             for (std::size_t i = 0; i < n; ++i) x[i] *= factor;
//         }
//     };
//     dispatch<Scale>(2.0, x, n);
//
// `run` takes its arguments by value. What it calls is either always_inline as well or stays
// baseline code. A lambda inside `run` needs the attribute too.
//
// A kernel that names its vectors is a template of their type, and is given the longest that fit a
// register: Four in AVX2 code, Pair elsewhere. Vectors longer than a register would live in memory.
#pragma once

#include <cmath>
#include <cstddef>
#include <type_traits>

namespace trajex {

// ---- Vectors: neighbouring doubles, operated on one by one: v + w, v - w, v * w, v / w, and x + v
// and x * v with a number x. Pass references only: how a function receives a vector by value
// depends on the instruction set.

template <class Vector>
inline constexpr std::size_t width = sizeof(Vector) / sizeof(double);

#if defined(__GNUC__)

using Four [[gnu::vector_size(32)]] = double;
using Pair [[gnu::vector_size(16)]] = double;

template <class Vector>
struct [[gnu::packed, gnu::may_alias]] Unaligned {
    Vector value;
};

template <class Vector>
[[gnu::always_inline]] inline void load(Vector& v, const double* from) {
    v = reinterpret_cast<const Unaligned<Vector>*>(from)->value;
}

template <class Vector>
[[gnu::always_inline]] inline void store(const Vector& v, double* to) {
    reinterpret_cast<Unaligned<Vector>*>(to)->value = v;
}

template <class Vector>
[[gnu::always_inline]] inline void take_magnitude(Vector& v) {
    using Bits [[gnu::vector_size(sizeof(Vector))]] = long long;
    constexpr long long all_but_sign = 0x7fffffffffffffff;
    v = reinterpret_cast<Vector>(reinterpret_cast<Bits>(v) & all_but_sign);
}

/// Makes v zero where w is zero.
template <class Vector>
[[gnu::always_inline]] inline void clear_where_zero(Vector& v, const Vector& w) {
    using Bits [[gnu::vector_size(sizeof(Vector))]] = long long;
    v = reinterpret_cast<Vector>((w != 0) & reinterpret_cast<Bits>(v));
}

/// The larger one of each pair of numbers to m; what is not a number is left out.
template <class Vector>
[[gnu::always_inline]] inline void keep_larger(Vector& m, const Vector& v) {
    m = v > m ? v : m;
}

/// Element j of successive rows, one after the other.
[[gnu::always_inline]] inline void gather(Pair& v, double* const* rows, std::ptrdiff_t j) {
    v = Pair{rows[0][j], rows[1][j]};
}

/// Two pairs, since from a list of four GCC fills a vector one by one.
[[gnu::always_inline]] inline void gather(Four& v, double* const* rows, std::ptrdiff_t j) {
    v = __builtin_shufflevector(Pair{rows[0][j], rows[1][j]}, Pair{rows[2][j], rows[3][j]}, 0, 1, 2,
                                3);
}

template <class Vector>
[[gnu::always_inline]] inline void scatter(const Vector& v, double* const* rows, std::ptrdiff_t j) {
    for (std::size_t r = 0; r < width<Vector>; ++r) rows[r][j] = v[r];
}

#else

/// Without vectors, kernels take one number at a time.
using Pair = double;

#endif

// The same for one number, so that one body serves vectors and what remains of a row.

[[gnu::always_inline]] inline void load(double& x, const double* from) {
    x = *from;
}
[[gnu::always_inline]] inline void store(double x, double* to) {
    *to = x;
}
[[gnu::always_inline]] inline void take_magnitude(double& x) {
    x = std::fabs(x);
}
[[gnu::always_inline]] inline void clear_where_zero(double& x, double y) {
    x = y == 0 ? 0 : x;
}
[[gnu::always_inline]] inline void keep_larger(double& m, double x) {
    m = x > m ? x : m;
}
[[gnu::always_inline]] inline void gather(double& x, double* const* rows, std::ptrdiff_t j) {
    x = rows[0][j];
}
[[gnu::always_inline]] inline void scatter(double x, double* const* rows, std::ptrdiff_t j) {
    rows[0][j] = x;
}
[[gnu::always_inline]] inline void add_in_order(double& sum, double x) {
    sum += x;
}

template <class Vector>
[[gnu::always_inline]] inline void add_in_order(double& sum, const Vector& v) {
    for (std::size_t i = 0; i < width<Vector>; ++i) sum += v[i];
}

// ---- Kernels

template <class Kernel, class... Arguments>
[[gnu::noinline]] auto run_for_baseline(Arguments... arguments) {
    return Kernel::run(arguments...);
}

#if defined(__GNUC__) && defined(__x86_64__) && !defined(TX_NO_AVX2)

inline bool has_avx2() {
    return __builtin_cpu_supports("avx2") != 0;
}

template <class Kernel, class... Arguments>
[[gnu::target("avx2"), gnu::noinline]] auto run_for_avx2(Arguments... arguments) {
    return Kernel::run(arguments...);
}

using Longest = Four;

#else

constexpr bool has_avx2() {
    return false;
}

template <class Kernel, class... Arguments>
auto run_for_avx2(Arguments... arguments) {
    return run_for_baseline<Kernel>(arguments...);
}

using Longest = Pair;

#endif

/// Runs the kernel compiled for the best instruction set that this processor has.
template <class Kernel, class... Arguments>
auto dispatch(Arguments... arguments) {
    if (has_avx2()) return run_for_avx2<Kernel>(arguments...);
    return run_for_baseline<Kernel>(arguments...);
}

/// The same for a kernel that is a template of the type of its vectors.
template <template <class> class Kernel, class... Arguments>
auto dispatch(Arguments... arguments) {
    if (has_avx2()) return run_for_avx2<Kernel<Longest>>(arguments...);
    return run_for_baseline<Kernel<Pair>>(arguments...);
}

/// Up to this many components the loops of a kernel are unrolled.
inline constexpr std::size_t largest_unrolled = 8;

/// The same with the number of components, which comes first, as a compile-time constant where it
/// is small. Inline, and so is what leads here: a step of a small system feels every call between.
template <template <class> class Kernel, std::size_t unrolled = 1, class... Arguments>
[[gnu::always_inline]] inline auto dispatch_sized(std::size_t n, Arguments... arguments) {
    if constexpr (unrolled > largest_unrolled) {
        return dispatch<Kernel>(n, arguments...);
    } else if (n == unrolled) {
        return dispatch<Kernel>(std::integral_constant<std::size_t, unrolled>(), arguments...);
    } else {
        return dispatch_sized<Kernel, unrolled + 1>(n, arguments...);
    }
}

}  // namespace trajex
