#!/usr/bin/env bash
# Runs the tests of one file and keeps their summary line for whoever looks at all of them.
#   run-pytest.sh <interpreter> <summary file> <test file>
set -uo pipefail

mkdir -p "$(dirname "$2")"
rm -f "$2"
said=$(mktemp)
trap 'rm -f "$said"' EXIT
"$1" -m pytest -c "$(dirname "$0")/../pytest.ini" --color=no -rs "$3" 2>&1 | tee "$said"
status=${PIPESTATUS[0]}
printf '%s: %s\n' "$(basename "$2" .txt)" "$(tail -n 1 "$said")" >"$2"
exit "$status"
