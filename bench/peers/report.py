"""Builds the comparison programs, runs them, checks that the answers agree and prints the tables.

Called by bench/compare. Every program prints one JSON object a line; times are seconds, the best of
several rounds in which all contestants ran in turn. Exit status: 1 when answers disagree or a
program fails, with a sentence on standard error.
"""

import argparse
import json
import os
import re
import subprocess
import sys
import tempfile

import engine_tables
from text import megabytes, milliseconds, number, ratio, table, times, times3, total, verdict

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
HERE = os.path.dirname(os.path.abspath(__file__))
TABLES = ["engine", "variances", "general", "dense", "assembly", "products", "bundle"]

FULL = {
    "engine": ["network:100000", "network:300000", "grid2d:300", "grid2d:1000", "grid3d:20",
               "grid3d:30", "grid3d:40", "bundle:10000", "bundle:100000"],
    "variances": ["network:10000", "network:100000", "grid2d:300", "grid2d:1000", "grid3d:30",
                  "grid3d:40"],
    "general": ["flow:60", "flow:150", "random:20000"],
    "orders": [4, 8, 16, 64, 100, 128, 200, 256, 258, 1000],
    "triplets": 10**7,
    "product": (10**6, 10**5),
    "images": {400: 5, 800: 3, 1200: 2, 1800: 2},  # with the rounds for each
    "limits": {"engine": 5, "variances": 3, "general": 24, "dense": 1, "assembly": 12, "products": 2},
    "plot": {2: [32, 56, 100, 178, 300, 550, 1000], 3: [8, 12, 16, 22, 30, 40]},
}
QUICK = {
    "engine": ["network:3000", "grid2d:60", "grid3d:12", "bundle:1000"],
    "variances": ["network:3000", "grid2d:60", "grid3d:14"],
    "general": ["flow:30", "random:1000"],
    "orders": [8, 64, 100, 256],
    "triplets": 2 * 10**5,
    "product": (10**5, 10**4),
    "images": {60: 3, 150: 3},
    "limits": {"engine": 0.5, "variances": 0.3, "general": 3, "dense": 0.1, "assembly": 0.5, "products": 0.1},
    "plot": {2: [16, 24, 32, 48], 3: [6, 8, 10, 12]},
}

complaints = []


def complain(sentence):
    complaints.append(sentence)
    print("bench/compare: " + sentence, file=sys.stderr)


def note(text):
    print("bench/compare: " + text, file=sys.stderr, flush=True)


# ---- building and running

def build(folder):
    note("building")
    configure = ["cmake", "-S", ROOT, "-B", folder, "-DCMAKE_BUILD_TYPE=Release",
                 "-DZEPH_BUILD_BENCH=ON", "-DZEPH_BUILD_TESTS=OFF", "-DZEPH_BUILD_TOOLS=OFF"]
    if not os.path.exists(os.path.join(folder, "CMakeCache.txt")):
        configure += ["-G", "Ninja"]
    for command in (configure, ["cmake", "--build", folder, "--target", "compare_programs"]):
        done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        if done.returncode != 0:
            sys.stderr.write(done.stdout)
            sys.exit("bench/compare: the build failed")


class Programs:
    def __init__(self, folder):
        self.folder = os.path.join(folder, "bench", "peers")

    def has(self, name):
        return os.path.exists(os.path.join(self.folder, "compare_" + name))

    def run(self, name, *arguments, **environment):
        """The records that a program prints; [] and a complaint when it fails."""
        settings = {"OPENBLAS_NUM_THREADS": "1", "OMP_NUM_THREADS": "1", **environment}
        command = [os.path.join(self.folder, "compare_" + name)] + [str(a) for a in arguments]
        done = subprocess.run(command, env={**os.environ, **settings}, stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, text=True)
        if done.returncode != 0:
            reason = done.stderr.strip().splitlines()[-1:] or [f"status {done.returncode}"]
            complain(f"compare_{name} failed: {reason[0]}")
            return []
        return [json.loads(line) for line in done.stdout.splitlines()]


# ---- the machine

def read(path):
    try:
        with open(path, encoding="utf-8") as file:
            return file.read()
    except OSError:
        return ""


def first(pattern, text, otherwise="unknown"):
    found = re.search(pattern, text, re.MULTILINE)
    return found.group(1).strip() if found else otherwise


def caches():
    sizes = []
    for index in range(4):
        base = f"/sys/devices/system/cpu/cpu0/cache/index{index}/"
        kind, level = read(base + "type").strip(), read(base + "level").strip()
        if kind and kind != "Instruction":
            sizes.append(f"L{level} {read(base + 'size').strip()}")
    return ", ".join(sizes) or "unknown"


def package_versions(names):
    versions = []
    for name in names:
        asked = subprocess.run(["dpkg-query", "-W", "-f=${Version}", name], capture_output=True,
                               text=True)
        if asked.returncode == 0:
            versions.append(f"{name} {asked.stdout.strip()}")
    return ", ".join(versions) or "unknown"


def limits_text(programs):
    found = programs.run("limits")
    if not found:
        return "unknown"
    r = found[0]
    return (f"{number(r['fused'])} GFLOP/s fused, {number(r['separate'])} GFLOP/s with separate "
            f"multiply and add; memory {number(r['read'])} GB/s read, {number(r['copy'])} GB/s "
            f"copied")


def machine(programs):
    cpu = read("/proc/cpuinfo")
    compiler = subprocess.run(["c++", "--version"], capture_output=True, text=True).stdout
    flags = first(r"^flags\s*: (.*)", cpu, "")
    widest = "AVX-512" if "avx512f" in flags else "AVX2" if "avx2" in flags else "SSE2"
    memory = int(first(r"MemTotal:\s*(\d+)", read("/proc/meminfo"), "0")) / 2**20
    packages = ["libsuitesparse-dev", "libopenblas-dev", "libmumps-seq-dev", "libeigen3-dev",
                "libceres-dev", "r-cran-tmb", "python3-scipy"]
    return table(["", ""], [
        ["processor", f"{first('model name.*: (.*)', cpu)} (family "
                      f"{first('cpu family.*: (.*)', cpu)}, model {first('^model.*: (.*)', cpu)}), "
                      f"{os.cpu_count()} cores, {widest}"],
        ["caches", caches()],
        ["memory", f"{memory:.0f} GiB"],
        ["system", first(r'PRETTY_NAME="(.*)"', read("/etc/os-release"))],
        ["compiler", compiler.splitlines()[0] if compiler else "unknown"],
        ["peers", package_versions(packages)],
        ["OpenBLAS kernel", openblas_core(programs) or "unknown"],
        ["limits of one core, measured", limits_text(programs)],
        ["threads", "one, except where `sortElements` and `compress` use all cores"],
    ]).replace("|---|---:|", "|---|---|")


# ---- the engine

def engine_table(programs, sizes, files, cache):
    return engine_tables.measure(programs, sizes, files, complain, note, cache)


# ---- variances

def measure_variances(programs, matrix, limit):
    """The record of one matrix, under its label, or None."""
    label, equals, source = matrix.partition("=")
    source = source if equals else label
    note(f"variances: {label if equals else os.path.basename(source)}")
    records = programs.run("variances", source, f"--limit={limit}")
    if not records:
        return None
    record = records[0]
    if equals:
        record["matrix"] = label
    check_variances(record)
    return record


def check_variances(record):
    checks = [("step_difference", "our whole call and its step"),
              ("simplicial_difference", "our panels and the column-wise step"),
              ("mumps_difference", "our variances and MUMPS'"),
              ("umfpack_difference", "our variances and UMFPACK's solves")]
    for field, what in checks:
        if record.get(field, 0) > record.get("tolerance", 0):
            complain(f"{record['matrix']}: {what} differ by {record[field]:.1e}, more than "
                     f"{record['tolerance']:.1e}, which the condition allows")
    peers = [("mumps_inverse", "mumps_difference"), ("umfpack_solve", "umfpack_difference"),
             ("simplicial_step", "simplicial_difference"), ("step", "step_difference")]
    for result, difference in peers:  # a difference that is not finite is left out of the record
        if result in record and difference not in record:
            complain(f"{record['matrix']}: a result beside {result} is not finite")


def step_target(name):
    cube = re.match(r"3-D grid (\d+)", name)
    return 0.45 if not cube else 0.6 if int(cube.group(1)) <= 30 else 0.8


def variances_text(records, unfit):
    fit = [r for r in records if "step" in r]
    steps, calls, peers, memory = [], [], [], []
    for r in fit:
        name = r["matrix"]
        step = ratio(r["step"], r["supernodal_factor"])
        rate = ratio(r.get("step_operations"), r["step"] * 1e9)
        steps.append([name, number(r["n"]), number(r["entries"]),
                      milliseconds(r["supernodal_factor"]), milliseconds(r["step"]), times(step),
                      verdict(step, step_target(name), True), number(rate),
                      milliseconds(r.get("simplicial_step")),
                      times(ratio(r.get("simplicial_step"), r["step"]))])
        parts = total(r, "order", "factor", "step")
        calls.append([name, milliseconds(r["order"]), milliseconds(r["factor"]),
                      milliseconds(r["step"]), milliseconds(r["whole"]),
                      times(ratio(r["whole"], parts)), verdict(r["whole"] / parts, 1.15, True)])
        mumps = total(r, "mumps_analysis", "mumps_factor", "mumps_inverse")
        solves = None
        if "umfpack_solve" in r:
            solves = r["umfpack_factor"] + r["n"] * r["umfpack_solve"]
        peers.append([name, milliseconds(r["whole"]), milliseconds(r.get("mumps_analysis")),
                      milliseconds(r.get("mumps_factor")), milliseconds(r.get("mumps_inverse")),
                      times(ratio(mumps, r["whole"])),
                      times(ratio(r.get("mumps_inverse"), r["step"])),
                      milliseconds(r.get("umfpack_solve")), number(solves),
                      times(ratio(solves, r["whole"]))])
        memory.append([name, megabytes(r["entries"] * 8 / 2**20), megabytes(r.get("factor_mb")),
                       megabytes(r.get("whole_mb")), megabytes(r.get("mumps_mb")),
                       megabytes(r.get("umfpack_mb"))])
    text = "### The inverse step beside CHOLMOD's supernodal factorisation (ms)\n\n"
    text += table(["matrix", "unknowns", "entries of L", "factor", "our step", "step / factor",
                   "target", "GFLOP/s of the step", "column-wise step", "column-wise / ours"],
                  steps)
    text += "\n### The whole call `partialInverseChol` beside its parts (ms)\n\n"
    text += table(["matrix", "order", "factor as CHOLMOD chooses", "our step", "whole call",
                   "whole / parts", "target"], calls)
    text += ("\n### Peers for the same variances (ms; n solves in s, extrapolated from up to a "
             "dozen solves without refinement; MUMPS is given our ordering)\n\n")
    text += table(["matrix", "our call", "MUMPS analysis", "MUMPS factor", "MUMPS A⁻¹ entries",
                   "MUMPS / ours, all", "MUMPS / ours, step", "UMFPACK, one solve",
                   "UMFPACK, n solves (s)", "n solves / ours"], peers)
    text += "\n### Peak memory above the matrix itself (MB, 2²⁰ bytes)\n\n"
    text += table(["matrix", "values of L alone", "CHOLMOD order + factor", "our call", "MUMPS",
                   "UMFPACK factors"], memory)
    for r in unfit:
        text += f"\n{r['matrix']} is {r['unfit']} and left out here.\n"
    return text


def variances_table(programs, sizes, files, cache):
    records = []
    for matrix in files + sizes["variances"]:
        record = measure_variances(programs, matrix, sizes["limits"]["variances"])
        if record:
            cache[matrix] = record
            records.append(record)
    return "## Variances\n\n" + variances_text(records, [r for r in records if "unfit" in r])


# ---- general matrices

def general_table(programs, sizes, files, _):
    rows = []
    for matrix in files + sizes["general"]:
        label, equals, source = matrix.partition("=")
        source = source if equals else label
        note(f"general: {label if equals else os.path.basename(source)}")
        for r in programs.run("general", source, f"--limit={sizes['limits']['general']}"):
            if equals:
                r["matrix"] = label
            for field in ("difference", "mumps_difference"):
                if field == "mumps_difference" and "mumps" not in r:
                    continue
                if not r.get(field, float("inf")) <= 1e-6:
                    complain(f"{r['matrix']}: variances by LU differ ({field} {r.get(field)})")
            solves = number(r["solves"]) + (" (extrapolated)" if r["extrapolated"] else "")
            rows.append([r["matrix"], number(r["n"]), milliseconds(r["factor"]),
                         milliseconds(r["selected"]), solves,
                         times(ratio(r["solves"], r["selected"])),
                         milliseconds(r.get("mumps")),
                         times(ratio(r.get("mumps"), r["selected"])), f"{r.get('difference', float('nan')):.0e}",
                         megabytes(r.get("selected_mb")), megabytes(r.get("mumps_mb"))])
    return "## Variances of general matrices\n\n" + table(
        ["matrix", "unknowns", "UMFPACK factor (ms)", "`partialInverseLUSelected` (ms)",
         "`partialInverseLU`, n solves (s)", "solves / selected", "MUMPS, all of it (ms)",
         "MUMPS / ours", "largest relative difference", "peak memory ours (MB)",
         "MUMPS (MB)"], rows)


# ---- dense products

def dense_table(programs, sizes, files, _):
    def measured(**environment):
        records = programs.run("dense", f"--limit={sizes['limits']['dense']}", *sizes["orders"],
                               **environment)
        for r in records:
            if not r["agree"]:
                complain(f"dense products of order {r['n']:.0f} disagree")
        return {int(r["n"]): r for r in records}

    note("dense products")
    default = measured()
    wide = default and next(iter(default.values()))["level"] >= 2
    forced = measured(OPENBLAS_CORETYPE="SkylakeX") if wide else {}
    narrow = measured(OPENBLAS_CORETYPE="Haswell")
    rows = []
    for n, r in default.items():
        f, h = forced.get(n, {}), narrow.get(n, {})
        rows.append([str(n)] + [number(r.get(k)) for k in ("ours", "avx2", "fused", "openblas")]
                    + [number(f.get("openblas")), number(h.get("openblas")),
                       number(r.get("eigen")), number(r.get("plain")),
                       times(ratio(r["ours"], r.get("openblas"))),
                       times(ratio(f.get("ours"), f.get("openblas"))),
                       times(ratio(h.get("avx2"), h.get("openblas"))),
                       times(ratio(r["ours"], r.get("eigen")))])
    core = next(iter(default.values())).get("core") if default else None
    return "## Dense products (GFLOP/s)\n\n" + table(
        ["order", "ours", "ours, AVX2 level", "ours, fused (inner kernel of the inverses)",
         f"OpenBLAS, default ({core or 'not installed'})", "OpenBLAS, AVX-512 forced (SkylakeX)",
         "OpenBLAS, AVX2 forced (Haswell)", "Eigen", "plain loop", "ours / OpenBLAS default",
         "ours / AVX-512 forced", "AVX2 level / AVX2 forced", "ours / Eigen"], rows)


# ---- assembly

def scipy_seconds(path, record):
    python = sys.executable or "python3"
    done = subprocess.run([python, os.path.join(HERE, "scipy_conversion.py"), path,
                           str(int(record["order"])), "4"], capture_output=True, text=True)
    if done.returncode != 0:
        if "ModuleNotFoundError" not in done.stderr:
            complain("SciPy's conversion failed")
        return None
    result = json.loads(done.stdout)
    # Sums that cancel to nothing stay in SciPy's matrix; with random values there are none.
    close = abs(result["digest"] - record["digest"]) <= 1e-7 * max(1.0, record["entries"])
    if result["entries"] != record["entries"] or not close:
        complain(f"assembly, {record['case']}: SciPy's matrix differs from ours")
    return result["scipy"]


def assembly_table(programs, sizes, files, _):
    note("assembly")
    names = {"random": "random", "duplicates": "eight a position", "sorted": "already sorted"}
    rows, rate = [], None
    with tempfile.TemporaryDirectory() as folder:
        for r in programs.run("assembly", sizes["triplets"], folder,
                              f"--limit={sizes['limits']['assembly']}"):
            if not r["agree"]:
                complain(f"assembly, {r['case']}: std::sort or Eigen gives another result")
            scipy = scipy_seconds(os.path.join(folder, r["case"] + ".bin"), r)
            rate = r.get("add_rate", rate)
            rows.append([names[r["case"]]]
                        + [milliseconds(r.get(k)) for k in ("sort", "sort_one_thread", "compress",
                                                            "std_sort", "eigen")]
                        + [milliseconds(scipy), times(ratio(r["std_sort"], r["sort_one_thread"])),
                           times(ratio(r["std_sort"], r["sort"])),
                           times(ratio(r.get("eigen"), r["compress"])),
                           times(ratio(scipy, r["compress"]))])
    text = f"## Assembly: {sizes['triplets']:,} triplets (ms)\n\n" + table(
        ["list", "`sortElements`", "the same on one thread", "`compress`", "std::sort",
         "Eigen setFromTriplets", "SciPy coo → csc", "std::sort / one thread",
         "std::sort / `sortElements`", "Eigen / `compress`", "SciPy / `compress`"], rows)
    if rate:
        text += f"\n`addElement` into reserved storage: {rate / 1e6:,.0f} million a second.\n"
    return text


# ---- products with dense operands

def products_table(programs, sizes, files, _):
    note("sparse times dense")
    triplets, height = sizes["product"]
    rows = []
    for r in programs.run("products", triplets, height,
                          f"--limit={sizes['limits']['products']}"):
        if not r["agree"]:
            complain(f"multiplyDense with {r['cols']:.0f} columns and Eigen disagree")
        fields = ("by_columns", "by_rows", "unordered", "eigen_rows", "eigen_columns")
        rows.append([str(int(r["cols"]))] + [milliseconds(r.get(k)) for k in fields]
                    + [times(ratio(r["by_columns"], r.get("eigen_rows"))),
                       times(ratio(r["by_columns"], r.get("eigen_columns"))),
                       verdict(ratio(r["by_columns"], r.get("eigen_rows")), 1.0, True)])
    return (f"## `multiplyDense`: {triplets:,} triplets, {height:,} rows (ms)\n\n" + table(
        ["columns", "ours, sorted by columns", "ours, sorted by rows", "ours, unordered",
         "Eigen, compressed rows", "Eigen, compressed columns", "ours / Eigen rows",
         "ours / Eigen columns", "target"], rows))


# ---- bundles

def bundle_table(programs, sizes, files, _):
    if not programs.has("bundle"):
        return "## Covariances of cameras\n\nEigen is not installed.\n"
    rows, parts = [], []
    for images, rounds in sizes["images"].items():
        note(f"bundle: {images} images")
        for r in programs.run("bundle", images, f"--repeats={rounds}"):
            name = f"{images:,}"
            for peer in ("dense", "sparse"):
                if not r.get(peer + "_difference", float("inf")) <= r["tolerance"]:
                    complain(f"{images} images: our covariances and those of Eigen's {peer} Schur "
                             f"complement differ by {r.get(peer + '_difference')}")
            new = r["made"] + r["covariances"]
            rows.append([name, number(r["points"]), number(r["observations"]),
                         milliseconds(r["kept"]), milliseconds(new),
                         milliseconds(r.get("dense")), milliseconds(r.get("sparse")),
                         times3(ratio(r["kept"], r.get("dense"))),
                         verdict(ratio(r["kept"], r.get("dense")), 0.1, True),
                         times3(ratio(new, r.get("dense"))),
                         times3(ratio(r["kept"], r.get("sparse"))),
                         times3(ratio(new, r.get("sparse")))])
            parts.append([name] + [milliseconds(r.get(k)) for k in (
                "made", "refactorise", "covariances", "dense_complement", "dense_factor",
                "dense_inverse", "sparse_complement", "sparse_factor", "sparse_inverse")])
    text = "## Covariances of all cameras of a bundle (ms of processor time)\n\n" + table(
        ["images", "points", "observations", "ours, analysis kept", "ours, new",
         "Eigen, dense Schur complement", "Eigen, sparse", "ours kept / dense", "target",
         "ours new / dense", "ours kept / sparse", "ours new / sparse"], rows)
    return text + "\n### Its parts (ms)\n\n" + table(
        ["images", "ours: order, analyse, factorise", "refactorise", "covariances",
         "dense: complement", "LLT", "inverse", "sparse: complement", "order and LLT", "inverse"],
        parts)


# ---- scaling

def scaling(programs, sizes, cache, folder):
    measured = {}
    for dimensions, sides in sizes["plot"].items():
        for side in sides:
            matrix = f"grid{dimensions}d:{side}"
            if matrix not in cache:
                cache[matrix] = measure_variances(programs, matrix, 0.3)
            if cache[matrix] and "step" in cache[matrix]:
                more = engine_tables.scaling(programs, matrix, 0.3, complain, cache)
                measured.setdefault(dimensions, []).append({**cache[matrix], **more})
    try:
        import plots
    except ImportError:
        note("Matplotlib is not installed: no plots")
        return
    os.makedirs(folder, exist_ok=True)
    plots.draw(measured, folder)


def openblas_core(programs):
    records = programs.run("dense", "--limit=0", 4)
    return records[0].get("core") if records else None


def main():
    parser = argparse.ArgumentParser(prog="bench/compare", description=__doc__.splitlines()[0])
    parser.add_argument("files", nargs="*", metavar="[NAME=]FILE",
                        help="matrices to measure as well: symmetric ones (.mtx) in the tables of the "
                             "engine and of variances, others in that of general matrices; and "
                             "pose graphs (.g2o) beside Ceres")
    parser.add_argument("--quick", action="store_true", help="small sizes, seconds")
    parser.add_argument("--only", choices=TABLES, help="one table")
    parser.add_argument("--plots", metavar="FOLDER", help="write scaling plots (SVG) there")
    parser.add_argument("-o", metavar="FILE", help="write the tables there, not to the terminal")
    arguments = parser.parse_args()

    files = sort_files(arguments.files)
    folder = os.path.join(ROOT, "build-compare")
    build(folder)
    programs = Programs(folder)
    sizes = QUICK if arguments.quick else FULL
    sections = ["## The machine\n\n" + machine(programs)]
    cache = {}
    makers = {"engine": engine_table, "variances": variances_table, "general": general_table, "dense": dense_table,
              "assembly": assembly_table, "products": products_table, "bundle": bundle_table}
    for name in TABLES:
        if arguments.only in (None, name):
            sections.append(makers[name](programs, sizes, files.get(name, []), cache))
    if arguments.plots:
        scaling(programs, sizes, cache, arguments.plots)
    if complaints:
        sections.append("## Failures\n\n" + "".join(f"* {c}\n" for c in complaints))
    text = "\n".join(sections)
    if arguments.o:
        with open(arguments.o, "w", encoding="utf-8") as file:
            file.write(text)
    else:
        print(text)
    sys.exit(1 if complaints else 0)


def sort_files(files):
    """Files by table: what declares itself symmetric goes to the variances and the engine."""
    sorted_files = {"engine": [], "variances": [], "general": []}
    for file in files:
        path = file.partition("=")[2] or file
        if not os.path.isfile(path):
            sys.exit(f"bench/compare: there is no file {path}")
        if path.endswith(".g2o"):
            sorted_files["engine"].append(file)
            continue
        with open(path, encoding="utf-8", errors="replace") as content:
            symmetric = "symmetric" in content.readline().lower().split()
        for name in ["engine", "variances"] if symmetric else ["general"]:
            sorted_files[name].append(file)
    return sorted_files


if __name__ == "__main__":
    main()
