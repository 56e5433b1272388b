"""tx: equilibria, cycles and their bifurcations of dynamical systems y' = f(t, y; c)::

    import tx
    s = tx.System("v' = v - v**3/3 - w + I; w' = eps*(v + 0.7 - 0.8*w)", I=0.0, eps=0.08)
    d = s.diagram("I", (0, 2))       # equilibria, Hopf points, cycles and what branches from them
    print(d)                         # a table
    d.plot("I", "v")                 # a picture

What there is::

    System      made of text, of a Python function, of machine code or of C: equilibrium, equilibria, cycle, forced,
                diagram, integrate, section, lyapunov, with_
    Point       a solution: state, eigenvalues or multipliers, follow("I", (0, 2))
    Branch      a curve of solutions: b["v"] is a column, b["H1"] a special point, b.orbit(40).plot()
    Special     a special point: type, subtype, parameters, coefficients, switch(), follow("I", "eps", ...)
    Diagram     branches together: d["H1"], d.specials, plot, add, save
    load        a diagram from a file
    sweep       a function over a grid of parameters, in parallel

Options of runs, with their defaults::

    start=None (found by integration), direction="both" ("up", "down"), max_points=5000, max_work=4e7, h_max=0.05,
    tol=1e-10, mesh_tol=1e-6, m=4, N_max=400, max_period=0 (1000 first periods), depth=3, detect="all" ("none", ["H", "LP"]),
    verify=False, max_branches=50, max_doublings=2, keep_all=False, norm_bound=1e9, at={"I": [0.5]},
    when={"name": function of a point}, stop_when={...}, progress=None (True, False, a function)

Misuse raises tx.Error. What numerics decide does not: a branch has a reason to stop, a special point a status, a
point that was not found is falsy and has a reason. Ctrl-C ends a run with what there is so far.
"""

from ._core import Error
from .compiled import CompilerError
from .equations import EquationError
from .loading import load
from .results import Branch, Diagram, Point, Special
from .sweep import Sweep, sweep
from .system import Equilibria, Forced, Lyapunov, System, Trajectory

__all__ = ["System", "Forced", "Point", "Branch", "Special", "Diagram", "Trajectory", "Lyapunov", "Equilibria", "load",
           "sweep", "Sweep", "Error", "EquationError", "CompilerError"]

for _name in __all__:  # what programs, messages and the reference call them
    globals()[_name].__module__ = "tx"
