"""
Brusselator: a supercritical Hopf point
=======================================

The reaction starts to oscillate at B = 1 + A^2, softly; the coefficient of the normal form is known
in closed form.
"""
import tx

A = 0.8
s = tx.System("x' = A - (B + 1)*x + x^2*y; y' = B*x - x^2*y", A=A, B=1.0)
d = s.diagram("B", (1, 3), start=[A, 1 / A])
print(d)

d.plot("B", "x")
d["H1"].follow("A", "B", A=(0.2, 1.4), B=(1, 3)).plot("A", "B")

hopf = d["H1"]
assert abs(hopf.parameters["B"] - (1 + A**2)) < 1e-8 and hopf.subtype == "supercritical"
assert abs(hopf.coefficients["l1"] + (2 + A**2) / (2 * A * (1 + 2 * A**2))) < 1e-6
