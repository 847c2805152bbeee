#!/usr/bin/env bash
# Runs one program under Wine with its output collected in a file, then prints it.
# Processes the program starts can inherit its standard error (Wine's desktop process
# does, and it outlives the test in the persistent server); on CTest's pipe that keeps
# CTest waiting for the end of the output until the test times out.
set -u
out=$(mktemp)
"$@" >"$out" 2>&1 </dev/null
rc=$?
cat "$out"
rm -f "$out"
exit $rc
