"""Diagrams in files: ``name.json`` for everything but the orbits, which are arrays in ``name.npz`` beside it."""

from __future__ import annotations

import json
import os
from pathlib import Path
from types import SimpleNamespace

import numpy as np

from .results import Branch, Diagram, Error
from .system import System

_ARRAYS = ("x", "tau", "mesh")  # of an orbit; the rest are numbers


def _described(branch: Branch) -> tuple[dict, list[dict]]:
    """A branch without its orbits, and these."""
    if branch._native is None:
        return dict(branch._data), [orbit | {"point": point} for point, orbit in branch._orbits.items()]
    data = json.loads(branch._native.json(orbits_inline=True))
    return data, data.pop("orbits")


def _system_data(system) -> dict:
    return {"states": list(system.states), "parameters": dict(system.parameters),
            "equations": getattr(system, "text", "") or None}


def to_dict(diagram: Diagram) -> dict:
    """Everything as lists, numbers and texts; orbits are in their branches."""
    branches = []
    for branch in diagram.branches:
        data, orbits = _described(branch)
        branches.append(data | {"orbits": [{k: np.asarray(v).tolist() if k in _ARRAYS else v
                                            for k, v in orbit.items()} for orbit in orbits]})
    return {"format": "tx-diagram", "version": 1, "system": _system_data(diagram._system), "branches": branches,
            "log": list(diagram.log)}


def _paths(path: str | os.PathLike) -> tuple[Path, Path]:
    base = Path(path)
    if base.suffix == ".json":
        base = base.with_suffix("")
    return base.with_name(base.name + ".json"), base.with_name(base.name + ".npz")


def save(diagram: Diagram, path: str | os.PathLike) -> None:
    """Writes ``path.json`` and, where there are orbits, ``path.npz``."""
    text, arrays = _paths(path)
    data = to_dict(diagram)
    kept = {}
    for branch in data["branches"]:
        for orbit in branch["orbits"]:
            kept |= {f"{orbit['name']}_{key}": np.array(orbit.pop(key), float) for key in _ARRAYS}
            kept[f"{orbit['name']}_T"] = np.array(orbit["T"])
    text.write_text(json.dumps(data, allow_nan=False) + "\n")
    if kept:
        np.savez_compressed(arrays, **kept)


def load(path: str | os.PathLike, system: System | None = None) -> Diagram:
    """The diagram that was saved there. Its points can be followed further if its equations were text, or
    given a ``system`` with the same names.

    >>> d = tx.load("fhn"); d["H1"].follow("I", "eps", I=(0, 2), eps=(0.01, 1))
    """
    text, arrays = _paths(path)
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
        for key in _ARRAYS:
            values = orbit.get(key, kept.get(f"{orbit['name']}_{key}"))
            if values is None:
                break
            orbit[key] = np.asarray(values, float)
        else:
            made[int(orbit.pop("point"))] = orbit
    return made
