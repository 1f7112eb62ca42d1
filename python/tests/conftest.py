"""Builds without the LU route say so in one sentence; what stands on the route is skipped there."""

import pytest

ABSENT = "this build has no LU route"


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport(item, call):
    report = (yield).get_result()
    if report.failed and ABSENT in report.longreprtext + report.capstdout:
        report.outcome = "skipped"
        report.longrepr = (item.location[0], item.location[1], ABSENT)
