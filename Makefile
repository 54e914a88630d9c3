# Thin wrapper over the CMake presets; every target stops with a non-zero status as soon
# as a step fails.

CMAKE        ?= cmake
CTEST        ?= ctest
CLANG_FORMAT ?= clang-format
BENCH_ARGS   ?=

# The presets leave the job count open so it can follow the machine.
export CMAKE_BUILD_PARALLEL_LEVEL ?= $(shell nproc 2>/dev/null || echo 2)

FORMAT_DIRS := base lawutil tools tests bench fuzz
LAWTOOL     := build/default/tools/lawtool/lawtool

.DEFAULT_GOAL := test
.PHONY: test sanitize tsan bench demo format format-check clean

test:
	$(CMAKE) --workflow --preset default

sanitize:
	$(CMAKE) --workflow --preset sanitize

tsan:
	$(CMAKE) --workflow --preset tsan

bench:
	$(CMAKE) --workflow --preset bench
	@set -e; list=build/bench/benchmarks.txt; \
	if [ ! -s $$list ]; then echo "bench: no benchmarks in bench/"; exit 0; fi; \
	while IFS= read -r b; do \
		[ -n "$$b" ] || continue; \
		echo "== $$(basename $$b)"; \
		"$$b" $(BENCH_ARGS); \
	done < $$list

demo:
	$(CMAKE) --workflow --preset demo
	@set -e; \
	if ls tools/lawtool/*.cpp >/dev/null 2>&1; then \
		$(LAWTOOL) demo; \
	else \
		echo "demo: the command-line front end (tools/lawtool) is not built yet;"; \
		echo "demo: running the test suite instead."; \
		$(CTEST) --preset default; \
	fi

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
