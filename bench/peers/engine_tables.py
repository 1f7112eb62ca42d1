"""The tables of bench/compare about the Cholesky engine: programs run, answers checked, Markdown."""

import json
import os
import shutil
import subprocess
import tempfile

from text import megabytes, milliseconds, number, ratio, table, times, verdict

HERE = os.path.dirname(os.path.abspath(__file__))
PEERS = {"cholmod_amd": "CHOLMOD, AMD", "cholmod_metis": "CHOLMOD, METIS",
         "mumps_amd": "MUMPS, AMD", "eigen_amd": "Eigen LDLᵀ, AMD"}
MANY_OPERATIONS = 1e9
TMB_SECONDS = 300


def kind(source, record):
    """What the targets go by."""
    if not record["file"]:
        return source.partition(":")[0]
    return "planar poses" if record["node"] == 3 else "structure"


def targets(source, record):
    """Ours / R with one thread and with two; None where nothing was aimed at."""
    smallest = {"grid2d": 90000, "network": 100000, "grid3d": 8000}
    if record["n"] < smallest.get(kind(source, record), 0):
        return None, None
    by_kind = {"structure": (0.8, 0.55), "planar poses": (1.0, None), "grid2d": (0.9, 0.65),
               "network": (0.9, 0.65), "bundle": (None, None)}
    if source.startswith("grid3d:"):
        return (1.3 if int(source.partition(":")[2]) >= 30 else 1.0), 0.8
    return by_kind[kind(source, record)]


def judged(value, target, at_most=True):
    return "–" if target is None else verdict(value, target, at_most)


def percent(x):
    return "–" if x is None else f"{100 * x:.0f} %"


def label_of(text):
    label, equals, source = text.partition("=")
    return (label, source) if equals else (None, text)


# ---- running

def check(record, complain):
    name = record["matrix"]
    for field, whose in (("difference", "the engine's"), ("checked_difference", "zeph::Factor's")):
        difference = record.get(field, float("inf"))
        if not difference <= record["tolerance"]:
            complain(f"{name}: {whose} variances and those from CHOLMOD's factor differ by "
                     f"{difference:.1e}")
    if not record.get("residual", float("inf")) <= 1e-3:
        complain(f"{name}: the engine's variances miss the identity of the inverse")
    if not record["same_bits"]:
        complain(f"{name}: the engine's bits depend on the threads or on refactorising")
    if "subset" in record and not record.get("subset_difference", 1.0) <= record["tolerance"]:
        complain(f"{name}: covariances of some poses differ from all variances or a solve")


def run_tmb(exported, record, limit, complain):
    """TMB's record for the matrix in a file, or {}."""
    command = ["Rscript", "--vanilla", os.path.join(HERE, "tmb_subset.R"), exported, str(limit)]
    settings = {"OPENBLAS_NUM_THREADS": "1", "OMP_NUM_THREADS": "1"}
    try:
        done = subprocess.run(command, capture_output=True, text=True, timeout=TMB_SECONDS,
                              env={**os.environ, **settings})
    except subprocess.TimeoutExpired:
        complain(f"{record['matrix']}: TMB did not end within {TMB_SECONDS} s")
        return {}
    if done.returncode != 0:
        if "there is no package called" not in done.stderr:
            complain(f"{record['matrix']}: TMB failed")
        return {}
    result = json.loads(done.stdout)
    if not result["difference"] <= record["tolerance"]:
        complain(f"{record['matrix']}: our variances and TMB's differ by "
                 f"{result['difference']:.1e}")
    return result


def measure_matrix(programs, matrix, limit, complain, with_tmb=True):
    """(source, record) of one matrix; None where the program failed or it does not fit."""
    label, source = label_of(matrix)
    with tempfile.TemporaryDirectory() as folder:
        exported = os.path.join(folder, "matrix.bin")
        with_tmb = with_tmb and shutil.which("Rscript") is not None
        export = [f"--export={exported}"] if with_tmb else []
        records = programs.run("engine", source, f"--limit={limit}", *export)
        if not records or "unfit" in records[0]:
            return None
        record = records[0]
        record["matrix"] = label or record["matrix"]
        check(record, complain)
        if with_tmb:
            record["tmb"] = run_tmb(exported, record, limit / 2, complain)
    return source, record


def measure(programs, sizes, files, complain, note, cache):
    """The tables as text; the records of generated matrices go into the cache."""
    limit = sizes["limits"]["engine"]
    measured, graphs = [], []
    for item in files + sizes["engine"]:
        label, source = label_of(item)
        note(f"engine: {label or os.path.basename(source)}")
        if source.endswith(".g2o"):
            graphs += measure_graph(programs, label, source, limit, complain)
            continue
        found = measure_matrix(programs, item, limit, complain)
        if found:
            measured.append(found)
            cache["engine", item] = found[1]
    parts = [factorisation_table(measured), stage_table(measured), rate_table(measured),
             memory_table(measured), subset_table(measured), tmb_table(measured),
             ceres_table(graphs)]
    return "## The engine\n\n" + "\n".join(part for part in parts if part)


def scaling(programs, matrix, limit, complain, cache):
    """What the plots show of a generated matrix: ours, the best factorisation, and our memory."""
    if ("engine", matrix) not in cache:
        found = measure_matrix(programs, matrix, limit, complain, False)
        cache["engine", matrix] = found and found[1]
    record = cache["engine", matrix]
    if not record:
        return {}
    return {"engine": record["total_1"], "least": best_peer(record)[0],
            "engine_mb": record.get("ours_mb_1")}


def measure_graph(programs, label, source, limit, complain):
    if not programs.has("ceres"):
        return []
    records = programs.run("ceres", source, f"--limit={limit}")
    for r in records:
        r["graph"] = label or r["graph"]
        if not r.get("difference", float("inf")) <= r["tolerance"]:
            complain(f"{r['graph']}: our covariances and Ceres' differ by "
                     f"{r.get('difference', float('inf')):.1e}")
    return records


# ---- tables

def best_peer(record):
    """(R, its name): the least time to order and factorise."""
    return min((record[name], title) for name, title in PEERS.items() if name in record)


def factorisation_table(measured):
    rows = []
    for source, r in measured:
        least, who = best_peer(r)
        one, two = ratio(r["total_1"], least), ratio(r["total_2"], least)
        aim_one, aim_two = targets(source, r)
        rows.append([r["matrix"], number(r["n"])]
                    + [milliseconds(r.get(peer)) for peer in PEERS]
                    + [who, milliseconds(r["total_1"]), times(one), judged(one, aim_one),
                       milliseconds(r["total_2"]), times(two), judged(two, aim_two),
                       milliseconds(r["checked_1"]), milliseconds(r["checked_2"])])
    return ("### All variances beside ordering and factorising alone (ms)\n\n"
            "*R* is the least time of the peers, *ours* from unsorted triplets to all "
            "variances; *checked* the same through `zeph::Factor`, with its checks and the "
            "estimate of the error.\n\n" + table(
                ["matrix", "unknowns", *PEERS.values(), "R is", "ours", "ours / R", "target",
                 "ours, two threads", "/ R", "target", "checked", "checked, two threads"], rows))


def stage_table(measured):
    rows = []
    for source, r in measured:
        again = ratio(r["again"], r["total_1"])
        poses = r["file"] and r["node"] > 1
        rows.append([r["matrix"], number(r["entries"]), "METIS" if r["dissected"] else "AMD"]
                    + [milliseconds(r[name]) for name in
                       ("assembly_1", "shuffled", "analysis_1", "placement_1", "factor_1",
                        "inverse_1", "total_1", "again")]
                    + [times(again), judged(again, 0.6 if poses else None)])
    return "### Stages of our call, one thread (ms)\n\n" + table(
        ["matrix", "entries of L", "order", "assembly", "assembly, shuffled", "analysis",
         "placement", "factor", "inverse", "whole call", "refactorise + variances", "/ whole call",
         "target"], rows)


def rate_table(measured):
    rows = []
    for source, r in measured:
        work, kernel = r["operations"], r["kernel"]
        factor = work / r["factor_1"]
        inverse = 2 * work / r["inverse_1"]
        both = 3 * work / (r["factor_1"] + r["inverse_1"])
        aim = 0.6 if source == "grid3d:40" else 0.45 if r["file"] and r["node"] == 6 else None
        numeric = ratio(r["factor_1"] + r["inverse_1"], r["factor_2"] + r["inverse_2"])
        whole = ratio(r["total_1"], r["total_2"])
        many = 3 * work > MANY_OPERATIONS
        rows.append([r["matrix"], f"{3 * work:.2g}", number(kernel / 1e9), number(factor / 1e9),
                     percent(factor / kernel), number(inverse / 1e9), percent(inverse / kernel),
                     percent(both / kernel),
                     "–" if aim is None else
                     f"≥ {percent(aim)} {'met' if both / kernel >= aim else 'missed'}",
                     times(numeric), judged(numeric, 1.7 if many else None, False),
                     times(whole)])
    return ("### Against the machine: GFLOP/s of one thread, and what a second one gains\n\n"
            + table(["matrix", "operations", "fused kernel", "factor", "of the kernel", "inverse",
                     "of the kernel", "both", "target", "two threads: factor + inverse", "target",
                     "whole call"], rows))


def memory_table(measured):
    rows = []
    for _, r in measured:
        factor = r["entries"] * 8 / 2**20
        ours = ratio(r.get("ours_mb_1"), factor)
        rows.append([r["matrix"], megabytes(factor), megabytes(r.get("ours_mb_1")), times(ours),
                     judged(ours, 1.6), times(ratio(r.get("ours_mb_2"), factor)),
                     times(ratio(r.get("checked_mb"), factor))]
                    + [times(ratio(r.get(peer + "_mb"), factor)) for peer in PEERS])
    return ("### Peak memory above the triplets (MB, 2²⁰ bytes), and as a multiple of L's values\n\n"
            + table(["matrix", "values of L", "ours", "ours / L", "target",
                     "ours, two threads / L", "checked / L"] + [f"{title} / L" for title in PEERS.values()],
                    rows))


def subset_table(measured):
    rows = []
    for _, r in measured:
        if "subset" in r:
            share = ratio(r["subset"], r["subset_all"])
            rows.append([r["matrix"], f"{r['subset_nodes']:.0f} × {r['node']:.0f}",
                         milliseconds(r["subset"]), milliseconds(r["subset_all"]),
                         f"{share:.3f} ×", judged(share, 0.1 if r["node"] == 6 else None)])
    return rows and ("### All covariances among ten poses beside all variances, the factor given "
                     "(ms)\n\n" + table(["matrix", "poses × unknowns", "the poses' block",
                                         "all variances", "block / all", "target"], rows))


def tmb_table(measured):
    rows = []
    for _, r in measured:
        t = r.get("tmb")
        if t:
            rows.append([r["matrix"], milliseconds(t["factor"]), milliseconds(t["step"]),
                         milliseconds(r["factor_1"]), milliseconds(r["inverse_1"]),
                         times(ratio(t["step"], r["inverse_1"])),
                         times(ratio(t["factor"] + t["step"], r["total_1"]))])
    return rows and ("### TMB's subset solve (ms)\n\n" + table(
        ["matrix", "R: order + factor", "TMB: step", "our factor", "our inverse",
         "TMB's step / our inverse", "both / our whole call"], rows))


def ceres_table(graphs):
    rows = []
    for r in graphs:
        done = number(r["ceres_poses"]) + (" (extrapolated)" if r["extrapolated"] else "")
        rows.append([r["graph"], number(r["poses"]), done, number(r["ceres"]),
                     milliseconds(r["ours"]), times(ratio(r["ceres"], r["ours"]))])
    return rows and ("### Diagonal blocks of all poses beside Ceres' `Covariance`\n\n" + table(
        ["pose graph", "poses", "of which Ceres computed", "Ceres, all (s)", "ours, all (ms)",
         "Ceres / ours"], rows))
