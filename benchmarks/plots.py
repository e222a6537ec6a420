"""The plots of scripts/bench, drawn by gnuplot."""

import subprocess
import textwrap

NEW_LINE = r"\n"  # in gnuplot's strings
GREY = "#b8bfc6"
BLUE = "#2f6f9f"
ORANGE = "#d08a3c"


def gnuplot(picture, size, script):
    picture.parent.mkdir(parents=True, exist_ok=True)
    head = f"""
set terminal svg size {size} font 'sans,11' background 'white'
set output '{picture}'
set grid ytics
set style data histograms
set style histogram clustered gap 1
set style fill solid noborder
set boxwidth 0.9
"""
    subprocess.run(["gnuplot"], input=head + script, text=True, check=True)


def unpacking(figures, picture):
    lines = []
    for row in figures["unpacking"]["1280x1024 cold"]:
        label = NEW_LINE.join([f"type {row['type']}", *textwrap.wrap(row["layout"], 14)])
        lines.append(f'"{label}" {row["plain"] / row["memcpy"]:.3f} '
                     f'{row["time"] / row["memcpy"]:.3f} {row["target"]}')
    rows = "\n".join(lines)
    gnuplot(picture, "900,420", f"""
set title "Unpacking a 1280x1024 frame from ring to images\\n{figures['machine']}"
set ylabel 'times of memcpy of the same bytes'
set logscale y
set yrange [0.5:*]
set ytics (0.5, 1, 2, 5, 10, 20, 50)
set bmargin 5
set key top left
$rows << END
{rows}
END
plot $rows using 2:xtic(1) title 'plain loop' linecolor rgb '{GREY}', \\
     '' using 3 title 'driver' linecolor rgb '{BLUE}', \\
     '' using ($0):4:(0.45):(0) with vectors nohead linewidth 2 linecolor rgb '{ORANGE}' title 'target', \\
     '' using 0:2:(sprintf('%.1f', $2)) with labels offset -2.2,0.6 font ',9' notitle, \\
     '' using 0:3:(sprintf('%.2f', $3)) with labels offset 2.2,-0.7 font ',9' textcolor rgb 'white' notitle
""")


def hand_over(figures, picture):
    rows = "\n".join(
        f'"{row["cameras"]} cameras{NEW_LINE}{"and a computing thread" if row["load"] else ""}" '
        f'{row["p50"]} {row["p99"]} {row["max"]}'.replace("1 cameras", "1 camera")
        for row in figures["handOver"])
    gnuplot(picture, "900,420", f"""
set title "From the callback's return to the grab's, 100 frames of 1280x1024 a second from each camera\\n{figures['machine']}"
set ylabel 'microseconds'
set logscale y
set yrange [100:*]
set bmargin 4
set key top left
$rows << END
{rows}
END
plot $rows using 2:xtic(1) title 'median' linecolor rgb '{BLUE}', \\
     '' using 3 title '99th percentile' linecolor rgb '{GREY}', \\
     '' using 4 title 'longest' linecolor rgb '{ORANGE}'
""")


def draw(figures, images):
    unpacking(figures, images / "unpacking.svg")
    hand_over(figures, images / "hand-over.svg")
