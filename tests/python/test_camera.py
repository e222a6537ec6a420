"""Settings, their documentation, and errors."""

import pickle
import re
import subprocess

import numpy as np
import pytest

import zrncamera
from zrncamera import _zrncamera


def test_settings(camera):
    shortest, longest = camera.exposure_range_us
    camera.exposure_us = (shortest + longest) // 2
    assert camera.exposure_us == (shortest + longest) // 2
    camera.gain = camera.gain_range[0]
    assert camera.gain == camera.gain_range[0]
    camera.order = "newest"
    assert camera.order == "newest"
    with pytest.raises(ValueError):
        camera.order = "any"


def test_every_property_is_an_attribute_or_has_a_better_one():
    attributes = {
        attribute.key
        for attribute in vars(zrncamera.Camera).values()
        if type(attribute).__name__ == "_Property"
    }
    others = {"HeartBeat", "Serial", "ResolutionList"}  # online, serial, and none
    assert attributes | others == set(zrncamera.PROPERTIES)


def test_properties(camera):
    camera.r_gain = 77
    assert camera.r_gain == camera.get("RGain") == 77
    camera.enable_check_gain = False
    assert camera.enable_check_gain is False
    camera.max_grab_wait_time = 1500
    assert camera.max_grab_wait_time == 1500
    assert camera.get("HeartBeat")["ONLINE"] is True
    with pytest.raises(AttributeError):
        camera.frame_rate = 3.0


def test_documentation_comes_from_the_table():
    info = zrncamera.PROPERTIES["RGain"]
    assert info.range == (0, 255) and info.writable and info.type == "int"
    assert info.tip in zrncamera.Camera.r_gain.__doc__
    assert "0 to 255" in zrncamera.Camera.r_gain.__doc__


def test_refusal_has_code_name_and_hint(camera):
    with pytest.raises(zrncamera.ZrnError) as caught:
        camera.gain = 60000
    error = caught.value
    assert error.name == "BadArgument" and error.code > 0 and error.hint
    assert not isinstance(error, zrncamera.CameraGone)
    with pytest.raises(zrncamera.ZrnError):
        camera.get("Colour")


@pytest.mark.parametrize(
    "error",
    [
        zrncamera.ZrnError("message", 7, "Name", "hint"),
        zrncamera.GrabTimeout("message", 7, "Name", "hint"),
        zrncamera.CameraBusy("message", 7, "Name", "hint", [(12, "zrnview")]),
    ],
)
def test_errors_cross_processes(error):
    copy = pickle.loads(pickle.dumps(error))
    assert type(copy) is type(error)
    assert vars(copy) == vars(error)
    assert str(copy) == "message; hint"


def test_timeout_is_pythons_own():
    assert issubclass(zrncamera.GrabTimeout, TimeoutError)
    assert zrncamera.CameraBusy("message", holders=[(12, "zrnview")]).holder == "zrnview (pid 12)"


def test_closed_camera():
    camera = zrncamera.open()
    camera.close()
    camera.close()
    with pytest.raises(zrncamera.ZrnError, match="closed"):
        camera.gain
    with zrncamera.open() as again:
        assert again.online


def test_unplugged_camera(camera, bus):
    bus.unplug()
    for use in (
        lambda: setattr(camera, "exposure_us", 3000),
        lambda: camera.exposure_range_us,
        lambda: camera.stream(),
        lambda: camera.stream(keep_alive=True),
        lambda: camera.grab(2),
    ):
        with pytest.raises(zrncamera.CameraGone, match="does not answer") as caught:
            use()
        assert caught.value.name == "CameraGone" and "cable" in caught.value.hint
    assert not camera.online


def test_no_camera(bus):
    bus.unplug()
    with pytest.raises(zrncamera.ZrnError) as caught:
        zrncamera.open()
    assert caught.value.name == "NoCameraOnBus"


def test_missing_driver():
    with pytest.raises(zrncamera.ZrnError) as caught:
        zrncamera.open(driver="/nowhere/libzrncamera.so")
    assert caught.value.name == "NotFound"


def test_values_out_of_range(camera):
    camera.r_gain = 77
    for value in (-1, 256, 300, 2**40):
        with pytest.raises(ValueError, match=f"RGain is 0 to 255, not {value}"):
            camera.r_gain = value
    assert camera.r_gain == 77
    with pytest.raises(ValueError, match="ms"):
        camera.max_grab_wait_time = -1
    for key, value in (("RGain", "red"), ("RGain", 2.5), ("EnableCheckGain", 7)):
        with pytest.raises(TypeError, match=key):
            camera.set(key, value)


def test_values_that_no_camera_can_be_asked_for(camera):
    least, most = camera.gain_range
    for value in (-1, 2**32, 1 << 40):
        with pytest.raises(ValueError, match=f"gain is {least} to {most}, not {value}"):
            camera.gain = value
    least, most = camera.exposure_range_us
    for value in (-5, 2**32, 1e30):
        with pytest.raises(ValueError, match=f"exposure_us is {least} to {most} us, not {value:.0f}"):
            camera.exposure_us = value
    with pytest.raises(ValueError, match='order is one of "oldest", "newest", not 3'):
        camera.order = 3


def test_version():
    assert re.fullmatch(r"\d+\.\d+\.\d+", zrncamera.__version__)


def test_numbers_of_other_types(camera):
    camera.exposure_us = 1e6 / 60
    assert camera.exposure_us == 16667
    camera.exposure_us = np.float32(2000)
    assert camera.exposure_us == 2000
    camera.r_gain = np.uint8(9)
    camera.gain = 42.0
    assert (camera.r_gain, camera.gain) == (9, 42)
    for value in ("2 ms", None, float("nan")):
        with pytest.raises(TypeError, match="exposure_us takes a number of microseconds"):
            camera.exposure_us = value
    with pytest.raises(zrncamera.ZrnError) as caught:
        camera.exposure_us = 2**32 - 1
    assert caught.value.name == "BadArgument"


def test_misspelt_setting(camera):
    with pytest.raises(AttributeError, match="no setting exposur_us; did you mean exposure_us"):
        camera.exposur_us = 3
    with pytest.raises(AttributeError):
        camera.stream = 3
    with pytest.raises(AttributeError):
        camera.serial = "ZR1"


def test_wrong_arguments(camera):
    for call in (
        lambda: camera.stream("some"),
        lambda: camera.stream(timeout=-1),
        lambda: camera.stream(timeout=float("nan")),
        lambda: camera.stream(capacity=0),
        lambda: camera.grab(-1),
        lambda: zrncamera.open(patience=-1),
        lambda: zrncamera.open(index=-2),
        lambda: zrncamera.watch(timeout=-1),
    ):
        with pytest.raises(ValueError):
            call()
    assert camera.grab(0) == []
    with pytest.raises(ValueError, match='"newest", "all", "block", not \'some\''):
        camera.stream("some")
    with camera.stream() as stream:
        with pytest.raises(ValueError):
            stream.next(-1)
        with pytest.raises(TypeError):
            stream.call(3)


def test_own_camera_is_busy_here(camera):
    with pytest.raises(zrncamera.CameraBusy, match="in this program already"):
        zrncamera.open(camera.serial, patience=0)


def test_hints_name_no_tool(camera):
    for use in (lambda: camera.get("Colour"), lambda: setattr(camera, "gain", 60000)):
        with pytest.raises(zrncamera.ZrnError) as caught:
            use()
        assert caught.value.hint and "zrncam" not in caught.value.hint


def test_representations(camera):
    assert repr(camera) == f"<Camera {camera.serial} at port {camera.port}, 320x240>"
    with camera.stream() as stream:
        next(stream)
        assert re.fullmatch(rf'<Stream of {camera.serial}, "all", running: \d+ frames, .*>', repr(stream))
    assert "ended" in repr(stream)
    camera.close()
    assert repr(camera) == f"<Camera {stream._serial}: the camera is closed>"


@pytest.mark.parametrize("name", [name for name, thing in vars(_zrncamera).items() if isinstance(thing, type)])
def test_no_empty_objects(name):
    """Which would have nothing behind them."""
    made = getattr(_zrncamera, name)
    for make in (made, lambda: made.__new__(made), lambda: object.__new__(made), type("Own", (made,), {})):
        with pytest.raises(TypeError):
            make()


LOG = """
import logging, sys, zrncamera
lines = []
class Kept(logging.Handler):
    def emit(self, record):
        lines.append(record)
if len(sys.argv) > 1:
    logging.getLogger("zrncamera").addHandler(Kept())
    logging.getLogger("zrncamera").setLevel(logging.DEBUG)
with zrncamera.open() as camera:
    camera.grab(2, timeout=20)
zrncamera._log.end()
print(len(lines), {line.levelname for line in lines} <= {"DEBUG", "INFO", "ERROR"})
"""


def test_drivers_lines_go_to_the_log(start):
    for arguments, expected in (((), "0 True\n"), (("log",), None)):
        process = start(LOG, *arguments, stderr=subprocess.PIPE)
        output, errors = process.communicate(timeout=60)
        assert process.returncode == 0
        assert "ZRNCamera" not in errors
        if expected is None:
            assert int(output.split()[0]) > 3 and output.endswith(" True\n")
        else:
            assert output == expected


def test_numpy_is_missed_at_once(run):
    script = """
import sys
sys.modules["numpy"] = None
try:
    import zrncamera
except ImportError as error:
    print(error)
"""
    assert "pip install numpy" in run(script)
