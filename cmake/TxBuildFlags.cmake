# Flags of our own targets. They travel by target, never by global variables, so that a project that
# takes tx in with add_subdirectory() keeps its own.

set(tx_gnu_like "$<OR:$<CXX_COMPILER_ID:GNU>,$<CXX_COMPILER_ID:Clang>,$<CXX_COMPILER_ID:AppleClang>>")

# What everything we compile shares: library, tests, examples, benchmarks.
add_library(tx_build_flags INTERFACE)
if(TX_DEVELOPER)
    # Both compilers judge alike: the conversions of clang include those of an int that is an index.
    target_compile_options(tx_build_flags INTERFACE
        -Wall -Wextra -Wpedantic -Wconversion -Werror
        # What one source calls a variable another, compiled with it, may call a constant.
        $<$<NOT:$<BOOL:${TX_JOINT_SOURCES}>>:-Wshadow>
        $<$<CXX_COMPILER_ID:Clang>:-Wno-sign-conversion>)
    # GCC 12 takes the assignment of a literal to a string for a copy that may overlap.
    set(tx_gcc_12 $<CXX_COMPILER_ID:GNU>,$<VERSION_LESS:$<CXX_COMPILER_VERSION>,13>)
    target_compile_options(tx_build_flags INTERFACE $<$<AND:${tx_gcc_12}>:-Wno-restrict>)
endif()
if(NOT TX_AVX2)
    target_compile_definitions(tx_build_flags INTERFACE TX_NO_AVX2)
endif()
if(TX_SANITIZE)
    string(REPLACE ";" "," tx_sanitizers "${TX_SANITIZE}")
    target_compile_options(tx_build_flags INTERFACE
        -O1 -fsanitize=${tx_sanitizers} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    # GCC takes the checks that it puts in for uses of unset values.
    target_compile_options(tx_build_flags INTERFACE
        $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
    target_link_options(tx_build_flags INTERFACE -fsanitize=${tx_sanitizers})
endif()

# What the library needs on top. No contraction to fused multiply-add: a result must not depend on
# the machine it was computed on. Nobody looks at floating-point exceptions or at errno of the square
# root, so that loops may be vectorised as if there were none; no value changes. No semantic
# interposition: calls among our own functions stay inside, and may be inlined, although the public
# ones are visible.
add_library(tx_library_flags INTERFACE)
target_link_libraries(tx_library_flags INTERFACE tx_build_flags)
target_compile_options(tx_library_flags INTERFACE
    $<${tx_gnu_like}:-ffp-contract=off;-fno-trapping-math;-fno-math-errno;-fno-semantic-interposition>
    $<$<AND:${tx_gnu_like},$<CONFIG:Release,RelWithDebInfo>>:-O3>)
