"""
Lorenz-84: a map of codimension two
===================================

The atmospheric model with a fourth variable. Its fold and Hopf points in F are followed in F and T
to cusps, Bogdanov-Takens, zero-Hopf, double Hopf and generalised Hopf points.
"""
import tx

s = tx.System("""X' = -Y^2 - Z^2 - X/4 + F/4 - 0.987*U^2
                 Y' = X*Y - X*Z - Y + G
                 Z' = X*Y + X*Z - Z
                 U' = -1.04*U + 0.987*U*X + T""", F=3.0, G=0.25, T=0.04)
start = s.equilibrium([2.98, -0.04, 0.06, -0.02])
b = start.follow("F", (1, 3))
d = tx.Diagram.of(s, b)
for special in b.specials:
    if special.type in ("LP", "H"):
        d.add(special.follow("F", "T", F=(1, 3), T=(-0.1, 0.1)))
print(d)
d.plot("F", "T")

hopf = [p.parameters["F"] for p in b.specials if p.type == "H"]
assert min(abs(x - 2.85987541275) for x in hopf) < 1e-7 and min(abs(x - 2.46722212311) for x in hopf) < 1e-7
assert any(p.type == "BT" and abs(p.parameters["F"] - 1.44671670112) < 1e-6 for p in d.specials)
