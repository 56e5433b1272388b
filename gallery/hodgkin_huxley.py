"""
Hodgkin-Huxley: the squid axon
==============================

The equations of 1952 with the current I: rest, repetitive firing between two Hopf points, and rest
again. Below the first one the cycles turn back and forth at folds; firing begins at I = 6.26.
"""
import tx

s = tx.System("""am = (25 - v)/10/(exp((25 - v)/10) - 1); bm = 4*exp(-v/18)
                 ah = 0.07*exp(-v/20);                    bh = 1/(exp((30 - v)/10) + 1)
                 an = (10 - v)/100/(exp((10 - v)/10) - 1); bn = 0.125*exp(-v/80)
                 v' = I - 120*m^3*h*(v - 115) - 36*n^4*(v + 12) - 0.3*(v - 10.599)
                 m' = am*(1 - m) - bm*m
                 h' = ah*(1 - h) - bh*h
                 n' = an*(1 - n) - bn*n""", I=0.0)
d = s.diagram("I", (0, 200), start=[0, 0.05, 0.6, 0.32], depth=1)  # no cycles of doubled period
print(d)
d.plot("I", "v")
d.branch(2).plot("I", "period")

assert [d[hopf].subtype for hopf in ("H1", "H2")] == ["subcritical", "supercritical"]
expected = {"H1": 9.779637995, "H2": 154.526633666, "LPC1": 7.846547, "LPC2": 7.921985, "LPC3": 6.264521}
assert all(abs(d[name].parameters["I"] - I) < 1e-6 for name, I in expected.items())
