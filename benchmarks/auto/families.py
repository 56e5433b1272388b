"""Families of cycles followed by AUTO-07p and by the program "families", as rows of the table of scripts/benchmark:
times of the runs, and how far each special point is from its place on a finer mesh. The steps of AUTO are the longest
with which it finds all folds.

    families.py <work directory> <the program>

The time of AUTO is its own "Total Time", without compiling and without Python. Needs the Debian packages
auto-07p, gfortran, python3-numpy.
"""
import io
import math
import os
import re
import shutil
import subprocess
import sys

auto_directory = "/usr/lib/auto-07p"
os.environ.setdefault("AUTO_DIR", auto_directory)
os.environ["OMP_NUM_THREADS"] = "1"
sys.path.insert(0, os.path.join(auto_directory, "python"))
import numpy

numpy.bool = bool  # that AUTO is older than NumPy 1.24
from auto import AUTOclui

common = dict(ILP=1, NCOL=4, IAD=3, IPLT=0, EPSL=1e-8, EPSU=1e-8, EPSS=1e-7, DSMIN=1e-6, NPR=0, MXBF=0, IID=2,
              NWTN=5, ITNW=9, JAC=0, ISP=2)
cycles = dict(common, IPS=2, ISW=1, ICP=[1, 11])
families = {
    "roessler": dict(cycles, NDIM=3, NTST=100, NMX=150, DS=0.02, DSMAX=0.3, RL0=2.4, RL1=8.0),
    "duffing": dict(cycles, NDIM=4, NTST=60, NMX=400, DS=-0.02, DSMAX=0.3, RL0=0.5, RL1=2.6),
    "hodgkin_huxley": dict(cycles, NDIM=4, NTST=100, NMX=400, DS=0.05, DSMAX=5.0, RL0=0.0, RL1=200.0, UZSTOP={1: 154.0}),
}
same_type = {"LP": "LPC", "BP": "BPC", "PD": "PD", "TR": "NS"}


def timed(*arguments, **constants):
    """The branch, and AUTO's seconds."""
    shown, sys.stdout = sys.stdout, io.StringIO()
    try:
        branch = AUTOclui.run(*arguments, **constants)
        text = sys.stdout.getvalue()
    finally:
        sys.stdout = shown
    return branch, sum(float(t) for t in re.findall(r"Total Time\s+([0-9.E+-]+)", text))


def write_start(program, name):
    """The first cycle, with the driving oscillator beside that of Duffing."""
    rows = subprocess.run([program, name, "start"], check=True, capture_output=True, text=True).stdout.splitlines()
    rows = [[float(x) for x in row.split()] for row in rows]
    period = rows[-1][0]
    with open(name + ".dat", "w") as file:
        for row in rows:
            if name == "duffing":
                angle = 2 * math.pi * row[0] / period
                row = row + [math.cos(angle), math.sin(angle)]
            file.write(" ".join(f"{x:.15g}" for x in row) + "\n")
    return period


def auto_run(name, program):
    """Milliseconds, points and (type, parameter) of the special points."""
    constants = families[name]
    if name == "hodgkin_huxley":
        rest, _ = timed(e=name, **dict(common, IPS=1, NDIM=4, NTST=1, ICP=[1], NMX=1000, DS=0.1, DSMAX=1.0, RL0=0.0,
                                       RL1=200.0, ISW=1))
        first, arguments = [rest("HB1")], {}
    else:
        period = write_start(program, name)
        first, arguments = [], dict(dat=name, PAR={1: 2.5, 11: period})
    best = math.inf
    for _ in range(9):
        branch, seconds = timed(*first, e=name, **arguments, **constants)
        best = min(best, seconds)
    found = [(same_type[s["TY"]], float(s["PAR(1)"])) for s in branch() if s["TY"] in same_type]
    return 1e3 * best, sum(len(b) for b in branch), found


def own_run(name, program):
    """The same, with the reference of each special point."""
    lines = subprocess.run([program, name], check=True, capture_output=True, text=True).stdout.splitlines()
    milliseconds, points = lines[0].split()
    found = [(kind, float(value), float(reference)) for kind, value, reference in map(str.split, lines[1:])]
    return float(milliseconds), int(points), found


def row(what, against, target, value):
    verdict = "" if target is None else "met" if value <= target else "MISSED"
    bound = "" if target is None else f"<= {target:g}"
    print(f"| {what:<46} | {against:<30} | {bound:>8} | {value:>10.3g} | {verdict:<6} |", flush=True)


def compare(name, program):
    own_time, own_points, own = own_run(name, program)
    auto_time, auto_points, theirs = auto_run(name, program)
    row(f"cycles, {name}: {own_time:.3g} ms, {own_points} points",
        f"AUTO-07p: {auto_time:.3g} ms, {auto_points} points",
        0.2, own_time / auto_time)
    for kind, value, reference in own:
        near = [there for other, there in theirs if other == kind and abs(there - value) < 1e-2 * abs(value)]
        if near:
            there = min(near, key=lambda x: abs(x - value))
            auto_error = f"AUTO-07p: off by {abs(there - reference):.1g}"
        else:
            auto_error = "AUTO-07p: not found"
        row(f"  {kind} at {value:.12g}, off by", auto_error, None, abs(value - reference))
    for kind, there in theirs:
        if not any(kind == other and abs(there - value) < 1e-2 * abs(value) for other, value, _ in own):
            row(f"  {kind} not found", f"AUTO-07p: {there:.10g}", None, math.nan)
    return own_time, auto_time


if len(sys.argv) == 4:  # constants given to one run stay for the next: one process per family
    work, program, name = sys.argv[1:]
    os.chdir(work)
    own_time, auto_time = compare(name, program)
    with open("sums.txt", "a") as file:
        file.write(f"{own_time} {auto_time}\n")
else:
    work, program = (os.path.abspath(path) for path in sys.argv[1:])
    here = os.path.dirname(os.path.abspath(__file__))
    os.makedirs(work, exist_ok=True)
    open(os.path.join(work, "sums.txt"), "w").close()
    for name in families:
        shutil.copy(os.path.join(here, name + ".f90"), work)
        subprocess.run([sys.executable, os.path.abspath(__file__), work, program, name], check=True)
    sums = [[float(x) for x in line.split()] for line in open(os.path.join(work, "sums.txt"))]
    own, theirs = (sum(column) for column in zip(*sums))
    row(f"cycles, the three together: {own:.3g} ms", f"AUTO-07p: {theirs:.3g} ms", 0.2, own / theirs)
