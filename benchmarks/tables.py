"""The tables of scripts/bench, in Markdown. Ratios beyond their target are bold."""


CALLBACK_TARGET = 1.05
WRITING_TARGET = 0.9  # of plain writes
RATE_TARGET = 60  # frames/s at the largest size measured


def table(header, rows):
    print("| " + " | ".join(header) + " |")
    print("|" + "---|" * len(header))
    for row in rows:
        print("| " + " | ".join(row) + " |")


def ratio(value, reference, target=None):
    if value is None or reference is None:
        return ""
    shown = f"{value / reference:.2f}"
    return f"**{shown}**" if target is not None and float(shown) > target else shown


def unpacking(figures):
    for place, rows in figures.items():
        print(f"\nUnpacking {place.replace(' ', ', ')} memory; times of memcpy of the same bytes"
              f" ({rows[0]['memcpy']:.0f} us for two bytes a pixel)\n")
        table(["type", "layout", "us", "driver", "target", "plain loop", "compiler's vectors",
               "libyuv", "OpenCV"],
              [[str(row["type"]), row["layout"], f"{row['time']:.0f}",
                ratio(row["time"], row["memcpy"], row["target"]), f"{row['target']}",
                ratio(row["plain"], row["memcpy"]), ratio(row["vectors"], row["memcpy"]),
                ratio(row["libyuv"], row["memcpy"]),
                ratio(row["opencv"], row["memcpy"])] for row in rows])


def beyond_target(figures):
    found = [f"type {row['type']} at {place.replace(' ', ', ')} memory"
             for place, rows in figures.items() for row in rows
             if round(row["time"] / row["memcpy"], 2) > row["target"]]
    print(f"\nBeyond their target: {'; '.join(found) or 'none'}.")


def callback(figures):
    print(f"\nCallback, 1280x1024: {figures['time']:.0f} us, "
          f"{ratio(figures['time'], figures['memcpy'], CALLBACK_TARGET)} times memcpy into a ring of as many buffers, "
          f"{figures['allocations']:.0f} allocations")


def grab(figures):
    print("\nDelivered, grabbed and deleted; beside it with the limits that the C library arrives at\n")
    table(["geometry", "host", "us", "page faults", "growth, kB", "us, library's limits",
           "page faults"],
          [[row["geometry"], row["host"], f"{row['time']:.0f}", f"{row['faults']:.1f}",
            f"{max(0, row['growth']) / 1000:.0f}",
            f"{row['libraryTime']:.0f}", f"{row['libraryFaults']:.0f}"] for row in figures])


def hand_over(figures):
    print("\nHand-over, callback's return to grab's return, frames of 1280x1024 at 100/s from each "
          "camera; and the most that goes through\n")
    table(["cameras", "other work", "p50 us", "p99 us", "max us", "frames/s in all"],
          [[str(row["cameras"]), "a computing thread" if row["load"] else "none",
            *(f"{row[key]:.0f}" for key in ("p50", "p99", "max", "rate"))] for row in figures])


def virtual_camera(figures):
    if not figures:
        return
    print("\nWhat the virtual camera sustains towards plain libuvc, two bytes a pixel\n")
    table(["size", "endpoint", "frames/s", "MB/s"],
          [[row["size"], "isochronous" if row["options"] else "bulk",
            f"{row['frames']:.0f}" if row["frames"] >= RATE_TARGET else f"**{row['frames']:.0f}**",
            f"{row['megabytes']:.0f}"] for row in figures])


def frame_times(figures):
    if not figures:
        return
    print("\nWhat a frame's times are behind its first transfer's arrival in the process, us: p50, p99, max;\n"
          "relay: what the virtual camera took before, from the beginning to send it\n")
    table(["camera", "computing threads", "frames", "of payloads, %", "relay", "first payload", "hand-over", "arrival"],
          [[row["camera"], str(row["threads"]), str(row["frames"]),
            f"{100 * row['payloadShare']:.1f}",
            *(", ".join(f"{row[time][share]:.0f}" for share in ("p50", "p99", "max"))
              for time in ("relay", "firstPayload", "handOver", "arrival"))] for row in figures])


def recording(figures):
    if not figures:
        return
    share = figures["share"]
    shown = f"{share:.2f}" if share >= WRITING_TARGET else f"**{share:.2f}**"
    cost = figures["processorMs"]
    print(f"\nRecording pairs of 1280x1024: {figures['recorded']:.0f} MB/s, {shown} of plain "
          f"{'direct ' if figures['direct'] else ''}writes ({figures['plain']:.0f} MB/s), "
          f"{cost:.2f} ms of processor time a pair")


def whole_program(figures):
    if not figures:
        return
    print("\nzrncam stream with libuvc, libusb and the virtual camera, bulk\n")
    table(["camera", "frames/s grabbed", "frames missing", "ms of processor time a frame",
           "page faults a frame", "ms, library's limits", "page faults"],
          [[row["camera"], f"{row['rate']:.1f}", str(row["missing"]),
            f"{row['milliseconds']:.2f}", f"{row['faults']:.1f}",
            f"{row['libraryMilliseconds']:.2f}", f"{row['libraryFaults']:.1f}"] for row in figures])


def show(figures):
    print(f"{figures['machine']}; load {figures['load']:.1f} before the run")
    unpacking(figures["unpacking"])
    beyond_target(figures["unpacking"])
    callback(figures["callback"])
    grab(figures["grab"])
    hand_over(figures["handOver"])
    virtual_camera(figures["virtualCamera"])
    frame_times(figures.get("frameTimes", []))
    recording(figures.get("recording", {}))
    whole_program(figures["wholeProgram"])
