"""Diagrams from the files that ``save`` wrote."""

from __future__ import annotations

import json
import os
from types import SimpleNamespace

import numpy as np

from .results import Branch, Diagram, Error
from .storage import ARRAYS, paths
from .system import System


def load(path: str | os.PathLike, system: System | None = None) -> Diagram:
    """The diagram that was saved there. Its points can be followed further if its equations were text, or
    given a ``system`` with the same names.

    >>> d = tx.load("fhn"); d["H1"].follow("I", "eps", I=(0, 2), eps=(0.01, 1))
    """
    text, arrays = paths(path)
    data = json.loads(text.read_text())
    if data.get("format") != "tx-diagram" or data.get("version") != 1:
        raise Error(f"{text} is not a diagram of this version of tx")
    owner = _owner(data["system"], system)
    kept = dict(np.load(arrays)) if arrays.exists() else {}
    branches = [Branch(None, owner, branch, _orbits(branch, kept)) for branch in data["branches"]]
    return Diagram(None, owner, branches, data.get("log", []))


def _owner(described: dict | None, system: System | None):
    described = described or {"states": [], "parameters": {}, "equations": None}
    if system is None:
        if described["equations"]:
            return System(described["equations"], parameters=described["parameters"])
        return SimpleNamespace(**described)
    if list(system.states) != described["states"] or set(system.parameters) != set(described["parameters"]):
        raise Error(f"the diagram is of {', '.join(described['states'])} with {', '.join(described['parameters'])}, "
                    f"not of {', '.join(system.states)} with {', '.join(system.parameters)}")
    return system


def _orbits(branch: dict, kept: dict) -> dict[int, dict]:
    made = {}
    for orbit in branch.pop("orbits", []):
        orbit = {"name": orbit} if isinstance(orbit, str) else dict(orbit)
        for key in ARRAYS:
            values = orbit.get(key, kept.get(f"{orbit['name']}_{key}"))
            if values is None:
                break
            orbit[key] = np.asarray(values, float)
        else:
            made[int(orbit.pop("point"))] = orbit
    return made
