"""Equations as text: parsed with Python's own grammar, differentiated by SymPy, compiled by the C compiler
of the system and cached, or, without a compiler, run as NumPy code.

    v' = v - v**3/3 - w + I;  w' = eps*(v + 0.7 - 0.8*w)

Statements end at a line or a semicolon. ``name' = ...`` is an equation, ``name'' = ...`` one of second order
(``name'`` is then a variable), ``name = ...`` a named sub-expression. Every other name is a parameter, ``t``
the time, ``pi`` the number, ``^`` is a power.
"""

from __future__ import annotations

import ast
import re
from dataclasses import dataclass, field

import sympy

PRIME = "\u02b9"  # a letter to Python's tokenizer, which a quotation mark is not
_FUNCTIONS = {
    "sin": sympy.sin, "cos": sympy.cos, "tan": sympy.tan,
    "asin": sympy.asin, "acos": sympy.acos, "atan": sympy.atan, "atan2": sympy.atan2,
    "arcsin": sympy.asin, "arccos": sympy.acos, "arctan": sympy.atan,
    "sinh": sympy.sinh, "cosh": sympy.cosh, "tanh": sympy.tanh,
    "exp": sympy.exp, "log": sympy.log, "ln": sympy.log, "sqrt": sympy.sqrt,
    "abs": sympy.Abs, "sign": sympy.sign, "heaviside": lambda x: sympy.Heaviside(x, sympy.Rational(1, 2)),
    "pow": lambda x, y: x ** y, "min": sympy.Min, "max": sympy.Max,
}
_OPERATORS = {
    ast.Add: lambda a, b: a + b, ast.Sub: lambda a, b: a - b, ast.Mult: lambda a, b: a * b,
    ast.Div: lambda a, b: a / b, ast.Pow: lambda a, b: a ** b,
}


class EquationError(ValueError):
    """A statement that cannot be read; the text shows the place."""

    def __init__(self, reason: str, statement: str, column: int):
        self.reason, self.statement, self.column = reason, statement, column
        super().__init__(f"{reason}\n    {statement}\n    {' ' * column}^")


@dataclass
class Equations:
    """A system as SymPy expressions: ``right`` in ``states``, ``parameters`` and ``time``."""

    states: list[str]
    parameters: list[str]
    right: list[sympy.Expr]
    symbols: dict[str, sympy.Symbol] = field(repr=False)
    time: sympy.Symbol = field(default=sympy.Symbol("t", real=True), repr=False)
    text: str = ""

    @property
    def uses_time(self) -> bool:
        return any(self.time in expression.free_symbols for expression in self.right)


class _Statement:
    """One statement, with a map from the columns that Python's parser sees to those of the text."""

    _left = re.compile(r"\s*([^\W\d]\w*)\s*('*)\s*=(?!=)")

    def __init__(self, text: str):
        self.text = text
        match = self._left.match(text)
        if match is None:
            column = len(text) - len(text.lstrip())
            raise EquationError("expected name' = expression or name = expression", text, column)
        self.name, self.order = match[1], len(match[2])
        self.name_column = match.start(1)
        self.code, self.columns = self._translate(match.end())

    def _translate(self, start: int) -> tuple[str, list[int]]:
        code, columns = [], []
        text, i = self.text, start
        while i < len(text):
            piece = {"^": "**", "'": PRIME}.get(text[i], text[i])
            code.append(piece)
            columns.extend([i] * len(piece))
            i += 1
        joined = "".join(code)
        # "lambda" is a word of Python's grammar and a common parameter
        joined = re.sub(r"\blambda\b", "lambdɑ", joined)
        stripped = joined.lstrip()
        return stripped, columns[len(joined) - len(stripped):] + [len(text)]

    def column(self, offset: int | None) -> int:
        return self.columns[min(max(offset or 0, 0), len(self.columns) - 1)]

    def fail(self, reason: str, node: ast.AST) -> EquationError:
        # offsets of Python's syntax tree count bytes
        before = self.code.encode()[: getattr(node, "col_offset", 0)].decode(errors="ignore")
        return EquationError(reason, self.text, self.column(len(before)))

    def tree(self) -> ast.expr:
        if not self.code.strip():
            raise EquationError("an expression is missing", self.text, len(self.text))
        try:
            return ast.parse(self.code.rstrip(), mode="eval").body
        except SyntaxError as error:
            raise EquationError("this cannot be read", self.text,
                                self.column((error.offset or 1) - 1)) from None


def _plain(name: str) -> str:
    return name.replace(PRIME, "'").replace("lambdɑ", "lambda")


class _Reader:
    def __init__(self, states: list[str], named: dict[str, sympy.Expr], time: sympy.Symbol):
        self.symbols = {name: sympy.Symbol(name, real=True) for name in states}
        self.states, self.named, self.time = states, named, time
        self.parameters: list[str] = []

    def expression(self, statement: _Statement) -> sympy.Expr:
        return self._convert(statement, statement.tree())

    def _convert(self, statement: _Statement, node: ast.AST) -> sympy.Expr:
        match node:
            case ast.Constant(value=bool() | complex() | str() | bytes()):
                raise statement.fail(f"{node.value!r} is not a real number", node)
            case ast.Constant(value=int()):
                return sympy.Integer(node.value)
            case ast.Constant(value=float()):
                return sympy.Float(node.value, 17)
            case ast.Name():
                return self._name(statement, node)
            case ast.UnaryOp(op=ast.USub()):
                return -self._convert(statement, node.operand)
            case ast.UnaryOp(op=ast.UAdd()):
                return self._convert(statement, node.operand)
            case ast.BinOp() if type(node.op) in _OPERATORS:
                left, right = (self._convert(statement, side) for side in (node.left, node.right))
                return _OPERATORS[type(node.op)](left, right)
            case ast.Call(func=ast.Name(), keywords=[]):
                return self._call(statement, node)
        raise statement.fail("this is not part of an expression", node)

    def _name(self, statement: _Statement, node: ast.Name) -> sympy.Expr:
        name = _plain(node.id)
        if name == "t":
            return self.time
        if name == "pi":
            return sympy.pi
        if name in self.named:
            return self.named[name]
        if name in _FUNCTIONS:
            raise statement.fail(f"the function {name} wants arguments", node)
        if "'" in name and name not in self.states:
            raise statement.fail(f"{name} is not a variable: no equation gives {name}'", node)
        if name not in self.symbols:
            self.symbols[name] = sympy.Symbol(name, real=True)
            self.parameters.append(name)
        return self.symbols[name]

    def _call(self, statement: _Statement, node: ast.Call) -> sympy.Expr:
        name = _plain(node.func.id)
        if name not in _FUNCTIONS:
            raise statement.fail(f"no function {name}; known are {', '.join(sorted(_FUNCTIONS))}", node)
        arguments = [self._convert(statement, argument) for argument in node.args]
        try:
            return _FUNCTIONS[name](*arguments)
        except TypeError:
            raise statement.fail(f"{name} with {len(arguments)} arguments", node) from None


def _statements(text: str) -> list[_Statement]:
    lines = (line.split("#", 1)[0] for line in text.splitlines())
    pieces = (piece for line in lines for piece in line.split(";"))
    return [_Statement(piece) for piece in pieces if piece.strip()]


def parse(text: str) -> Equations:
    """Reads equations. Raises EquationError, which shows the place, where it cannot."""
    statements = _statements(text)
    equations = [s for s in statements if s.order]
    if not equations:
        raise EquationError("no equation: expected at least one name' = expression", text.strip(), 0)
    states: list[str] = []
    for s in equations:
        for k in range(s.order):
            name = s.name + "'" * k
            if name in states:
                raise EquationError(f"a second equation for {s.name}", s.text, s.name_column)
            states.append(name)
        if s.name in {"t", "pi"} | _FUNCTIONS.keys():
            raise EquationError(f"{s.name} has a meaning already", s.text, s.name_column)
    reader = _Reader(states, {}, sympy.Symbol("t", real=True))
    for s in statements:
        if s.order:
            continue
        if s.name in states or s.name in reader.named or s.name in reader.symbols:
            raise EquationError(f"{s.name} has a meaning already; sub-expressions are defined once and "
                                "before they are used", s.text, s.name_column)
        reader.named[s.name] = reader.expression(s)
    right: list[sympy.Expr] = []
    for s in equations:
        right += [reader.symbols[s.name + "'" * k] for k in range(1, s.order)]
        right.append(reader.expression(s))
    return Equations(states, reader.parameters, right, reader.symbols, reader.time, text)
