#!/usr/bin/env bash
# Removes what an installation of a build tree has put below a prefix, with the folders that are
# then empty and were its own.
#   uninstall.sh <build folder> <prefix>    DESTDIR stands in front of the prefix, as for make install
#
# The list comes from installing the same tree once more, into a temporary folder.
set -euo pipefail
build=$1 prefix=$2 top=${DESTDIR:-}

stage=$(mktemp -d)
trap 'rm -rf "$stage"' EXIT
DESTDIR=$stage cmake --install "$build" --prefix "$prefix" >/dev/null

count=0
while IFS= read -r -d '' file; do
  [ -e "$top/$file" ] || [ -L "$top/$file" ] || continue
  rm -- "$top/$file"
  count=$((count + 1))
done < <(find "$stage" ! -type d -printf '%P\0')

# Deepest first. Python leaves its byte code beside the modules.
while IFS= read -r -d '' folder; do
  [ -d "$top/$folder" ] || continue
  rm -rf -- "$top/$folder/__pycache__"
  rmdir --ignore-fail-on-non-empty -- "$top/$folder"
done < <(find "$stage" -depth -mindepth 1 -type d -path '*kestrane*' -printf '%P\0')
echo "uninstall: $count files removed below $top$prefix"
