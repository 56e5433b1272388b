"""Diagrams to files: ``name.json`` for everything but the orbits, which are arrays in ``name.npz`` beside it."""

from __future__ import annotations

import json
import os
from pathlib import Path

import numpy as np

ARRAYS = ("x", "tau", "mesh")  # of an orbit; the rest are numbers


def _described(branch) -> tuple[dict, list[dict]]:
    """A branch without its orbits, and these."""
    if branch._native is None:
        return dict(branch._data), [orbit | {"point": point} for point, orbit in branch._orbits.items()]
    data = json.loads(branch._native.json(orbits_inline=True))
    return data, data.pop("orbits")


def _system_data(system) -> dict:
    return {"states": list(system.states), "parameters": dict(system.parameters),
            "equations": getattr(system, "text", "") or None}


def to_dict(diagram) -> dict:
    """Everything as lists, numbers and texts; orbits are in their branches."""
    branches = []
    for branch in diagram.branches:
        data, orbits = _described(branch)
        branches.append(data | {"orbits": [{k: np.asarray(v).tolist() if k in ARRAYS else v
                                            for k, v in orbit.items()} for orbit in orbits]})
    return {"format": "tx-diagram", "version": 1, "system": _system_data(diagram._system), "branches": branches,
            "log": list(diagram.log)}


def paths(path: str | os.PathLike) -> tuple[Path, Path]:
    """Of the text and of the arrays."""
    base = Path(path)
    if base.suffix == ".json":
        base = base.with_suffix("")
    return base.with_name(base.name + ".json"), base.with_name(base.name + ".npz")


def save(diagram, path: str | os.PathLike) -> None:
    """Writes ``path.json`` and, where there are orbits, ``path.npz``."""
    text, arrays = paths(path)
    data = to_dict(diagram)
    kept = {}
    for branch in data["branches"]:
        for orbit in branch["orbits"]:
            kept |= {f"{orbit['name']}_{key}": np.array(orbit.pop(key), float) for key in ARRAYS}
            kept[f"{orbit['name']}_T"] = np.array(orbit["T"])
    text.write_text(json.dumps(data, allow_nan=False) + "\n")
    if kept:
        np.savez_compressed(arrays, **kept)
