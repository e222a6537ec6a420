"""Scripts that start themselves on virtual cameras."""

import os
import subprocess
import sys

import pytest
from conftest import without_virtual_cameras

SCRIPT = """
import sys
import zrncamera
bus = zrncamera.virtual("type2", "type7,serial=42", rate=60)
print(sys.argv[1:], sys.flags.optimize, [camera.port for camera in zrncamera.list()])
with zrncamera.open("42") as camera:
    print(camera.serial, len(camera.grab(2, timeout=20)))
sys.exit(3)
"""


def python(*arguments, **options):
    return subprocess.run(
        [sys.executable, *map(str, arguments)],
        env=without_virtual_cameras(),
        capture_output=True,
        text=True,
        timeout=60,
        **options,
    )


def test_script_keeps_arguments_options_and_status(tmp_path):
    script = tmp_path / "script.py"
    script.write_text(SCRIPT)
    done = python("-O", script, "one", "two words")
    assert done.stdout == "['one', 'two words'] 1 ['1-1', '1-2']\nZR42 2\n"
    assert done.returncode == 3


def test_module_and_command(tmp_path):
    (tmp_path / "thing.py").write_text(SCRIPT)
    assert "ZR42 2" in python("-m", "thing", cwd=tmp_path).stdout
    assert "ZR42 2" in python("-c", SCRIPT).stdout


def test_prompt_is_told_what_to_do():
    done = python("-", input="import zrncamera\nzrncamera.virtual()\n")
    assert done.returncode == 1
    assert "zrnsim --camera type2 -- python3" in done.stderr


def test_wrong_model():
    done = python("-c", "import zrncamera; zrncamera.virtual('type99x')")
    assert done.returncode == 2 and "type99x" in done.stderr


def test_command_line(tmp_path):
    script = tmp_path / "script.py"
    script.write_text("import zrncamera\nprint(zrncamera.open().serial)")
    assert python("-m", "zrncamera", "--virtual", "type2,serial=5", script).stdout == "ZR5\n"
    assert "1-1" in python("-m", "zrncamera", "--virtual", "type2").stdout
