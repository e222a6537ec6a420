#!/usr/bin/python3
"""Runs every pipeline of a document on virtual cameras: documented_pipelines.py DOCUMENT RTSP_SERVER

Windows, and devices that need a kernel module, become sinks that take everything, after the conversion that
stands before them. Cameras send some frames and end. Names and numbers of ports are this machine's.
"""

import pathlib
import shlex
import subprocess
import sys
import tempfile
import time

FRAMES = 20
PATIENCE = 60
REPLACEMENTS = {
    "autovideosink": "fakesink",
    "v4l2sink device=/dev/video10": "fakesink",
    "CAMERA-HOST": "127.0.0.1",
    ":8554": ":18554",
    ":7000": ":17000",
    "zrnsrc": f"zrnsrc num-buffers={FRAMES}",
}
ENDLESS = {"zrnsrc num-buffers=20 ! queue leaky=downstream": "zrnsrc ! queue leaky=downstream",
           "fakesink": f"fakesink num-buffers={FRAMES}"}


def commands(document):
    """Each command of the indented blocks, whose continuations are indented further."""
    command = ""
    for line in document.read_text().splitlines() + [""]:
        if line.startswith("      ") and command:
            command += " " + line.strip()
            continue
        if command:
            yield command
        command = line.strip() if line.startswith("    gst-launch-1.0 ") else ""


def replaced(command, replacements):
    for text, other in replacements.items():
        command = command.replace(text, other)
    return shlex.split(command)


def main():
    document, rtsp_server = pathlib.Path(sys.argv[1]), sys.argv[2]
    failures = 0
    senders = []
    found = list(commands(document))
    with tempfile.TemporaryDirectory() as folder:
        def start(arguments):
            senders.append(subprocess.Popen(arguments, cwd=folder, stdout=subprocess.DEVNULL,
                                            stderr=subprocess.DEVNULL))
            time.sleep(3)

        for command in found:
            print(command, flush=True)
            if "srtsink" in command:
                start(replaced(command, REPLACEMENTS | ENDLESS))
                continue
            if "rtspsrc" in command:
                start([sys.executable, rtsp_server, "18554"])
            is_receiver = "rtspsrc" in command or "srtsrc" in command
            arguments = replaced(command, REPLACEMENTS | ENDLESS if is_receiver else REPLACEMENTS)
            try:
                done = subprocess.run(arguments, cwd=folder, timeout=PATIENCE, text=True,
                                      stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
                is_good = done.returncode == 0 and "Got EOS" in done.stdout
                told = done.stdout
            except subprocess.TimeoutExpired as expired:
                is_good, told = False, str(expired.stdout)
            while senders:
                is_good = is_good and senders[-1].poll() is None
                senders[-1].terminate()
                senders.pop().wait()
            if not is_good:
                failures += 1
                print("FAILED\n" + "\n".join(line for line in told.splitlines() if "ZRNC" not in line))
    print(f"{len(found)} pipelines, {failures} failed")
    return 1 if failures or not found else 0


if __name__ == "__main__":
    sys.exit(main())
