"""The fleet's configuration for Prometheus: checked, its rules tested, and everything at work together."""

import re
import shutil
import subprocess
import sys

import exporting
import pytest
from exporting import table

FOLDER = exporting.ROOT / "fleet" / "prometheus"
ALERTS = {"RynDrops", "RynCoreBusy", "RynUplinkSilent", "RynLinkDown", "RynMACTableNearLimit", "RynFlowMisses",
          "RynExporterStale", "RynSimulated", "RynDown"}  # fmt: skip

needs_promtool = pytest.mark.skipif(not shutil.which("promtool"), reason="needs promtool")


@needs_promtool
@pytest.mark.parametrize(
    "command", ["check config prometheus.yml", "check rules rules.yml", "test rules rules_test.yml"]
)
def test_promtool(command):
    done = subprocess.run(["promtool", *command.split()], cwd=FOLDER, text=True, capture_output=True)
    assert done.returncode == 0, done.stdout + done.stderr


def test_every_alert_is_there_and_tested():
    rules, tests = (FOLDER / "rules.yml").read_text(), (FOLDER / "rules_test.yml").read_text()
    assert set(re.findall(r"alert: (\w+)", rules)) == ALERTS
    assert set(re.findall(r"alertname: (\w+)", tests)) == ALERTS
    shown = (exporting.ROOT / "docs" / "fleet.md").read_text()
    assert ALERTS <= set(re.findall(r"`(Ryn\w+)`", shown))


def test_rules_name_metrics_that_there_are():
    known = {row["metric"] for row in table()}
    used = set(re.findall(r"\bryn_\w+", (FOLDER / "rules.yml").read_text()))
    assert used and used <= known


@pytest.mark.skipif(not shutil.which("prometheus"), reason="needs prometheus")
def test_fleet_at_work():
    """fleet/fleet.py: rates, an alert, a changed setting, a killed exporter; within two minutes."""
    command = [sys.executable, exporting.ROOT / "fleet" / "fleet.py", "--build", exporting.BUILD]
    done = subprocess.run(list(map(str, command)), text=True, capture_output=True, timeout=120)
    assert (done.returncode, done.stderr) == (0, ""), done.stdout + done.stderr
    for line in (
        "off by 0",
        "RynLinkDown fires for hv-1",
        "32, then 64",
        "RynDown fires for hv-3",
        "All of it was seen",
    ):
        assert line in done.stdout
