"""Settings, their documentation, and errors."""

import pickle

import pytest

import zrncamera


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
    with pytest.raises(zrncamera.ZrnError):
        camera.set("RGain", "red")


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
    with pytest.raises(zrncamera.CameraGone):
        camera.exposure_us = 3000
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
