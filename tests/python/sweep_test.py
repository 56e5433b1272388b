"""Sweeps on threads, processes and MPI, with failures and restarts."""
import json
import shutil
import subprocess
import sys
from concurrent.futures import ProcessPoolExecutor

import numpy as np
import pytest

import tx

GRID = {"a": [0.0, 1.0, 2.0], "b": [0.5, 1.0]}
EXPECTED = [[0.5, 1.0], [1.5, 2.0], [2.5, 3.0]]


def plus(a, b):
    return a + b


def exponents(a, b):
    s = tx.System("x' = -a*x; y' = -(a + b)*y", a=a, b=b)
    return s.lyapunov([1, 1], time=20, transient=0).exponents


def fails_at_one(a, b):
    if a == 1:
        raise ArithmeticError("one")
    return a + b


def test_values_are_where_they_belong():
    grid = tx.sweep(plus, GRID)
    assert grid.values.tolist() == EXPECTED and not grid.failures
    assert grid.plot().get_xlabel() == "a"
    pairs = tx.sweep(lambda a, b: [a, b], GRID)
    assert pairs.plot(component=1).collections[0].get_array().reshape(2, 3).tolist() == [[0.5] * 3, [1.0] * 3]
    with pytest.raises(ValueError, match="component="):
        pairs.plot()


def test_processes():
    with ProcessPoolExecutor(2) as pool:
        grid = tx.sweep(exponents, {"a": [1.0, 2.0], "b": [0.5]}, executor=pool)
    assert not grid.failures, grid
    assert grid.values[:, 0, :] == pytest.approx(np.array([[-1, -1.5], [-2, -2.5]]), abs=1e-6)


def test_failures_are_counted_and_named():
    grid = tx.sweep(fails_at_one, GRID)
    assert set(grid.failures) == {(1, 0), (1, 1)} and "ArithmeticError: one" in grid.failures[1, 0]
    assert np.isnan(grid.values[1]).all() and grid.values[2].tolist() == EXPECTED[2]
    assert "2 ArithmeticError" in repr(grid)


def test_a_sweep_goes_on_where_it_was(tmp_path):
    calls, file = [], tmp_path / "sweep"

    def counted(a, b):
        calls.append((a, b))
        return a + b

    tx.sweep(counted, GRID, file=file)
    lines = file.read_text().splitlines()
    file.write_text("\n".join(lines[:3]) + "\n" + lines[3][:5])  # as if killed while writing
    calls.clear()
    assert tx.sweep(counted, GRID, file=file).values.tolist() == EXPECTED
    assert len(calls) == 4
    with pytest.raises(ValueError, match="another grid"):
        tx.sweep(plus, {"a": [1.0]}, file=file)


@pytest.mark.skipif(shutil.which("mpiexec") is None, reason="no mpiexec")
def test_mpi(tmp_path):
    script = tmp_path / "cluster.py"
    script.write_text("""
import json, sys
from mpi4py.futures import MPIPoolExecutor
import tx
def rank(a, b):
    from mpi4py import MPI
    return [a + b, MPI.COMM_WORLD.Get_rank() + MPI.COMM_WORLD.Get_size()]
if __name__ == "__main__":
    with MPIPoolExecutor() as pool:
        print(json.dumps(tx.sweep(rank, {"a": [0.0, 1.0, 2.0], "b": [0.5, 1.0]}, executor=pool).values.tolist()))
""")
    run = subprocess.run(["mpiexec", "--allow-run-as-root", "--oversubscribe", "-n", "2", sys.executable, "-m",
                          "mpi4py.futures", str(script)], capture_output=True, text=True, timeout=120)
    assert run.returncode == 0, run.stderr
    values = np.array(json.loads(run.stdout))
    assert values[..., 0].tolist() == EXPECTED
    assert (values[..., 1] == 3).all()  # the worker is rank 1 of 2
