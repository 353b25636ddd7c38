#!/usr/bin/env bash
# Holds the binary interfaces of the shared libraries, their symbols and the layout of every record
# and class of their public headers, against the baselines in tests/interface and tests/quality.
#   check-abi.sh             fails on any difference, also on an addition
#   check-abi.sh --rewrite   makes what is built now the baselines
set -euo pipefail
cd "$(dirname "$0")/.."

build=build/abi

# Layouts are read from debug information, which needs no optimisation.
cmake -S . -B "$build" -G Ninja --log-level=WARNING -DCMAKE_BUILD_TYPE=None \
  -DCMAKE_CXX_FLAGS="-g -O0 -DNDEBUG" -DKESTRANE_BUILD_TESTS=OFF -DKESTRANE_BUILD_BENCH=OFF \
  -DKESTRANE_BUILD_EXAMPLES=OFF -DKESTRANE_PRECOMPILE=ON -DKESTRANE_UNITY=ON >/dev/null
cmake --build "$build" -j "${JOBS:-$(nproc)}" --target kestrane kestrane_quality

# check <library> <baseline> [--rewrite]
check() {
  local library=$1 baseline=$2 present
  present=$build/$(basename "$2")
  # What stands in other headers (the standard library's, Eigen's, our own internal ones) is not
  # part of the interface; where the sources lie on this machine is not either.
  abidw --headers-dir include --drop-private-types --exported-interfaces-only \
    --suppressions tests/interface/abi.suppr --no-show-locs --no-corpus-path --no-comp-dir-path \
    --out-file "$present" "$library"
  sed -i -E "s#path='[^']*/((src|quality)/[^']*)'#path='\1'#" "$present"

  if [ "${3:-}" = --rewrite ]; then
    cp "$present" "$baseline"
    echo "check-abi: $baseline is rewritten"
    return
  fi
  if ! abidiff --harmless "$baseline" "$present"; then
    echo "check-abi: the binary interface differs from $baseline." >&2
    echo "check-abi: A change that hosts must follow goes with a new major version; then, and for" >&2
    echo "check-abi: additions, make abi-baseline." >&2
    return 1
  fi
  echo "check-abi: the binary interface is that of $baseline"
}

check "$build/libkestrane.so" tests/interface/kestrane.abi "${1:-}"
check "$build/quality/libkestrane-quality.so" tests/quality/kestrane-quality.abi "${1:-}"
