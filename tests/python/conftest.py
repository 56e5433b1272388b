import matplotlib
import pytest

matplotlib.use("Agg")

import tx  # noqa: E402

FHN = "v' = v - v**3/3 - w + I; w' = eps*(v + 0.7 - 0.8*w)"


@pytest.fixture(scope="session", autouse=True)
def own_cache(tmp_path_factory):
    with pytest.MonkeyPatch.context() as patch:
        patch.setenv("XDG_CACHE_HOME", str(tmp_path_factory.mktemp("cache")))
        yield


@pytest.fixture(scope="session")
def fhn(own_cache):
    return tx.System(FHN, I=0.0, eps=0.08)


@pytest.fixture(scope="session")
def diagram(fhn):
    return fhn.diagram("I", (0, 2))
