#!/usr/bin/env python3
"""Draws the pictures of the documentation into docs/pictures; scripts/make-pictures runs it.

They show on light and on dark pages: their ground is transparent and their text grey, but for the
network, which brings the ground and the colours of either.
"""

import argparse
import math
import random
import re
import shutil
import subprocess
import tempfile
from pathlib import Path

import matplotlib
import zeph
from scipy import sparse

matplotlib.use("Agg")
from matplotlib import pyplot  # noqa: E402

ROOT = Path(__file__).resolve().parents[2]
GREY = "#7f868f"
STYLE = {
    "svg.hashsalt": "zeph",  # the same file from the same numbers
    "svg.fonttype": "none",
    "font.family": "sans-serif",
    "text.color": GREY,
    "axes.edgecolor": GREY,
    "axes.labelcolor": GREY,
    "xtick.color": GREY,
    "ytick.color": GREY,
}


def spy(folder):
    """A grid of 12 x 12 nodes, numbered row after row: with its factor, and the factor alone."""
    line = sparse.diags([-1.0, 2.1, -1.0], [-1, 0, 1], shape=(12, 12))
    A = sparse.kronsum(line, line)
    left, _ = zeph.plot.spy(A)
    save(left.figure, folder / "spy.svg")
    alone = pyplot.figure(figsize=(4.6, 4.6), layout="constrained").add_subplot()
    zeph.plot.spy(A, axes=(pyplot.figure().add_subplot(), alone))
    save(alone.figure, folder / "factor.svg")


def save(figure, path):
    figure.savefig(path, transparent=True, metadata={"Date": None})


def network(folder, program):
    with tempfile.TemporaryDirectory() as out:
        run(program, "demo", "--size", "1500", "--out", out)
        shutil.copyfile(Path(out) / "network.svg", folder / "network.svg")


def drive(steps=260, closure=2.1, seed=11):
    """A drive through the streets of a town as a pose graph: odometry, and the places seen again."""
    chance = random.Random(seed)
    noise = (0.05, 0.05, 0.03)
    information = " ".join(str(v) for v in (400, 0, 0, 400, 0, 1111))
    x, y, angle = 0.0, 0.0, 0.0
    truth = [(x, y, angle)]
    for step in range(1, steps):
        x, y = x + math.cos(angle), y + math.sin(angle)
        if step % 4 == 0:  # a corner
            ways = [angle + turn * math.pi / 2 for turn in (-1, 0, 0, 1)]
            inside = [w for w in ways if abs(x + 4 * math.cos(w)) < 15 and abs(y + 4 * math.sin(w)) < 11]
            angle = chance.choice(inside or [angle + math.pi])
        truth.append((x, y, angle))

    def edge(a, b):
        (xa, ya, ta), (xb, yb, tb) = truth[a], truth[b]
        dx, dy, c, s = xb - xa, yb - ya, math.cos(ta), math.sin(ta)
        seen = (c * dx + s * dy, c * dy - s * dx, math.remainder(tb - ta, 2 * math.pi))
        shown = " ".join(f"{v + chance.gauss(0, n):.5f}" for v, n in zip(seen, noise))
        return f"EDGE_SE2 {a} {b} {shown} {information}"

    edges = [edge(a, a + 1) for a in range(steps - 1)]
    for b in range(steps):
        for a in range(0, b - 20):
            near = math.dist(truth[a][:2], truth[b][:2]) < closure / 2
            if near and chance.random() < 0.15:
                edges.append(edge(a, b))
    return "VERTEX_SE2 0 0 0 0\n" + "\n".join(edges) + "\n"


def pose_graph(folder):
    graph = folder / "drive.g2o"
    graph.write_text(drive())
    save(zeph.pose_graph(graph).plot().figure, folder / "pose-graph.svg")


def run(*command):
    out = subprocess.PIPE
    done = subprocess.run([str(c) for c in command], stdout=out, stderr=subprocess.STDOUT, text=True)
    if done.returncode:
        raise SystemExit(f"{command[0]} {command[1]}: {done.stdout}")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--zeph", default="zeph", help="the command")
    parser.add_argument("--folder", type=Path, default=ROOT / "docs" / "pictures")
    o = parser.parse_args()
    o.folder.mkdir(parents=True, exist_ok=True)
    pyplot.rcParams.update(STYLE)
    spy(o.folder)
    network(o.folder, o.zeph)
    pose_graph(o.folder)


if __name__ == "__main__":
    main()
