"""Tests of the installed package as a whole: types, the time to import it, what it needs."""

import os
import pathlib
import pickle
import subprocess
import sys

import pytest
from processes import check_types

import vantor

# Ten times what an idle machine needs.
LONGEST_IMPORT_S = 1.5


def run(*arguments):
    return subprocess.run(arguments, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, timeout=300)


def seconds(statement):
    """The time of a statement in a new interpreter, after NumPy was imported: the best of some."""
    code = f"import time, numpy; start = time.perf_counter(); {statement}; print(time.perf_counter() - start)"
    return min(float(run(sys.executable, "-c", code).stdout) for _ in range(3))


def test_is_installed_from_the_wheel():
    assert pathlib.Path(vantor.__file__).is_relative_to(sys.prefix)
    assert (pathlib.Path(vantor.__file__).parent / "py.typed").exists()


def test_has_types_that_mypy_accepts_strictly(tmp_path):
    program = tmp_path / "program.py"
    program.write_text('''
import vantor
with vantor.connect("sim:") as server, server.session({}) as session:
    for frame in session.frames(count=100):
        item = frame[0, 1]
        reveal_type(item.distances_m[item.level.argmax()])
        reveal_type(item.iq)
        reveal_type(frame.lost_before)
''')
    check_types(tmp_path, "--package", "vantor")
    used = check_types(tmp_path, program)
    assert "complexfloating" in used and '"builtins.int"' in used, used


def test_is_imported_quickly():
    assert seconds("import vantor") < LONGEST_IMPORT_S


def test_needs_numpy_only():
    names = "sorted({name.partition('.')[0] for name in sys.modules} - sys.stdlib_module_names)"
    loaded = run(sys.executable, "-c", f"import sys; before = set(sys.modules); import vantor; print({names})").stdout
    extra = set(eval(loaded)) - {"numpy", "vantor", "mkl"}
    unrelated = set(eval(run(sys.executable, "-c", f"import sys, numpy; print({names})").stdout))
    assert extra <= unrelated, loaded


def test_has_a_documented_public_name_for_everything():
    for name in vantor.__all__:
        thing = getattr(vantor, name)
        assert name == "FULL_SCALE" or thing.__doc__, name
        if isinstance(thing, type):
            for member, value in vars(thing).items():
                if not member.startswith("_") and (callable(value) or isinstance(value, property)):
                    assert value.__doc__, f"{name}.{member}"


def test_shows_public_names():
    for name in [*vantor.__all__, "open"]:
        assert name == "FULL_SCALE" or getattr(vantor, name).__module__ == "vantor", name
    text = run(sys.executable, "-c", "import vantor; help(vantor.connect)").stdout
    assert "in module vantor:" in text and "vantor.Timeouts = Timeouts(" in text and "vantor._" not in text, text
    calibration = vantor.Calibration(1, 24, "ab")
    assert pickle.loads(pickle.dumps(calibration)) == calibration


def test_has_the_version_of_the_project():
    [metadata] = pathlib.Path(sys.prefix).glob("lib/python3*/site-packages/vantor-*.dist-info/METADATA")
    assert f"\nVersion: {vantor.__version__}\n" in metadata.read_text("utf-8")


def test_says_that_it_cannot_find_the_server_program(monkeypatch):
    monkeypatch.delenv("VANTOR_SERVER", raising=False)
    monkeypatch.setenv("PATH", os.devnull)
    with pytest.raises(vantor.ConnectError, match="set VANTOR_SERVER to its path"):
        vantor.connect("sim:")
