# Thin front of the CMake presets.
#   make demo    install what is missing, build, and watch the daemon work
#   make test    install what is missing, build, and run all tests
#   make check   the developer's fast loop: format, lint, build, unit tests
#   make bench   the speed ratios and a CSV of them
#   make run     the daemon on a root of its own, until Ctrl-C

JOBS ?= $(shell nproc)
RELEASE := build/release

.PHONY: demo run test check bench build deps format lint

demo: build
	@demo/demo.sh $(RELEASE)/bin

run: build
	@demo/run.sh $(RELEASE)/bin

test: build
	ctest --preset release -j $(JOBS)

check:
	@tools/install-deps base check
	@tools/format --check
	@tools/lint --changed
	cmake --preset debug && cmake --build --preset debug -j $(JOBS)
	ctest --preset debug -j $(JOBS) -LE system_test

bench: build
	$(RELEASE)/bench/rynd_bench --csv $(RELEASE)/bench.csv

build: deps
	cmake --preset release
	cmake --build --preset release -j $(JOBS)

deps:
	@tools/install-deps base

format:
	@tools/install-deps check
	@tools/format

lint:
	@tools/install-deps base check
	@tools/lint
