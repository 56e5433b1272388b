"""Diagrams: names, tables, files, pictures."""
import json

import numpy as np
import pytest

import tx
from tx import plotting


def test_a_diagram_is_addressed_by_names(diagram):
    h = diagram["H1"]
    assert (h.id, h.type, h.subtype, h.status) == ("H1", "H", "subcritical", "located")
    assert h.parameters["I"] == pytest.approx(0.33128133, rel=1e-6) and h.parameters["eps"] == 0.08
    assert h.coefficients["omega"] == pytest.approx(0.27550681, rel=1e-6)
    assert h.period is None and h.state.shape == (2,)
    first = diagram.branch(1)
    assert first.kind == "equilibria" and first["H1"].id == "H1" and first.vary == ["I"]
    assert {len(first[name]) for name in first.columns} == {len(first)}
    cycles = next(b for b in diagram if plotting.of_cycles(b))
    orbit = cycles.orbit(-1)
    times, states = orbit.orbit(100)
    assert states.shape == (2, 100) and states[:, 0] == pytest.approx(states[:, -1], abs=1e-6)
    for wrong in (lambda: diagram["H9"], lambda: first["q"], lambda: diagram.branch(0), lambda: h.follow("I")):
        with pytest.raises(tx.Error):
            wrong()


def test_tables(diagram):
    table = repr(diagram)
    for s in diagram.specials:
        assert s.id in table and s.id in diagram._repr_html_()
    assert "subcritical" in repr(diagram["H1"])


def test_special_points_are_gone_on_from(diagram):
    curve = diagram["H1"].follow("I", "eps", I=(0, 2), eps=(0.01, 1))
    assert curve.kind == "H curve" and curve.vary == ["I", "eps"]
    # trace of the Jacobian: 1 - v^2 - 0.8 eps = 0
    assert 1 - curve["v"]**2 - 0.8 * curve["eps"] == pytest.approx(np.zeros(len(curve)), abs=1e-8)
    cycles, = diagram["H1"].switch(max_points=5)
    assert plotting.of_cycles(cycles) and cycles["I"][0] == pytest.approx(diagram["H1"].parameters["I"], rel=1e-2)


def test_files_keep_everything(diagram, fhn, tmp_path):
    diagram.save(tmp_path / "fhn")
    assert {p.name for p in tmp_path.iterdir()} == {"fhn.json", "fhn.npz"}
    loaded = tx.load(tmp_path / "fhn")
    assert repr(loaded) == repr(diagram) and loaded.log == diagram.log
    for a, b in zip(diagram, loaded):
        for name in a.columns:
            assert np.array_equal(a[name], b[name], equal_nan=True)
        assert np.array_equal(a.eigenvalues(0), b.eigenvalues(0), equal_nan=True)
    loaded.save(tmp_path / "again")
    kept = [diagram.to_dict(), loaded.to_dict(), tx.load(tmp_path / "again").to_dict()]
    same = [json.dumps(data, sort_keys=True) == json.dumps(kept[0], sort_keys=True) for data in kept]
    assert all(same)  # the texts are too long to be compared by the assertion
    assert loaded["H1"].follow("I", "eps", I=(0, 2), eps=(0.01, 1)).kind == "H curve"
    assert tx.load(tmp_path / "fhn.json", system=fhn).branch(1).orbit(3).state == pytest.approx(
        diagram.branch(1).orbit(3).state, rel=1e-8)
    with pytest.raises(tx.Error, match="the diagram is of v, w"):
        tx.load(tmp_path / "fhn", system=tx.System("x' = a*x", a=1))


def test_pictures(diagram, fhn):
    ax = diagram.plot("I", "v")
    assert (ax.get_xlabel(), ax.get_ylabel()) == ("I", "v")
    assert diagram.plot("I", "period", ax=ax) is ax
    lines = diagram.lines("I", "v")
    assert {line.stable for line in lines} == {True, False}
    equilibria = [line for line in lines if line.branch == "b1"]
    assert [line.stable for line in equilibria] == [True, False, True]
    assert [line.x[-1] for line in equilibria[:2]] == [diagram[h].parameters["I"] for h in ("H1", "H2")]
    total = sum(len(line.x) for line in lines)
    assert total >= sum(len(b) * (2 if plotting.of_cycles(b) else 1) for b in diagram)
    ax = diagram.plot("I", "v")
    renderer = ax.figure.canvas.get_renderer()
    boxes = [text.get_window_extent(renderer) for text in ax.texts]
    assert boxes and not any(a.overlaps(b) for i, a in enumerate(boxes) for b in boxes[:i])
    curve = diagram["H1"].follow("I", "eps", I=(0, 2), eps=(0.01, 1))
    assert curve.plot("I", "eps").lines[0].get_color() == plotting.RED
    point = fhn.with_(I=0.5).cycle([1, 0])
    assert len(point.plot().lines) == 2 and len(point.plot("v", "w").lines) == 1
    assert point.plot_multipliers().get_xlabel() == "Re μ"
