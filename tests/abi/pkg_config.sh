#!/bin/sh
# Builds a C program against an installed tx by pkg-config, with the shared and the static library, and
# a C++20 program with the shared one, and runs them:
# pkg_config.sh PREFIX LIBDIR COMPILER PROGRAM.C CXX_COMPILER PROGRAM.CPP OUTPUT
set -eu
prefix=$1 libdir=$2 compiler=$3 program=$4 cxx_compiler=$5 cxx_program=$6 output=$7
export PKG_CONFIG_PATH="$prefix/$libdir/pkgconfig"
mkdir -p "$output"

# The flags are lists of words.
# shellcheck disable=SC2046
"$compiler" -std=c99 $(pkg-config --cflags tx) "$program" $(pkg-config --libs tx) -lm \
    -o "$output/with_shared"
LD_LIBRARY_PATH="$prefix/$libdir" "$output/with_shared"

# shellcheck disable=SC2046
"$compiler" -std=c99 -static $(pkg-config --cflags tx) "$program" \
    $(pkg-config --static --libs tx) -o "$output/with_static"
"$output/with_static"

# shellcheck disable=SC2046
"$cxx_compiler" -std=c++20 $(pkg-config --cflags tx) "$cxx_program" $(pkg-config --libs tx) \
    -o "$output/branches"
LD_LIBRARY_PATH="$prefix/$libdir" "$output/branches"
