#!/usr/bin/env python3
"""pyusb drives a gadget before the driver is in this process, and again while its cameras stream."""

import ctypes
import struct
import sys
import time

import usb.core

KEEP, RECALL, SEND, HALT, RESET, ACCOUNT = 1, 2, 3, 4, 6, 7
BULK_OUT, BULK_IN, INTERRUPT_IN = 0x01, 0x81, 0x82
TOLERANCE = 0.05  # seconds


def send(device, endpoint, length, head=b""):
    device.ctrl_transfer(0x40, SEND, 0, endpoint, struct.pack("<II", length, 1) + head)


def attempt(action):
    """What an action returns or raises, and how long it takes."""
    start = time.monotonic()
    try:
        outcome = action()
        outcome = bytes(outcome) if hasattr(outcome, "tobytes") else outcome
    except usb.core.USBError as error:
        outcome = (type(error).__name__, error.backend_error_code)
    return outcome, time.monotonic() - start


def transcript(device):
    steps = []
    device.ctrl_transfer(0x40, RESET, 0, 0)
    for first in range(0, 256, 2):  # a serial adapter's short replies
        length = first % 13 + 1
        send(device, BULK_IN, length, bytes([first, first * 5 % 256]))
        steps.append(attempt(lambda: device.read(BULK_IN, length)))
    for data in (bytes([2, 4, 1, 7]), bytes(100_000)):
        steps.append(attempt(lambda: device.write(BULK_OUT, data)))
    steps.append(attempt(lambda: device.ctrl_transfer(0xC0, ACCOUNT, 0, 0, 8)))
    steps.append(attempt(lambda: device.read(BULK_IN, 64, 300)))
    steps.append(attempt(lambda: device.read(INTERRUPT_IN, 64, 300)))
    device.ctrl_transfer(0x40, KEEP, 0, 0, b"kept")
    steps.append(attempt(lambda: device.ctrl_transfer(0xC0, RECALL, 3000, 0, 64, 10_000)))
    device.ctrl_transfer(0x40, HALT, 0, BULK_IN)
    steps.append(attempt(lambda: device.read(BULK_IN, 64)))
    device.clear_halt(BULK_IN)
    send(device, BULK_IN, 8, bytes([8, 12]))
    steps.append(attempt(lambda: device.read(BULK_IN, 8)))
    return steps


def differences(before, beside):
    for step, ((wanted, calm), (outcome, taken)) in enumerate(zip(before, beside)):
        if outcome != wanted or abs(taken - calm) > TOLERANCE:
            yield f"step {step}: {outcome} in {taken:.3f} s, without the driver {wanted} in {calm:.3f} s"


def quickest(one, other):
    return [(outcome, min(taken, again)) for (outcome, taken), (_, again) in zip(one, other)]


def main():
    device = usb.core.find(idVendor=0x1234, idProduct=0x5678)
    before = [transcript(device) for _ in range(2)]
    before = quickest(*before)
    host = ctypes.CDLL(sys.argv[1])
    if host.startCameras() < 1:
        sys.exit("no camera streams")
    beside = transcript(device)
    for _ in range(5):  # a busy machine
        if not list(differences(before, beside)):
            break
        beside = quickest(transcript(device), beside)
    found = list(differences(before, beside))
    print("\n".join(found))
    sys.exit(1 if found or host.stopCameras() != 0 else 0)


main()
