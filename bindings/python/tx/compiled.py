"""C code for equations: written by SymPy, compiled by the system's compiler, kept in the user's cache.

A library is named by the hash of its source, the compiler and the flags, is made under another name and
renamed when complete, so that several processes may want the same one at the same time.
"""

from __future__ import annotations

import ctypes
import functools
import hashlib
import os
import shutil
import subprocess
import tempfile
from collections.abc import Callable, Sequence
from dataclasses import dataclass
from pathlib import Path

import numpy as np
import sympy
from sympy.printing.c import C99CodePrinter

from . import series
from .equations import Equations

FLAGS = ("-O2", "-fPIC", "-shared", "-ffp-contract=off", "-fno-math-errno")
_SIGNATURE = "(double t, const double* x, const double* c, double* out, void* context)"


class CompilerError(RuntimeError):
    """The C compiler refused the code; the text is what it said."""


def cache_directory() -> Path:
    """Where compiled systems are kept: $XDG_CACHE_HOME/tx or ~/.cache/tx."""
    base = os.environ.get("XDG_CACHE_HOME") or Path.home() / ".cache"
    return Path(base) / "tx"


def compiler() -> str | None:
    """The C compiler: $CC, or the first of cc, gcc, clang on the path; None where there is none."""
    for name in filter(None, (os.environ.get("CC"), "cc", "gcc", "clang")):
        if path := shutil.which(name):
            return path
    return None


class _Printer(C99CodePrinter):
    """Small integer powers as products, which are faster and as exact."""

    def _print_Pow(self, expr):
        base, exponent = expr.as_base_exp()
        if exponent.is_Integer and 2 <= int(exponent) <= 4:
            factor = self.parenthesize(base, 1000)
            return "(" + "*".join([factor] * int(exponent)) + ")"
        return super()._print_Pow(expr)

    def _print_DiracDelta(self, expr):
        return "0.0"  # the derivative of a step, almost everywhere

    def _print_Heaviside(self, expr):
        x = self._print(expr.args[0])
        return f"({x} > 0 ? 1.0 : {x} < 0 ? 0.0 : 0.5)"


def _c_function(name: str, expressions: Sequence[sympy.Expr], e: Equations) -> str:
    access = {e.symbols[s]: sympy.Symbol(f"x[{i}]", real=True) for i, s in enumerate(e.states)}
    access |= {e.symbols[p]: sympy.Symbol(f"c[{i}]", real=True) for i, p in enumerate(e.parameters)}
    names = sympy.numbered_symbols("v", real=True)
    common, results = sympy.cse([sympy.sympify(x) for x in expressions], symbols=names, order="none")
    printer = _Printer()
    lines = [f"const double {symbol} = {printer.doprint(value.xreplace(access))};" for symbol, value in common]
    lines += [f"out[{i}] = {printer.doprint(value.xreplace(access))};" for i, value in enumerate(results)]
    unused = "(void)t; (void)x; (void)c; (void)context;"
    return f"void {name}{_SIGNATURE} {{\n    {unused}\n    " + "\n    ".join(lines) + "\n}\n"


def derivatives(e: Equations) -> tuple[list[sympy.Expr], list[sympy.Expr]]:
    """df/dx and df/dc, row by row."""
    def rows(names):
        return [sympy.diff(f, e.symbols[name]) for f in e.right for name in names]
    return rows(e.states), rows(e.parameters)


def c_source(e: Equations) -> str:
    """The C functions tx_f, tx_jacobian, tx_parameter_jacobian and tx_taylor of a system."""
    by_state, by_parameter = derivatives(e)
    parts = ["#include <math.h>\n", _c_function("tx_f", e.right, e), _c_function("tx_jacobian", by_state, e)]
    if e.parameters:
        parts.append(_c_function("tx_parameter_jacobian", by_parameter, e))
    parts.append(series.c_function(e))
    return "\n".join(parts)


def build(source: str) -> ctypes.CDLL:
    """Compiles C code, or takes the library from the cache."""
    cc = compiler()
    if cc is None:
        raise CompilerError("no C compiler: neither $CC nor cc, gcc or clang")
    key = hashlib.sha256("\0".join((source, cc, *FLAGS)).encode()).hexdigest()[:32]
    directory = cache_directory()
    library = directory / f"{key}.so"
    if not library.exists():
        directory.mkdir(parents=True, exist_ok=True)
        with tempfile.TemporaryDirectory(dir=directory) as work:
            code, made = Path(work) / "system.c", Path(work) / "system.so"
            code.write_text(source)
            run = subprocess.run([cc, *FLAGS, str(code), "-o", str(made), "-lm"],
                                 capture_output=True, text=True)
            if run.returncode != 0:
                raise CompilerError(run.stderr.strip() or f"{cc} ended with {run.returncode}")
            os.replace(made, library)
    return ctypes.CDLL(str(library))


@dataclass
class Addresses:
    """Functions in machine code; ``keep`` is what must live as long as they are used."""

    f: int
    jacobian: int = 0
    parameter_jacobian: int = 0
    taylor: int = 0
    keep: object = None


def address(library: ctypes.CDLL, name: str) -> int:
    """The address of a function of a library, 0 where it has none of that name."""
    try:
        return ctypes.cast(getattr(library, name), ctypes.c_void_p).value or 0
    except AttributeError:
        return 0


def from_source(source: str) -> Addresses:
    """Functions of C code that defines tx_f and perhaps tx_jacobian, tx_parameter_jacobian and tx_taylor."""
    library = build(source)
    found = Addresses(*(address(library, "tx_" + name) for name in ("f", "jacobian", "parameter_jacobian", "taylor")),
                      keep=library)
    if not found.f:
        raise CompilerError("the C code defines no function tx_f" + _SIGNATURE)
    return found


def numpy_functions(e: Equations) -> tuple[Callable, Callable]:
    """The right-hand side and its Jacobian as NumPy code of blocks of points: (n, K) and (n, n, K)."""
    n = len(e.states)
    x, c = ([e.symbols[s] for s in names] for names in (e.states, e.parameters))
    # SymPy's own rendering of Max and Min cannot mix numbers with arrays
    extremes = {"amax": lambda values, axis: functools.reduce(np.maximum, values),
                "amin": lambda values, axis: functools.reduce(np.minimum, values)}

    def blocks(expressions, shape):
        f = sympy.lambdify((e.time, x, c), expressions, modules=[extremes, "numpy"], cse=True)
        return lambda t, x, c: np.stack(np.broadcast_arrays(*f(t, x, c), x[0])[:-1]).reshape(*shape, -1)

    return blocks(e.right, (n,)), blocks(derivatives(e)[0], (n, n))
