"""ryn-sim run: what a program finds, what is said about it, and how it ends."""

import os
import pathlib
import re

import interpreters
import pytest


def test_run_finds_stand_ins_and_module_from_a_build(sim):
    done = sim.process("run", "--", "/usr/bin/env", LD_LIBRARY_PATH="/before", PYTHONPATH="/python")
    assert done.returncode == 0, done
    environment = dict(line.split("=", 1) for line in done.stdout.splitlines() if "=" in line)
    libraries = environment["LD_LIBRARY_PATH"].split(":")
    assert os.path.exists(os.path.join(libraries[0], "libryn.so")) and libraries[1] == "/before"
    folders = environment["PYTHONPATH"].split(":")
    assert any(name.startswith("_libryn") for name in os.listdir(folders[0])) and folders[-1] == "/python"
    assert environment["RYN_SIM_STATE"] == str(sim.path())


def test_run_passes_on_arguments_and_exit_code(sim):
    sim("init")
    done = sim.process(
        "run", "--host", "default", "--", "sh", "-c", 'printf "%s|" "$@"; exit 37', "-", "--json", "--", "-x"
    )
    assert (done.returncode, done.stdout) == (37, "--json|--|-x|")


def test_a_command_that_is_not_there_is_exit_code_127(sim):
    sim("init")
    for name in ("no-such-command", "/no/such/command"):
        assert sim.fails(127, "run", "--", name) == f"ryn-sim: {name}: there is no such command\n"


def test_a_command_that_cannot_be_executed_is_exit_code_126(sim, tmp_path):
    sim("init")
    plain, broken = tmp_path / "plain", tmp_path / "broken"
    plain.write_text("echo no\n")
    broken.write_bytes(b"\x7fELF but not really")
    broken.chmod(0o755)
    assert sim.fails(126, "run", "--", plain) == f"ryn-sim: {plain}: may not be executed\n"
    assert sim.fails(126, "run", "--", tmp_path) == f"ryn-sim: {tmp_path}: is a directory\n"
    assert sim.fails(126, "run", "--", broken) == f"ryn-sim: {broken}: Exec format error\n"


def test_a_host_that_was_named_must_be_there(sim):
    assert 'no simulated host "typo"' in sim.fails(1, "run", "--host", "typo", "--", "true")


@pytest.fixture
def foreign() -> pathlib.Path:
    """An interpreter that the module was not built for."""
    built = [file.name for file in (pathlib.Path(os.environ["RYN_BUILD"]) / "libryn").glob("_libryn*.so")]
    for program in interpreters.found():
        major, minor, _ = program.parts[-3].split(".")
        if not any(f"cpython-{major}{minor}" in name for name in built):
            return program
    pytest.skip("there is no other interpreter in ~/.pyenv")


def test_run_says_which_interpreter_the_module_was_built_for(sim, foreign, tmp_path):
    version, interpreter = foreign.parts[-3], foreign
    script = tmp_path / "script"
    script.write_text(f"#!{interpreter}\nprint('ran')\n")
    script.chmod(0o755)
    for command in ([interpreter, "-c", "print('ran')"], [script]):
        done = sim.process("run", "--", *command)
        assert (done.returncode, done.stdout) == (0, "ran\n")
        assert re.fullmatch(
            rf"ryn-sim: the module in \S+/libryn was built for cpython-\S+; {command[0]} is CPython {version} and"
            rf" cannot import it \(build for it: meson setup -Dpython={interpreter}\)\n",
            done.stderr,
        )


def test_run_does_not_shadow_an_installed_module_silently(sim, tmp_path):
    (tmp_path / "_libryn.py").write_text("")
    show = ["--", "/usr/bin/python3", "-c", "import _libryn; print(_libryn.__file__)"]
    done = sim.process("run", *show, PYTHONPATH=str(tmp_path))
    built = pathlib.Path(done.stdout.strip())
    assert built.parent == pathlib.Path(os.environ["RYN_BUILD"]).resolve() / "libryn"
    assert done.stderr == (
        f"ryn-sim: using the module in {built.parent}, not the installed {tmp_path / '_libryn.py'}"
        " (for that one: ryn-sim run --installed)\n"
    )
    done = sim.process("run", "--installed", *show, PYTHONPATH=str(tmp_path))
    assert (done.stdout, done.stderr) == (f"{tmp_path / '_libryn.py'}\n", "")


@pytest.mark.parametrize("command", [["sh", "-c", "echo ran"], ["/usr/bin/python3", "-c", "print('ran')"]])
def test_run_is_silent_where_there_is_nothing_to_say(sim, command):
    done = sim.process("run", "--", *command, PYTHONPATH="")
    assert (done.stdout, done.stderr) == ("ran\n", "")


def test_missing_stand_ins_are_named(sim, tmp_path):
    sim("init")
    assert str(tmp_path) in sim.fails(1, "run", "--", "true", RYN_SIM_LIBS=str(tmp_path))
