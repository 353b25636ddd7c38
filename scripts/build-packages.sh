#!/usr/bin/env bash
# Builds the Debian packages twice, under different circumstances, and holds the two equal byte for
# byte; then lintian must not say a word.
#   build-packages.sh <folder>   replaces <folder>/packages, whose first/ then has the packages
#
# The tests run in `make test`. DEB_BUILD_OPTIONS= builds and runs them here too, with the
# packages' own compiler flags.
set -euo pipefail
cd "$(dirname "$0")/.."

mkdir -p "$1"
work=$(cd "$1" && pwd)/packages
jobs=${JOBS:-$(nproc)}
export DEB_BUILD_OPTIONS="${DEB_BUILD_OPTIONS-nocheck} parallel=$jobs"
# What the caller's shell has set for everyday builds has no place in a package.
unset CFLAGS CXXFLAGS CPPFLAGS LDFLAGS MAKEFLAGS MAKELEVEL

# Source files of this folder into another one: those that git knows, else all but builds.
copy_sources() {
  mkdir -p "$1"
  if git rev-parse --is-inside-work-tree >/dev/null 2>&1; then
    git ls-files -z --cached --others --exclude-standard
  else
    find . -path ./build -prune -o -type f -print0
  fi | sort -z | tar --create --null --verbatim-files-from --files-from=- --file=- |
    tar --extract --file=- --directory="$1"
  chmod -R u=rwX,go=rX "$1"
}

# build <folder> <umask> <time zone> <locale>
build() {
  mkdir -p "$work/$1"
  cp -a "$work/source" "$work/$1/kestrane"
  (
    umask "$2"
    cd "$work/$1/kestrane"
    TZ=$3 LC_ALL=$4 dpkg-buildpackage -us -uc >"$work/$1.log" 2>&1
  ) || { tail -n 40 "$work/$1.log" >&2; exit 1; }
  # The build's protocol names its circumstances and is not shipped.
  (cd "$work/$1" && sha256sum -- *.deb *.dsc *.tar.*) >"$work/$1.sums"
}

rm -rf "$work"
copy_sources "$work/source"
build first 0022 UTC C.UTF-8
build the-second-build-in-a-longer-folder 0027 Asia/Tokyo C
if ! diff "$work/first.sums" "$work/the-second-build-in-a-longer-folder.sums"; then
  echo "build-packages: the two builds differ" >&2
  exit 1
fi
echo "build-packages: both builds are equal"
cat "$work/first.sums"

# The packages name the standards of Debian 12; the lintian of a later release knows later ones.
said=$(lintian --pedantic --display-info --display-experimental --info \
  --suppress-tags out-of-date-standards-version "$work"/first/*.changes)
if [ -n "$said" ]; then
  echo "$said" >&2
  exit 1
fi
echo "build-packages: lintian is silent; the packages are in $work/first"
