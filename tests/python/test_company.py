"""Other libraries in the same process, loaded before and after."""

import importlib.util
import subprocess

import pytest

USE = """
def use():
    import zrncamera
    with zrncamera.open() as camera:
        assert camera.grab(3, timeout=20)[-1].a.any()
"""
OTHERS = {
    "usb.core": """
    import usb.core
    assert [device.idProduct for device in usb.core.find(find_all=True)] == [0x5750]
""",
    "PyQt5.QtWidgets": """
    from PyQt5.QtCore import QTimer
    from PyQt5.QtWidgets import QApplication
    application = QApplication(["test", "-platform", "offscreen"])
    QTimer.singleShot(0, application.quit)
    application.exec_()
""",
    "cv2": """
    import cv2, numpy
    assert cv2.blur(numpy.ones((8, 8), numpy.uint8), (3, 3)).all()
""",
    "matplotlib": """
    import matplotlib
    matplotlib.use("Agg")
    from matplotlib import pyplot
    pyplot.figure().canvas.draw()
""",
    "PySide6.QtWidgets": """
    from PySide6.QtCore import QTimer
    from PySide6.QtWidgets import QApplication
    application = QApplication(["test", "-platform", "offscreen"])
    QTimer.singleShot(0, application.quit)
    application.exec()
""",
    "PyQt6.QtWidgets": """
    from PyQt6.QtCore import QTimer
    from PyQt6.QtWidgets import QApplication
    application = QApplication(["test", "-platform", "offscreen"])
    QTimer.singleShot(0, application.quit)
    application.exec()
""",
}


@pytest.mark.parametrize("order", ["before", "after", "around"])
@pytest.mark.parametrize("other", OTHERS)
def test_company(run, other, order):
    if importlib.util.find_spec(other.partition(".")[0]) is None:
        pytest.skip(f"{other} is not installed")
    steps = {"before": "meet() use()", "after": "use() meet()", "around": "meet() use() meet() use()"}
    if order == "around" and "Qt" in other:
        pytest.skip("one application in a process")
    calls = "\n".join(steps[order].split())
    run(f"{USE}\ndef meet():{OTHERS[other]}\n{calls}\n")


def test_application_made_beside_an_open_camera(start):
    """Qt does not warn of a thread."""
    if importlib.util.find_spec("PyQt5") is None:
        pytest.skip("PyQt5 is not installed")
    script = f"""
import zrncamera
with zrncamera.open() as camera:
    camera.grab(3, timeout=20)
{OTHERS["PyQt5.QtWidgets"]}
"""
    process = start(script, stderr=subprocess.PIPE)
    _, errors = process.communicate(timeout=60)
    assert process.returncode == 0 and "QApplication" not in errors
