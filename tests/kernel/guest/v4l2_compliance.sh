#!/bin/sh
# v4l2-compliance, with its streaming tests, fails in the known points and no other:
# v4l2_compliance.sh EXPECTED
# EXPECTED names a file with the figures of the summary, which a run that was cut short does not
# reach, and with one failed test a line, as v4l2-compliance calls it. The number of warnings is
# left open: a frame that was dropped on the way is one.
set -u
v4l2-compliance --color never --no-progress -d /dev/video0 --streaming 30 > /tmp/compliance
cat /tmp/compliance
sed -n 's/^\ttest \(.*\): FAIL$/\1/p
    s/^Total for uvcvideo device [^ ]*: \(.*\), Warnings: [0-9]*$/Total: \1/p' /tmp/compliance |
    sort > /tmp/found
grep -v '^#' "$1" | sort | diff -u - /tmp/found
