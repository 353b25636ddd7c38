#!/usr/bin/env bash
# Writes down what kestrane::quality exports: the list that a test compares with the library, and
# the symbols file of its Debian package.
#   list-quality-symbols.sh <libkestrane-quality.so>
set -euo pipefail
library=$(realpath "$1")
cd "$(dirname "$0")/.."

list=tests/quality/exported_symbols.txt
debian=debian/libkestrane-quality1.symbols
# In the order of the bytes, each once: a constructor stands in the library under two names.
nm -D --defined-only -C "$library" | sed -E 's/^[0-9a-f]* *[A-Za-z] //' | LC_ALL=C sort -u >"$list"
{
  echo "libkestrane-quality.so.1 libkestrane-quality1 #MINVER#"
  echo "* Build-Depends-Package: libkestrane-dev"
  sed -E 's/(.*)/ (c++)"\1@Base" 1.0.0/' "$list"
} >"$debian"
echo "list-quality-symbols: $(wc -l <"$list") symbols in $list and $debian"
