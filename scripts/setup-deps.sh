#!/usr/bin/env bash
# Checks the Debian packages a Makefile target needs, and installs the missing ones only
# when that can be done without surprising anybody.
#
#   setup-deps.sh [GROUP ...]      (no group: core)
#
# Groups, one per kind of work:
#   core      compiler, CMake, make, GoogleTest/GoogleMock, Google Benchmark, CLI11, SLEEF
#             (make test, make demo, make bench, and the base of every other target)
#   fuzz      clang with the libFuzzer runtime (make fuzz)
#   memcheck  valgrind (make memcheck)
#   locale    the comma-decimal locale de_DE.UTF-8 (its tests skip without it)
#   docs      doxygen (make docs)
#   python    Python headers, pybind11 and NumPy (make python)
#
# What happens when something is missing:
#   - as root: apt-get installs it (and locale-gen generates the locale);
#   - not root, LAWUTIL_USE_SUDO=1: the same through sudo, announced first;
#   - otherwise nothing is installed: the script names the missing packages and prints
#     the command to run, then fails if a required one is missing and goes on (exit 0)
#     when only optional ones are, whose tests or fallbacks say so themselves.
# LAWUTIL_SKIP_SETUP=1 skips the check altogether (packages managed elsewhere).
#
# Idempotent: a package counts as present when the file or command that proves it is
# there, so apt is not touched at all when nothing is missing, and a copy installed by
# other means also counts.
set -euo pipefail

if [ "${LAWUTIL_SKIP_SETUP:-0}" = 1 ]; then
    exit 0
fi

# One line per package: group, required or optional, Debian package, and the probe that
# proves it is installed (cmd:NAME a command, glob:PATTERN some file, else a path).
requirements=(
    "core     required  g++                 cmd:g++"
    "core     required  cmake               cmd:cmake"
    "core     required  make                cmd:make"
    "core     required  libgtest-dev        /usr/include/gtest/gtest.h"
    "core     required  libgmock-dev        /usr/include/gmock/gmock.h"
    "core     required  libbenchmark-dev    /usr/include/benchmark/benchmark.h"
    "core     required  libcli11-dev        /usr/share/cmake/CLI11/CLI11Config.cmake"
    # Four-lane elementary functions for batch evaluation; without it the build falls
    # back to glibc's libmvec, then to the scalar functions.
    "core     optional  libsleef-dev        glob:/usr/lib/*-linux-gnu/libsleef.so"
    # The installed-package test also builds through pkg-config when it is there.
    "core     optional  pkgconf             cmd:pkg-config"
    "fuzz     required  clang               cmd:clang++"
    "fuzz     required  libclang-rt-14-dev  glob:/usr/lib/llvm-14/lib/clang/*/lib/linux/libclang_rt.fuzzer-*.a"
    "memcheck required  valgrind            cmd:valgrind"
    # Probed by path: /usr/sbin is not on an ordinary user's PATH.  Needed only to make
    # the locale, so not checked once the locale is there.
    "locale   optional  locales             /usr/sbin/locale-gen"
    "docs     required  doxygen             cmd:doxygen"
    "python   required  python3-dev         glob:/usr/include/python3*/Python.h"
    "python   required  pybind11-dev        /usr/include/pybind11/pybind11.h"
    "python   required  python3-pybind11    glob:/usr/lib/python3/dist-packages/pybind11/__init__.py"
    "python   required  python3-numpy       glob:/usr/lib/python3/dist-packages/numpy/__init__.py"
)
known_groups=" core fuzz memcheck locale docs python "

# The locale the locale tests switch to.
comma_locale="de_DE.UTF-8"

say() { echo "setup-deps: $*" >&2; }

groups=("$@")
[ ${#groups[@]} -gt 0 ] || groups=(core)
for g in "${groups[@]}"; do
    if [[ $known_groups != *" $g "* ]]; then
        say "unknown group '$g' (groups:$known_groups)"
        exit 2
    fi
done
wanted() { [[ " ${groups[*]} " == *" $1 "* ]]; }

present() {
    case "$1" in
        cmd:*) command -v "${1#cmd:}" >/dev/null 2>&1 ;;
        glob:*) compgen -G "${1#glob:}" >/dev/null ;;
        *) [ -e "$1" ] ;;
    esac
}

# locale -a spells UTF-8 as "utf8".
have_comma_locale() {
    locale -a 2>/dev/null | grep -qix "${comma_locale%.UTF-8}.utf8"
}

missing_required=()
missing_optional=()
for row in "${requirements[@]}"; do
    read -r group need package probe <<<"$row"
    wanted "$group" || continue
    [ "$group" = locale ] && have_comma_locale && continue
    present "$probe" && continue
    if [ "$need" = required ]; then
        missing_required+=("$package")
    else
        missing_optional+=("$package")
    fi
done
missing=(${missing_required[@]+"${missing_required[@]}"} ${missing_optional[@]+"${missing_optional[@]}"})
need_locale=0
if wanted locale && ! have_comma_locale; then
    need_locale=1
fi

if [ ${#missing[@]} -eq 0 ] && [ $need_locale = 0 ]; then
    exit 0
fi

# Who may install: root itself, or sudo when the user asked for it.
as_root=()
can_install=1
if [ "$(id -u)" -ne 0 ]; then
    if [ "${LAWUTIL_USE_SUDO:-0}" = 1 ] && command -v sudo >/dev/null 2>&1; then
        as_root=(sudo)
        say "LAWUTIL_USE_SUDO=1: installing through sudo"
    else
        can_install=0
    fi
fi
if [ ${#missing[@]} -gt 0 ] && ! command -v apt-get >/dev/null 2>&1; then
    can_install=0
fi

if [ $can_install = 0 ]; then
    # Name what is missing and how to get it; install nothing.
    if [ ${#missing_required[@]} -gt 0 ]; then
        say "missing (required for ${groups[*]}): ${missing_required[*]}"
    fi
    if [ ${#missing_optional[@]} -gt 0 ]; then
        say "missing (optional, the target goes on without them): ${missing_optional[*]}"
    fi
    [ $need_locale = 0 ] || say "missing (optional): the locale $comma_locale; the locale tests skip"
    say "to install, run as root (or once with LAWUTIL_USE_SUDO=1 to let this script use sudo):"
    if [ ${#missing[@]} -gt 0 ]; then
        say "    apt-get update && apt-get install --no-install-recommends ${missing[*]}"
    fi
    if [ $need_locale = 1 ]; then
        say "    sed -i 's/^# *\\($comma_locale \\)/\\1/' /etc/locale.gen && locale-gen"
    fi
    say "or set LAWUTIL_SKIP_SETUP=1 to skip this check"
    if [ ${#missing_required[@]} -gt 0 ]; then
        exit 1
    fi
    exit 0
fi

if [ ${#missing[@]} -gt 0 ]; then
    say "installing ${missing[*]}"
    export DEBIAN_FRONTEND=noninteractive
    "${as_root[@]}" apt-get update -q
    "${as_root[@]}" apt-get install -y -q --no-install-recommends "${missing[@]}"
fi

if [ $need_locale = 1 ]; then
    say "generating the locale $comma_locale"
    if ! command -v locale-gen >/dev/null 2>&1; then
        say "no locale-gen here; the locale tests will skip"
    else
        if [ -f /etc/locale.gen ] && grep -q "^# *$comma_locale " /etc/locale.gen; then
            "${as_root[@]}" sed -i "s/^# *\($comma_locale \)/\1/" /etc/locale.gen
        elif ! grep -q "^$comma_locale " /etc/locale.gen 2>/dev/null; then
            echo "$comma_locale UTF-8" | "${as_root[@]}" tee -a /etc/locale.gen >/dev/null
        fi
        "${as_root[@]}" locale-gen >/dev/null ||
            say "could not generate $comma_locale; the locale tests will skip"
    fi
fi
