#!/usr/bin/env bash
# Runs the test suite under valgrind's memcheck: the unit tests in one process, then every
# lawtool case with lawtool itself under valgrind.  Fails on any invalid access and on any
# leak (definite or indirect).
#
#   memcheck.sh BUILD_DIR        (a tree of the "memcheck" preset: no sanitizers)
#
# The lawtool cases go through tests/lawtool/run_case.sh as under CTest, but with a
# wrapper in place of lawtool, so valgrind watches lawtool rather than the shell around it;
# valgrind's own report goes to a log file, so the compared output stays lawtool's.
set -euo pipefail

build=${1:?usage: memcheck.sh BUILD_DIR}
root="$(cd "$(dirname "$0")/.." && pwd)"
build="$(cd "$build" && pwd)"
tests="$build/tests/lawutil_tests"
lawtool="$build/tools/lawtool/lawtool"
logs="$build/memcheck"
jobs=${MEMCHECK_JOBS:-$(nproc 2>/dev/null || echo 2)}

# 97: an exit status that no test or lawtool case uses.
valgrind_args=(--error-exitcode=97 --leak-check=full --errors-for-leak-kinds=definite,indirect
    --show-leak-kinds=definite,indirect --track-origins=yes --num-callers=30)

rm -rf "$logs"
mkdir -p "$logs/lawtool"

echo "memcheck: unit tests (log: $logs/lawutil_tests.log)"
start=$SECONDS
status=0
valgrind "${valgrind_args[@]}" --log-file="$logs/lawutil_tests.log" "$tests" --gtest_brief=1 \
    >"$logs/lawutil_tests.out" 2>&1 || status=$?
if [ "$status" != 0 ]; then
    tail -n 40 "$logs/lawutil_tests.out"
    if [ "$status" = 97 ]; then
        echo "memcheck: FAIL: valgrind found errors in the unit tests:"
        grep -E "^==[0-9]+== +(Invalid|Conditional|Use of|Syscall|Mismatched|Source and|.*lost in loss)" \
            -A14 "$logs/lawutil_tests.log" | head -n 200 || true
    else
        echo "memcheck: FAIL: the unit tests failed (status $status)"
    fi
    exit 1
fi
tail -n 3 "$logs/lawutil_tests.out"
echo "memcheck: unit tests clean ($((SECONDS - start))s)"

if [ ! -x "$lawtool" ]; then
    echo "memcheck: no lawtool in $build; its cases are skipped"
    exit 0
fi

wrapper="$logs/lawtool-under-valgrind"
cat >"$wrapper" <<EOF
#!/usr/bin/env bash
exec valgrind ${valgrind_args[*]} --log-file="$logs/lawtool/%p.log" "$lawtool" "\$@"
EOF
chmod +x "$wrapper"

echo "memcheck: lawtool cases (logs: $logs/lawtool/)"
start=$SECONDS
cases=()
for file in "$root"/tests/lawtool/*.cases; do
    while IFS= read -r header; do
        cases+=("$file" "${header#=== }")
    done < <(grep '^=== ' "$file")
done
failed=0
printf '%s\0' "${cases[@]}" |
    xargs -0 -n 2 -P "$jobs" bash -c '
        out=$(bash "$0" "$1" "$2" "$3" 2>&1) ||
            { echo "memcheck: FAIL: lawtool case $(basename "$2" .cases).$3"; echo "$out"; exit 1; }
    ' "$root/tests/lawtool/run_case.sh" "$wrapper" || failed=1
if [ "$failed" = 1 ] || grep -lE "ERROR SUMMARY: [1-9]" "$logs"/lawtool/*.log >/dev/null 2>&1; then
    for log in $(grep -lE "ERROR SUMMARY: [1-9]" "$logs"/lawtool/*.log 2>/dev/null); do
        echo "== $log"
        head -n 60 "$log"
    done
    echo "memcheck: FAIL: lawtool cases"
    exit 1
fi
echo "memcheck: $((${#cases[@]} / 2)) lawtool cases clean ($((SECONDS - start))s)"
echo "memcheck: PASS"
