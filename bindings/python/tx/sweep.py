"""Functions of parameters over a grid, in parallel on any executor of concurrent.futures.

    grid = tx.sweep(largest_exponent, {"a": np.linspace(0, 1, 50), "b": np.linspace(0, 2, 40)})
    grid.values      # array of shape (50, 40, ...)

By default on threads, one per core: compiled systems release the interpreter while they run. A process pool
or ``mpi4py.futures.MPIPoolExecutor`` takes the same call onto more cores or a cluster.
"""

from __future__ import annotations

import itertools
import json
import os
from collections import Counter
from collections.abc import Callable, Mapping, Sequence
from concurrent.futures import Executor, ThreadPoolExecutor, as_completed
from dataclasses import dataclass, field
from pathlib import Path

import numpy as np


@dataclass
class Sweep:
    """What a sweep found. ``values[i, j, ...]`` belongs to ``axes`` values i, j, ...; NaN where a cell failed.

    ``failures`` maps the indices of a failed cell to what happened there.
    """

    axes: dict[str, np.ndarray]
    values: np.ndarray
    failures: dict[tuple[int, ...], str] = field(default_factory=dict)

    def __repr__(self) -> str:
        grid = " × ".join(f"{name}: {len(values)}" for name, values in self.axes.items())
        text = f"Sweep({grid}; values {self.values.shape}; {len(self.failures)} failures"
        kinds = Counter(reason.split(":", 1)[0] for reason in self.failures.values())
        return text + "".join(f"; {count} {kind}" for kind, count in kinds.most_common()) + ")"

    def plot(self, ax=None, component: int | None = None, **how):
        """A picture of a sweep over two parameters, or a line of one over one. Returns the axes."""
        from . import plotting
        values = self.values if component is None else self.values[..., component]
        if len(self.axes) > 2 or values.ndim > 2:
            raise ValueError(f"a picture has one or two parameters and one number for each point; the values have shape "
                             f"{self.values.shape}" + ("" if component is not None else ": give component="))
        (x, xs), *rest = self.axes.items()
        ax = plotting._axes(ax)
        ax.set_xlabel(x)
        if not rest:
            ax.plot(xs, values, **how)
            return ax
        (y, ys), = rest
        ax.set_ylabel(y)
        mesh = ax.pcolormesh(xs, ys, values.T, shading="nearest", **{"cmap": "cividis", **how})
        ax.figure.colorbar(mesh, ax=ax)
        return ax


class _Journal:
    """Finished cells, a line of JSON each, so that an interrupted sweep goes on where it was."""

    def __init__(self, path: str | os.PathLike | None, axes: Mapping[str, np.ndarray]):
        self.path = None if path is None else Path(path)
        self.head = {"sweep": {name: [float(v) for v in values] for name, values in axes.items()}}

    def read(self) -> dict[tuple[int, ...], dict]:
        if self.path is None or not self.path.exists():
            return {}
        done = {}
        with self.path.open() as file:
            lines = iter(file)
            if json.loads(next(lines, "{}") or "{}") != self.head:
                raise ValueError(f"{self.path} belongs to a sweep over another grid")
            for line in lines:
                try:
                    cell = json.loads(line)
                except json.JSONDecodeError:  # the last line of an interrupted run
                    continue
                done[tuple(cell["cell"])] = cell
        return done

    def open(self, fresh: bool):
        if self.path is None:
            return None
        file = self.path.open("w" if fresh else "a")
        file.write(json.dumps(self.head) + "\n" if fresh else "\n")
        file.flush()
        return file


class _Call:
    """The function with its parameters by name; picklable where the function is."""

    def __init__(self, function: Callable, names: Sequence[str]):
        self.function, self.names = function, names

    def __call__(self, cell: tuple[int, ...], point: tuple[float, ...]):
        try:
            value = np.asarray(self.function(**dict(zip(self.names, point))), float)
            return cell, value.tolist(), None
        except Exception as error:  # a failed cell is a result: it is counted and named
            return cell, None, f"{type(error).__name__}: {error}"


def sweep(function: Callable, grid: Mapping[str, Sequence[float]], executor: Executor | None = None,
          file: str | os.PathLike | None = None, progress: Callable[[int, int], None] | None = None) -> Sweep:
    """``function(a=..., b=...)``, a number or an array of fixed shape, at every point of the grid.

    An exception in a cell is a failure of that cell alone. With ``file``, cells are kept there as they finish,
    and a sweep that was interrupted takes them from there. ``progress(done, all)`` is called after each cell.
    """
    axes = {name: np.asarray(values, float) for name, values in grid.items()}
    if not axes or any(values.ndim != 1 or not len(values) for values in axes.values()):
        raise ValueError("a grid has at least one parameter, each with a list of values")
    shape = tuple(len(values) for values in axes.values())
    journal = _Journal(file, axes)
    done = journal.read()
    cells = [cell for cell in itertools.product(*map(range, shape)) if cell not in done]
    results = {cell: (entry.get("value"), entry.get("failure")) for cell, entry in done.items()}
    own = ThreadPoolExecutor(os.cpu_count()) if executor is None else None
    log = journal.open(fresh=not done)
    try:
        call = _Call(function, list(axes))
        pending = [(executor or own).submit(call, cell, tuple(float(axes[name][i]) for name, i in zip(axes, cell)))
                   for cell in cells]
        for count, future in enumerate(as_completed(pending), len(done) + 1):
            cell, value, failure = future.result()
            results[cell] = value, failure
            if log:
                log.write(json.dumps({"cell": cell, "value": value, "failure": failure}) + "\n")
                log.flush()
            if progress:
                progress(count, len(done) + len(cells))
    except BaseException:
        for future in pending:
            future.cancel()
        raise
    finally:
        if log:
            log.close()
        if own:
            own.shutdown(cancel_futures=True)
    return _assemble(axes, shape, results)


def _assemble(axes, shape, results) -> Sweep:
    made = [np.shape(value) for value, failure in results.values() if failure is None]
    inner = made[0] if made else ()
    values = np.full(shape + inner, np.nan)
    failures = {}
    for cell, (value, failure) in results.items():
        if failure is None and np.shape(value) == inner:
            values[cell] = value
        else:
            failures[cell] = failure or f"ShapeError: {np.shape(value)} where others have {inner}"
    return Sweep(axes, values, failures)
