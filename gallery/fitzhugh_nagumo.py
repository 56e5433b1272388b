"""
FitzHugh-Nagumo: where a neuron fires
=====================================

A current I makes the resting state unstable at two Hopf points. Both are subcritical: the small
unstable cycles turn round at folds, and firing sets in with large amplitude.
"""
import tx

s = tx.System("v' = v - v**3/3 - w + I; w' = eps*(v + 0.7 - 0.8*w)", I=0.0, eps=0.08)
d = s.diagram("I", (0, 2))
print(d)

d.plot("I", "v")
d["H1"].follow("I", "eps", I=(0, 2), eps=(0.01, 1.2)).plot("I", "eps")

v = -(1 - 0.8 * 0.08) ** 0.5  # where the trace of the Jacobian is zero
assert abs(d["H1"].parameters["I"] - (v**3 / 3 - v + (v + 0.7) / 0.8)) < 1e-8
assert d["H1"].subtype == d["H2"].subtype == "subcritical"
