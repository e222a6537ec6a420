#!/bin/sh
# v4l2-compliance fails in the known points and no other: v4l2_compliance.sh EXPECTED
# EXPECTED names a file with one test a line, as v4l2-compliance calls it.
set -u
v4l2-compliance --color never -d /dev/video0 > /tmp/compliance
cat /tmp/compliance
sed -n 's/^\ttest \(.*\): FAIL$/\1/p' /tmp/compliance | sort > /tmp/failed
grep -v '^#' "$1" | sort | diff -u - /tmp/failed
