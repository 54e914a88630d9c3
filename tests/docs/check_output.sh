#!/usr/bin/env bash
# Runs a program and compares its standard output with what it should print.
#
#   check_output.sh PROGRAM EXPECTED_FILE
#   check_output.sh PROGRAM --readme README.md   (expected: the README's first ```console
#                                                 block after its ```cpp example)
set -uo pipefail

program=$1
expected=$(mktemp "${TMPDIR:-/tmp}/lawutil-expected.XXXXXX")
trap 'rm -f "$expected"' EXIT
if [ "$2" = --readme ]; then
    awk -v lang=console -v after=cpp -f "$(dirname "$0")/fenced_block.awk" "$3" >"$expected"
else
    cp "$2" "$expected"
fi
if [ ! -s "$expected" ]; then
    echo "check_output: no expected output found" >&2
    exit 1
fi
"$program" | diff -u --label expected --label "actual ($(basename "$program"))" "$expected" -
status=("${PIPESTATUS[@]}")
if [ "${status[0]}" != 0 ]; then
    echo "check_output: $(basename "$program") exited with status ${status[0]}" >&2
    exit 1
fi
exit "${status[1]}"
