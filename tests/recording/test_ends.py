"""What exports leave behind when something is wrong: with the recording, the disk, or the user's patience."""

import json
import os
import resource
import signal
import subprocess
import time

import numpy as np
import pytest
import recordings
from recordings import Frame, exported, stack_of, zrnrec

Image = pytest.importorskip("PIL.Image")
STACKS = {"tiff": "a.ome.tif", "hdf5": "a.h5", "raw": "a.raw", "mkv": "a.mkv"}
FILES = {**STACKS, "csv": "a.csv"}


def read_raw(path):
    return np.fromfile(path, np.uint8).reshape(json.loads(path.with_name(path.name + ".json").read_text())["shape"])


@pytest.mark.parametrize("place", [5, recordings.BLOCK + 5], ids=["header", "images"])
@pytest.mark.parametrize("form", ["raw", "png", "csv"])
def test_damaged_frames_are_left_out_and_named(tmp_path, form, place):
    frames = [Frame(number) for number in range(4)]
    offsets = recordings.write(tmp_path / "a.zrnrec", frames)
    recordings.damage(tmp_path / "a.zrnrec", offsets[1] + place)
    target = tmp_path / "out"
    run = zrnrec("export", tmp_path / "a.zrnrec", "--to", form, "-o", target)
    assert run.returncode == 1
    assert run.stdout == "3 frames exported, 1 damaged\n"
    assert "frame 1 " in run.stderr and "frame 2 " not in run.stderr
    if form == "raw":
        np.testing.assert_array_equal(read_raw(target), stack_of([frames[0], frames[2], frames[3]]))
    elif form == "png":
        assert sorted(path.name[:6] for path in target.glob("*A.png")) == ["000000", "000002", "000003"]
    else:
        assert len(target.read_text().splitlines()) == 1 + 3


def test_a_recording_that_was_cut_off_is_exported_as_far_as_it_goes(tmp_path):
    frames = [Frame(number) for number in range(3)]
    offsets = recordings.write(tmp_path / "a.zrnrec", frames, is_complete=False)
    os.truncate(tmp_path / "a.zrnrec", offsets[2] + 100)
    run = exported(tmp_path / "a.zrnrec", "--to", "raw", "-o", tmp_path / "a.raw")
    assert "cut off" in run.stderr
    np.testing.assert_array_equal(read_raw(tmp_path / "a.raw"), stack_of(frames[:2]))


def test_each_size_has_its_file(tmp_path):
    frames = [Frame(1), Frame(2, width=20, height=6), Frame(3), Frame(4, letters="B")]
    recordings.write(tmp_path / "a.zrnrec", frames)
    run = exported(tmp_path / "a.zrnrec", "--to", "raw", "-o", tmp_path / "x.raw")
    names = ["x_37x11_AB.raw", "x_20x6.raw", "x_37x11_B.raw"]
    assert run.stdout == "".join(f"{tmp_path}/{name}\n" for name in names) + "4 frames exported\n"
    for name, inside, letters in zip(names, ([frames[0], frames[2]], [frames[1]], [frames[3]]), ("AB", "AB", "B")):
        np.testing.assert_array_equal(read_raw(tmp_path / name), stack_of(inside, letters))


@pytest.mark.parametrize("form", FILES)
def test_an_empty_recording(tmp_path, form):
    recordings.write(tmp_path / "a.zrnrec", [])
    run = zrnrec("export", tmp_path / "a.zrnrec", "--to", form, "-o", tmp_path / FILES[form])
    if form == "csv":
        assert run.returncode == 0 and len((tmp_path / "a.csv").read_text().splitlines()) == 1
    else:
        assert run.returncode == 1 and "nothing to write" in run.stderr
        assert os.listdir(tmp_path) == ["a.zrnrec"]


def test_frames_without_the_image(tmp_path):
    recordings.write(tmp_path / "a.zrnrec", [Frame(1), Frame(2, letters="B")])
    run = exported(tmp_path / "a.zrnrec", "--to", "raw", "--images", "A", "-o", tmp_path / "a.raw")
    assert run.stdout == "1 frames exported, 1 without image A\n"


@pytest.mark.parametrize("form", FILES)
def test_a_disk_that_is_full(tmp_path, form):
    """A limit that the system sets to files; what stood there before stays."""
    recordings.write(tmp_path / "a.zrnrec", [Frame(number, width=320, height=240) for number in range(40)])
    (tmp_path / FILES[form]).write_text("before")
    run = zrnrec("export", tmp_path / "a.zrnrec", "--to", form, "-o", tmp_path / FILES[form], restore_signals=False,
                 preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (2000, 2000)))
    assert run.returncode == 1
    assert "File too large" in run.stderr
    assert "removed" in run.stderr
    assert (tmp_path / FILES[form]).read_text() == "before"
    assert sorted(os.listdir(tmp_path)) == sorted(["a.zrnrec", FILES[form]])


@pytest.mark.parametrize("failing", ["1", "2"])
def test_two_files_replace_others_together_or_not_at_all(tmp_path, failing):
    recordings.write(tmp_path / "a.zrnrec", [Frame(1)])
    for name in ("a.raw", "a.raw.json"):
        (tmp_path / name).write_text("before")
    run = zrnrec("export", tmp_path / "a.zrnrec", "--to", "raw", "-o", tmp_path / "a.raw",
                 env={**os.environ, "LD_PRELOAD": os.environ["FAILING_SYNC_LIBRARY"], "FAILING_SYNC": failing})
    assert run.returncode == 1 and "Input/output error" in run.stderr
    assert sorted(os.listdir(tmp_path)) == ["a.raw", "a.raw.json", "a.zrnrec"]
    assert {(tmp_path / name).read_text() for name in ("a.raw", "a.raw.json")} == {"before"}


def test_no_space(tmp_path):
    recordings.write(tmp_path / "a.zrnrec", [Frame(1)])
    run = zrnrec("export", tmp_path / "a.zrnrec", "--to", "csv", "-o", "/dev/full")
    assert run.returncode == 1 and "No space left on device" in run.stderr


@pytest.mark.parametrize("target", ["/no/such/folder/a", "/"])
def test_targets_that_cannot_be(tmp_path, target):
    recordings.write(tmp_path / "a.zrnrec", [Frame(1)])
    run = zrnrec("export", tmp_path / "a.zrnrec", "--to", "raw", "-o", target)
    assert run.returncode == 1 and target in run.stderr


def test_the_recording_stays(tmp_path):
    recordings.write(tmp_path / "a.zrnrec", [Frame(1)])
    before = (tmp_path / "a.zrnrec").read_bytes()
    (tmp_path / "link").symlink_to("a.zrnrec")
    for target in ("a.zrnrec", "link"):
        run = zrnrec("export", tmp_path / "a.zrnrec", "--to", "raw", "-o", tmp_path / target)
        assert run.returncode == 1 and "is the recording itself" in run.stderr
    assert (tmp_path / "a.zrnrec").read_bytes() == before


def test_a_link_stays_one(tmp_path):
    recordings.write(tmp_path / "a.zrnrec", [Frame(1)])
    (tmp_path / "real.raw").write_text("before")
    (tmp_path / "link.raw").symlink_to("real.raw")
    exported(tmp_path / "a.zrnrec", "--to", "raw", "-o", tmp_path / "link.raw")
    assert (tmp_path / "link.raw").is_symlink()
    np.testing.assert_array_equal(read_raw(tmp_path / "real.raw"), stack_of([Frame(1)]))


def test_progress_on_a_terminal(tmp_path):
    recordings.write(tmp_path / "a.zrnrec", [Frame(1), Frame(2)])
    reader, terminal = os.openpty()
    with open(reader, "rb", buffering=0) as shown:
        exported(tmp_path / "a.zrnrec", "--to", "raw", "-o", tmp_path / "a.raw", stderr=terminal, stdout=subprocess.DEVNULL,
                 capture_output=False)
        os.close(terminal)
        assert b"frame 1 of 2" in shown.read(1000)


def write_many(path):
    recordings.write(path, [Frame(number, width=16, height=16) for number in range(10000)])


@pytest.mark.parametrize("form", ["tiff", "hdf5"])
def test_an_interrupted_export_leaves_no_file(tmp_path, form):
    write_many(tmp_path / "a.zrnrec")

    def interrupt_early():
        """Pending when the program begins, so that a busy machine cannot bring it too late."""
        signal.pthread_sigmask(signal.SIG_BLOCK, [signal.SIGTERM])
        os.kill(os.getpid(), signal.SIGTERM)

    run = zrnrec("export", tmp_path / "a.zrnrec", "--to", form, "-o", tmp_path / "a.out", preexec_fn=interrupt_early)
    assert run.returncode == 130, run.stderr
    assert "interrupted; the file that was begun is removed" in run.stderr
    assert os.listdir(tmp_path) == ["a.zrnrec"]


def test_an_interrupted_export_leaves_whole_pictures(tmp_path):
    write_many(tmp_path / "a.zrnrec")
    with subprocess.Popen([recordings.ZRNREC, "export", tmp_path / "a.zrnrec", "-o", tmp_path / "out"],
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                          preexec_fn=lambda: os.nice(19)) as process:  # not done before it is interrupted
        while not any(".png" in path.name for path in tmp_path.rglob("*")):
            assert process.poll() is None, process.stderr.read()
            time.sleep(0.001)
        process.send_signal(signal.SIGTERM)
        _, errors = process.communicate(timeout=120)
    assert process.returncode == 130, errors
    pictures = list((tmp_path / "out").iterdir())
    assert 0 < len(pictures) < 20000
    for picture in pictures:
        assert picture.suffix == ".png"
        with Image.open(picture) as image:
            image.load()
