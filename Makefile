# Front door. Each target sees to its packages, builds what it needs and runs.
#
# Missing packages are installed for root and with CI set; elsewhere a target names them and stops,
# and `make dependencies` installs them.

JOBS ?= $(shell nproc)
DEMO_ARGS ?=
BENCH_ARGS ?=
FUZZ_SECONDS ?= 60
MUTANT_ARGS ?=
GROUPS ?=
TESTS ?=
PREFIX ?= /usr/local
SUITE ?= bookworm
FORMER ?=

needs := @scripts/install-dependencies.sh
needs_python := @scripts/install-dependencies.sh python

.PHONY: help dependencies build python test browser-test test-arm64 demo bench growth accuracy asan check fuzz docs mutants \
  mutants-python format install uninstall package test-packages abi abi-baseline clean

help: ## list the targets
	@grep -E '^[a-z0-9-]+:.*##' $(MAKEFILE_LIST) | sed -E 's/:[^#]*## /\t/' | expand -t 16

dependencies: ## install the Debian packages that are missing; GROUPS="check docs" for more
	@scripts/install-dependencies.sh --install $(GROUPS)

build: ## build library, Python package, tests, bench and examples (release)
	$(needs_python)
	cmake --preset release
	cmake --build --preset release -j $(JOBS)

python: ## build the Python package; build/release/bin/python then finds it without installation
	$(needs_python)
	cmake --preset release
	cmake --build --preset release -j $(JOBS) --target kestrane_python

test: build ## run all tests; those of foreign hosts, which build programs, come second
	@rm -rf build/release/pytest
	@status=0; for tests in release adoption; do \
	  ctest --preset $$tests -j $(JOBS) || status=1; \
	done; cat build/release/pytest/*.txt; exit $$status

browser-test: ## look at the report page in a headless browser
	@scripts/install-dependencies.sh python browser
	cmake --preset release
	cmake --build --preset release -j $(JOBS) --target kestrane_python
	@python/run-pytest.sh build/release/bin/python build/release/pytest/tools.browser.txt tools/tests/browser; \
	  status=$$?; cat build/release/pytest/tools.browser.txt; exit $$status

test-arm64: ## cross-compile for arm64 and run the tests emulated; TESTS=<regex> for some
	$(needs) arm64
	@JOBS=$(JOBS) scripts/test-arm64.sh $(TESTS)

demo: ## the life of a simulated device, ends with its page; builds no more; DEMO_ARGS="--planes 100"
	$(needs_python)
	@echo "Configuring ..."
	@cmake --preset demo >/dev/null
	cmake --build --preset demo -j $(JOBS)
	@build/demo/examples/device_life $(DEMO_ARGS)
	@echo 'Then: make test runs all tests; examples/first_table.cpp and its neighbours are the shortest'
	@echo 'way into a host, README.md tells the rest.'
	@scripts/demo-page.sh build/demo

bench: build ## each fast form beside a literal one; BENCH_ARGS="--benchmark_filter=..."
	@for program in build/release/bench/*_bench; do $$program $(BENCH_ARGS) || exit 1; done

growth: build ## how cost and memory grow; GROWTH_ARGS="factory fast" for some jobs
	@build/release/bench/growth $(GROWTH_ARGS)

accuracy: build ## refined, plain and optimised tables against simulated truth
	build/release/tests/accuracy/refinement_accuracy

asan: ## run all tests under the address and undefined-behaviour sanitizers
	$(needs)
	cmake --preset asan
	cmake --build --preset asan -j $(JOBS)
	ctest --preset asan -j $(JOBS)

check: ## every check there is, one line each; scripts/check.sh runs single ones
	$(needs_python) check fuzz
	@JOBS=$(JOBS) scripts/check.sh

fuzz: ## any bytes into the file readers; FUZZ_SECONDS=60 for each
	$(needs) fuzz
	cmake --preset fuzz
	cmake --build --preset fuzz -j $(JOBS)
	@cd build/fuzz/fuzz && for format in coefficient plane_block checked_reader; do \
	  ./$${format}_fuzz -max_total_time=$(FUZZ_SECONDS) -max_len=4096 -print_final_stats=1 \
	    $${format}_corpus $${format}_seeds || exit 1; \
	done

docs: ## the reference of the public headers, in build/docs/html
	$(needs) docs
	@mkdir -p build/docs
	KESTRANE_VERSION=$$(sed -n 's/^project(kestrane VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt) \
	  doxygen docs/Doxyfile

mutants: build ## one changed instruction at a time; MUTANT_ARGS="--unit fast/ --kind branch"
	$(needs) mutants
	python3 tests/mutants --jobs $(JOBS) $(MUTANT_ARGS)

mutants-python: python ## one changed place of the Python modules at a time; MUTANT_ARGS="--module kestrane.clouds"
	build/release/bin/python tests/mutants/python --jobs $(JOBS) $(MUTANT_ARGS)

format: ## format all sources
	git ls-files '*.h' '*.cpp' | xargs clang-format -i

install: ## install library, headers and packages; PREFIX=/usr/local, DESTDIR=
	$(needs_python)
	cmake --preset release
	cmake --build --preset release -j $(JOBS) --target kestrane kestrane_quality kestrane_python kestrane_manual
	DESTDIR="$(DESTDIR)" cmake --install build/release --prefix "$(PREFIX)"

uninstall: ## remove what make install has put there; the same PREFIX and DESTDIR
	DESTDIR="$(DESTDIR)" scripts/uninstall.sh build/release "$(PREFIX)"

package: ## build the Debian packages twice, compare them, and have lintian look at them
	$(needs_python) package
	JOBS=$(JOBS) scripts/build-packages.sh build

test-packages: ## as root: install them in a fresh SUITE=bookworm and test; FORMER=<folder> is upgraded from
	$(needs) package
	scripts/test-packages.sh $(SUITE) build/packages/first $(FORMER)

abi: ## hold symbols and layouts against the baseline of the binary interface
	$(needs) abi
	JOBS=$(JOBS) scripts/check-abi.sh

abi-baseline: ## make the present binary interface the baseline
	$(needs) abi
	JOBS=$(JOBS) scripts/check-abi.sh --rewrite

clean: ## remove all builds
	rm -rf build
