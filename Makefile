# Front door. Each target installs what is missing, builds what it needs and runs.

JOBS ?= $(shell nproc)
DEMO_ARGS ?=
BENCH_ARGS ?=
FUZZ_SECONDS ?= 60
MUTANT_ARGS ?=

.PHONY: help dependencies build test demo bench asan fuzz check format clean

help: ## list the targets
	@grep -E '^[a-z]+:.*##' $(MAKEFILE_LIST) | sed -E 's/:[^#]*## /\t/' | expand -t 16

dependencies: ## install the Debian packages that are missing
	@scripts/install-dependencies.sh

build: dependencies ## build library, tests, bench and examples (release)
	cmake --preset release
	cmake --build --preset release -j $(JOBS)

test: build ## run all tests
	ctest --preset release -j $(JOBS)

demo: build ## run the life of a simulated device; DEMO_ARGS="--planes 100"
	build/release/examples/device_life $(DEMO_ARGS)

bench: build ## each fast form beside a literal one; BENCH_ARGS="--benchmark_filter=..."
	@for program in build/release/bench/*_bench; do $$program $(BENCH_ARGS) || exit 1; done

asan: dependencies ## run all tests under the address and undefined-behaviour sanitizers
	cmake --preset asan
	cmake --build --preset asan -j $(JOBS)
	ctest --preset asan -j $(JOBS)

check: ## format, all tests under the sanitizers, a short fuzz run of each reader
	@scripts/install-dependencies.sh check
	git ls-files '*.h' '*.cpp' | xargs clang-format --dry-run -Werror
	$(MAKE) asan
	$(MAKE) fuzz FUZZ_SECONDS=15

fuzz: ## any bytes into both file readers; FUZZ_SECONDS=60 for each
	@scripts/install-dependencies.sh fuzz
	cmake --preset fuzz
	cmake --build --preset fuzz -j $(JOBS)
	@cd build/fuzz/fuzz && for format in coefficient plane_block; do \
	  ./$${format}_fuzz -max_total_time=$(FUZZ_SECONDS) -max_len=4096 -print_final_stats=1 \
	    $${format}_corpus $${format}_seeds || exit 1; \
	done

.PHONY: mutants
mutants: build ## one changed instruction at a time; MUTANT_ARGS="--unit fast/ --kind branch"
	@scripts/install-dependencies.sh mutants
	scripts/mutants.py --jobs $(JOBS) $(MUTANT_ARGS)

format: ## format all sources
	git ls-files '*.h' '*.cpp' | xargs clang-format -i

clean: ## remove all builds
	rm -rf build
