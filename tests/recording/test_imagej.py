"""A raw stack, read by ImageJ, which needs a display even for its macros."""

import pathlib
import shutil
import subprocess

import pytest
import recordings
from recordings import Frame, exported, stack_of

JAR = pathlib.Path("/usr/share/java/ij.jar")
MACRO = """
files = split(getArgument(), "|");
run("Raw...", "open=" + files[0] + " image=8-bit width=37 height=11 offset=0 number=6 gap=0");
saveAs("Raw Data", files[1]);
"""

pytestmark = pytest.mark.skipif(not JAR.exists() or not shutil.which("xvfb-run") or not shutil.which("java"),
                                reason="needs libij-java, default-jre and xvfb")


def test_stack(tmp_path):
    frames = [Frame(1), Frame(2), Frame(3)]
    recordings.write(tmp_path / "a.zrnrec", frames)
    exported(tmp_path / "a.zrnrec", "--to", "raw", "-o", tmp_path / "a.raw")
    (tmp_path / "macro.ijm").write_text(MACRO)
    run = subprocess.run(["xvfb-run", "-a", "java", "-cp", JAR, "ij.ImageJ", "-ijpath", tmp_path, "-batch",
                          tmp_path / "macro.ijm", f"{tmp_path}/a.raw|{tmp_path}/back.raw"],
                         capture_output=True, text=True, timeout=120)
    assert (tmp_path / "back.raw").exists(), run.stdout + run.stderr
    assert (tmp_path / "back.raw").read_bytes() == stack_of(frames).tobytes()
