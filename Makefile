# Thin wrapper over the CMake presets; every target stops with a non-zero status as soon
# as a step fails.

CMAKE        ?= cmake
CTEST        ?= ctest
CLANG_FORMAT ?= clang-format
BENCH_ARGS   ?=
# make fuzz: how long the fuzzer runs, and extra libFuzzer options (e.g. -seed=1).
FUZZ_SECONDS ?= 60
FUZZ_ARGS    ?=
# The reader recurses, so every nesting depth is a new allocation stack, and ASan keeps
# every stack it has seen for the life of the process: with full stacks the fuzzer's
# memory grows by about 3 KB an input until -rss_limit_mb stops it after a few minutes.
FUZZ_ASAN_OPTIONS ?= malloc_context_size=8

# The presets leave the job count open so it can follow the machine.
export CMAKE_BUILD_PARALLEL_LEVEL ?= $(shell nproc 2>/dev/null || echo 2)

FORMAT_DIRS := base lawutil tools tests bench fuzz examples
LAWTOOL     := build/default/tools/lawtool/lawtool
FUZZ_BUILD  := build/fuzz
FUZZER      := $(FUZZ_BUILD)/fuzz/fuzz_str_to_law

.DEFAULT_GOAL := test
.PHONY: deps test sanitize tsan fuzz memcheck bench demo docs python format format-check clean

# Every target that builds first checks the Debian packages it needs, by group (see the
# script's header): as root it installs what is missing, otherwise it says what to
# install and fails only when the target cannot work without it.  Once everything is
# there it costs nothing; LAWUTIL_SKIP_SETUP=1 skips it.
SETUP := bash scripts/setup-deps.sh
# The version in lawutil/version.hpp, for the documentation's title.
VERSION := $(shell sed -n 's/^\#define LAWUTIL_VERSION_STRING "\(.*\)"/\1/p' lawutil/version.hpp)

deps:
	@$(SETUP) core

test:
	@$(SETUP) core locale
	$(CMAKE) --workflow --preset default

sanitize:
	@$(SETUP) core locale
	$(CMAKE) --workflow --preset sanitize

tsan:
	@$(SETUP) core locale
	$(CMAKE) --workflow --preset tsan

# Fuzzes the law reader for FUZZ_SECONDS.  New inputs go to the build tree's corpus (kept
# between runs); the seeds in fuzz/corpus are only read.  A crash, leak, time-out or
# out-of-memory stops it with a failure and the input saved under $(FUZZ_BUILD)/artifacts.
fuzz:
	@$(SETUP) core fuzz
	$(CMAKE) --workflow --preset fuzz
	@mkdir -p $(FUZZ_BUILD)/corpus $(FUZZ_BUILD)/artifacts
	ASAN_OPTIONS=$(FUZZ_ASAN_OPTIONS) $(FUZZER) -max_total_time=$(FUZZ_SECONDS) \
		-rss_limit_mb=2048 -max_len=512 -timeout=10 -dict=fuzz/law.dict -print_final_stats=1 \
		-artifact_prefix=$(FUZZ_BUILD)/artifacts/ $(FUZZ_ARGS) $(FUZZ_BUILD)/corpus fuzz/corpus

# The unit tests and the lawtool cases under valgrind: no invalid access, no leak.  Not
# part of CI: it takes minutes.
memcheck:
	@$(SETUP) core memcheck locale
	$(CMAKE) --workflow --preset memcheck
	bash scripts/memcheck.sh build/memcheck

bench:
	@$(SETUP) core
	$(CMAKE) --workflow --preset bench
	@set -e; list=build/bench/benchmarks.txt; \
	if [ ! -s $$list ]; then echo "bench: no benchmarks in bench/"; exit 0; fi; \
	while IFS= read -r b; do \
		[ -n "$$b" ] || continue; \
		echo "== $$(basename $$b)"; \
		"$$b" $(BENCH_ARGS); \
	done < $$list

demo:
	@$(SETUP) core
	$(CMAKE) --workflow --preset demo
	@$(LAWTOOL) demo

# The Python module alone (its own build tree, no C++ tests), then its tests under Debian's
# interpreter, the one it is built for.
PYTHON_BUILD := build/python
python:
	@$(SETUP) core python
	$(CMAKE) -S . -B $(PYTHON_BUILD) -DCMAKE_BUILD_TYPE=Release -DLAWUTIL_BUILD_PYTHON=ON \
		-DLAWUTIL_BUILD_TESTS=OFF -DLAWUTIL_BUILD_TOOLS=OFF -DLAWUTIL_BUILD_BENCHMARKS=OFF
	$(CMAKE) --build $(PYTHON_BUILD) --target lawutil_python
	PYTHONPATH=$(PYTHON_BUILD)/python /usr/bin/python3 python/test_lawutil.py

# API documentation of the public headers with Doxygen (settings in Doxyfile), into
# build/docs/html; any Doxygen warning fails it (the list is in build/docs/warnings.log).
docs:
	@$(SETUP) docs
	@mkdir -p build/docs
	@LAWUTIL_VERSION=$(VERSION) doxygen Doxyfile || { cat build/docs/warnings.log >&2; exit 1; }
	@echo "docs: build/docs/html/index.html"

format:
	@files=$$(find $(FORMAT_DIRS) -type f \( -name '*.cpp' -o -name '*.hpp' -o -name '*.h' \) \
		2>/dev/null | sort); \
	if [ -n "$$files" ]; then $(CLANG_FORMAT) -i $$files; fi

format-check:
	@files=$$(find $(FORMAT_DIRS) -type f \( -name '*.cpp' -o -name '*.hpp' -o -name '*.h' \) \
		2>/dev/null | sort); \
	if [ -n "$$files" ]; then $(CLANG_FORMAT) --dry-run -Werror $$files; fi

clean:
	rm -rf build
