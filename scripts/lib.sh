# shellcheck shell=bash
# Shared by the scripts of this directory, which source it from the project's root.

# Ends the script with a message.
die() {
    printf '%s\n' "$*" >&2
    exit 1
}

say() {
    printf '%s\n' "$*"
}

# need_packages PACKAGE...: installs those that are missing, where the system is a Debian one.
need_packages() {
    if ! command -v dpkg-query >/dev/null || ! command -v apt-get >/dev/null; then
        say "Not a Debian system: make sure that there is something like: $*"
        return
    fi
    local package missing=() as_root=()
    for package in "$@"; do
        if [ "$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null)" != installed ]; then
            missing+=("$package")
        fi
    done
    if [ ${#missing[@]} -eq 0 ]; then return; fi
    if [ "$(id -u)" -ne 0 ]; then
        command -v sudo >/dev/null || die "Missing Debian packages, and no sudo to install them: ${missing[*]}"
        as_root=(sudo)
    fi
    say "Installing Debian packages: ${missing[*]}"
    logged packages "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get update
    logged packages "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
        apt-get install -y --no-install-recommends "${missing[@]}"
}

# logged NAME COMMAND...: runs the command with its output in the log of that name. On a failure
# shows the end of the log and ends the script.
logged() {
    local name=$1 log="$log_dir/$1.log"
    shift
    if ! "$@" >"$log" 2>&1 </dev/null; then
        tail -n 60 "$log" >&2
        die "FAILED: $name (all of it: $log)"
    fi
}

# How many jobs to run at once.
jobs_at_once() {
    nproc 2>/dev/null || getconf _NPROCESSORS_ONLN
}

# CMake options to compile through ccache where there is one.
compiler_launcher() {
    if command -v ccache >/dev/null; then say -DCMAKE_CXX_COMPILER_LAUNCHER=ccache; fi
}


# fuzz SECONDS: builds and runs the fuzzer. Leaves the number of its runs in fuzz_runs.
fuzz() {
    # shellcheck disable=SC2046  # no option or one
    logged fuzz-configure cmake --preset fuzz $(compiler_launcher)
    logged fuzz-build cmake --build --preset fuzz --parallel "$(jobs_at_once)"
    mkdir -p build/fuzz/corpus
    logged fuzz build/fuzz/tests/fuzz_calls -max_total_time="$1" -timeout=25 -max_len=256 -len_control=0 \
        -artifact_prefix=build/fuzz/ build/fuzz/corpus
    # shellcheck disable=SC2034  # for the caller
    fuzz_runs=$(sed -nE 's/^Done ([0-9]+) runs.*/\1/p' "$log_dir/fuzz.log")
}

# code_lines DIRECTORY...: lines of the sources there that are neither blank nor comment.
code_lines() {
    # shellcheck disable=SC2016  # the program is one of awk
    find "$@" -type f \( -name '*.c' -o -name '*.h' -o -name '*.cpp' -o -name '*.hpp' \
        -o -name '*.def' -o -name '*.py' -o -name '*.f90' \) -print0 2>/dev/null |
        xargs -0 -r awk '
            FNR == 1 { inside = 0; script = FILENAME ~ /\.py$/; fortran = FILENAME ~ /\.f90$/ }
            inside { if (!sub(/^.*\*\//, "")) next; inside = 0 }
            script { sub(/^[ \t]*#.*/, "") }
            fortran { sub(/^[ \t]*!.*/, "") }
            !script && !fortran {
                sub(/^[ \t]*\/\/.*/, "")
                while (match($0, /^[ \t]*\/\*/)) {
                    if (!sub(/^[ \t]*\/\*([^*]|\*+[^*\/])*\*+\//, "")) { inside = 1; $0 = "" }
                }
            }
            NF { ++lines }
            END { print lines + 0 }'
}

# python_package DIRECTORY [LIBRARY]: builds the wheel and installs it in a fresh virtual environment,
# DIRECTORY/venv, that sees the system's packages. Takes the static library that is given; without one
# builds it, too.
python_package() {
    local work=$1 library=${2:-} options="-DTX_DEVELOPER=ON ${CMAKE_ARGS:-}"
    # The interpreter that the Debian packages belong to; another one may come first on the path.
    local python=${PYTHON:-/usr/bin/python3}
    need_packages g++ cmake ninja-build pybind11-dev python3-dev python3-venv python3-pip python3-setuptools \
        python3-wheel python3-pybind11 python3-numpy python3-sympy python3-matplotlib
    if [ -n "$library" ]; then options+=" -DTX_PYTHON_LIBRARY=$(realpath -e "$library")"; fi
    if command -v ccache >/dev/null; then options+=" -DCMAKE_CXX_COMPILER_LAUNCHER=ccache"; fi
    rm -rf "$work" build/lib.*
    mkdir -p "$work"
    CMAKE_ARGS=$options logged python-wheel \
        "$python" -m pip wheel --no-build-isolation --no-deps --no-index -w "$work" .
    logged python-venv "$python" -m venv --system-site-packages "$work/venv"
    logged python-install "$work/venv/bin/python" -m pip install --no-index --no-deps "$work"/tx-*.whl
}

log_dir=build/logs
mkdir -p "$log_dir"
