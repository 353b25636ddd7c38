#!/usr/bin/env bash
# All checks, one line each, up to the first that fails.
#   check.sh            every step, in this order
#   check.sh step...    these steps alone
# What a step printed is in build/check/<step>.log. JOBS=2 tasks at a time, FUZZ_SECONDS=10 a reader.
set -euo pipefail
cd "$(dirname "$0")/.."

jobs=${JOBS:-$(nproc)}
fuzz_seconds=${FUZZ_SECONDS:-10}
logs=$PWD/build/check
# Those of one entry run side by side.
steps=(format "types lint cppcheck" tidy asan coverage python threads memory fuzz abi)

build() { # preset target...
  local preset=$1
  shift
  cmake --preset "$preset"
  cmake --build --preset "$preset" -j "$jobs" ${1+--target "$@"}
}

# The release build with each room as one source, in build/rooms.
join_rooms() { cmake --preset release -B build/rooms -DKESTRANE_UNITY=ON -DKESTRANE_BUILD_BENCH=OFF; }

# Every source looks as the formatter leaves it.
step_format() {
  git ls-files '*.h' '*.cpp' | xargs clang-format --dry-run -Werror
}

# The Python sources and the page's script, by .flake8, .pylintrc and tools/.eslintrc.json. Debian's
# eslint finds its parts by itself with Debian's node alone.
step_lint() {
  git ls-files '*.py' | xargs flake8
  git ls-files '*.js' | NODE_PATH=/usr/share/nodejs xargs eslint --format unix --max-warnings 0
  git ls-files python/kestrane tools/kestrane_tools tools/man_pages.py scripts cmake | grep '\.py$' |
    xargs pylint -j "$jobs"
}

# Tests are left out: cppcheck does not follow the macros of their framework.
step_cppcheck() {
  cppcheck --enable=warning,style,performance,portability --inline-suppr --error-exitcode=1 \
    --suppressions-list=.cppcheck-suppressions --std=c++20 --language=c++ --platform=unix64 \
    --quiet -j "$jobs" -Iinclude -Isrc -I. src quality include simulation examples bench fuzz
}

# The checks that .clang-tidy names, over the sources room by room.
step_tidy() {
  join_rooms
  scripts/tidy.py build/rooms "$jobs" src quality simulation examples python/src
}

# The annotations of the Python package, and those that a host sees of it.
step_types() {
  MYPYPATH=python:tools /usr/bin/python3 -m mypy --strict --cache-dir "$logs/mypy" \
    python/kestrane python/tests/typed_host.py tools/kestrane_tools tools/man_pages.py
}

# All tests of libraries under the address, undefined-behaviour and float-cast-overflow sanitizers,
# leaks too.
step_asan() {
  build asan
  find build/asan -name '*.gcda' -delete
  ctest --preset asan -j "$jobs"
}

# At least 98 of 100 lines of each library ran in the tests of the step before.
step_coverage() {
  scripts/coverage.py build/asan 98
}

# The Python package on the libraries of the step before the last: no call may end the process.
step_python() {
  printf 'python/tests/%s_test.py\n' calls host memory tables threads |
    xargs -P "$jobs" -n 1 build/asan/bin/python -m pytest -c pytest.ini
}

# Two objects of every class and two jobs of each kind in two threads, under the thread sanitizer.
step_threads() {
  local program
  build tsan threads_test quality_threads_test
  for program in threads_test quality_threads_test; do
    TSAN_OPTIONS=suppressions=tests/support/tsan.supp build/tsan/tests/threads/$program || return
  done
}

# The release library at work for the tests of its interface and for two threads.
step_memory() {
  join_rooms
  cmake --build build/rooms -j "$jobs" --target interface_test threads_test
  printf '%s\n' interface/interface_test threads/threads_test |
    xargs -P "$jobs" -I '{}' valgrind --quiet --fair-sched=try --leak-check=full --show-leak-kinds=definite,possible \
      --errors-for-leak-kinds=definite,possible --error-exitcode=1 \
      --suppressions=tests/support/valgrind.supp build/rooms/tests/'{}'
}

# Any bytes into the file readers, side by side.
step_fuzz() {
  build fuzz
  cd build/fuzz/fuzz
  printf '%s\n' coefficient plane_block checked_reader |
    xargs -P 3 -I '{}' env ./'{}'_fuzz -max_total_time="$fuzz_seconds" -max_len=4096 \
      -print_final_stats=1 '{}'_corpus '{}'_seeds
}

# Layouts and symbols are those of the committed baseline.
step_abi() {
  make abi
}

run() { # step...
  local -A processes=()
  local step started=$SECONDS status
  for step; do
    (
      trap 'echo "$SECONDS" >"$logs/$step.ended"' EXIT
      step_"$step"
    ) >"$logs/$step.log" 2>&1 &
    processes[$step]=$!
  done
  for step; do
    status=0
    wait "${processes[$step]}" || status=$?
    printf '%-10s %-6s %4d s\n' "$step" "$([ $status -eq 0 ] && echo ok || echo FAILED)" \
      $(($(<"$logs/$step.ended") - started))
    [ $status -eq 0 ] && continue
    tail -n 40 "$logs/$step.log"
    echo "check: $step failed, all of its output is in $logs/$step.log"
    wait
    exit 1
  done
}

mkdir -p "$logs"
[ $# -gt 0 ] && steps=("$@")
for step in ${steps[*]}; do
  declare -F "step_$step" >/dev/null || { echo "check: no step named $step" >&2; exit 2; }
done
for entry in "${steps[@]}"; do run $entry; done
printf '%-10s %-6s %4d s\n' all ok "$SECONDS"
