# Thin front of the CMake presets. `make` alone says what there is.
JOBS ?= $(shell nproc)
RELEASE := build/release
SEED ?= 1
MINUTES ?= 20
HOURS ?= 1

.PHONY: packages help demo run test vm-test check bench campaign soak build programs deps format lint

help:
	@echo 'make demo      install what is missing, build, and watch the daemon work'
	@echo 'make test      install what is missing, build, and run all tests'
	@echo 'make run       the daemon and its management agent on a root of their own, until Ctrl-C'
	@echo 'make check     the fast loop: format, lint, build, unit tests'
	@echo 'make bench     the speed ratios, a CSV of them and a plot'
	@echo 'make campaign  all campaigns and fuzzers for MINUTES in all (20), from SEED (1)'
	@echo 'make soak      HOURS of observations while everybody round the daemon comes and goes (1)'
	@echo 'make vm-test   rynlinuxd on a machine of its own, whose devices are pulled and broken'
	@echo 'make packages  the Debian packages, into build/packages'
	@echo 'make format    format every source; make lint: look at every source'
	@echo 'JOBS=n builds and tests with n processes at once.'

# Built to be there soon: what it shows, and not optimised.
demo: deps
	@cmake --preset demo >build/demo.log 2>&1 || { cat build/demo.log; exit 1; }
	cmake --build --preset demo -j $(JOBS) --target rynd rynctl rynmgmtd
	@demo/demo.sh build/demo/bin

run: programs
	@demo/run.sh $(RELEASE)/bin

# Twice as many tests as jobs: many wait for most of their time.
test: build
	ctest --preset release -j $$(($(JOBS) * 2))

check:
	@tools/install-deps base check
	@tools/format --check
	@tools/lint --changed
	cmake --preset debug && cmake --build --preset debug -j $(JOBS)
	ctest --preset debug -j $(JOBS) -LE system_test

bench: build
	$(RELEASE)/bench/rynd_bench --csv $(RELEASE)/bench.csv --svg $(RELEASE)/bench.svg

# Two thirds of the time for the campaigns, a third for the fuzzers.
campaign: deps
	@cmake --preset release >$(RELEASE).log 2>&1 || { cat $(RELEASE).log; exit 1; }
	cmake --build --preset release -j $(JOBS) --target rynd rynctl campaign_test
	@campaigns=$$($(RELEASE)/testing/campaign_test --gtest_list_tests | grep -c '^  '); \
	seconds=$$(($(MINUTES) * 40 / campaigns)); \
	RYND_SEED=$(SEED) RYND_CAMPAIGN_SECONDS=$$seconds $(RELEASE)/testing/campaign_test
	tools/fuzz-coverage $$(($(MINUTES) * 20 / 9))

soak: deps
	@cmake --preset release >$(RELEASE).log 2>&1 || { cat $(RELEASE).log; exit 1; }
	cmake --build --preset release -j $(JOBS) --target rynd rynd_soak
	$(RELEASE)/testing/rynd_soak $(HOURS)

# Of this build's programs, without KVM: any machine can.
vm-test: programs
	@tools/vm-test $(RELEASE)

build: deps
	cmake --preset release
	cmake --build --preset release -j $(JOBS)

# Only what a user runs.
programs: deps
	@cmake --preset release >$(RELEASE).log 2>&1 || { cat $(RELEASE).log; exit 1; }
	cmake --build --preset release -j $(JOBS) --target rynd rynctl rynlinuxd rynmgmtd

deps:
	@tools/install-deps base
	@mkdir -p build

packages:
	@tools/install-deps packages
	@tools/packages

format:
	@tools/install-deps check
	@tools/format

lint:
	@tools/install-deps base check
	@tools/lint
