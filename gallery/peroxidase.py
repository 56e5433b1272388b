"""
Peroxidase chemistry: tori in a stiff system
============================================

Four concentrations whose rates span five orders of magnitude. The cycles born at a Hopf point lose
their stability to tori.
"""
import tx

s = tx.System("""A' = -k1*A*B*X - k3*A*B*Y + k7 - 0.1175*A
                 B' = -k1*A*B*X - k3*A*B*Y + 0.5
                 X' = k1*A*B*X - 2*k2*X^2 + 2*k3*A*B*Y - k4*X + k6
                 Y' = -k3*A*B*Y + 2*k2*X^2 - k5*Y""",
              k1=.1631021, k2=1250, k3=.046875, k4=20, k5=1.104, k6=.001, k7=0.6)
d = s.diagram("k7", (0.5, 1.0), depth=2)
print(d)
d.plot("k7", "A")

found = {kind: [p.parameters["k7"] for p in d.specials if p.type == kind] for kind in ("H", "NS")}
assert min(abs(k - 0.712475372576) for k in found["H"]) < 1e-7
for expected in (0.716433564392, 0.818565885292):
    assert min(abs(k - expected) for k in found["NS"]) < 1e-5
