#!/usr/bin/env bash
# Builds the wheel, installs it in a fresh virtual environment that sees the system's packages, and
# runs the tests of the Python package and the gallery there. TX_LIBRARY in the environment names a
# static library of these sources that is built already: scripts/test has one. Arguments go to pytest.
# The last line has the numbers of tests that passed and failed.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/lib.sh

work=build/python-test
results=$work/results.xml

# count NAME: a number of the line that sums up the results.
count() {
    grep -oE "<testsuite [^>]*" "$results" | sed -E "s/.* $1=\"([0-9]+)\".*/\1/"
}

need_packages python3-pytest python3-tqdm python3-numba python3-mpi4py openmpi-bin
python_package "$work" "${TX_LIBRARY:-}"
export MPLBACKEND=Agg
status=0
timeout 900 "$work/venv/bin/python" -m pytest tests/python --junitxml="$results" "$@" </dev/null || status=$?
[ -s "$results" ] || die "FAILED: the tests of the Python package did not end (status $status)"
failed=$(($(count errors) + $(count failures)))
say "$(($(count tests) - failed - $(count skipped))) passed, $failed failed"
exit "$status"
