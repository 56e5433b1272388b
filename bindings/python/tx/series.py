"""C code for the Taylor coefficients of a right-hand side along a line, f(t, x + s v; c + s d) in powers of s.

Coefficients of normal forms need derivatives up to order 5. Their formulas would grow without bound; instead each
operation of the expression works on truncated power series, by the recurrences that follow from its differential
equation: r = exp(a) has r' = r a', so that k r_k = sum_i i a_i r_(k-i), and so on.
"""

from __future__ import annotations

import sympy

from .equations import Equations

_ARITHMETIC = """
#include <stdlib.h>
enum { tx_most = 6 };
static void tx_add(int K, const double* a, const double* b, double* r) { for (int k = 0; k <= K; ++k) r[k] = a[k] + b[k]; }
static void tx_scale(int K, double c, const double* a, double* r) { for (int k = 0; k <= K; ++k) r[k] = c * a[k]; }
static void tx_mul(int K, const double* a, const double* b, double* r) {
    for (int k = 0; k <= K; ++k) { r[k] = 0; for (int i = 0; i <= k; ++i) r[k] += a[i] * b[k - i]; }
}
static void tx_div(int K, const double* a, const double* b, double* r) {
    for (int k = 0; k <= K; ++k) { r[k] = a[k]; for (int i = 0; i < k; ++i) r[k] -= r[i] * b[k - i]; r[k] /= b[0]; }
}
/* k r_k = sum_i i a_i g_(k-i): the step of every function with r' = g a' */
static double tx_step(int k, const double* a, const double* g) {
    double sum = 0;
    for (int i = 1; i <= k; ++i) sum += i * a[i] * g[k - i];
    return sum / k;
}
static void tx_exp(int K, const double* a, double* r) {
    r[0] = exp(a[0]);
    for (int k = 1; k <= K; ++k) r[k] = tx_step(k, a, r);
}
static void tx_log(int K, const double* a, double* r) {
    r[0] = log(a[0]);
    for (int k = 1; k <= K; ++k) {
        r[k] = k * a[k];
        for (int i = 1; i < k; ++i) r[k] -= i * r[i] * a[k - i];
        r[k] /= k * a[0];
    }
}
static void tx_power(int K, const double* a, double p, double* r) {
    r[0] = pow(a[0], p);
    for (int k = 1; k <= K; ++k) {
        r[k] = 0;
        for (int i = 1; i <= k; ++i) r[k] += (p * i - (k - i)) * a[i] * r[k - i];
        r[k] /= k * a[0];
    }
}
static void tx_integer_power(int K, const double* a, int p, double* r) { /* where a_0 may be 0 */
    double square[tx_most], work[tx_most];
    for (int k = 0; k <= K; ++k) { square[k] = a[k]; r[k] = k == 0; }
    for (; p > 0; p /= 2) {
        if (p % 2) { tx_mul(K, r, square, work); tx_scale(K, 1, work, r); }
        tx_mul(K, square, square, work); tx_scale(K, 1, work, square);
    }
}
static void tx_pow(int K, const double* a, const double* b, double* r) {
    int constant = 1;
    double work[tx_most], one[tx_most] = {1};
    for (int k = 1; k <= K; ++k) constant = constant && b[k] == 0;
    if (constant && b[0] == floor(b[0]) && fabs(b[0]) <= 64) { /* a_0 may be negative */
        tx_integer_power(K, a, abs((int)b[0]), b[0] < 0 ? work : r);
        if (b[0] < 0) tx_div(K, one, work, r);
    } else if (constant) {
        tx_power(K, a, b[0], r);
    } else {
        double logarithm[tx_most];
        tx_log(K, a, logarithm); tx_mul(K, logarithm, b, work); tx_exp(K, work, r);
    }
}
/* sign -1: sine and cosine, 1: hyperbolic ones */
static void tx_sine_cosine(int K, const double* a, int sign, double* s, double* c) {
    s[0] = sign < 0 ? sin(a[0]) : sinh(a[0]);
    c[0] = sign < 0 ? cos(a[0]) : cosh(a[0]);
    for (int k = 1; k <= K; ++k) { s[k] = tx_step(k, a, c); c[k] = sign * tx_step(k, a, s); }
}
static void tx_sin(int K, const double* a, double* r) { double c[tx_most]; tx_sine_cosine(K, a, -1, r, c); }
static void tx_cos(int K, const double* a, double* r) { double s[tx_most]; tx_sine_cosine(K, a, -1, s, r); }
static void tx_sinh(int K, const double* a, double* r) { double c[tx_most]; tx_sine_cosine(K, a, 1, r, c); }
static void tx_cosh(int K, const double* a, double* r) { double s[tx_most]; tx_sine_cosine(K, a, 1, s, r); }
static void tx_tangent(int K, const double* a, int sign, double* r) { /* r' = (1 + sign r^2) a' */
    double g[tx_most];
    r[0] = sign > 0 ? tan(a[0]) : tanh(a[0]);
    g[0] = 1 + sign * r[0] * r[0];
    for (int k = 1; k <= K; ++k) {
        r[k] = tx_step(k, a, g);
        g[k] = 0;
        for (int i = 0; i <= k; ++i) g[k] += sign * r[i] * r[k - i];
    }
}
static void tx_tan(int K, const double* a, double* r) { tx_tangent(K, a, 1, r); }
static void tx_tanh(int K, const double* a, double* r) { tx_tangent(K, a, -1, r); }
static void tx_slope(int K, const double* a, int sign, double p, double* g) { /* (1 + sign a^2)^p */
    double w[tx_most];
    tx_mul(K, a, a, w); tx_scale(K, sign, w, w); w[0] += 1;
    tx_power(K, w, p, g);
}
static void tx_asin(int K, const double* a, double* r) {
    double g[tx_most];
    tx_slope(K, a, -1, -0.5, g);
    r[0] = asin(a[0]);
    for (int k = 1; k <= K; ++k) r[k] = tx_step(k, a, g);
}
static void tx_acos(int K, const double* a, double* r) {
    tx_asin(K, a, r); tx_scale(K, -1, r, r);
    r[0] = acos(a[0]);
}
static void tx_atan(int K, const double* a, double* r) {
    double g[tx_most];
    tx_slope(K, a, 1, -1, g);
    r[0] = atan(a[0]);
    for (int k = 1; k <= K; ++k) r[k] = tx_step(k, a, g);
}
/* the angle of (x, y), by the one of the two quotients whose denominator is not small */
static void tx_atan2(int K, const double* y, const double* x, double* r) {
    double q[tx_most];
    const int steep = fabs(y[0]) > fabs(x[0]);
    tx_div(K, steep ? x : y, steep ? y : x, q);
    tx_atan(K, q, r);
    if (steep) tx_scale(K, -1, r, r);
    r[0] = atan2(y[0], x[0]);
}
static void tx_Abs(int K, const double* a, double* r) { tx_scale(K, a[0] < 0 ? -1 : 1, a, r); }
static void tx_constant(int K, double c, double* r) { for (int k = 0; k <= K; ++k) r[k] = k == 0 ? c : 0; }
static void tx_sign(int K, const double* a, double* r) { tx_constant(K, (a[0] > 0) - (a[0] < 0), r); }
static void tx_Heaviside(int K, const double* a, double* r) { tx_constant(K, 0.5 * (1 + (a[0] > 0) - (a[0] < 0)), r); }
static void tx_Max(int K, const double* a, const double* b, double* r) { tx_scale(K, 1, a[0] < b[0] ? b : a, r); }
static void tx_Min(int K, const double* a, const double* b, double* r) { tx_scale(K, 1, b[0] < a[0] ? b : a, r); }
"""
_ONE = {"exp", "log", "sin", "cos", "tan", "sinh", "cosh", "tanh", "asin", "acos", "atan", "Abs", "sign"}


class _Writer:
    """Statements, one for each operation; what occurs twice is computed once."""

    def __init__(self, known: dict[sympy.Expr, str]):
        self.names, self.lines, self.count = dict(known), [], 0

    def of(self, e: sympy.Expr) -> str:
        """The name of the series of an expression."""
        if e not in self.names:
            self.names[e] = self._operation(e)
        return self.names[e]

    def _call(self, function: str, *arguments: str) -> str:
        name = f"r{self.count}"
        self.count += 1
        self.lines.append(f"double {name}[tx_most]; tx_{function}(K, {', '.join((*arguments, name))});")
        return name

    def _fold(self, function: str, arguments) -> str:
        first, *rest = (self.of(a) for a in arguments)
        for other in rest:
            first = self._call(function, first, other)
        return first

    def _operation(self, e: sympy.Expr) -> str:
        kind = type(e).__name__
        if e.is_number:
            return self._call("constant", repr(float(e)))
        if e.is_Add:
            return self._fold("add", e.args)
        if e.is_Mul:
            return self._product(e)
        if e.is_Pow:
            return self._power(*e.as_base_exp())
        if kind in ("Max", "Min"):
            return self._fold(kind, e.args)
        if kind == "Heaviside":
            return self._call(kind, self.of(e.args[0]))
        if kind in _ONE or kind == "atan2":
            return self._call(kind, *(self.of(a) for a in e.args))
        raise NotImplementedError(kind)

    def _product(self, e: sympy.Expr) -> str:
        factor, rest = e.as_coeff_Mul()
        if factor != 1:
            return self._call("scale", repr(float(factor)), self.of(rest))
        above, below = rest.as_numer_denom()
        if below != 1 and below != rest and above != rest:
            return self._call("div", self.of(above), self.of(below))
        return self._fold("mul", rest.args)

    def _power(self, base: sympy.Expr, exponent: sympy.Expr) -> str:
        if exponent.is_Integer and abs(int(exponent)) <= 64:
            if exponent < 0:
                return self._call("div", self.of(sympy.S.One), self.of(base ** -exponent))
            return self._call("integer_power", self.of(base), str(int(exponent)))
        if exponent.is_number:
            return self._call("power", self.of(base), repr(float(exponent)))
        return self._call("pow", self.of(base), self.of(exponent))


def c_function(e: Equations) -> str:
    """The C function tx_taylor of a system; empty where an operation has no series."""
    n = len(e.states)
    known = {e.symbols[name]: f"y{i}" for i, name in enumerate([*e.states, *e.parameters])} | {e.time: "time"}
    writer = _Writer(known)
    try:
        results = [writer.of(sympy.sympify(f)) for f in e.right]
    except NotImplementedError:
        return ""
    lines = ["double time[tx_most] = {t};"]
    lines += [f"double y{i}[tx_most] = {{x[{i}], v[{i}]}};" for i in range(n)]
    lines += [f"double y{n + j}[tx_most] = {{c[{j}], d ? d[{j}] : 0}};" for j in range(len(e.parameters))]
    lines += writer.lines
    lines += [f"for (int k = 0; k <= K; ++k) out[k * {n} + {i}] = {name}[k];" for i, name in enumerate(results)]
    head = ("void tx_taylor(int K, double t, const double* x, const double* v, const double* c, const double* d, "
            "double* out, void* context) {")
    unused = ["(void)time; (void)c; (void)d; (void)context;"]
    return "\n    ".join([_ARITHMETIC + head, *lines, *unused]) + "\n}\n"
