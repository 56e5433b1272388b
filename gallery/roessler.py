"""
Roessler: a cascade of period doublings
=======================================

The cycle doubles again and again as c grows; the largest Lyapunov exponent shows where chaos begins, and its
windows.
"""
import numpy as np
import tx

s = tx.System("x' = -y - z; y' = x + a*y; z' = b + z*(x - c)", a=0.2, b=0.2, c=2.5)
b = s.cycle([1, 1, 0]).follow("c", (2, 5))
print(b)
b.plot("c", "x")
grid = tx.sweep(lambda c: s.with_(c=c).lyapunov([1, 1, 0], count=1, time=500).exponents[0], {"c": np.linspace(2, 6, 200)})
grid.plot().set_ylabel("largest Lyapunov exponent")

assert abs(b["PD1"].parameters["c"] - 2.8324450279) < 1e-8 and b["PD1"].subtype == "supercritical"
chaos = s.with_(c=5.7).lyapunov([1, 1, 0], count=1, time=1e5,
                                integrate={"rel_tol": 1e-7, "abs_tol": 1e-7, "max_steps": 10**7})
assert abs(chaos.exponents[0] - 0.0714) < 0.002 and abs(grid.values[0]) < 0.01
