"""Drives the reports of `zeph adjust` and `zeph demo` in a headless browser.

    report_test.py build/cli/zeph
"""

import csv
import json
import math
import pathlib
import random
import re
import shutil
import subprocess
import sys
import tempfile

SKIPPED = 77
PAGE = pathlib.Path(__file__).with_name("page.js").read_text(encoding="utf-8")
LEAST_CONTRAST = 4.5  # WCAG 2.1, level AA
MEASURED = "y <img src=x onerror=alert(1)>&.mtx"
PLANTED = 321

try:
    from scipy.stats import chi2, norm
    from selenium import webdriver
    from selenium.webdriver.chrome.service import Service
    from selenium.webdriver.common.keys import Keys
except ImportError as missing:
    print(f"skipped: {missing}; Debian has it as python3-{missing.name}")
    sys.exit(SKIPPED)


def matrix_market(path, rows, cols, entries):
    head = "%%MatrixMarket matrix coordinate real general"
    lines = [f"{i + 1} {j + 1} {v!r}" for i, j, v in entries]
    path.write_text("\n".join([head, f"{rows} {cols} {len(entries)}", *lines]) + "\n")


def adjusted(zeph, folder):
    """A grid of heights with one blunder and one observation that nothing checks; its tables."""
    draw = random.Random(1)
    side, entries, y, sigma = 18, [], [], []

    def observe(terms, s):
        entries.extend((len(y), j, v) for j, v in terms)
        y.append(sum(v * 10.0 * math.sin(j) for j, v in terms) + draw.gauss(0, s))
        sigma.append(s)

    for i in range(side * side):
        if (i + 1) % side:
            observe([(i, -1.0), (i + 1, 1.0)], draw.uniform(0.001, 0.003))
        if i + side < side * side:
            observe([(i, -1.0), (i + side, 1.0)], draw.uniform(0.001, 0.003))
    observe([(0, 1.0)], 0.001)
    observe([(side * side - 1, 1.0)], 0.001)
    observe([(side * side, 1.0), (0, -1.0)], 0.002)
    y[PLANTED] += 0.05
    column = [(i, 0, v) for i, v in enumerate(y)]
    matrix_market(folder / "J.mtx", len(y), side * side + 1, entries)
    matrix_market(folder / MEASURED, len(y), 1, column)
    matrix_market(folder / "s.mtx", len(y), 1, [(i, 0, v) for i, v in enumerate(sigma)])
    subprocess.run([zeph, "adjust", "J.mtx", MEASURED, "--sigma", "s.mtx", "-o", "x.csv",
                    "--residuals", "r.csv", "--report", "report.html"],
                   cwd=folder, check=True, stderr=subprocess.DEVNULL)
    tables = []
    for name in ("x.csv", "r.csv"):
        with open(folder / name, newline="") as file:
            tables.append([[float(v) for v in row] for row in list(csv.reader(file))[1:]])
    return tables, sigma


class Browser:
    def __init__(self, profile):
        options = webdriver.ChromeOptions()
        options.binary_location = shutil.which("chromium")
        for flag in ("headless=new", "no-sandbox", "disable-gpu", "disable-quic", "no-first-run",
                     "disable-background-networking", "disable-component-update", "disable-sync",
                     "disable-dev-shm-usage", f"user-data-dir={profile}"):
            options.add_argument(f"--{flag}")
        options.set_capability("goog:loggingPrefs", {"browser": "ALL", "performance": "ALL"})
        self.driver = webdriver.Chrome(service=Service(shutil.which("chromedriver")),
                                       options=options)

    def open(self, page, scheme, width):
        feature = {"name": "prefers-color-scheme", "value": scheme}
        self.driver.execute_cdp_cmd("Emulation.setEmulatedMedia", {"features": [feature]})
        self.driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
            "width": width, "height": 900, "deviceScaleFactor": 1, "mobile": False})
        self.driver.get_log("performance")
        self.driver.get(page.as_uri())

    def ask(self, question):
        return self.driver.execute_script(f"{PAGE}\nreturn {question}")

    def requests(self):
        messages = (json.loads(m["message"])["message"] for m in self.driver.get_log("performance"))
        return [m["params"]["request"]["url"] for m in messages
                if m["method"] == "Network.requestWillBeSent"]


def shown(text):
    return math.nan if text == "–" else float(text.replace("−", "-").replace(",", ""))


def check_appearance(browser, page):
    grounds = set()
    for scheme, width in (("light", 1280), ("dark", 390)):
        browser.open(page, scheme, width)
        assert browser.driver.get_log("browser") == []
        assert browser.requests() == [page.as_uri()]
        assert browser.ask(f"faint({LEAST_CONTRAST})") == []
        assert browser.ask("document.documentElement.scrollWidth") <= width
        grounds.add(browser.ask("ground(document.body)"))
    assert len(grounds) == 2, "the page looks the same on light and dark"


def check_tables(browser, unknowns, observations):
    rows = browser.ask("rows('unknown-table')")
    assert [[float(v) for v, _ in row] for row in rows] == unknowns
    rows = browser.ask("rows('observation-table')")
    by_size = sorted(observations, key=lambda o: 1.0 if math.isnan(o[5]) else -abs(o[5]))
    assert len(observations) > len(rows) == 500
    assert f"The 500 of {len(observations)} observations" in browser.ask("document.body.innerText")
    for row, expected in zip(rows, by_size):
        for (full, text), value in zip(row, expected):
            assert float(full) == value or math.isnan(float(full)) and math.isnan(value)
            assert math.isnan(value) or abs(shown(text) - value) <= 0.0006 * max(1, abs(value))


def check_figures(browser, unknowns, observations, sigma):
    m, n = len(observations), len(unknowns)
    freedom = m - n
    factor = sum((o[1] / s) ** 2 for o, s in zip(observations, sigma)) / freedom
    checked = [o[5] for o in observations if not math.isnan(o[5])]
    largest = max(checked, key=abs)
    bounds = [chi2.ppf(p, freedom) / freedom for p in (0.025, 0.975)]
    critical = norm.isf(0.025 / len(checked))
    figures = browser.ask("figures()")
    expected = {"Observations": m, "Unknowns": n, "Degrees of freedom": freedom,
                "Observations that no other checks": m - len(checked), "Variance factor": factor,
                "Bound of the largest, at 95 %": critical}
    for name, value in expected.items():
        assert math.isclose(shown(figures[name]), value, rel_tol=6e-4), name
    low, high = map(shown, figures["Its bounds, χ² at 95 %"].split(" to "))
    assert math.isclose(low, bounds[0], rel_tol=6e-4) and math.isclose(high, bounds[1], rel_tol=6e-4)
    assert figures["Largest normalised residual"] == \
        f"{largest:.4g}, observation {PLANTED} (row {PLANTED + 1} of the file)".replace("-", "−")
    assert figures["Measured values"] == MEASURED
    text = browser.ask("document.querySelector('.verdicts').innerText")
    assert ("too large" in text) == (factor > bounds[1])
    assert f"Suspected of a blunder: observation {PLANTED} " in text
    about = shown(re.search(r"by about (\S+) ", text)[1])
    assert math.isclose(about, observations[PLANTED][1] / observations[PLANTED][3], rel_tol=6e-4)
    marked = browser.ask("[...document.querySelectorAll('tr.suspected')].map(r => "
                         "r.cells[0].textContent)")
    assert marked == [str(PLANTED)]


def key(text, by_size):
    """What a cell is sorted by: its number, or the words and numbers of its name; None for NaN."""
    try:
        value = float(text)
    except ValueError:
        return [int(word) if word.isdigit() else word for word in text.split()]
    return None if math.isnan(value) else abs(value) if by_size else value


def check_sorting(browser, table, by_size):
    heads = browser.driver.find_elements("css selector", f"#{table} th")
    before = sorted(map(str, browser.ask(f"rows('{table}')")))
    for column, head in enumerate(heads):
        button = head.find_element("tag name", "button")
        seen = set()
        for how in (button.click, lambda: button.send_keys(Keys.ENTER)):
            how()
            direction = head.get_attribute("aria-sort")
            seen.add(direction)
            keys = [key(v, column in by_size) for v in browser.ask(f"column('{table}', {column})")]
            there = [k for k in keys if k is not None]
            assert there == sorted(there, reverse=direction == "descending"), head.text
            assert keys[:len(there)] == there, "cells without a number come last"
            assert browser.ask(f"document.querySelectorAll('#{table} [aria-sort]').length") == 1
        assert seen == {"ascending", "descending"}, "a second turn reverses the order"
    assert sorted(map(str, browser.ask(f"rows('{table}')"))) == before, "rows were lost or torn"


def main(zeph):
    for program in ("chromium", "chromedriver"):
        if not shutil.which(program):
            print(f"skipped: there is no {program} (Debian: chromium, chromium-driver)")
            return SKIPPED
    with tempfile.TemporaryDirectory(ignore_cleanup_errors=True) as name:
        folder = pathlib.Path(name)
        (unknowns, observations), sigma = adjusted(zeph, folder)
        subprocess.run([zeph, "demo", "--size", "200", "--out", folder / "demo"], check=True,
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        browser = Browser(folder / "profile")
        try:
            check_appearance(browser, folder / "demo" / "report.html")
            assert "nan" in browser.ask("column('observation-table', 6)"), "all are checked"
            check_sorting(browser, "observation-table", by_size={2, 6})
            check_appearance(browser, folder / "report.html")
            check_tables(browser, unknowns, observations)
            check_figures(browser, unknowns, observations, sigma)
            check_sorting(browser, "unknown-table", by_size=set())
            assert browser.driver.get_log("browser") == []
            assert browser.ask("document.images.length") == 0
        finally:
            browser.driver.quit()
    print("1 passed, 0 failed")
    return 0


if __name__ == "__main__":
    sys.exit(main(str(pathlib.Path(sys.argv[1]).resolve())))
