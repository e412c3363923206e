# The project's front door. `make demo` and `make test` work on a fresh
# machine: both install what is missing first.
JOBS ?= 2
# Seconds each fuzz target runs in `make fuzz`.
FUZZ_SECONDS ?= 60

.PHONY: all setup build test demo bench fuzz clean

all: build

setup:
	@scripts/setup

build: setup
	cmake --preset default >/dev/null
	cmake --build build/default -j $(JOBS)

test: setup
	cmake --preset asan >/dev/null
	cmake --build build/asan -j $(JOBS)
	ctest --preset asan -j $(JOBS)

demo: build
	scripts/demo build/default/bin

bench: setup
	cmake --preset bench >/dev/null
	cmake --build build/bench -j $(JOBS)
	@for b in build/bench/bin/bench_*; do [ -x "$$b" ] && "$$b"; done

# Every fuzz target for FUZZ_SECONDS from its seeds; a crash fails the run.
fuzz: setup
	cmake --preset fuzz >/dev/null
	cmake --build build/fuzz -j $(JOBS) --target fuzzers
	fuzz/run build/fuzz $(FUZZ_SECONDS)

clean:
	rm -rf build
