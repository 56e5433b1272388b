"""
Pendulum with a torque: rest, whirl and a fold
==============================================

A damped pendulum under a constant torque rests at the angle where torque and gravity balance, up to
the torque 1, where the two equilibria meet and vanish.
"""
import matplotlib.pyplot as plt
import numpy as np
import tx

s = tx.System("x'' = -d*x' - sin(x) + T", d=0.3, T=0.0)
b = s.equilibrium([0, 0]).follow("T", (0, 1.5))
print(b)
b.plot("T", "x")

ax = plt.figure(layout="constrained").add_subplot()
for speed in np.linspace(0.5, 3.5, 7):
    s.with_(T=0.5).integrate([-np.pi, speed], 40, sample=0.05).plot("x", "x'", ax=ax)

fold = b["LP1"]
assert abs(fold.parameters["T"] - 1) < 1e-8 and abs(fold.state[0] - np.pi / 2) < 1e-4
assert abs(abs(fold.coefficients["a"]) - 1 / (2 * 0.3)) < 1e-6  # 1/(2 d)
