"""Text as equations: values against Python's own arithmetic, errors with their places."""
from math import cos, exp, pi

import numpy as np
import pytest

import tx

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
