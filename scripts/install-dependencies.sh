#!/usr/bin/env bash
# Sees to it that the Debian packages which the build and the tests need are there.
#   install-dependencies.sh [--install] [group...]
# With the packages of a group beside the common ones: python (the Python package, the command line
# and its page), browser (its page in a browser), fuzz, check, docs, package, abi, mutants, arm64.
#
# Missing packages are installed where nobody has to be asked: for root, with CI set, and with
# --install (through sudo then). Elsewhere they are named, and the exit status is 1.
set -euo pipefail

packages=(
  g++ cmake make ninja-build binutils pkg-config
  libeigen3-dev libceres-dev libsuitesparse-dev
  libgtest-dev libgmock-dev libbenchmark-dev
)

install=no
[ "${1:-}" = --install ] && { install=yes; shift; }
[ "$(id -u)" -eq 0 ] || [ -n "${CI:-}" ] && install=yes

for group in "$@"; do
  case $group in
    python)
      packages+=(
        pybind11-dev liblzf-dev python3 python3-dev python3-numpy python3-pytest python3-hypothesis
        python3-click python3-rich python3-jinja2 node-d3 python3-distributed
      )
      ;;
    browser) packages+=(chromium chromium-driver fonts-dejavu-core python3-selenium) ;;
    fuzz) packages+=(clang libclang-rt-dev) ;;
    check)
      packages+=(
        git clang-format clang-tidy cppcheck valgrind libc6-dbg python3 python3-mypy flake8 pylint
        python3-flake8-comprehensions eslint
      )
      ;;
    docs) packages+=(doxygen) ;;
    package) packages+=(build-essential git debhelper dh-python dpkg-dev fakeroot lintian debootstrap) ;;
    abi) packages+=(abigail-tools) ;;
    mutants) packages+=(python3) ;;
    arm64) packages+=(g++-aarch64-linux-gnu qemu-user) ;;
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

if [ $install = no ]; then
  echo "install-dependencies: these packages are missing: ${missing[*]}" >&2
  echo "install-dependencies: make dependencies${*:+ GROUPS=\"$*\"} installs them" >&2
  exit 1
fi

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
