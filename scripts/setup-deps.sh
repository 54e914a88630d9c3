#!/usr/bin/env bash
# Installs the Debian packages the build needs, once, and generates the comma-decimal
# locale the locale tests use.  Every build target of the Makefile runs it first, so a
# clean clone on a fresh Debian 12 machine builds with `make test`.
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
    # SLEEF's four-lane elementary functions for batch evaluation (the build falls back
    # to glibc's libmvec, then to the scalar functions, without it).
    "libsleef-dev        glob:/usr/lib/*-linux-gnu/libsleef.so"
    # make fuzz: clang with the libFuzzer runtime; make memcheck: valgrind; the locale
    # tests: a locale whose decimal separator is a comma (generated below).
    "clang               cmd:clang++"
    "libclang-rt-14-dev  glob:/usr/lib/llvm-14/lib/clang/*/lib/linux/libclang_rt.fuzzer-*.a"
    "valgrind            cmd:valgrind"
    "locales             cmd:locale-gen"
)

# The locale the locale tests switch to; they skip when it cannot be generated.
comma_locale="de_DE.UTF-8"

# `setup-deps.sh python` (make python): the compiler, CMake and the Python module's own
# packages only, no locale.
if [ "${1:-}" = python ]; then
    requirements=(
        "g++                 cmd:g++"
        "cmake               cmd:cmake"
        "make                cmd:make"
        "python3-dev         glob:/usr/include/python3*/Python.h"
        "pybind11-dev        /usr/include/pybind11/pybind11.h"
        "python3-numpy       glob:/usr/lib/python3/dist-packages/numpy/__init__.py"
    )
    comma_locale=""
fi

missing=()
for row in "${requirements[@]}"; do
    read -r package probe <<<"$row"
    case "$probe" in
        cmd:*) command -v "${probe#cmd:}" >/dev/null 2>&1 && continue ;;
        glob:*) compgen -G "${probe#glob:}" >/dev/null && continue ;;
        *) [ -e "$probe" ] && continue ;;
    esac
    missing+=("$package")
done

# locale -a spells UTF-8 as "utf8".
have_comma_locale() {
    [ -z "$comma_locale" ] && return 0
    locale -a 2>/dev/null | grep -qix "${comma_locale%.UTF-8}.utf8"
}

if [ ${#missing[@]} -eq 0 ] && have_comma_locale; then
    exit 0
fi

if [ "$(id -u)" -eq 0 ]; then
    as_root=()
elif command -v sudo >/dev/null 2>&1; then
    as_root=(sudo)
else
    echo "setup-deps: need root (or sudo) to install ${missing[*]:-nothing} and the locale $comma_locale" >&2
    [ ${#missing[@]} -eq 0 ] && exit 0  # only the locale: its tests skip without it
    exit 1
fi

if [ ${#missing[@]} -gt 0 ]; then
    echo "setup-deps: installing ${missing[*]}"
    if ! command -v apt-get >/dev/null 2>&1; then
        echo "setup-deps: no apt-get here; install these yourself: ${missing[*]}" >&2
        exit 1
    fi
    export DEBIAN_FRONTEND=noninteractive
    "${as_root[@]}" apt-get update -q
    "${as_root[@]}" apt-get install -y -q --no-install-recommends "${missing[@]}"
fi

if ! have_comma_locale; then
    echo "setup-deps: generating the locale $comma_locale"
    if [ -f /etc/locale.gen ] && grep -q "^# *$comma_locale " /etc/locale.gen; then
        "${as_root[@]}" sed -i "s/^# *\($comma_locale \)/\1/" /etc/locale.gen
    elif ! grep -q "^$comma_locale " /etc/locale.gen 2>/dev/null; then
        echo "$comma_locale UTF-8" | "${as_root[@]}" tee -a /etc/locale.gen >/dev/null
    fi
    "${as_root[@]}" locale-gen >/dev/null ||
        echo "setup-deps: could not generate $comma_locale; the locale tests will skip" >&2
fi
