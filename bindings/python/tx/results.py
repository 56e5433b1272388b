"""Points, special points, branches and diagrams, as the engine made them or as a file kept them.

Columns of a branch are read-only NumPy arrays over the engine's memory. Everything else comes from one
description, the same that ``save`` writes, so that what was loaded looks like what was computed.
"""

from __future__ import annotations

import json
from collections.abc import Callable, Iterator, Mapping
from functools import cached_property

import numpy as np

from . import _core, plotting, storage

Window = tuple[float, float]


def _complex(pairs) -> np.ndarray:
    return np.array([complex(*pair) for pair in pairs or []], complex)


def _number(value) -> float:
    return np.nan if value is None else float(value)


Error = _core.Error  # misuse: the text names what was given and what is known


def window_of(values) -> Window:
    """Two numbers, the lower one first; the engine looks at their order."""
    try:
        low, high = values
        return float(low), float(high)
    except (TypeError, ValueError):
        raise Error(f"a window is two numbers, (lo, hi), not {values!r}") from None


class Point:
    """A solution: an equilibrium, a cycle or a forced cycle, at given parameters.

    >>> p = s.equilibrium([0, 0])
    >>> p.state, p.eigenvalues
    >>> b = p.follow("I", (0, 2))
    """

    def __init__(self, native: "_core.Point", system):
        self._native, self._system = native, system

    def __bool__(self) -> bool:
        return bool(self._native)

    @property
    def status(self) -> str:
        """``found`` or ``not found``; ``reason`` says why."""
        return self._native.status

    @property
    def reason(self) -> str:
        return self._native.reason

    @property
    def parameters(self) -> dict[str, float]:
        return {name: self._native.parameter(name) for name in self._system.parameters}

    @property
    def state(self) -> np.ndarray:
        """The equilibrium; of a cycle the point at its phase 0."""
        return self._native.state

    @property
    def period(self) -> float | None:
        """None for equilibria."""
        return self._native.period or None

    @property
    def eigenvalues(self) -> np.ndarray:
        return self._native.eigenvalues

    @property
    def multipliers(self) -> np.ndarray:
        """Of a cycle, without the trivial one; ``log_multipliers`` holds those beyond a double's range."""
        return self._native.multipliers

    @property
    def log_multipliers(self) -> np.ndarray:
        return self._native.log_multipliers

    @property
    def log_multiplier_errors(self) -> np.ndarray:
        """Bounds of the errors of ``log_multipliers``: of a point of a branch one for all."""
        return self._native.log_multiplier_errors

    @property
    def stable(self) -> bool:
        return self._native.stable

    @property
    def min(self) -> np.ndarray:
        return self._native.min

    @property
    def max(self) -> np.ndarray:
        return self._native.max

    def __getitem__(self, name: str) -> float:
        return self._native.variable(name)

    def at(self, t: float | np.ndarray) -> np.ndarray:
        """The state of a cycle at the time t from its phase 0; of shape (n, times) for an array of times."""
        return self._native.at(t)

    def orbit(self, count: int = 500) -> tuple[np.ndarray, np.ndarray]:
        """Times and states, of shape (n, count), over one period."""
        if self.period is None:
            return np.linspace(0, 1, count), np.repeat(self.state[:, None], count, axis=1)
        times = np.linspace(0, self.period, count)
        return times, self.at(times)

    def plot(self, x: str | None = None, y: str | None = None, ax=None):
        """The orbit over time, or variable ``y`` over variable ``x``. Returns the axes."""
        times, states = self.orbit()
        names = self._system.states
        if x is None:
            return plotting.orbit_in_time(times, states, names, ax)
        y = y or next(name for name in names if name != x)
        return plotting.phase(states[names.index(x)], states[names.index(y)], (x, y), ax)

    def plot_multipliers(self, ax=None):
        """The multipliers and the unit circle. Returns the axes."""
        return plotting.multipliers(self.multipliers, ax)

    def follow(self, parameter: str, window: Window, **options) -> "Branch":
        """The branch through this point: ``p.follow("I", (0, 2))``."""
        with self._system._running(options) as o:
            return Branch(self._native.follow(str(parameter), window_of(window), o), self._system)

    def __repr__(self) -> str:
        return self._native.text()


class Special:
    """A special point of a branch.

    >>> h = d["H1"]
    >>> h.type, h.subtype, h.parameters["I"], h.coefficients["l1"]
    >>> h.follow("I", "eps", I=(0, 2), eps=(0.01, 1))    # the curve of Hopf points
    >>> h.switch()                                       # the cycles that are born here
    """

    def __init__(self, data: dict, native: "_core.Special | None", branch: "Branch"):
        self._data, self._native, self._branch, self._system = data, native, branch, branch._system

    id = property(lambda self: self._data["id"], doc="``H1``")
    type = property(lambda self: self._data["type"], doc="``LP``, ``BP``, ``H``, ...")
    subtype = property(lambda self: self._data["subtype"], doc="``supercritical``, ``pitchfork``, ...")
    status = property(lambda self: self._data["status"], doc="``located``, ``coincident`` or ``unresolved``")
    reason = property(lambda self: self._data["reason"] or "", doc="why it is unresolved or undetermined")
    error = property(lambda self: _number(self._data["error"]), doc="of the continuation parameter")
    bracket = property(lambda self: tuple(self._data["bracket"]), doc="the interval it was found in")

    @property
    def after(self) -> int:
        """The point of the branch behind which it lies."""
        return self._data.get("after", 0)

    @property
    def parameters(self) -> dict[str, float]:
        return {name: _number(value) for name, value in self._data["parameters"].items()}

    @property
    def state(self) -> np.ndarray:
        return np.array([_number(x) for x in self._data["state"]])

    @property
    def period(self) -> float | None:
        """None for equilibria."""
        return self._data["period"]

    @property
    def eigenvalues(self) -> np.ndarray:
        return _complex(self._data.get("eigenvalues"))

    @property
    def multipliers(self) -> np.ndarray:
        return _complex(self._data.get("multipliers"))

    @property
    def log_multipliers(self) -> np.ndarray:
        return _complex(self._data.get("log_multipliers"))

    @property
    def coefficients(self) -> dict[str, float]:
        return {name: _number(value) for name, value in self._data["coefficients"].items()}

    @property
    def coefficient_errors(self) -> dict[str, float]:
        return {name: _number(value) for name, value in self._data["coefficient_errors"].items()}

    def quantity(self, name: str, pick: Callable = np.max) -> float:
        """A coordinate in a picture: a parameter, the period, the norm, or a variable, of a cycle ``pick`` of
        its extremes. KeyError where there is none of that name."""
        if name in self._data["parameters"]:
            return self.parameters[name]
        if name in ("period", "norm"):
            return _number(self._data[name])
        which, _, variable = name.rpartition(" ")
        index = self._system_states().get(variable or name)
        if index is None:
            raise KeyError(name)
        if self.period is None:
            return float(self.state[index])
        low, high = (_number(self._data[key][index]) for key in ("min", "max"))
        return {"min": low, "max": high}.get(which, float(pick([low, high])))

    def _system_states(self) -> dict[str, int]:
        return {name: i for i, name in enumerate(self._system.states)}

    def _engine(self) -> "_core.Special":
        if self._native is None:
            self._native = self._branch._found_again(self)
        return self._native

    def point(self) -> Point:
        return Point(self._engine().point(), self._system)

    def switch(self, **options) -> list["Branch"]:
        """The branches that leave here: other branches at BP and BPC, cycles at H, doubled ones at PD."""
        native = self._engine()
        with self._system._running(options) as o:
            return [Branch(branch, self._system) for branch in native.switch_branch(o)]

    def follow(self, *parameters: str | Window, **options) -> "Branch":
        """One parameter, ``follow("I", (0, 2))``: the cycles of H, the doubled ones of PD, else the branch
        through the point. Two, ``follow("I", "eps", I=(0, 2), eps=(0.01, 1))``: the curve of such points."""
        match parameters:
            case (str() as name, window) if not isinstance(window, str):
                window = window_of(window)
                run = lambda native, o: native.follow(name, window, o)  # noqa: E731
            case (str() as name,):
                window = self._window(name, options)
                run = lambda native, o: native.follow(name, window, o)  # noqa: E731
            case (str(), str()):
                windows = [self._window(name, options) for name in parameters]
                run = lambda native, o: native.curve(parameters, *windows, o)  # noqa: E731
            case _:
                raise Error("follow takes a parameter and its window, or two parameters and a window for each by name: "
                            'follow("I", "eps", I=(0, 2), eps=(0.01, 1))')
        native = self._engine()
        with self._system._running(options) as o:
            return Branch(run(native, o), self._system)

    def _window(self, name: str, options: dict) -> Window:
        if name not in options:
            raise Error(f"no window for {name}; give {name}=(lo, hi)")
        return window_of(options.pop(name))

    def to_dict(self) -> dict:
        return dict(self._data)

    def __repr__(self) -> str:
        values = ", ".join(f"{name} = {value:.10g}" for name, value in self.parameters.items()
                           if name in self._branch.vary)
        parts = [self.id, values, self.subtype, "" if self.status == "located" else f"{self.status}: {self.reason}"]
        if self.period is not None:
            parts.append(f"T = {self.period:.10g}")
        parts += [f"{name} = {value:.6g}" for name, value in self.coefficients.items()]
        return "  ".join(part for part in parts if part)


class Branch:
    """A curve of solutions: ``len(b)`` points, columns by name, special points by id.

    >>> b["I"], b["v"], b["stable"]     # arrays
    >>> b["H1"]                         # a special point
    >>> b.stop                          # why it ends, at both ends
    """

    def __init__(self, native: "_core.Branch | None", system, data: dict | None = None,
                 orbits: Mapping[int, dict] | None = None):
        self._native, self._system, self._loaded, self._orbits = native, system, data, orbits or {}

    @cached_property
    def _data(self) -> dict:
        return self._loaded if self._loaded is not None else json.loads(self._native.json(orbits_inline=False))

    @cached_property
    def _arrays(self) -> dict[str, np.ndarray]:
        return {name: np.array(values, float) for name, values in self._data["columns"].items()}

    @property
    def id(self) -> str:
        return self._data["id"]

    @property
    def kind(self) -> str:
        """``equilibria``, ``cycles``, ``LP curve``, ..."""
        return self._data["kind"]

    @property
    def vary(self) -> list[str]:
        return self._data["vary"]

    @property
    def parent(self) -> str:
        """The special point it starts from; empty: none."""
        return self._data["parent"] or ""

    @property
    def stop(self) -> tuple[str, str]:
        return tuple(self._data["stop"])

    @property
    def stop_detail(self) -> tuple[str, str]:
        return tuple(self._data["stop_detail"])

    @property
    def columns(self) -> list[str]:
        return list(self._data["columns"])

    @cached_property
    def specials(self) -> list[Special]:
        natives = self._native.specials if self._native is not None else [None] * len(self._data["specials"])
        return [Special(data, native, self) for data, native in zip(self._data["specials"], natives)]

    def __len__(self) -> int:
        return len(self._native) if self._native is not None else len(next(iter(self._arrays.values()), ()))

    def __getitem__(self, name: str):
        """A column, or a special point by its id."""
        if name in self._data["columns"]:
            return self._native.column(name) if self._native is not None else self._arrays[name]
        for special in self.specials:
            if special.id == name:
                return special
        raise Error(f"no column or special point '{name}'; columns are {', '.join(self.columns)}; special points "
                    f"{', '.join(s.id for s in self.specials) or 'none'}")

    def eigenvalues(self, point: int) -> np.ndarray:
        """The spectrum at one point; of cycles the logarithms of the multipliers."""
        return _complex(self._data["spectrum"][point])

    def orbit(self, point: int) -> Point:
        """One point of the branch, with its orbit. Points of a branch from a file are computed again from what the
        file has."""
        index = range(len(self))[point]
        if self._native is not None:
            return Point(self._native.point(index), self._system)
        parameters = self._data["parameters"] | {name: float(self[name][index]) for name in self.vary}
        return self._solution(index, parameters, [self[name][index] for name in self._system.states])

    def _solution(self, index: int, parameters: dict, state) -> Point:
        """The solution near point ``index`` of a branch that was loaded."""
        system = self._live_system().with_(**parameters)
        if self.kind == "equilibria":
            return system.equilibrium(state)
        if not plotting.of_cycles(self) or "forced" in self.kind or not self._orbits:
            raise Error(f"{self.id}, {self.kind}, was loaded from a file, which is not enough to compute a point again")
        nearest = min(self._orbits, key=lambda number: abs(number - index))
        orbit = self._orbits[nearest]
        return system.cycle(orbit["x"].T, times=orbit["tau"] * orbit["T"])

    def _live_system(self):
        if not hasattr(self._system, "with_"):
            raise Error(f"{self.id} was loaded from a file without equations: load it with system= to go on from it")
        return self._system

    def _found_again(self, special: Special) -> "_core.Special":
        """The special point of a branch that was loaded, located once more: from a point near it, or from one
        further away where the branch is so steep that none at a fixed parameter is found."""
        self._live_system()
        if len(self.vary) != 1:
            raise Error(f"{special.id} on a curve that was loaded from a file cannot be followed")
        parameter, value, after = self.vary[0], special.parameters[self.vary[0]], special.after
        values = self[parameter]
        tried = [after + step for k in range(9) for step in (-2**k, 2**k) if 0 <= after + step < len(self)]
        for index in tried or [0]:
            point = self._solution(index, special.parameters | {parameter: float(values[index])},
                                   [self[name][index] for name in self._system.states])
            if not point:
                continue
            reach = max(2 * abs(values[index] - value), 1e-3 * (abs(value) or 1.0))
            branch = point.follow(parameter, (value - reach, value + reach), detect=[special.type])
            found = [s for s in branch.specials if s.type == special.type]
            if found:
                return min(found, key=lambda s: abs(s.parameters[parameter] - value))._native
        raise Error(f"{special.id} was loaded from a file, and was not found again")

    point = orbit

    def lines(self, x: str, y: str) -> list[plotting.Line]:
        """The lines of a picture as arrays."""
        return plotting.lines([self], x, y)

    def plot(self, x: str, y: str, ax=None, labels: bool = True):
        """This branch alone, ``y`` over ``x``. Returns the axes."""
        return plotting.diagram([self], x, y, ax, labels)

    def csv(self) -> str:
        if self._native is not None:
            return self._native.csv()
        rows = zip(*(self[name] for name in self.columns))
        return "\n".join([",".join(self.columns), *(",".join(map(repr, map(float, row))) for row in rows)]) + "\n"

    def to_dict(self) -> dict:
        return self._data

    def __repr__(self) -> str:
        head = f"{self.id or 'branch'}: {len(self)} {self.kind} in {', '.join(self.vary)}, from {self.stop[0]} to {self.stop[1]}"
        return "\n".join([head, *("  " + repr(special) for special in self.specials)])


_COLUMNS = ("branch", "label", "parameters", "period", "verdict", "coefficients")


class Diagram:
    """Branches together. ``d["H1"]`` is a special point, ``d.branch(1)`` the first branch.

    >>> d = s.diagram("I", (0, 2))
    >>> print(d); d.plot("I", "v"); d.save("fhn")
    """

    def __init__(self, native: "_core.Diagram | None", system, branches: list[Branch] | None = None,
                 log: list[str] | None = None):
        self._system = system
        self._native = native if native is not None else _core.Diagram()
        self.branches: list[Branch] = branches if branches is not None else self._read()
        self.log: list[str] = log if log is not None else list(self._native.log)

    def _read(self) -> list[Branch]:
        return [Branch(branch, self._system) for branch in self._native.branches]

    @classmethod
    def of(cls, system, *branches: Branch) -> "Diagram":
        """A diagram made of branches: ``tx.Diagram.of(s, b, *h.switch())``."""
        made = cls(None, system)
        made.add(list(branches))
        return made

    def add(self, branch: Branch | list[Branch]) -> None:
        """Takes branches in; special points whose names are taken get others."""
        for one in branch if isinstance(branch, list) else [branch]:
            if one._native is None or any(b._native is None for b in self.branches):
                raise Error(f"{one.id}: branches from files and computed ones cannot be in one diagram")
            self._native.add(one._native)
            self.branches.append(Branch(self._native.branches[-1], self._system))

    def branch(self, number: int) -> Branch:
        """Branch ``number``, counted from 1 as in the table."""
        if not 1 <= number <= len(self.branches):
            raise Error(f"no branch {number}; the diagram has {len(self.branches)}")
        return self.branches[number - 1]

    @property
    def specials(self) -> list[Special]:
        return [special for branch in self.branches for special in branch.specials]

    def __getitem__(self, name: str) -> Special:
        for special in self.specials:
            if special.id == name:
                return special
        raise Error(f"no special point '{name}'; the diagram has {', '.join(s.id for s in self.specials) or 'none'}")

    def __len__(self) -> int:
        return len(self.branches)

    def __iter__(self) -> Iterator[Branch]:
        return iter(self.branches)

    def lines(self, x: str, y: str) -> list[plotting.Line]:
        """The lines of a picture as arrays."""
        return plotting.lines(self.branches, x, y)

    def plot(self, x: str, y: str, ax=None, labels: bool = True):
        """``y`` over ``x``; of cycles minima and maxima. Two parameters make a map. Returns the axes."""
        vary = {x, y} if y in self._system.parameters else {x}
        shown = [b for b in self.branches if set(b.vary) == vary] or self.branches
        return plotting.diagram(shown, x, y, ax, labels)

    def save(self, path) -> None:
        """Writes ``path.json`` and, where there are orbits, ``path.npz``."""
        storage.save(self, path)

    def to_dict(self) -> dict:
        return storage.to_dict(self)

    def _rows(self) -> list[tuple[str, ...]]:
        rows = []
        for branch in self.branches:
            rows.append((branch.id, "", f"{branch.kind} in {', '.join(branch.vary)}", "",
                         f"{branch.stop[0]} … {branch.stop[1]}", f"{len(branch)} points"))
            for s in branch.specials:
                verdict = s.subtype if s.status == "located" else f"{s.status}: {s.reason}"
                rows.append(("", s.id, ", ".join(f"{p} = {s.parameters[p]:.8g}" for p in branch.vary),
                             "" if s.period is None else f"{s.period:.8g}", verdict,
                             ", ".join(f"{k} = {v:.5g}" for k, v in s.coefficients.items())))
        return rows

    def __repr__(self) -> str:
        rows = [_COLUMNS, *self._rows()]
        widths = [max(len(row[k]) for row in rows) for k in range(len(_COLUMNS))]
        return "\n".join("  ".join(cell.ljust(w) for cell, w in zip(row, widths)).rstrip() for row in rows)

    def _repr_html_(self) -> str:
        from html import escape
        head = "".join(f"<th>{name}</th>" for name in _COLUMNS)
        body = "".join("<tr>" + "".join(f"<td>{escape(cell)}</td>" for cell in row) + "</tr>" for row in self._rows())
        return f"<table><thead><tr>{head}</tr></thead><tbody>{body}</tbody></table>"
