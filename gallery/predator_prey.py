"""
Predator and prey in seasons
============================

The half-saturation varies over the year. The yearly cycle loses stability in a torus bifurcation and
in period doublings.
"""
import tx

s = tx.System("""r = x*y/(b0*(1 + e*cos(2*pi*t)) + x)
                 x' = 2*pi*(1 - x)*x - 4*pi*r
                 y' = 4*pi*r - 2*pi*y""", b0=0.45, e=0.3)
year = s.forced(fixed=1.0)
b = year.cycle([0.4, 0.45]).follow("b0", (0.2, 0.6))
print(b)
b.plot("b0", "x")

found = {kind: [p.parameters["b0"] for p in b.specials if p.type == kind] for kind in ("NS", "PD")}
assert min(abs(v - 0.33864952160) for v in found["NS"]) < 1e-6
for expected in (0.39146403053, 0.37261543492):
    assert min(abs(v - expected) for v in found["PD"]) < 1e-6
