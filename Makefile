# Front door. Each target installs what is missing, builds what it needs and runs.

JOBS ?= $(shell nproc)
DEMO_ARGS ?=
BENCH_ARGS ?=
FUZZ_SECONDS ?= 60
MUTANT_ARGS ?=

.PHONY: help dependencies build test demo bench asan fuzz check format clean

help: ## list the targets
	@grep -E '^[a-z-]+:.*##' $(MAKEFILE_LIST) | sed -E 's/:[^#]*## /\t/' | expand -t 16

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

.PHONY: growth
growth: build ## how cost and memory grow; GROWTH_ARGS="factory fast" for some jobs
	@build/release/bench/growth $(GROWTH_ARGS)

asan: dependencies ## run all tests under the address and undefined-behaviour sanitizers
	cmake --preset asan
	cmake --build --preset asan -j $(JOBS)
	ctest --preset asan -j $(JOBS)

check: ## every check there is, one line each; scripts/check.sh runs single ones
	@scripts/install-dependencies.sh check fuzz
	@JOBS=$(JOBS) scripts/check.sh

fuzz: ## any bytes into both file readers; FUZZ_SECONDS=60 for each
	@scripts/install-dependencies.sh fuzz
	cmake --preset fuzz
	cmake --build --preset fuzz -j $(JOBS)
	@cd build/fuzz/fuzz && for format in coefficient plane_block; do \
	  ./$${format}_fuzz -max_total_time=$(FUZZ_SECONDS) -max_len=4096 -print_final_stats=1 \
	    $${format}_corpus $${format}_seeds || exit 1; \
	done

.PHONY: docs
docs: ## the reference of the public headers, in build/docs/html
	@scripts/install-dependencies.sh docs
	@mkdir -p build/docs
	KESTRANE_VERSION=$$(sed -n 's/^project(kestrane VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt) \
	  doxygen docs/Doxyfile

.PHONY: mutants
mutants: build ## one changed instruction at a time; MUTANT_ARGS="--unit fast/ --kind branch"
	@scripts/install-dependencies.sh mutants
	scripts/mutants.py --jobs $(JOBS) $(MUTANT_ARGS)

format: ## format all sources
	git ls-files '*.h' '*.cpp' | xargs clang-format -i

PREFIX ?= /usr/local
.PHONY: install
install: dependencies ## install library, headers and packages; PREFIX=/usr/local, DESTDIR=
	cmake --preset release
	cmake --build --preset release -j $(JOBS) --target kestrane
	DESTDIR="$(DESTDIR)" cmake --install build/release --prefix "$(PREFIX)"

.PHONY: package
package: ## build the Debian packages twice, compare them, and have lintian look at them
	@scripts/install-dependencies.sh package
	JOBS=$(JOBS) scripts/build-packages.sh build

.PHONY: abi
abi: ## hold symbols and layouts against the baseline of the binary interface
	@scripts/install-dependencies.sh abi
	JOBS=$(JOBS) scripts/check-abi.sh

.PHONY: abi-baseline
abi-baseline: ## make the present binary interface the baseline
	@scripts/install-dependencies.sh abi
	JOBS=$(JOBS) scripts/check-abi.sh --rewrite

clean: ## remove all builds
	rm -rf build
