#!/usr/bin/env bash
# Cross-compiles library and tests for arm64 and runs the tests under the emulator, but for those
# that tests/arm64/left_out.txt names with the reason.
#   test-arm64.sh [regex]    all tests, or those whose name matches
set -euo pipefail
cd "$(dirname "$0")/.."

if [ "$(uname -m)" = aarch64 ]; then
  echo "test-arm64: this machine is an arm64 one, make test runs the tests on it" >&2
  exit 1
fi
jobs=${JOBS:-$(nproc)}
list=tests/arm64/left_out.txt

scripts/arm64-root.sh build/arm64-root
cmake --preset arm64
cmake --build --preset arm64 -j "$jobs"

# Every pattern has to name a test that there is.
mapfile -t patterns < <(grep -v '^#' "$list" | awk 'NF { print $1 }')
names=$(ctest --preset arm64 -N | sed -n 's/^ *Test *#[0-9]*: //p')
for pattern in "${patterns[@]}"; do
  grep -qE -- "$pattern" <<<"$names" && continue
  echo "test-arm64: $list leaves out $pattern, which is the name of no test" >&2
  exit 1
done

left_out=$(IFS='|'; echo "${patterns[*]}")
status=0
ctest --preset arm64 -j "$jobs" -R "${1:-.}" -E "$left_out" || status=$?
echo "test-arm64: left out, with the reasons in $list: $(grep -cE -- "$left_out" <<<"$names") tests"
exit $status
