#!/usr/bin/env bash
# Installs the Debian packages the build needs, once.  Every build target of the Makefile
# runs it first, so a clean clone on a fresh Debian 12 machine builds with `make test`.
#
# Idempotent: a package is installed only when the file that proves it is missing, and
# apt is not touched at all when nothing is missing.  Set LAWUTIL_SKIP_SETUP=1 to skip
# the check altogether (e.g. on a machine whose packages are managed elsewhere).
set -euo pipefail

if [ "${LAWUTIL_SKIP_SETUP:-0}" = 1 ]; then
    exit 0
fi

# One line per package: the Debian package and a file (or command) that is there once it
# is installed.  Header-only and CMake-config packages are probed by their files, so a
# copy installed by other means also counts.
requirements=(
    "g++                 cmd:g++"
    "cmake               cmd:cmake"
    "make                cmd:make"
    "libgtest-dev        /usr/include/gtest/gtest.h"
    "libgmock-dev        /usr/include/gmock/gmock.h"
    "libbenchmark-dev    /usr/include/benchmark/benchmark.h"
    "libcli11-dev        /usr/share/cmake/CLI11/CLI11Config.cmake"
)

missing=()
for row in "${requirements[@]}"; do
    read -r package probe <<<"$row"
    case "$probe" in
        cmd:*) command -v "${probe#cmd:}" >/dev/null 2>&1 && continue ;;
        *) [ -e "$probe" ] && continue ;;
    esac
    missing+=("$package")
done

if [ ${#missing[@]} -eq 0 ]; then
    exit 0
fi

echo "setup-deps: installing ${missing[*]}"

if [ "$(id -u)" -eq 0 ]; then
    as_root=()
elif command -v sudo >/dev/null 2>&1; then
    as_root=(sudo)
else
    echo "setup-deps: need root (or sudo) to run: apt-get install ${missing[*]}" >&2
    exit 1
fi

if ! command -v apt-get >/dev/null 2>&1; then
    echo "setup-deps: no apt-get here; install these yourself: ${missing[*]}" >&2
    exit 1
fi

export DEBIAN_FRONTEND=noninteractive
"${as_root[@]}" apt-get update -q
"${as_root[@]}" apt-get install -y -q --no-install-recommends "${missing[@]}"
