"""
Lorenz: pitchfork, Hopf, chaos
==============================

Convection starts at rho = 1 in a pitchfork; its two branches lose stability at the subcritical Hopf
points rho = 470/19; beyond, trajectories are chaotic.
"""
import matplotlib.pyplot as plt
import tx

s = tx.System("x' = sigma*(y - x); y' = x*(rho - z) - y; z' = x*y - beta*z", sigma=10, rho=28, beta=8 / 3)
d = s.diagram("rho", (0, 30), start=[0, 0, 0], max_period=8)
print(d)

fig, (left, right) = plt.subplots(1, 2, figsize=(11, 4.2), layout="constrained")
d.plot("rho", "x", ax=left)
s.integrate([1, 1, 20], 60, sample=0.01).plot("x", "z", ax=right)

exponents = s.lyapunov([1, 1, 20], time=1000)
assert abs(d["BP1"].parameters["rho"] - 1) < 1e-8 and d["BP1"].subtype == "pitchfork"
assert abs(d["H1"].parameters["rho"] - 470 / 19) < 1e-6 and d["H1"].subtype == "subcritical"
assert abs(exponents.exponents.sum() + 41 / 3) < 1e-3 and 0.85 < exponents.exponents[0] < 0.96
