#!/usr/bin/env bash
# Writes down what kestrane::quality exports: the list that a test compares with the library, and
# the symbols file of its Debian package. A symbol there keeps the version that it came with; a new
# one gets the project's.
#   list-quality-symbols.sh <libkestrane-quality.so>
set -euo pipefail
library=$(realpath "$1")
cd "$(dirname "$0")/.."

list=tests/quality/exported_symbols.txt
debian=debian/libkestrane-quality1.symbols
version=$(sed -n 's/^project(kestrane VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
known=$(cat "$debian")
# In the order of the bytes, each once: a constructor stands in the library under two names.
nm -D --defined-only -C "$library" | sed -E 's/^[0-9a-f]* *[A-Za-z] //' | LC_ALL=C sort -u >"$list"
{
  echo "libkestrane-quality.so.1 libkestrane-quality1 #MINVER#"
  echo "* Build-Depends-Package: libkestrane-dev"
  while IFS= read -r symbol; do
    line=" (c++)\"$symbol@Base\" "
    grep -F -- "$line" <<<"$known" || echo "$line$version"
  done <"$list"
} >"$debian"
echo "list-quality-symbols: $(wc -l <"$list") symbols in $list and $debian"
