# The front door. Every target does its own set-up, packages included: on a fresh Debian 12 machine
# with git and make, as root or with sudo, each of these works as the only command.

SHELL := /bin/bash
.DEFAULT_GOAL := help
.PHONY: help setup build robotctl docs package install demo demo-board test test-asan test-tsan test-without-physics fuzz test-fuzz bench bench-long format check-format clean

JOBS ?= $(shell nproc)
TEST_JOBS ?= 3
FUZZ_SECONDS ?= 60
PREFIX ?= /usr/local
CMAKE_BUILD = cmake --build build/$(1) --parallel $(JOBS)
# GCC 12's thread sanitizer needs its usual address layout; some kernels randomise more than it allows.
FIXED_ADDRESSES = $$(setarch -R true 2>/dev/null && echo setarch -R)

help:
	@echo "make demo       start a virtual robot, walk it through a square, move its joints"
	@echo "make demo-board the same on the robot's own board, made up in a sandbox"
	@echo "make test       build everything and run all tests and the format check"
	@echo "make test-asan  the same under the address and undefined-behaviour sanitizers"
	@echo "make test-tsan  the same under the thread sanitizer"
	@echo "make test-without-physics  build and test the virtual robot as on a machine without MuJoCo"
	@echo "make fuzz       run each fuzz target for a minute (FUZZ_SECONDS=n: for n seconds)"
	@echo "make bench      run the benchmarks (build/release/bench/bench*.json hold the figures, too)"
	@echo "make bench-long the same with more samples, and a soak (BENCH_OPTIONS='--soak 600': its seconds)"
	@echo "make build      build everything (build/dev)"
	@echo "make robotctl   build no more than robotctl, the virtual robot and the examples (build/dev)"
	@echo "make docs       make HTML of the pages and the public headers (build/dev/docs/html)"
	@echo "make package    build a release and pack it for Debian (build/release/packages)"
	@echo "make install    build a release and install it without packages (PREFIX=/usr/local)"
	@echo "make format     format the sources in place"
	@echo "make clean      remove everything that was built"

setup:
	@tools/install-dependencies

build/%/build.ninja: | setup
	cmake --preset $*

.PRECIOUS: build/%/build.ninja

build: build/dev/build.ninja
	$(call CMAKE_BUILD,dev)

robotctl: build/dev/build.ninja
	$(call CMAKE_BUILD,dev) --target robotctl virtual-robot minimal walk_square joint_loop joint_trace \
	  low_level_stand

docs: setup
	cmake --preset dev
	$(call CMAKE_BUILD,dev) --target docs

# Configured anew each time: Doxygen, which makes the HTML pages, may have been installed since.
package: setup
	cmake --preset release
	$(call CMAKE_BUILD,release) --target installed
	rm -rf build/release/packages
	cd build/release && { cpack >cpack.log 2>&1 || { cat cpack.log; exit 1; }; }
	@ls -l build/release/packages/*.deb

install: build/release/build.ninja
	$(call CMAKE_BUILD,release) --target installed
	cmake --install build/release --prefix $(abspath $(DESTDIR)$(PREFIX)) --strip
	@[[ -n "$(DESTDIR)" || ! -w /etc/ld.so.cache ]] || ldconfig

demo: build/dev/build.ninja
	$(call CMAKE_BUILD,dev) --target virtual-robot walk_square joint_trace
	@examples/run-demo build/dev

demo-board: build/dev/build.ninja
	$(call CMAKE_BUILD,dev) --target virtual-robot walk_square joint_loop
	@tools/board-sandbox --alone examples/run-demo --board build/dev

test: build
	ctest --preset dev -j $(TEST_JOBS)

test-asan: build/asan/build.ninja
	$(call CMAKE_BUILD,asan)
	ctest --preset asan -j $(TEST_JOBS)

test-tsan: build/tsan/build.ninja
	$(call CMAKE_BUILD,tsan)
	$(FIXED_ADDRESSES) ctest --preset tsan -j $(TEST_JOBS)

# What is compiled in no other build: the robot whose only body is kinematic.
test-without-physics: build/without-physics/build.ninja
	$(call CMAKE_BUILD,without-physics) --target virtual-robot robot_program_test
	ctest --preset without-physics -R '^robot_program_test$$'

fuzz: build/fuzz/build.ninja
	$(call CMAKE_BUILD,fuzz) --target fuzzers
	tests/fuzz/run build/fuzz $(FUZZ_SECONDS)

test-fuzz: FUZZ_SECONDS = 8
test-fuzz: fuzz

# Configured anew each time: what it compares with may have been installed since.
bench bench-long:
	@tools/install-dependencies bench
	cmake --preset release
	$(call CMAKE_BUILD,release) --target bench_host bench_shm bench_low
	tools/isolated build/release/bench/bench_host --json build/release/bench/$@.json $(BENCH_OPTIONS)
	tools/isolated build/release/bench/bench_shm --json build/release/bench/$@-shm.json $(BENCH_OPTIONS)
	tools/board-sandbox --alone --without-daemon --marker build/release/bench/bench_low --json build/release/bench/$@-low.json $(BENCH_OPTIONS)

bench-long: BENCH_OPTIONS += --long

format: setup
	tests/check-format --fix

check-format: setup
	tests/check-format

clean:
	rm -rf build
