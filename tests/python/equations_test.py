"""Text as equations: values against Python's own arithmetic, errors with their places, derivatives."""
import ctypes
from math import cos, exp, factorial, pi

import numpy as np
import pytest
import sympy

import tx
from tx import compiled, equations

VALUES = {  # text: parameters, state, time, f
    "v' = v - v^3/3 - w + I\nw' = eps*(v + 0.7 - 0.8*w)":
        (dict(I=0.5, eps=0.1), [1.0, 2.0], 0.0, [1 - 1 / 3 - 2 + 0.5, 0.1 * (1 + 0.7 - 1.6)]),
    "x'' = -d*x' - x - x^3 + F*cos(w*t)":
        (dict(d=0.2, F=0.3, w=2.0), [0.5, -1.0], 0.7, [-1.0, 0.2 - 0.5 - 0.125 + 0.3 * cos(1.4)]),
    "r = a*x  # a sub-expression\nx' = exp(-r)*r; y' = r**-2 - pi/4":
        (dict(a=2.0), [1.5, 0.0], 0.0, [exp(-3) * 3, 1 / 9 - pi / 4]),
    "x''' = lambda*x''*x'": ({"lambda": 3.0}, [1.0, 2.0, 5.0], 0.0, [2.0, 5.0, 30.0]),
    "x' = max(x, 0) + min(x, 0.5, y) - abs(y); y' = heaviside(x - 1) + sign(y)":
        ({}, [2.0, -3.0], 0.0, [2 - 3 - 3, 1 - 1]),
    "x' = -2^2 + 1e-3*x": ({}, [1000.0], 0.0, [-3.0]),
    "E' = beta*E; I' = S*E; S' = gamma - N*Q": (dict(beta=2., gamma=3., N=4., Q=5.), [1., 2., 3.], 0., [2., 3., -17.]),
}
ERRORS = {  # text: column of the place, words of the reason
    "v' = v +* 3": (8, "cannot be read"),
    "v' = v + w'": (9, "w' is not a variable"),
    "x' = sin(x) + frob(x)": (14, "no function frob"),
    "x' = x; x' = 2": (1, "second equation for x"),
    "x' = sin": (5, "wants arguments"),
    "x' = atan2(x)": (5, "atan2 with 1"),
    "x' = x if x else 1": (5, "not part of an expression"),
    "r = 2*x": (0, "no equation"),
    "x' = r; x = 3": (1, "has a meaning already"),
    "x'": (0, "expected name' = expression"),
    "x' = ": (5, "missing"),
    "x' = 1j*x": (5, "not a real number"),
}


@pytest.mark.parametrize("text", VALUES)
def test_values(text):
    parameters, state, t, expected = VALUES[text]
    s = tx.System(text, parameters=parameters)
    assert s.parameters == parameters
    assert s.rhs(state, t) == pytest.approx(expected, rel=1e-14)


@pytest.mark.parametrize("text", ERRORS)
def test_errors_point_at_the_place(text):
    column, reason = ERRORS[text]
    with pytest.raises(tx.EquationError) as error:
        tx.System(text)
    head, _, pointer = str(error.value).splitlines()
    assert reason in head
    assert pointer.index("^") - 4 == column


def test_derivatives_are_those_of_the_text():
    s = tx.System("x' = a*sin(x*y) + t; y' = sqrt(x)/(1 + y^2)", a=2.0)
    x, y = 0.7, 0.3
    exact = [[2 * y * cos(x * y), 2 * x * cos(x * y)], [0.5 / x**0.5 / (1 + y * y), -2 * y * x**0.5 / (1 + y * y)**2]]
    assert s.jacobian([x, y], 1.0) == pytest.approx(np.array(exact), rel=1e-14)


FUNCTIONS = ["exp(x)*log(y)", "sin(x*y) - cos(x)/y", "tan(x/2) + tanh(x*y)", "sinh(x) + cosh(y)^2", "asin(x/3) + acos(y/4)",
             "atan(x*y) + atan2(y, x) + atan2(x/9, -y)", "x^2.5 + y^-3 + (x - 0.7)^4", "x^y + x^a", "(x - 2)^a + 2^x",
             "sqrt(x + y^2)*abs(x - y)", "max(x, y, a)*min(x, y^3) + heaviside(x)*sign(-x)", "sin(t)*x/(a + x) - pi*a"]


@pytest.mark.parametrize("text", FUNCTIONS)
def test_taylor_coefficients(text):
    e = equations.parse(f"x' = {text}; y' = x*y")
    library = compiled.build(compiled.c_source(e))
    s, m = sympy.Symbol("s", real=True), len(e.parameters)
    at, along = np.array([0.7, 1.3, 3.0][:2 + m]), np.array([0.4, -0.9, 0.25 if "^a" not in text else 0.0][:2 + m])
    line = {e.symbols[name]: sympy.Float(p, 30) + s * sympy.Float(q, 30)
            for name, p, q in zip([*e.states, *e.parameters], at, along)}
    out, numbers = np.zeros((6, 2)), ctypes.POINTER(ctypes.c_double)
    x, v, c, d = (np.array(part) for part in (at[:2], along[:2], at[2:], along[2:]))
    library.tx_taylor(5, ctypes.c_double(0.6), *(part.ctypes.data_as(numbers) for part in (x, v, c, d, out)), None)
    for i, f in enumerate(e.right):
        f = f.subs(e.time, sympy.Float(0.6, 30)).subs(line)
        expected = [float(sympy.diff(f, s, k).subs(s, 0).n(30)) / factorial(k) for k in range(6)]
        assert out[:, i] == pytest.approx(expected, rel=1e-12, abs=1e-12)


def test_coefficients_of_fifth_order():
    s = tx.System("""q = x^2 + y^2
                     x' = a*x - y + b*x*q - x*q^2
                     y' = x + a*y + b*y*q - y*q^2""", a=-0.5, b=-1.0)
    h, = s.equilibrium([0, 0]).follow("a", (-1, 1)).specials
    gh = next(p for p in h.follow("a", "b", a=(-1, 1), b=(-1, 1)).specials if p.type == "GH")
    # the unit vector (1, -i)/sqrt(2) makes q = 2 |z|^2, so that z' has -(2 |z|^2)^2 z
    assert gh.parameters["b"] == pytest.approx(0, abs=1e-10)
    assert gh.coefficients["Re c2"] == pytest.approx(-4, rel=1e-9)
