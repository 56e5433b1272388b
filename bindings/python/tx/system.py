"""Systems y' = f(t, y; c): made of text, of a Python function, of machine code or of C, and what can be asked of
them."""

from __future__ import annotations

import ctypes
import warnings
from collections.abc import Callable, Iterator, Mapping, Sequence
from contextlib import contextmanager

import numpy as np

from . import _core, compiled, equations, plotting
from .progress import watched
from .results import Diagram, Error, Point, Window, window_of


class Trajectory:
    """Points of a solution over time: ``t.times``, ``t["v"]``, ``t.states`` of shape (n, points), ``t.at(3.5)``.

    >>> t = s.integrate([1, 0], 100)
    >>> t.plot(); t.plot("v", "w")
    """

    def __init__(self, native: "_core.Trajectory", states: Sequence[str], on_section: bool = False):
        self._native, self._names, self._on_section = native, list(states), on_section

    def __bool__(self) -> bool:
        return bool(self._native)

    def __len__(self) -> int:
        return len(self._native)

    status = property(lambda self: self._native.status, doc="``complete`` or ``stopped``; ``reason`` says why")
    reason = property(lambda self: self._native.reason)
    steps = property(lambda self: self._native.steps, doc="that the integration took")
    times = property(lambda self: self._native.times)

    def __getitem__(self, variable: str) -> np.ndarray:
        return self._native.column(variable)

    @property
    def states(self) -> np.ndarray:
        """Of shape (n, points)."""
        return np.stack([self[name] for name in self._names])

    @property
    def last(self) -> np.ndarray:
        """The last point."""
        if not len(self):
            raise Error("the trajectory has no points" + (f": {self.reason}" if self.reason else ""))
        return np.array([self[name][-1] for name in self._names])

    def at(self, t: float | np.ndarray) -> np.ndarray:
        """The state at a time that was integrated over; of shape (n, times) for an array of times."""
        return self._native.at(t)

    def plot(self, x: str | None = None, y: str | None = None, ax=None):
        """All variables over time, or variable ``y`` over variable ``x``. Returns the axes."""
        if x is None:
            return plotting.orbit_in_time(self.times, self.states, self._names, ax)
        y = y or next(name for name in self._names if name != x)
        draw = plotting.section if self._on_section else plotting.phase
        return draw(self[x], self[y], (x, y), ax)

    def __repr__(self) -> str:
        span = f", t from {self.times[0]:g} to {self.times[-1]:g}" if len(self) else ""
        return f"Trajectory({len(self)} points{span}, {self.status}{': ' + self.reason if self.reason else ''})"


class Lyapunov:
    """Lyapunov exponents: ``l.exponents``, the largest first, and ``l.spread``, how far those of both halves of
    the time are apart."""

    def __init__(self, native: "_core.Lyapunov"):
        for name in ("exponents", "spread", "time", "steps", "status", "reason", "state"):
            setattr(self, name, getattr(native, name))

    @property
    def dimension(self) -> float:
        """The Kaplan-Yorke dimension: k exponents have a sum that is not negative, and the fraction is that sum over
        the size of the next exponent."""
        sums = np.cumsum(self.exponents)
        k = int(np.sum(sums >= 0)) if sums[0] >= 0 else 0
        if k == 0:
            return 0.0
        return float(k) if k == len(sums) else k + sums[k - 1] / abs(self.exponents[k])

    def __bool__(self) -> bool:
        return self.status == "complete"

    def __repr__(self) -> str:
        pairs = ", ".join(f"{e:.5g} ± {s:.1g}" for e, s in zip(self.exponents, self.spread))
        return f"Lyapunov({pairs}{'' if self else '; ' + self.reason})"


class Equilibria(list):
    """The equilibria that a search found, a list of points; ``starts`` and ``fruitless`` say how hard it looked."""

    def __init__(self, native: "_core.Equilibria", system):
        super().__init__(Point(point, system) for point in native.points)
        self.starts, self.fruitless = native.starts, native.fruitless

    def __repr__(self) -> str:
        found = "\n".join(f"  {point!r}" for point in self)
        return f"{len(self)} equilibria from {self.starts} starts, the last {self.fruitless} without a new one\n{found}"


class _Runs:
    """What systems and forced systems share: names, values, options, diagrams."""

    _native: object
    states: list[str]
    parameters: dict[str, float]

    @contextmanager
    def _running(self, options: Mapping) -> Iterator[dict]:
        """Options as the engine takes them, while Ctrl-C and progress are looked after."""
        given = {name: value for name, value in options.items() if value is not None and name != "progress"}
        if "start" in given:
            given["start"] = self._state(given["start"])
        if "at" in given:
            given["at"] = {name: np.atleast_1d(values).tolist() for name, values in given["at"].items()}
        for name in ("when", "stop_when"):
            given |= {name: {what: self._with_points(f) for what, f in given.get(name, {}).items()}}
        with watched(options.get("progress")) as goes_on:
            yield given | {"progress": lambda points, point: goes_on(points, Point(point, self))}

    def _with_points(self, function: Callable) -> Callable:
        return lambda native: function(Point(native, self))

    def _state(self, values) -> list[float]:
        """A state from numbers in order or from names."""
        if isinstance(values, Mapping):
            unknown = [name for name in values if name not in self.states]
            missing = [name for name in self.states if name not in values]
            if unknown or missing:
                raise Error(f"a state has {', '.join(self.states)}; given are {', '.join(values) or 'none'}")
            values = [values[name] for name in self.states]
        try:
            return [float(value) for value in values]
        except TypeError:
            raise Error(f"a state is {len(self.states)} numbers ({', '.join(self.states)}), not {values!r}") from None

    def _changed(self, values: Mapping[str, float]):
        for name in values:
            if name not in self.parameters:
                raise Error(f"no parameter '{name}'; the system has {', '.join(self.parameters) or 'none'}")
        return {name: float(value) for name, value in values.items()}

    def diagram(self, parameter: str, window: Window, **options) -> Diagram:
        """Solutions over a parameter and all that branches from them.

        >>> d = s.diagram("I", (0, 2))
        >>> d = s.diagram("I", (0, 2), start=[-1.2, -0.6], max_points=500, depth=2)
        """
        self._autonomous()
        with self._running(options) as o:
            return Diagram(self._native.diagram(str(parameter), window_of(window), o), self)

    def _autonomous(self) -> None:
        """Says so where a search for equilibria or free cycles would take t for 0."""

    def _values(self) -> str:
        return ", ".join(f"{name}={value:g}" for name, value in self.parameters.items())


class System(_Runs):
    """A system y' = f(t, y; c).

    >>> s = tx.System("v' = v - v**3/3 - w + I; w' = eps*(v + 0.7 - 0.8*w)", I=0.0, eps=0.08)
    >>> s = tx.System("x'' = -d*x' - x - x^3 + F*cos(w*t)", d=0.15, F=0.6, w=2)
    >>> s = tx.System(f, states=["x", "y"], a=1.0)          # f(t, x, c) on arrays of points
    >>> s = tx.System(f.address, states=["x", "y"], a=1.0)  # numba.cfunc, ctypes or a number
    >>> s = tx.System('''#include <math.h>
    ... void tx_f(double t, const double* x, const double* c, double* out, void* context)
    ... { out[0] = c[0] - x[0]*x[0]; }''', states=["x"], a=1.0)

    In text, every name that has no equation is a parameter, ``name = ...`` a sub-expression, ``t`` the time, ``pi``
    the number; functions are sin, cos, tan, asin, acos, atan, atan2, sinh, cosh, tanh, exp, log (ln), sqrt, abs, sign,
    heaviside, min, max, pow. A
    Python function gets t of shape (K,), x of shape (n, K) and c of shape (parameters,) and returns (n, K); its
    ``jacobian`` (n, n, K). Machine code has the signature (double t, const double* x, const double* c, double*
    out, void* context), Jacobians by rows. ``parameters`` gives values whose names are no words of Python.
    A system does not change; threads may share it.
    """

    def __init__(self, f: str | int | Callable, states: Sequence[str] | None = None,
                 parameters: Mapping[str, float] | None = None, jacobian: Callable | int | None = None,
                 parameter_jacobian: int | None = None, **values: float):
        given = {**(parameters or {}), **values}
        self._arguments = (f, states, jacobian, parameter_jacobian)
        self.text, self._uses_time = "", False
        if isinstance(f, str) and not _is_c(f):
            self._from_text(f, given)
        elif states is None:
            raise Error('states=["x", ...] is needed, the names of the variables')
        else:
            self.states, self.parameters = list(states), _numbers(given)
            self._native = self._from_code(f, jacobian, parameter_jacobian)

    def _from_text(self, text: str, given: Mapping[str, float]) -> None:
        e = equations.parse(text)
        missing = [name for name in e.parameters if name not in given]
        unknown = [name for name in given if name not in e.parameters]
        if missing:
            raise Error(f"no value for {', '.join(missing)}: give {', '.join(name + '=...' for name in missing)}")
        if unknown:
            raise Error(f"no parameter '{unknown[0]}' in the equations, which have {', '.join(e.parameters) or 'none'}")
        self.text, self.states, self._uses_time = text, e.states, e.uses_time
        self.parameters = _numbers({name: given[name] for name in e.parameters})
        if compiled.compiler() is None:
            warnings.warn("no C compiler was found: the equations run as NumPy code, some ten times slower",
                          RuntimeWarning, stacklevel=3)
            f, jacobian = compiled.numpy_functions(e)
            self._native = _core.System.from_callable(self.states, self._pairs(), f, jacobian, text)
        else:
            self._native = self._at(compiled.from_source(compiled.c_source(e)))

    def _from_code(self, f, jacobian, parameter_jacobian) -> "_core.System":
        if isinstance(f, str):
            return self._at(compiled.from_source(f))
        addresses = [_address(g) for g in (f, jacobian, parameter_jacobian)]
        if addresses[0]:
            return self._at(compiled.Addresses(*addresses, keep=(f, jacobian, parameter_jacobian)))
        if not callable(f):
            raise Error(f"a system is made of text, a function, an address or C code, not of {type(f).__name__}")
        return _core.System.from_callable(self.states, self._pairs(), f, jacobian, "")

    def _at(self, a: compiled.Addresses) -> "_core.System":
        return _core.System.from_addresses(self.states, self._pairs(), [a.f, a.jacobian, a.parameter_jacobian, a.taylor],
                                           a.keep, self.text)

    def _autonomous(self) -> None:
        if self._uses_time:
            warnings.warn("the equations depend on t, which is 0 here; forced(frequency=...) makes a system of them "
                          "whose cycles follow the forcing", RuntimeWarning, stacklevel=3)

    def _pairs(self) -> list[tuple[str, float]]:
        return list(self.parameters.items())

    def __reduce__(self):
        return _rebuild, (self._arguments, self.parameters)

    def with_(self, **values: float) -> "System":
        """The same system with other values of parameters: ``s.with_(I=0.5)``."""
        changed = self._changed(values)
        made = object.__new__(System)
        made.__dict__.update(self.__dict__, parameters=self.parameters | changed,
                             _native=self._native.with_values(list(changed.items())))
        return made

    def rhs(self, state, t: float = 0.0) -> np.ndarray:
        """f at a state."""
        return self._native.rhs(self._state(state), t)

    def jacobian(self, state, t: float = 0.0) -> np.ndarray:
        """The derivatives of f by the variables, row i those of f_i."""
        return self._native.jacobian(self._state(state), t)

    def integrate(self, state, t: float, **options) -> Trajectory:
        """The trajectory from a state to the time t. Options: t0, rel_tol, abs_tol, h_max, max_steps, sample (keep
        points so far apart), dense, stiff (implicit steps).

        >>> t = s.integrate([1, 0], 100, sample=0.1)
        """
        return Trajectory(self._native.integrate(self._state(state), float(t), options), self.states)

    def section(self, state, crossings: int = 1, function: Callable | None = None, direction: int = 1,
                max_time: float = 1e4, options: Mapping | None = None, **where: float) -> Trajectory:
        """Crossings of the surface where a variable has a value, or where ``function(t, x)`` is zero, rising (1),
        falling (-1) or both (0). Options are those of integrate.

        >>> s.section([1, 1, 20], crossings=500, z=27).plot("x", "y")
        """
        if (function is None) == (not where) or len(where) > 1:
            raise Error("a section is one variable and its value, z=27, or function=")
        variable, value = next(iter(where.items()), ("", 0.0))
        surface = _core.Section(variable, float(value), function, direction, float(max_time))
        return Trajectory(self._native.section(self._state(state), surface, crossings, dict(options or {})),
                          self.states, on_section=True)

    def lyapunov(self, state, **options) -> Lyapunov:
        """The Lyapunov exponents of the trajectory from a state. Options: count, transient, time, method
        ("variational" or "nearby"), interval, perturbation, integrate (a dict of options of integrate).

        >>> s.lyapunov([1, 1, 20], time=2000).exponents
        """
        return Lyapunov(self._native.lyapunov(self._state(state), options))

    def equilibrium(self, guess, **options) -> Point:
        """The equilibrium that Newton's method finds from a guess; falsy where it finds none."""
        self._autonomous()
        with self._running(options) as o:
            return Point(self._native.equilibrium(self._state(guess), o), self)

    def equilibria(self, box: Mapping[str, Window] | Sequence[Window], **options) -> Equilibria:
        """All equilibria that searches in a box find: ``s.equilibria({"v": (-3, 3), "w": (-3, 3)})``."""
        if isinstance(box, Mapping):
            lacking = [name for name in self.states if name not in box]
            if lacking:
                raise Error(f"the box has no interval for {', '.join(lacking)}")
            box = [box[name] for name in self.states]
        self._autonomous()
        with self._running(options) as o:
            return Equilibria(self._native.equilibria([window_of(interval) for interval in box], o), self)

    def cycle(self, state, period: float | None = None, times=None, **options) -> Point:
        """The stable cycle that the trajectory from a state comes to; with a guess of the period, the cycle near
        it, stable or not; with ``times`` of one period, the cycle near a table of states, of shape (n, times).

        >>> s.cycle([1, 0]); s.cycle([1, 0], 12.5); s.cycle(measured, times=t)
        """
        self._autonomous()
        with self._running(options) as o:
            if times is not None:
                table = np.atleast_2d(np.asarray(state, float))
                if table.shape != (len(self.states), len(times)):
                    raise Error(f"a table of states has shape ({len(self.states)}, {len(times)}), not {table.shape}")
                return Point(self._native.cycle_of_table(list(map(float, times)), table.T.tolist(), o), self)
            if period is not None:
                return Point(self._native.cycle_of_period(self._state(state), float(period), o), self)
            return Point(self._native.cycle(self._state(state), o), self)

    def forced(self, frequency: str | None = None, period: str | None = None, fixed: float | None = None,
               periods: int = 1, t0: float = 0.0) -> "Forced":
        """The system as one whose right-hand side is periodic in t: ``frequency`` names the parameter that is the
        angular frequency, ``period`` the one that is the period, ``fixed`` is the period itself. Cycles close after
        so many ``periods`` and begin at the time t0.

        >>> f = s.forced(frequency="omega")
        >>> f.cycle([0, 0]); f.diagram("omega", (0.5, 3))
        """
        given = [x for x in (frequency, period, fixed) if x is not None]
        if len(given) != 1:
            raise Error("a forced system has one of frequency=, period= and fixed=")
        native = self._native.forced(frequency or "", period or "", float(fixed or 0), periods, t0)
        return Forced(native, self)

    def __repr__(self) -> str:
        body = self.text.strip() if self.text else f"{', '.join(self.states)}"
        return f"System({body!r}, {self._values()})" if self._values() else f"System({body!r})"


class Forced(_Runs):
    """A system whose right-hand side is periodic in t, from ``System.forced``; its cycles keep their phase."""

    def __init__(self, native: "_core.ForcedSystem", system: System):
        self._native, self.system = native, system
        self.states, self.parameters, self.text = system.states, system.parameters, system.text

    @property
    def period(self) -> float:
        """The time after which a cycle closes, at the present parameters."""
        return self._native.period

    def with_(self, **values: float) -> "Forced":
        """The same system with other values of parameters."""
        changed = self._changed(values)
        return Forced(self._native.with_values(list(changed.items())), self.system.with_(**changed))

    def cycle(self, state, **options) -> Point:
        """The cycle near the trajectory from a state at the time t0 of the forcing."""
        with self._running(options) as o:
            return Point(self._native.cycle(self._state(state), o), self)

    def __repr__(self) -> str:
        return f"Forced(T={self.period:g}, {self.system!r})"


def _rebuild(arguments, parameters) -> System:
    f, states, jacobian, parameter_jacobian = arguments
    return System(f, states, parameters, jacobian, parameter_jacobian)


def _is_c(text: str) -> bool:
    return "tx_f" in text and "{" in text


def _numbers(values: Mapping[str, float]) -> dict[str, float]:
    try:
        return {name: float(value) for name, value in values.items()}
    except (TypeError, ValueError):
        wrong = next(name for name, value in values.items() if not np.isscalar(value) or isinstance(value, str))
        raise Error(f"the value of {wrong} is not a number: {values[wrong]!r}") from None


def _address(f) -> int:
    """The address of machine code: of a number, of numba's functions, of ctypes' functions; else 0."""
    if isinstance(f, (int, np.integer)) and not isinstance(f, bool):
        return int(f)
    if isinstance(f, ctypes._CFuncPtr):  # noqa: SLF001: the base of what CFUNCTYPE makes, which has no other name
        return ctypes.cast(f, ctypes.c_void_p).value or 0
    address = getattr(f, "address", 0)
    return int(address) if isinstance(address, (int, np.integer)) else 0
