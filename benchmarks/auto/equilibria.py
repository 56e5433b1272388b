"""Microseconds of AUTO-07p for each point of the branch of equilibria that branches.cpp follows: its own
"Total Time", without compiling and without Python.

    equilibria.py <work directory>

prints "microseconds points labels". Needs the Debian packages auto-07p, gfortran, python3-numpy.
"""
import io
import os
import re
import shutil
import sys

auto_directory = "/usr/lib/auto-07p"
os.environ.setdefault("AUTO_DIR", auto_directory)
os.environ["OMP_NUM_THREADS"] = "1"
sys.path.insert(0, os.path.join(auto_directory, "python"))
import numpy

numpy.bool = bool  # that AUTO is older than NumPy 1.24
from auto import AUTOclui

work = sys.argv[1]
os.makedirs(work, exist_ok=True)
shutil.copy(os.path.join(os.path.dirname(os.path.abspath(__file__)), "oxidation.f90"), work)
os.chdir(work)


def run():
    shown, sys.stdout = sys.stdout, io.StringIO()
    try:
        branch = AUTOclui.run(
            e="oxidation", NDIM=3, IPS=1, ILP=1, ICP=[1], NTST=1, NCOL=4, IAD=3, ISP=2, ISW=1,
            IPLT=0, NBC=0, NINT=0, NMX=2000, RL0=0.5, RL1=2.0, A0=-100, A1=100, NPR=0, MXBF=0, IID=2,
            ITMX=8, ITNW=7, NWTN=3, JAC=0, EPSL=1e-9, EPSU=1e-9, EPSS=1e-8,
            DS=0.005, DSMIN=1e-6, DSMAX=0.02, IADS=1, UZSTOP={1: 2.0})
        text = sys.stdout.getvalue()
    finally:
        sys.stdout = shown
    seconds = sum(float(t) for t in re.findall(r"Total Time\s+([0-9.E+-]+)", text))
    return seconds, sum(len(b) for b in branch), [s["TY"] for s in branch()]


run()  # compiles
best = min((run() for _ in range(5)), key=lambda result: result[0])
print(f"{1e6 * best[0] / best[1]:.1f} {best[1]} {' '.join(best[2])}")
