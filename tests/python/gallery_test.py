"""The gallery's scripts run, assert their key numbers, draw pictures and stay short."""
import runpy
from pathlib import Path

import matplotlib.pyplot as plt
import pytest

SCRIPTS = sorted((Path(__file__).parents[2] / "gallery").glob("*.py"))


def test_there_are_scripts():
    assert len(SCRIPTS) == 11


@pytest.mark.parametrize("script", SCRIPTS, ids=lambda path: path.stem)
def test_gallery(script, capsys):
    source = script.read_text()
    assert len(source.splitlines()) <= 25 and "assert " in source
    plt.close("all")
    runpy.run_path(str(script), run_name="__main__")
    assert plt.get_fignums() and all(ax.has_data() for k in plt.get_fignums() for ax in plt.figure(k).axes)
    assert capsys.readouterr().out
