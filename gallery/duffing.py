"""
Duffing: jumps of a forced oscillator
=====================================

The response to forcing bends over: between two folds of cycles there are two stable amplitudes, and
the oscillator jumps from one to the other.
"""
import tx

s = tx.System("x'' = -d*x' - x - x^3 + F*cos(w*t)", d=0.15, F=0.6, w=0.5)
forced = s.forced(frequency="w")
b = forced.cycle([0, 0]).follow("w", (0.5, 3))
print(b)

b.plot("w", "x")
b.orbit(len(b) // 2).plot("x", "x'")

folds = [p.parameters["w"] for p in b.specials if p.type == "LPC"]
for expected in (2.00756062017, 1.48108537222):
    assert min(abs(w - expected) for w in folds) < 1e-6
