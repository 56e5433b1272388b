#!/usr/bin/env bash
# Builds the wheel, installs it in a fresh virtual environment that sees the system's packages, and
# runs the tests of the Python package and the gallery there. Arguments go to pytest.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/lib.sh

# The interpreter that the Debian packages belong to; another one may come first on the path.
python=${PYTHON:-/usr/bin/python3}
work=build/python-test

need_packages python3-dev python3-venv python3-pip python3-setuptools python3-wheel python3-pybind11 pybind11-dev \
    python3-numpy python3-sympy python3-matplotlib python3-pytest python3-tqdm python3-mpi4py openmpi-bin cmake ninja-build
if command -v ccache >/dev/null; then export CMAKE_CXX_COMPILER_LAUNCHER=ccache; fi
export CMAKE_ARGS="-DTX_DEVELOPER=ON ${CMAKE_ARGS:-}"

rm -rf "$work" build/lib.*
mkdir -p "$work"
logged python-wheel "$python" -m pip wheel --no-build-isolation --no-deps --no-index -w "$work" .
logged python-venv "$python" -m venv --system-site-packages "$work/venv"
logged python-install "$work/venv/bin/python" -m pip install --no-index --no-deps "$work"/tx-*.whl
export MPLBACKEND=Agg
"$work/venv/bin/python" -m pytest tests/python "$@"
