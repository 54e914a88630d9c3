#!/usr/bin/env bash
# Replays every ```console transcript of a Markdown file: each `$ COMMAND` line is run by
# bash, with `lawtool` meaning the built tool, and what it prints (standard output, then
# standard error) must be the lines below it up to the next `$ ` line or the fence.  The
# commands of one block run in order in one shell and one scratch directory, so `echo $?`
# sees the status of the command before it.  Blocks without a `$ ` line (a program's
# output shown after its source) are left to their own tests.
#
#   replay_console.sh LAWTOOL FILE.md
set -uo pipefail

lawtool=$(cd "$(dirname "$1")" && pwd)/$(basename "$1")
doc=$2
work=$(mktemp -d "${TMPDIR:-/tmp}/lawutil-replay.XXXXXX")
trap 'rm -rf "$work"' EXIT

# Splits the file into numbered commands: cmd.N (the command line), exp.N (the lines
# expected from it) and block.N (the block it belongs to, for the report).
awk -v dir="$work" '
    /^```console/ { inside = 1; block++; next }
    /^```/ && inside { inside = 0; next }
    !inside { next }
    /^\$ / { n++; owner = block; printf "%s\n", substr($0, 3) > (dir "/cmd." n)
             printf "" > (dir "/exp." n); printf "%d\n", block > (dir "/block." n); next }
    n && owner == block { print > (dir "/exp." n) }
' "$doc"

count=$(find "$work" -name 'cmd.*' | wc -l)
if [ "$count" = 0 ]; then
    echo "replay_console: no \$ lines in the console blocks of $doc" >&2
    exit 1
fi

mkdir "$work/scratch"
cd "$work/scratch" || exit 1
lawtool() { "$lawtool" "$@"; }
failures=0
last_status=0
previous_block=0
for ((i = 1; i <= count; i++)); do
    block=$(cat "$work/block.$i")
    # A command whose output ended the block still owned the lines up to the fence; a
    # new block starts with a fresh status.
    [ "$block" = "$previous_block" ] || last_status=0
    previous_block=$block
    command=$(cat "$work/cmd.$i")
    (exit "$last_status")
    eval "$command" >"$work/out.$i" 2>"$work/err.$i" </dev/null
    last_status=$?
    cat "$work/out.$i" "$work/err.$i" >"$work/got.$i"
    if ! diff -u --label "expected (block $block)" --label "actual" \
        "$work/exp.$i" "$work/got.$i" >"$work/diff.$i"; then
        echo "FAIL: \$ $command"
        cat "$work/diff.$i"
        failures=$((failures + 1))
    fi
done
echo "replay_console: $count commands, $failures failed"
[ "$failures" = 0 ]
