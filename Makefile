# The project's front door. `make demo` and `make test` work on a fresh
# machine: both install what is missing first.
JOBS ?= 2

.PHONY: all setup build test demo bench clean

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

clean:
	rm -rf build
