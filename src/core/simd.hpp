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

namespace trajex {

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
    return Kernel::run(arguments...);
}

#endif

/// Runs the kernel compiled for the best instruction set that this processor has.
template <class Kernel, class... Arguments>
auto dispatch(Arguments... arguments) {
    if (has_avx2()) return run_for_avx2<Kernel>(arguments...);
    return Kernel::run(arguments...);
}

}  // namespace trajex
