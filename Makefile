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
.PHONY: deps test sanitize tsan bench demo format format-check clean

# Every target that builds first installs the Debian packages the build needs, so a
# clean clone on a fresh machine builds; once they are there it costs nothing.
deps:
	@bash scripts/setup-deps.sh

test: deps
	$(CMAKE) --workflow --preset default

sanitize: deps
	$(CMAKE) --workflow --preset sanitize

tsan: deps
	$(CMAKE) --workflow --preset tsan

bench: deps
	$(CMAKE) --workflow --preset bench
	@set -e; list=build/bench/benchmarks.txt; \
	if [ ! -s $$list ]; then echo "bench: no benchmarks in bench/"; exit 0; fi; \
	while IFS= read -r b; do \
		[ -n "$$b" ] || continue; \
		echo "== $$(basename $$b)"; \
		"$$b" $(BENCH_ARGS); \
	done < $$list

demo: deps
	$(CMAKE) --workflow --preset demo
	@$(LAWTOOL) demo

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
