#!/usr/bin/env bash
# Runs one lawtool case of a .cases file and compares what it prints and its exit status
# with what the case expects.
#
#   run_case.sh LAWTOOL CASES_FILE CASE_NAME
#
# A .cases file holds cases one after another:
#   === name           starts a case
#   $ ARGS             the command line after "lawtool", in shell quoting
#   > text             a line of the expected standard output (">" alone: an empty line)
#   ! text             a line of the expected standard error ("!" alone: an empty line)
#   ~ text             a line the standard output must contain (then it is not compared whole)
#   !~ text            a line the standard error must contain (likewise)
#   ? N                the expected exit status (0 when absent)
#   # ...              a comment; blank lines are ignored
# Standard output and standard error are each compared whole unless "~" lines are given.
set -uo pipefail

lawtool=$1
cases=$2
name=$3

args_line=""
found=0
status=0
expect_out=()
expect_err=()
contains_out=()
contains_err=()
inside=0
while IFS= read -r line || [ -n "$line" ]; do
    if [[ $line == "=== "* ]]; then
        if [ $inside = 1 ]; then break; fi
        if [ "${line#=== }" = "$name" ]; then inside=1; found=1; fi
        continue
    fi
    [ $inside = 1 ] || continue
    case "$line" in
        '$ '*) args_line=${line#\$ } ;;
        '> '*) expect_out+=("${line#> }") ;;
        '>') expect_out+=("") ;;
        '!~ '*) contains_err+=("${line#!~ }") ;;
        '! '*) expect_err+=("${line#! }") ;;
        '!') expect_err+=("") ;;
        '~ '*) contains_out+=("${line#\~ }") ;;
        '? '*) status=${line#\? } ;;
        '#'* | '') ;;
        *) echo "run_case: $cases: case $name: cannot read line: $line" >&2; exit 2 ;;
    esac
done <"$cases"

if [ $found = 0 ]; then
    echo "run_case: no case '$name' in $cases" >&2
    exit 2
fi

set --
if ! eval "set -- $args_line"; then
    echo "run_case: $cases: case $name: cannot read the command line: $args_line" >&2
    exit 2
fi
work=$(mktemp -d "${TMPDIR:-/tmp}/lawtool-case.XXXXXX")
trap 'rm -rf "$work"' EXIT

# The tool checks at exit that it released every law and every tracked block.
LAWTOOL_CHECK_LEAKS=1 "$lawtool" "$@" >"$work/out" 2>"$work/err" </dev/null
actual_status=$?

fail=0
expected_text() {
    if [ $# -gt 0 ]; then printf '%s\n' "$@"; fi
}
compare() {  # stream file, then the expected lines
    local stream=$1 file=$2
    shift 2
    if ! diff -u --label "expected $stream" --label "actual $stream" \
        <(expected_text "$@") "$file"; then
        fail=1
    fi
}
contains() {  # stream file, then the lines it must hold
    local stream=$1 file=$2
    shift 2
    local want
    for want in "$@"; do
        if ! grep -qxF -- "$want" "$file"; then
            echo "$stream lacks the line: $want"
            fail=1
        fi
    done
}

if [ ${#contains_out[@]} -gt 0 ]; then
    contains stdout "$work/out" "${contains_out[@]}"
else
    compare stdout "$work/out" "${expect_out[@]+"${expect_out[@]}"}"
fi
if [ ${#contains_err[@]} -gt 0 ]; then
    contains stderr "$work/err" "${contains_err[@]}"
else
    compare stderr "$work/err" "${expect_err[@]+"${expect_err[@]}"}"
fi
if [ "$actual_status" != "$status" ]; then
    echo "exit status: expected $status, got $actual_status"
    fail=1
fi

if [ $fail != 0 ]; then
    echo "---- lawtool $args_line"
    echo "---- stdout:"
    cat "$work/out"
    echo "---- stderr:"
    cat "$work/err"
fi
exit $fail
