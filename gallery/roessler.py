"""
Roessler: a cascade of period doublings
=======================================

The cycle doubles again and again as c grows; the largest Lyapunov exponent over a and c shows where
it ends in chaos.
"""
import matplotlib.pyplot as plt
import numpy as np
import tx

s = tx.System("x' = -y - z; y' = x + a*y; z' = b + z*(x - c)", a=0.2, b=0.2, c=2.5)
b = s.cycle([1, 1, 0]).follow("c", (2, 5))
print(b)
grid = tx.sweep(lambda c: s.with_(c=c).lyapunov([1, 1, 0], count=1, time=500).exponents[0], {"c": np.linspace(2, 6, 60)})

fig, (left, right) = plt.subplots(1, 2, figsize=(11, 4.2), layout="constrained")
b.plot("c", "x", ax=left)
grid.plot(ax=right).set_ylabel("largest Lyapunov exponent")

pd = next(p for p in b.specials if p.type == "PD")
assert abs(min(pd.multipliers.real) + 1) < 1e-6
assert 2.7 < pd.parameters["c"] < 2.9 and 0.01 < grid.values[-1] < 0.1
