"""
Roessler: chaos over a plane of parameters
==========================================

The largest Lyapunov exponent over a and c: zero where cycles attract, positive where chaos does, with bands of
cycles between. `tx.sweep` runs on all cores; with another executor it runs on a cluster.
"""
import numpy as np
import tx

s = tx.System("x' = -y - z; y' = x + a*y; z' = b + z*(x - c)", a=0.2, b=0.2, c=5.7)


def largest(a, c):
    return s.with_(a=a, c=c).lyapunov([1, 1, 0], count=1, time=400, integrate={"rel_tol": 1e-6, "abs_tol": 1e-6}).exponents[0]


grid = tx.sweep(largest, {"a": np.linspace(0.1, 0.36, 80), "c": np.linspace(2, 10, 80)})
print(grid)
grid.plot(cmap="inferno", vmin=0).set_title("largest Lyapunov exponent")

column, c = grid.values[np.abs(grid.axes["a"] - 0.2).argmin()], grid.axes["c"]
assert not grid.failures and abs(grid.values[:, 0]).max() < 0.01  # cycles only
assert column[c < 4.1].max() < 0.01 < 0.05 < column[c > 4.3].mean()  # the cascade at a = 0.2 ends at c = 4.20
