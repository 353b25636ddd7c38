#!/usr/bin/env bash
# Links the sources of a package into the folder in which its modules were built.
#   link-package.sh <package in the sources> <package in the build tree>
set -euo pipefail

mkdir -p "$2"
find "$2" -maxdepth 1 -type l -delete
for entry in "$1"/*; do
  [ "$(basename "$entry")" = __pycache__ ] || ln -s "$entry" "$2"
done
