"""Pictures of diagrams, curves, orbits, multipliers, sections and exponents, with Matplotlib.

Stable solutions are solid, unstable ones dashed; equilibria black, cycles blue (their minima and maxima);
curves in two parameters have the colour of their kind. Every function takes ``ax=`` and returns the axes;
the data of the lines are to be had from ``lines`` for any other plotter.
"""

from __future__ import annotations

from dataclasses import dataclass

import numpy as np

# colours that people with any colour vision tell apart (Okabe and Ito)
BLACK, BLUE, SKY, GREEN, ORANGE, RED, PURPLE = (
    "#000000", "#0072B2", "#56B4E9", "#009E73", "#E69F00", "#D55E00", "#CC79A7")
CURVES = {"LP": BLACK, "H": RED, "BP": PURPLE, "LPC": BLUE, "PD": GREEN, "NS": ORANGE, "BPC": SKY}
MARKERS = {"LP": "s", "LPC": "s", "BP": "D", "BPC": "D", "H": "o", "PD": "^", "NS": "*", "UZ": "x",
           "CP": "h", "BT": "h", "GH": "h", "ZH": "h", "HH": "h", "CPC": "h", "GPD": "h", "CH": "h",
           "R1": "h", "R2": "h", "R3": "h", "R4": "h", "LPPD": "h", "LPNS": "h", "PDNS": "h", "NSNS": "h"}


@dataclass
class Line:
    """A piece of a branch of one stability: arrays ``x`` and ``y``."""

    branch: str
    kind: str
    stable: bool
    x: np.ndarray
    y: np.ndarray


def of_cycles(branch) -> bool:
    """Whether the points of a branch are cycles, and no curve of special ones."""
    return len(branch.vary) == 1 and "cycle" in branch.kind


def quantities(branch, name: str) -> list[str]:
    """The columns that stand for a name: of a variable of a cycle its minimum and maximum."""
    if of_cycles(branch) and f"max {name}" in branch.columns:
        return [f"min {name}", f"max {name}"]
    return [name]


def _pieces(branch, x: str, y: str) -> list[tuple[bool, np.ndarray, np.ndarray]]:
    """Columns cut where stability changes: at the special point where that happens, else at the next point."""
    xs, ys = branch[x], branch[y]
    stable = np.asarray(branch["stable"]) > 0 if len(branch.vary) == 1 else np.ones(len(branch), bool)
    between = {special.after: special for special in branch.specials}
    made, begin, first = [], 0, ([], [])
    for end in [*(np.flatnonzero(np.diff(stable)) + 1), len(stable)]:
        last = ([], [])
        if end < len(stable):
            special = between.get(end - 1)
            last = ([special.quantity(x)], [special.quantity(y)]) if special else (xs[[end]], ys[[end]])
        made.append((bool(stable[begin]), *(np.concatenate((head, column[begin:end], tail))
                                            for head, column, tail in zip(first, (xs, ys), last))))
        begin, first = end, last if end < len(stable) and special else ([], [])
    return made


def lines(branches, x: str, y: str) -> list[Line]:
    """The lines of a picture of ``y`` over ``x``, as arrays."""
    made = []
    for branch in branches:
        if not len(branch) or x not in branch.columns:
            continue
        if y not in branch.columns and f"max {y}" not in branch.columns:
            continue
        for column in quantities(branch, y):
            made += [Line(branch.id, branch.kind, *piece) for piece in _pieces(branch, x, column)]
    return made


def style(kind: str, stable: bool, doubled: bool = False) -> dict:
    """Matplotlib's arguments for a line of this kind."""
    if kind.endswith(" curve"):
        return {"color": CURVES.get(kind.removesuffix(" curve"), PURPLE), "lw": 1.4, "ls": "-"}
    colour = BLACK if kind == "equilibria" else SKY if doubled else BLUE
    return {"color": colour, "lw": 1.6 if stable else 1.0, "ls": "-" if stable else (0, (4, 2.5))}


def _value(special, name: str, pick) -> float:
    """A coordinate of a special point: a parameter, the period, the norm or a variable."""
    if name in special.parameters:
        return special.parameters[name]
    return special.quantity(name, pick)


def marker_style(special) -> dict:
    """Marker by type; open where subcritical, a question mark where unresolved."""
    if special.status == "unresolved":
        return {"marker": "$?$", "ms": 8, "mfc": RED, "mec": RED}
    colour = CURVES.get(special.type, BLACK)
    is_open = special.subtype == "subcritical"
    return {"marker": MARKERS.get(special.type, "o"), "ms": 9 if special.type == "NS" else 6,
            "mfc": "white" if is_open else colour, "mec": colour}


class _Labels:
    """Places texts beside points so that none lies on another one or on a marker, nor on a line if that can be."""

    OFFSETS = [(6, 6), (6, -12), (-6, 6), (-6, -12), (0, 12), (0, -18), (16, 14), (16, -22),
               (-16, 14), (-16, -22), (0, 24), (0, -32), (28, 4), (-28, 4)]

    def __init__(self, ax):
        self.ax, self.taken = ax, []
        drawn = [line.get_transform().transform(line.get_xydata()) for line in ax.lines if line.get_linestyle() != "None"]
        self.drawn = np.concatenate([self._dense(points) for points in drawn if len(points)] or [np.empty((0, 2))])

    @staticmethod
    def _dense(points: np.ndarray) -> np.ndarray:
        """Points of a line in pixels, no more than a few pixels apart."""
        points = points[np.isfinite(points).all(axis=1)]
        way = np.concatenate(([0], np.cumsum(np.hypot(*np.diff(points, axis=0).T)))) if len(points) else np.empty(0)
        at = np.linspace(0, way[-1], int(way[-1] / 3) + 2) if len(way) else way
        return np.stack([np.interp(at, way, points[:, k]) for k in (0, 1)], axis=1) if len(way) else points

    def _crossed(self, box) -> bool:
        x, y = self.drawn.T
        return bool(np.any((box[0] < x) & (x < box[2]) & (box[1] < y) & (y < box[3])))

    def occupy(self, x: float, y: float, size: float = 5):
        px, py = self.ax.transData.transform((x, y))
        self.taken.append((px - size, py - size, px + size, py + size))

    def _free(self, box) -> bool:
        return not any(box[0] < b[2] and b[0] < box[2] and box[1] < b[3] and b[1] < box[3]
                       for b in self.taken)

    def place(self, text: str, x: float, y: float, **how):
        renderer = self.ax.figure.canvas.get_renderer()
        frame = self.ax.get_window_extent(renderer)
        for dx, dy, on_lines in [(*offset, on_lines) for on_lines in (False, True) for offset in self.OFFSETS]:
            label = self.ax.annotate(text, (x, y), (dx, dy), textcoords="offset points", fontsize="small",
                                     ha="left" if dx > 0 else "right" if dx < 0 else "center", **how)
            e = label.get_window_extent(renderer)
            box = (e.x0, e.y0, e.x1, e.y1)
            inside = frame.x0 <= e.x0 and e.x1 <= frame.x1 and frame.y0 <= e.y0 and e.y1 <= frame.y1
            if inside and self._free(box) and (on_lines or not self._crossed(box)):
                break
            label.remove()
        else:  # no free place: the marker speaks for itself, and the table has the name
            return
        self.taken.append(box)


def _axes(ax, **subplots):
    if ax is not None:
        return ax
    import matplotlib.pyplot as plt
    return plt.subplots(**{"layout": "constrained", **subplots})[1]


def diagram(branches, x: str, y: str, ax=None, labels: bool = True):
    """Branches and their special points, ``y`` over ``x``. Returns the axes."""
    ax = _axes(ax)
    branches = list(branches)
    doubled = {b.id for b in branches if b.parent.startswith("PD")}
    for line in lines(branches, x, y):
        ax.plot(line.x, line.y, **style(line.kind, line.stable, line.branch in doubled))
    ax.set_xlabel(x)
    ax.set_ylabel(y)
    ax.margins(0.04, 0.08)
    points = list(_special_points(branches, x, y))
    for special, px, py in points:
        ax.plot([px], [py], ls="none", zorder=5, **marker_style(special))
    if labels:
        ax.figure.canvas.draw()  # texts are placed in pixels: the limits must be final
        ax.autoscale(False)
        placer = _Labels(ax)
        for _, px, py in points:
            placer.occupy(px, py)
        for special, px, py in points:
            placer.place(special.id, px, py)
    return ax


def _special_points(branches, x: str, y: str):
    seen = set()
    for branch in branches:
        for special in branch.specials:
            if x not in branch.columns or special.type == "EP":
                continue
            try:
                px, py = _value(special, x, np.max), _value(special, y, np.max)
            except KeyError:
                continue
            # a cycle branch that ends at a Hopf point has it too
            place = special.type, f"{px:.6g}", f"{py:.3g}"
            if np.isfinite(px) and np.isfinite(py) and place not in seen:
                seen.add(place)
                yield special, px, py


def orbit_in_time(time, values, names, ax=None):
    """Variables over time, one line each."""
    ax = _axes(ax)
    for name, column, colour in zip(names, values, (BLUE, RED, GREEN, ORANGE, PURPLE, SKY, BLACK)):
        ax.plot(time, column, color=colour, label=name)
    ax.set_xlabel("t")
    ax.legend(frameon=False)
    return ax


def phase(x, y, names, ax=None, **how):
    """One variable over another."""
    ax = _axes(ax)
    ax.plot(x, y, **{"color": BLUE, "lw": 1.2, **how})
    ax.set_xlabel(names[0])
    ax.set_ylabel(names[1])
    return ax


def multipliers(values, ax=None):
    """Multipliers and the unit circle; those outside are red. Far ones stand at the rim, with their size."""
    ax = _axes(ax, figsize=(4.5, 4.5))
    values = np.asarray(values, complex)
    turn = np.exp(1j * np.linspace(0, 2 * np.pi, 361))
    ax.plot(turn.real, turn.imag, color="#999999", lw=1)
    ax.axhline(0, color="#dddddd", lw=0.8, zorder=0)
    ax.axvline(0, color="#dddddd", lw=0.8, zorder=0)
    rim = 2.0
    for mu in values:
        size = abs(mu)
        shown = mu if size <= rim else mu / size * rim
        ax.plot([shown.real], [shown.imag], "o", ms=6, color=RED if size > 1 else BLUE)
        if size > rim:
            ax.annotate(f"{size:.3g}", (shown.real, shown.imag), (0, 8), textcoords="offset points",
                        ha="center", fontsize=8)
    limit = 1.15 * max(1.0, min(rim, np.max(np.abs(values), initial=1.0)))
    ax.set(xlim=(-limit, limit), ylim=(-limit, limit), aspect="equal", xlabel="Re μ", ylabel="Im μ")
    return ax


def section(x, y, names, ax=None):
    """Points of a Poincaré section."""
    return phase(x, y, names, ax, ls="none", marker=".", ms=2)


def exponents(parameter, values, name: str, ax=None):
    """Lyapunov exponents over a parameter: ``values`` has a row per parameter."""
    ax = _axes(ax)
    for k, colour in zip(range(np.shape(values)[1]), (RED, BLUE, GREEN, ORANGE, PURPLE, SKY)):
        ax.plot(parameter, np.asarray(values)[:, k], color=colour, lw=1.2, label=f"λ{k + 1}")
    ax.axhline(0, color="#999999", lw=0.8)
    ax.set_xlabel(name)
    ax.set_ylabel("Lyapunov exponents")
    ax.legend(frameon=False)
    return ax
