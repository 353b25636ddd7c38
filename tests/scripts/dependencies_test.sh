#!/usr/bin/env bash
# install-dependencies.sh beside stand-ins for id, dpkg-query, apt-get and sudo: who gets packages
# installed, who gets them named, and which.
#   dependencies_test.sh <install-dependencies.sh>
set -euo pipefail

script=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0

stand_in() { # name text
  printf '#!/bin/bash\n%s\n' "$2" >"$work/$1"
  chmod +x "$work/$1"
}
stand_in id 'echo "$WHO"'
stand_in dpkg-query '[[ " $ABSENT " == *" ${!#} "* ]] && exit 1; printf installed'
stand_in apt-get 'echo "apt-get $*"'
stand_in sudo 'echo "sudo $*"'

# said <who> <CI> <absent packages> <argument>...: status and words of the script, as one line
said() {
  local who=$1 ci=$2 absent=$3 status=0 words
  shift 3
  words=$(WHO=$who CI=$ci ABSENT=$absent PATH="$work:$PATH" bash "$script" "$@" 2>&1) || status=$?
  echo "$status: ${words//$'\n'/ | }"
}

expect() { # what said pattern
  [[ $2 == $3 ]] && return
  echo "$1: said"$'\n'"  $2"$'\n'"instead of"$'\n'"  $3"
  failures=$((failures + 1))
}

expect "nothing is missing" "$(said 1000 '' '')" '0: '
expect "a user gets the packages named" "$(said 1000 '' 'cmake g++')" \
  '1: *missing: g++ cmake | *make dependencies installs them'
expect "nothing is installed for a user" "$(said 1000 '' cmake | grep -c apt-get)" 0
expect "the packages of a group are named with the group" "$(said 1000 '' doxygen docs check)" \
  '1: *missing: doxygen | *make dependencies GROUPS="docs check" installs them'
expect "a user who asks gets them through sudo" "$(said 1000 '' cmake --install)" \
  '0: *sudo apt-get update* | sudo env * apt-get install *--no-install-recommends cmake'
expect "root gets them" "$(said 0 '' cmake)" '0: *apt-get update* | apt-get install * cmake'
expect "CI gets them" "$(said 1000 1 cmake)" '0: *sudo apt-get update*'
expect "a group that is not known is refused" "$(said 0 '' '' no-such)" '1: *no group named no-such'

[ $failures -eq 0 ]
