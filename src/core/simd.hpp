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
#pragma once

#include <cmath>
#include <cstddef>
#include <cstring>
#include <type_traits>

namespace trajex {

template <class Kernel, class... Arguments>
[[gnu::noinline]] auto run_for_baseline(Arguments... arguments) {
    return Kernel::run(arguments...);
}

#if defined(__GNUC__) && defined(__x86_64__)

inline bool has_avx2() {
    return __builtin_cpu_supports("avx2") != 0;
}

template <class Kernel, class... Arguments>
[[gnu::target("avx2"), gnu::noinline]] auto run_for_avx2(Arguments... arguments) {
    return Kernel::run(arguments...);
}

#else

constexpr bool has_avx2() {
    return false;
}

template <class Kernel, class... Arguments>
auto run_for_avx2(Arguments... arguments) {
    return run_for_baseline<Kernel>(arguments...);
}

#endif

/// Runs the kernel compiled for the best instruction set that this processor has.
template <class Kernel, class... Arguments>
auto dispatch(Arguments... arguments) {
    if (has_avx2()) return run_for_avx2<Kernel>(arguments...);
    return run_for_baseline<Kernel>(arguments...);
}

// Packs: four numbers at a time. Arithmetic on a pack is that of each of its numbers. In AVX2 code
// a pack is one register, in other code what the machine has for it. Everything here exists for a
// single number as well, so that one body, a template of the kind of number, serves packs and what
// remains. A pack never crosses a call: all is inlined.

#if defined(__GNUC__)

inline constexpr std::size_t pack_size = 4;

struct Pack {
    using Vector [[gnu::vector_size(pack_size * sizeof(double))]] = double;
    using Bits [[gnu::vector_size(pack_size * sizeof(double))]] = long long;
    struct [[gnu::packed, gnu::may_alias]] InMemory {
        Vector numbers;
    };

    Vector numbers;

    [[gnu::always_inline]] friend inline Pack operator+(const Pack& x, const Pack& y) {
        return {x.numbers + y.numbers};
    }
    [[gnu::always_inline]] friend inline Pack operator-(const Pack& x, const Pack& y) {
        return {x.numbers - y.numbers};
    }
    [[gnu::always_inline]] friend inline Pack operator*(const Pack& x, const Pack& y) {
        return {x.numbers * y.numbers};
    }
    [[gnu::always_inline]] friend inline Pack operator+(const Pack& x, double y) {
        return {x.numbers + y};
    }
    [[gnu::always_inline]] friend inline Pack operator*(const Pack& x, double y) {
        return {x.numbers * y};
    }
    [[gnu::always_inline]] friend inline Pack operator/(const Pack& x, const Pack& y) {
        return {x.numbers / y.numbers};
    }
};

[[gnu::always_inline]] inline Pack absolute(const Pack& x) {
    constexpr long long all_but_sign = 0x7fffffffffffffff;
    return {reinterpret_cast<Pack::Vector>(reinterpret_cast<Pack::Bits>(x.numbers) & all_but_sign)};
}

/// y where x is not zero, and zero where it is.
[[gnu::always_inline]] inline Pack unless_zero(const Pack& x, const Pack& y) {
    return {
        reinterpret_cast<Pack::Vector>((x.numbers != 0) & reinterpret_cast<Pack::Bits>(y.numbers))};
}

[[gnu::always_inline]] inline void add_in_order(double& sum, const Pack& terms) {
    for (std::size_t i = 0; i < pack_size; ++i) sum += terms.numbers[i];
}

#else

inline constexpr std::size_t pack_size = 1;
using Pack = double;

#endif

[[gnu::always_inline]] inline double absolute(double x) {
    return std::fabs(x);
}

[[gnu::always_inline]] inline double unless_zero(double x, double y) {
    return x == 0 ? 0 : y;
}

[[gnu::always_inline]] inline void add_in_order(double& sum, double term) {
    sum += term;
}

/// The numbers at p and behind it, which needs no alignment.
template <class Number>
[[gnu::always_inline]] inline Number load(const double* p) {
    if constexpr (std::is_same_v<Number, double>) {
        return *p;
    } else {
        return {reinterpret_cast<const typename Number::InMemory*>(p)->numbers};
    }
}

template <class Number>
[[gnu::always_inline]] inline void store(double* p, const Number& x) {
    if constexpr (std::is_same_v<Number, double>) {
        *p = x;
    } else {
        reinterpret_cast<typename Number::InMemory*>(p)->numbers = x.numbers;
    }
}

#if defined(__GNUC__)

/// Four neighbouring doubles, operated on one by one: v + w, v - w, v * w, x * v with a number x.
/// For kernels in which a compiler does not find by itself what to keep in registers. Pass
/// references only: how a function receives a vector by value depends on the instruction set.
using Four [[gnu::vector_size(32)]] = double;

struct [[gnu::packed, gnu::may_alias]] UnalignedFour {
    Four value;
};

[[gnu::always_inline]] inline void load(Four& v, const double* from) {
    v = reinterpret_cast<const UnalignedFour*>(from)->value;
}

[[gnu::always_inline]] inline void store(const Four& v, double* to) {
    reinterpret_cast<UnalignedFour*>(to)->value = v;
}

/// Four numbers from anywhere, in two pairs: from a list GCC fills a vector one by one.
[[gnu::always_inline]] inline void assign(Four& v, double v0, double v1, double v2, double v3) {
    using Two [[gnu::vector_size(16)]] = double;
    v = __builtin_shufflevector(Two{v0, v1}, Two{v2, v3}, 0, 1, 2, 3);
}

/// The larger one of each pair to m; what is not a number is left out.
[[gnu::always_inline]] inline void keep_larger(Four& m, const Four& v) {
    m = v > m ? v : m;
}

#else

struct Four {
    double lane[4];
    double& operator[](std::size_t i) { return lane[i]; }
    double operator[](std::size_t i) const { return lane[i]; }
};

template <class Operation>
Four combined(const Four& v, const Four& w, Operation operation) {
    return {operation(v[0], w[0]), operation(v[1], w[1]), operation(v[2], w[2]),
            operation(v[3], w[3])};
}

inline Four operator+(const Four& v, const Four& w) {
    return combined(v, w, [](double x, double y) { return x + y; });
}
inline Four operator-(const Four& v, const Four& w) {
    return combined(v, w, [](double x, double y) { return x - y; });
}
inline Four operator*(const Four& v, const Four& w) {
    return combined(v, w, [](double x, double y) { return x * y; });
}
inline Four operator*(double x, const Four& v) {
    return Four{x, x, x, x} * v;
}
inline Four operator-(const Four& v) {
    return -1.0 * v;
}
inline Four& operator+=(Four& v, const Four& w) {
    return v = v + w;
}
inline Four& operator-=(Four& v, const Four& w) {
    return v = v - w;
}

inline void load(Four& v, const double* from) {
    std::memcpy(&v, from, sizeof v);
}
inline void store(const Four& v, double* to) {
    std::memcpy(to, &v, sizeof v);
}

inline void assign(Four& v, double v0, double v1, double v2, double v3) {
    v = {v0, v1, v2, v3};
}

inline void keep_larger(Four& m, const Four& v) {
    m = combined(m, v, [](double x, double y) { return y > x ? y : x; });
}

#endif

}  // namespace trajex
