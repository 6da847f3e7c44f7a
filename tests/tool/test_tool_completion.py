"""Shells complete commands, options, and the names that a host has."""

import json
import os
import shutil
import subprocess

import pytest
from simtool import ROOT, TOOL

pexpect = pytest.importorskip("pexpect")
pytest.importorskip("shtab")


@pytest.fixture
def script(sim, tmp_path):
    """Makes a shell's script, with the tool on the path under its own name."""

    def make(shell: str, name: str):
        if shutil.which(shell) is None:
            pytest.skip(f"there is no {shell}")
        (tmp_path / "bin").mkdir()
        (tmp_path / "bin" / "ryn-sim").symlink_to(TOOL)
        file = tmp_path / "functions" / name
        file.parent.mkdir()
        file.write_text(sim("completion", shell))
        return file

    return make


def environment(sim, tmp_path) -> dict:
    return sim.environment | {"PATH": f"{tmp_path / 'bin'}:/usr/bin:/bin", "TERM": "dumb"}


@pytest.mark.parametrize(
    "words, expected",
    [
        (["ini"], ["init"]),
        (["clock", "sp"], ["speed"]),
        (["clock", "s"], ["show", "speed", "step"]),
        (["fault", "add", "--cor"], ["--corrupt"]),
        (["fault", "add", "--corrupt", "o"], ["ones"]),
        (["init", "over"], ["overloaded"]),
        (["show", "ra"], ["rates"]),
        (["show", "ports", "dvs-"], ["dvs-1", "dvs-2", "dvs-3"]),
        (["get", "flow_"], ["flow_timeout", "flow_floor"]),
        (["ls", "nics.lunic"], [f"nics.lunic{number}" for number in range(4)]),
        (["set", "ports.web-0.lr"], ["ports.web-0.lro"]),
        (["fault", "add", "Ryn_GetLR"], ["Ryn_GetLRO"]),
        (["event", "uplink-"], ["uplink-down", "uplink-hang"]),
        (["event", "uplink-down", "lunic3"], ["lunic3"]),
        (["info", "--host", "oth"], ["other"]),
    ],
)
def test_bash_completes_words(sim, tmp_path, script, words, expected):
    sim("init")
    sim("init", "empty", "--host", "other")
    line = " ".join(words)
    program = f"""
. {script('bash', 'ryn-sim')}
COMP_WORDS=(ryn-sim {line})
COMP_CWORD={len(words)}
_shtab_ryn_sim ryn-sim {words[-1]} {(['ryn-sim'] + words)[-2]}
printf '%s\\n' "${{COMPREPLY[@]}}"
"""
    done = subprocess.run(["bash", "-c", program], capture_output=True, text=True, env=environment(sim, tmp_path))
    assert (sorted(set(done.stdout.split())), done.stderr) == (sorted(expected), "")


def completed(shell, typed: str, expected: str) -> None:
    shell.send(typed + "\t")
    shell.expect_exact(expected, timeout=60)
    shell.sendcontrol("u")


def test_bash_completes_at_a_terminal(sim, tmp_path, script):
    sim("init")
    file = script("bash", "ryn-sim")
    shell = pexpect.spawn("bash", ["--norc", "--noprofile", "-i"], env=environment(sim, tmp_path), encoding="utf-8")
    try:
        shell.sendline(f". {file}; echo 'rea''dy'")
        shell.expect_exact("ready")
        completed(shell, "ryn-sim ini", "ryn-sim init ")
        completed(shell, "ryn-sim get ports.web-0.mac_l", "ports.web-0.mac_limit ")
    finally:
        shell.close(force=True)


def test_zsh_completes_at_a_terminal(sim, tmp_path, script):
    sim("init")
    file = script("zsh", "_ryn-sim")
    shell = pexpect.spawn("zsh", ["-f", "-i"], env=environment(sim, tmp_path), encoding="utf-8")
    try:
        shell.sendline(f"fpath=({file.parent} $fpath); autoload -U compinit; compinit -u -d {tmp_path / 'dump'}")
        shell.sendline("echo 'rea''dy'")
        shell.expect_exact("ready")
        completed(shell, "ryn-sim ini", "init ")
        completed(shell, "ryn-sim get ports.web-0.mac_l", "ports.web-0.mac_limit ")
    finally:
        shell.close(force=True)


@pytest.mark.parametrize("shell", ["bash", "zsh"])
def test_a_shell_without_a_host_is_offered_nothing_and_told_nothing(sim, tmp_path, script, shell):
    file = script(shell, "script")
    subprocess.run([shell, "-n", file], check=True)
    if shell == "bash":
        program = f". {file}; _ryn_sim_paths ports."
        done = subprocess.run(["bash", "-c", program], capture_output=True, text=True, env=environment(sim, tmp_path))
        assert (done.stdout, done.stderr) == ("", "")


def test_an_installation_puts_the_scripts_where_shells_look(sim, tmp_path):
    meson, build = "/usr/bin/meson", tmp_path / "build"
    if shutil.which(meson) is None or shutil.which("ninja") is None:
        pytest.skip("there is no meson")
    options = ["-Dinstall_simhost=true", "-Dexporter=disabled", "--prefix=/usr"]
    environment = {**os.environ, "LD_LIBRARY_PATH": "", "LD_PRELOAD": ""}
    subprocess.run([meson, "setup", *options, build, ROOT], check=True, capture_output=True, env=environment)
    targets = {"simhost/tool/ryn-sim": "bash", "simhost/tool/_ryn-sim": "zsh"}
    subprocess.run(["ninja", "-C", build, *targets], check=True, capture_output=True, env=environment)
    for target, shell in targets.items():
        assert (build / target).read_text() == sim("completion", shell)
    done = subprocess.run([meson, "introspect", "--installed", build], check=True, capture_output=True, text=True)
    installed = json.loads(done.stdout)
    assert installed[str(build / "simhost/tool/ryn-sim")] == "/usr/share/bash-completion/completions/ryn-sim"
    assert installed[str(build / "simhost/tool/_ryn-sim")] == "/usr/share/zsh/site-functions/_ryn-sim"
