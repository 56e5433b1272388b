"""The Python code of the documentation runs, page by page."""
import re
from pathlib import Path

import pytest

SITE = Path(__file__).parents[2] / "docs" / "site"


@pytest.mark.parametrize("page", ["index.md", "tutorial.md", "howto.md"])
def test_code(page, tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    blocks = re.findall(r"^```python\n(.*?)^```$", (SITE / page).read_text(), re.MULTILINE | re.DOTALL)
    assert blocks
    exec(compile("\n".join(blocks), page, "exec"), {"__name__": page})
