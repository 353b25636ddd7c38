#!/usr/bin/env bash
# Installs the Debian packages that the build and the tests need, and only those that are missing.
#   install-dependencies.sh [group...]   with the packages of a group beside them: fuzz, check,
#                                        docs, package, abi, mutants
set -euo pipefail

packages=(
  g++ cmake make ninja-build binutils pkg-config
  libeigen3-dev libceres-dev libsuitesparse-dev
  libgtest-dev libgmock-dev libbenchmark-dev
)

for group in "$@"; do
  case $group in
    fuzz) packages+=(clang libclang-rt-14-dev) ;;
    check) packages+=(git clang-format clang-tidy cppcheck valgrind libc6-dbg python3) ;;
    docs) packages+=(doxygen) ;;
    package) packages+=(git debhelper dpkg-dev fakeroot lintian) ;;
    abi) packages+=(abigail-tools) ;;
    mutants) packages+=(python3) ;;
    *) echo "install-dependencies: no group named $group" >&2; exit 1 ;;
  esac
done

if ! command -v dpkg-query >/dev/null || ! command -v apt-get >/dev/null; then
  echo "install-dependencies: no apt here; please install what these Debian packages hold:" >&2
  echo "  ${packages[*]}" >&2
  exit 1
fi

missing=()
for package in "${packages[@]}"; do
  state=$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null || true)
  [ "$state" = installed ] || missing+=("$package")
done
[ ${#missing[@]} -gt 0 ] || exit 0

as_root=()
if [ "$(id -u)" -ne 0 ]; then
  if ! command -v sudo >/dev/null; then
    echo "install-dependencies: neither root nor sudo; please install: ${missing[*]}" >&2
    exit 1
  fi
  as_root=(sudo)
fi

echo "install-dependencies: installing ${missing[*]}"
"${as_root[@]}" apt-get update -q
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
  apt-get install -q -y --no-install-recommends "${missing[@]}"
