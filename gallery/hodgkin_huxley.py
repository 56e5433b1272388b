"""
Hodgkin-Huxley: the squid axon
==============================

The equations of 1952 with the current I: rest, repetitive firing between two Hopf points, and rest
again.
"""
import tx

s = tx.System("""am = (25 - v)/10/(exp((25 - v)/10) - 1); bm = 4*exp(-v/18)
                 ah = 0.07*exp(-v/20);                    bh = 1/(exp((30 - v)/10) + 1)
                 an = (10 - v)/100/(exp((10 - v)/10) - 1); bn = 0.125*exp(-v/80)
                 v' = I - 120*m^3*h*(v - 115) - 36*n^4*(v + 12) - 0.3*(v - 10.599)
                 m' = am*(1 - m) - bm*m
                 h' = ah*(1 - h) - bh*h
                 n' = an*(1 - n) - bn*n""", I=0.0)
d = s.diagram("I", (0, 200), start=[0, 0.05, 0.6, 0.32], detect=["H", "LP", "LPC"])
print(d)
d.plot("I", "v")

hopf = [p for p in d.branch(1).specials if p.type == "H"]
assert [p.subtype for p in hopf] == ["subcritical", "supercritical"]
assert 9.7 < hopf[0].parameters["I"] < 9.9 and 154 < hopf[1].parameters["I"] < 155
