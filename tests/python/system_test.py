"""Ways to make systems, what they give back, and what happens when callbacks fail or a user stops a run."""
import ctypes
import gc
import os
import pickle
import signal
import threading
from concurrent.futures import ThreadPoolExecutor

import numpy as np
import pytest

import tx
from conftest import FHN

C_SOURCE = """void tx_f(double t, const double* x, const double* c, double* out, void* context) {
    out[0] = x[0] - x[0]*x[0]*x[0]/3 - x[1] + c[0];
    out[1] = c[1]*(x[0] + 0.7 - 0.8*x[1]);
}"""
SIGNATURE = ctypes.CFUNCTYPE(None, ctypes.c_double, *[ctypes.POINTER(ctypes.c_double)] * 3, ctypes.c_void_p)
NAMES = dict(states=["v", "w"], I=0.0, eps=0.08)


def blocked(t, x, c):
    v, w = x
    return np.stack([v - v**3 / 3 - w + c[0], c[1] * (v + 0.7 - 0.8 * w)])


@SIGNATURE
def pointwise(t, x, c, out, context):
    out[0] = x[0] - x[0]**3 / 3 - x[1] + c[0]
    out[1] = c[1] * (x[0] + 0.7 - 0.8 * x[1])


def by_numba():
    numba = pytest.importorskip("numba", reason="python3-numba is not installed")
    double, pointer = numba.types.float64, numba.types.CPointer(numba.types.float64)

    @numba.cfunc(numba.types.void(double, pointer, pointer, pointer, numba.types.voidptr))
    def f(t, x, c, out, context):
        out[0] = x[0] - x[0]**3 / 3 - x[1] + c[0]
        out[1] = c[1] * (x[0] + 0.7 - 0.8 * x[1])

    return tx.System(f, **NAMES)


def without_compiler():
    with pytest.MonkeyPatch.context() as patch:
        patch.setattr("tx.compiled.compiler", lambda: None)
        with pytest.warns(RuntimeWarning, match="no C compiler"):
            return tx.System(FHN, I=0.0, eps=0.08)


@pytest.mark.parametrize("make", [
    lambda: tx.System(blocked, **NAMES),
    lambda: tx.System(pointwise, **NAMES),
    lambda: tx.System(ctypes.cast(pointwise, ctypes.c_void_p).value, **NAMES),
    lambda: tx.System(C_SOURCE, **NAMES),
    by_numba,
    without_compiler,
], ids=["callable", "ctypes", "address", "C", "numba", "NumPy"])
def test_every_way_gives_the_same_branch(make, diagram):
    s = make()
    gc.collect()  # nothing but the system keeps the function
    b = s.equilibrium([-1.2, -0.6]).follow("I", (0, 2), detect=["H"])
    expected = [h.parameters["I"] for h in diagram.branch(1).specials if h.type == "H"]
    assert [h.parameters["I"] for h in b.specials] == pytest.approx(expected, rel=1e-8)
    assert np.all(np.diff(b["I"]) > 0)


@pytest.mark.parametrize("call, words", [
    (lambda s: tx.System(FHN), "no value for I, eps"),
    (lambda s: tx.System(FHN, I=0, eps=1, J=2), "no parameter 'J'"),
    (lambda s: tx.System(FHN, I="high", eps=1), "value of I is not a number"),
    (lambda s: tx.System(blocked, I=0.0), "states="),
    (lambda s: tx.System(3.5, states=["x"]), "not of float"),
    (lambda s: s.with_(J=1), "no parameter 'J'; the system has I, eps"),
    (lambda s: s.diagram("Q", (0, 1)), "no parameter 'Q'"),
    (lambda s: s.diagram("I", (1, 0)), "window"),
    (lambda s: s.diagram("I", 2), "a window is two numbers"),
    (lambda s: s.equilibrium([0, 0]).follow("I", ("low", 1)), "a window is two numbers"),
    (lambda s: s.diagram("I", (0, 1), detect=["HB"]), "no type 'HB'"),
    (lambda s: s.diagram("I", (0, 1), steps=3), "no option 'steps'"),
    (lambda s: s.diagram("I", (0, 1), max_points="many"), "'max_points' cannot be 'many'"),
    (lambda s: s.equilibrium([1.0]), "2"),
    (lambda s: s.equilibrium({"v": 1}), "a state has v, w"),
    (lambda s: s.equilibria({"v": (0, 1)}), "no interval for w"),
    (lambda s: s.forced(), "one of frequency="),
    (lambda s: s.section([1, 0]), "one variable and its value"),
    (lambda s: s.integrate([1, 0], 1, h=2), "no option 'h'"),
    (lambda s: s.cycle([[1, 0, 1]], times=[0, 1, 2]), "shape (2, 3)"),
])
def test_misuse_is_told(fhn, call, words):
    with pytest.raises(tx.Error) as error:
        call(fhn)
    assert words in str(error.value)


def test_compiler_errors_are_shown():
    with pytest.raises(tx.CompilerError, match="nonsense"):
        tx.System(C_SOURCE.replace("0.7", "nonsense"), **NAMES)


def test_trajectories(fhn):
    s = fhn.with_(I=0.5)
    t = s.integrate([1, 0], 50, sample=0.5)
    assert t and t.states.shape == (2, len(t)) and t.times[-1] == 50
    assert t.at(50) == pytest.approx(t.last)
    assert t.at(np.array([1.0, 2.0, 3.0])).shape == (2, 3)
    crossings = s.section([1, 0], crossings=4, v=0)
    assert crossings["v"] == pytest.approx(np.zeros(4), abs=1e-9)
    by_function = s.section([1, 0], crossings=4, function=lambda t, x: x[0])
    assert by_function.times == pytest.approx(crossings.times, abs=1e-7)
    assert np.diff(crossings.times)[-1] == pytest.approx(s.cycle([1, 0]).period, rel=1e-6)
    lyapunov = s.lyapunov([1, 0], time=500)
    assert lyapunov.exponents[0] == pytest.approx(0, abs=5e-3) and lyapunov.exponents[1] < -0.1
    stopped = s.integrate([1, 0], 50, max_steps=3)
    assert not stopped and stopped.reason and "stopped" in repr(stopped)


def test_cycles_from_a_period_and_from_a_table(fhn):
    s = fhn.with_(I=0.5)
    stable = s.cycle([1, 0])
    times, states = stable.orbit(60)
    assert s.cycle(stable.state, stable.period * 1.01).period == pytest.approx(stable.period, rel=1e-7)
    assert s.cycle(states, times=times).period == pytest.approx(stable.period, rel=1e-7)


def test_forced_systems():
    s = tx.System("x'' = -d*x' - k*x + F*cos(w*t)", d=0.3, k=1.0, F=0.5, w=2.0)
    f = s.forced(frequency="w")
    assert f.period == pytest.approx(np.pi) and f.with_(w=4).period == pytest.approx(np.pi / 2)
    c = f.cycle([0, 0])
    assert c.max[0] == pytest.approx(0.5 / np.hypot(1 - 4, 0.3 * 2), rel=1e-3)
    assert np.prod(c.multipliers).real == pytest.approx(np.exp(-0.3 * np.pi), rel=1e-8)
    assert np.all(c.log_multiplier_errors <= 1e-8)
    b = c.follow("w", (1, 3))
    assert set(b.stop) == {"parameter_bound"} and b["period"] == pytest.approx(2 * np.pi / b["w"])


def test_time_in_autonomous_searches_is_told():
    s = tx.System("x' = -x + F*cos(t)", F=1.0)
    for search in (lambda: s.equilibrium([0]), lambda: s.with_(F=2).diagram("F", (0, 1)), lambda: s.cycle([0], 1.0)):
        with pytest.warns(RuntimeWarning, match="depend on t"):
            search()


def test_columns_outlive_their_branch(fhn):
    b = fhn.equilibrium([-1.2, -0.6]).follow("I", (0, 2))
    column, copy = b["v"], b["v"].copy()
    with pytest.raises(ValueError, match="read-only"):
        column[0] = 1
    assert np.shares_memory(b["v"], column)
    del b
    gc.collect()
    np.zeros(10**6)
    assert np.array_equal(column, copy)


def test_exceptions_of_callbacks_pass(fhn):
    def failing(t, x, c):
        raise LookupError("my own")

    def wrong_shape(t, x, c):
        return x[0]

    with pytest.raises(LookupError, match="my own"):
        tx.System(failing, states=["x"]).equilibrium([1])
    with pytest.raises(ValueError, match=r"shape \(2, "):
        tx.System(wrong_shape, states=["x", "y"]).equilibrium([1, 1])
    with pytest.raises(ZeroDivisionError):
        fhn.equilibrium([-1.2, -0.6]).follow("I", (0, 2), when={"bad": lambda p: 1 / 0})
    assert fhn.equilibrium([-1.2, -0.6])  # all goes on


def test_monitors(fhn):
    b = fhn.equilibrium([-1.2, -0.6]).follow(
        "I", (0, 2), detect="none", at={"v": 0.25}, stop_when={"enough": lambda p: p["v"] - 0.5})
    assert [s.state[0] for s in b.specials] == pytest.approx([0.25, 0.5])
    assert "user" in b.stop


@pytest.mark.parametrize("stop", [lambda: False, lambda: signal.raise_signal(signal.SIGINT)])
def test_a_stopped_run_keeps_what_it_has(fhn, stop):
    b = fhn.equilibrium([-1.2, -0.6]).follow("I", (0, 2), h_max=1e-5, max_points=10**7,
                                             progress=lambda points, point: stop() if point["v"] < 9 else None)
    assert "cancelled" in b.stop and 1 < len(b) < 10**6
    assert signal.getsignal(signal.SIGINT) is signal.default_int_handler


def test_interrupts_end_runs_without_points(fhn):
    timer = threading.Timer(0.3, os.kill, (os.getpid(), signal.SIGINT))
    timer.start()
    with pytest.raises(KeyboardInterrupt):
        fhn.with_(I=0.5).lyapunov([1, 0], time=1e9, integrate={"max_steps": 10**12})


def test_threads_run_beside_each_other(fhn):
    counting, done = [], threading.Event()

    def count():
        while not done.wait(1e-3):
            counting.append(1)

    other = threading.Thread(target=count)
    other.start()
    try:
        with ThreadPoolExecutor(2) as pool:
            runs = list(pool.map(lambda eps: fhn.with_(eps=eps, I=0.5).lyapunov([1, 0], time=3000),
                                 [0.07, 0.08, 0.08]))
    finally:
        done.set()
        other.join()
    assert len(counting) > 5  # the interpreter was free
    assert np.array_equal(runs[1].exponents, runs[2].exponents)


def test_systems_travel_to_other_processes(fhn):
    s = pickle.loads(pickle.dumps(fhn.with_(I=0.25)))
    assert s.parameters == {"I": 0.25, "eps": 0.08}
    assert np.array_equal(s.rhs([1, 2]), fhn.with_(I=0.25).rhs([1, 2]))
