"""
Lorenz: pitchfork, Hopf, chaos
==============================

Convection starts at rho = 1 in a pitchfork; its two branches lose stability at the subcritical Hopf
points rho = 470/19; beyond, trajectories are chaotic. The cycles born there end in homoclinic orbits
at rho = 13.926.
"""
import tx

s = tx.System("x' = sigma*(y - x); y' = x*(rho - z) - y; z' = x*y - beta*z", sigma=10, rho=28, beta=8 / 3)
d = s.diagram("rho", (0, 30), start=[0, 0, 0])
print(d)

d.plot("rho", "x")
s.integrate([1, 1, 20], 60, sample=0.01).plot("x", "z")

exponents = s.lyapunov([1, 1, 20], time=2000).exponents
assert abs(d["BP1"].parameters["rho"] - 1) < 1e-8 and d["BP1"].subtype == "pitchfork"
assert abs(d["H1"].parameters["rho"] - 470 / 19) < 1e-6 and d["H1"].subtype == "subcritical"
assert all(b.stop[1] == "homoclinic_suspected" and abs(b["rho"][-1] - 13.926557) < 1e-3 for b in list(d)[3:5])
assert abs(exponents.sum() + 41 / 3) < 1e-3 and abs(exponents[0] - 0.9056) < 0.01
