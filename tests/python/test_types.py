"""Stubs and documentation are complete."""

import inspect
import os
import subprocess
import sys

import pytest

import zrncamera

pytest.importorskip("mypy", reason="needs: mypy")


def mypy(module, *arguments, folder):
    environment = {**os.environ, "MYPYPATH": os.environ["PYTHONPATH"]}
    done = subprocess.run(
        [sys.executable, "-m", module, *arguments],
        cwd=folder,
        env=environment,
        capture_output=True,
        text=True,
    )
    return done.stdout + done.stderr if done.returncode else ""


# What the package's own sources, which are their stubs, import from the standard library, an alias, and the driver.
NOT_OURS = r"""
zrncamera\._\w+\.(AsyncIterator|Callable|Generic|Mapping|Sequence)(\..*)?
zrncamera\._\w+\.Policy
zrncamera\.libzrncamera
"""


def test_stubs_are_complete(tmp_path):
    allowed = tmp_path / "allowed"
    allowed.write_text(NOT_OURS)
    arguments = ["zrncamera", "--allowlist", str(allowed), "--ignore-unused-allowlist"]
    assert mypy("mypy.stubtest", *arguments, folder=tmp_path) == ""


def test_users_are_checked(tmp_path):
    user = tmp_path / "user.py"
    user.write_text(
        """
import zrncamera

with zrncamera.open("ZR1") as camera:
    camera.exposure_us = 2000
    gain: int = camera.r_gain
    for frame in camera.stream():
        mean: float = float(frame.a.mean())
    for item in camera.stream("all", keep_alive=True):
        if isinstance(item, zrncamera.Event):
            print(item.kind)
        else:
            print(item.number)
    for kept in (True, False):
        for item in camera.stream(keep_alive=kept):
            print(item.kind if isinstance(item, zrncamera.Event) else item.number)
    version: str = zrncamera.__version__
"""
    )
    assert mypy("mypy", "--strict", str(user), folder=tmp_path) == ""
    user.write_text("import zrncamera\nzrncamera.open().r_gain = 'red'\n")
    assert "Incompatible types" in mypy("mypy", "--strict", str(user), folder=tmp_path)


def test_everything_is_documented():
    for name in zrncamera.__all__:
        thing = getattr(zrncamera, name)
        if not inspect.isclass(thing):
            assert inspect.getdoc(thing)
            continue
        assert thing.__doc__
        for attribute, value in vars(thing).items():
            if not attribute.startswith("_"):
                assert value.__doc__, f"{name}.{attribute}"
