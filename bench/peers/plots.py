"""Scaling plots of bench/compare: time and memory against unknowns, on logarithmic axes."""

import os

import matplotlib

matplotlib.use("svg")
import matplotlib.pyplot as plt  # noqa: E402
import matplotlib.ticker  # noqa: E402

matplotlib.rcParams.update({"svg.hashsalt": "compare", "font.family": "sans-serif",
                            "font.size": 10, "axes.spines.top": False,
                            "axes.spines.right": False})

# Colours that stay apart for colour-blind readers, and a marker each.
ENGINE = ("our engine", "#0b6e4f", "o", "-")
LEAST = ("best peer, order + factor only", "#555555", "s", "--")
OURS = ("ours with CHOLMOD's factor", "#2f8fce", "v", "-")
FACTOR = ("CHOLMOD, order + factor only", "#555555", "s", "--")
MUMPS = ("MUMPS, A⁻¹ entries", "#c44e00", "^", "-")
SOLVES = ("UMFPACK, n solves (extrapolated)", "#5b4fb3", "D", ":")
UMFPACK = ("UMFPACK, factors", "#5b4fb3", "D", ":")


def time_of_solves(r):
    if "umfpack_solve" not in r:
        return None
    return r["umfpack_factor"] + r["n"] * r["umfpack_solve"]


def time_of_mumps(r):
    if "mumps_inverse" not in r:
        return None
    return r["mumps_analysis"] + r["mumps_factor"] + r["mumps_inverse"]


TIMES = [(ENGINE, lambda r: r.get("engine")), (LEAST, lambda r: r.get("least")),
         (OURS, lambda r: r["whole"]), (MUMPS, time_of_mumps), (SOLVES, time_of_solves)]
MEMORY = [(ENGINE, lambda r: r.get("engine_mb")), (OURS, lambda r: r.get("whole_mb")),
          (FACTOR, lambda r: r.get("factor_mb")), (MUMPS, lambda r: r.get("mumps_mb")),
          (UMFPACK, lambda r: r.get("umfpack_mb"))]


def figure(measured, series, unit, path):
    dimensions = sorted(measured)
    fig, axes = plt.subplots(1, len(dimensions), figsize=(5.2 * len(dimensions), 4.4),
                             sharey=True, squeeze=False)
    for axis, dimension in zip(axes[0], dimensions):
        records = sorted(measured[dimension], key=lambda r: r["n"])
        for (label, colour, marker, line), value in series:
            points = [(r["n"], value(r)) for r in records if value(r)]
            if points:
                axis.plot(*zip(*points), color=colour, marker=marker, linestyle=line, label=label,
                          markersize=5, linewidth=1.6)
        axis.set_xscale("log")
        axis.set_yscale("log")
        axis.xaxis.set_minor_formatter(matplotlib.ticker.NullFormatter())
        axis.set_title(f"{dimension}-D grids")
        axis.set_xlabel("unknowns")
        axis.grid(True, which="major", color="#dddddd", linewidth=0.7)
        axis.set_axisbelow(True)
    axes[0][0].set_ylabel(unit)
    handles, labels = axes[0][0].get_legend_handles_labels()
    fig.legend(handles, labels, loc="lower center", ncol=2, frameon=False)
    fig.tight_layout(rect=(0, 0.17, 1, 1))
    fig.savefig(path, metadata={"Date": None, "Creator": None})
    plt.close(fig)


def draw(measured, folder):
    if not measured:
        return
    figure(measured, TIMES, "seconds, all variances", os.path.join(folder, "scaling-time.svg"))
    figure(measured, MEMORY, "peak memory above the matrix, MB",
           os.path.join(folder, "scaling-memory.svg"))
