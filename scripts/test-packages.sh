#!/usr/bin/env bash
# Installs the Debian packages into fresh roots of a Debian release and tests them there as their
# users meet them: each test of debian/tests with no more than it depends on; a host at work while
# its library is upgraded from the former release, and downgraded again; and a removal, which has to
# leave nothing.
#   test-packages.sh <suite> <folder of packages> [<folder of the former release's packages>]
#
# Needs root: debootstrap makes the roots, from MIRROR if set, chroot enters them. They are below ROOTS
# (build/package-roots), where a pristine one and what was fetched are kept for the next run.
set -euo pipefail
suite=$1 packages=$(realpath "$2") former=${3:+$(realpath "$3")}
cd "$(dirname "$0")/.."
mkdir -p "${ROOTS:=build/package-roots}/$suite"
place=$(realpath "$ROOTS/$suite")
root=$place/root
log=$place/log
: >"$log"

leave() {
  [ -z "${host:-}" ] || kill "$host" 2>/dev/null || true
  for folder in proc var/cache/apt/archives; do
    ! mountpoint -q "$root/$folder" || umount "$root/$folder"
  done
}
trap leave EXIT

fail() {
  tail -n 40 "$log" >&2
  echo "test-packages: $*; see $log" >&2
  exit 1
}

enter() {
  chroot "$root" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LC_ALL=C.UTF-8 \
    DEBIAN_FRONTEND=noninteractive "$@"
}

apt() { enter apt-get -q -y -o APT::Install-Recommends=false "$@" >>"$log" 2>&1; }

# A root without any package of ours; what is fetched for one serves the next.
fresh() {
  if [ ! -e "$place/pristine/.complete" ]; then
    rm -rf "$place/pristine"
    debootstrap --variant=minbase "$suite" "$place/pristine" ${MIRROR:+"$MIRROR"} \
      >>"$log" 2>&1 || fail "no root of $suite"
    touch "$place/pristine/.complete"
  fi
  leave
  rm -rf --one-file-system "$root"
  cp -a "$place/pristine" "$root"
  echo force-unsafe-io >"$root/etc/dpkg/dpkg.cfg.d/thrown-away"
  mkdir -p "$place/archives/partial"
  mount --bind "$place/archives" "$root/var/cache/apt/archives"
  mount -t proc proc "$root/proc"
}

# serve <folder of packages>...: what apt finds beside the distribution's own.
serve() {
  local folder
  rm -rf "$root/srv/packages"
  mkdir -p "$root/srv/packages"
  for folder; do cp "$folder"/*.deb "$root/srv/packages"; done
  (cd "$root/srv/packages" && dpkg-scanpackages --multiversion . >Packages 2>>"$log")
  echo 'deb [trusted=yes] file:/srv/packages ./' >"$root/etc/apt/sources.list.d/kestrane.list"
  apt update || fail "apt cannot read the packages"
}

version_of() { enter dpkg-query -W -f '${Version}' "$1" 2>/dev/null || true; }

consistent() {
  apt check || fail "dependencies are broken after $1"
  [ -z "$(enter dpkg --audit)" ] || fail "packages are half installed after $1"
}

# run_tests: each stanza of debian/tests/control in a root of its own.
run_tests() {
  local tests depends name begin
  while IFS='|' read -r tests depends; do
    for name in $tests; do
      fresh
      serve "$packages"
      apt install ${depends//,/ } || fail "cannot install what $name depends on"
      mkdir "$root/srv/source" "$root/srv/work"
      git ls-files -z debian/tests tests/adoption |
        tar --create --null --files-from=- | tar --extract --directory="$root/srv/source"
      begin=$SECONDS
      enter env --chdir=/srv/source AUTOPKGTEST_TMP=/srv/work debian/tests/"$name" >>"$log" 2>&1 ||
        fail "$name failed"
      echo "test-packages: $suite: $name passed in $((SECONDS - begin)) s"
    done
  done < <(awk -F': *' '/^Tests:/ { t = $2 } /^Depends:/ { print t "|" $2 }' debian/tests/control)
}

# rounds_beyond <n>: waits until the host has done more than n rounds.
rounds() { grep -c fixed "$root/srv/rounds" || true; }
rounds_beyond() {
  local tries
  for ((tries = 0; tries < 600; ++tries)); do
    [ "$(rounds)" -le "$1" ] || return 0
    kill -0 "$host" 2>/dev/null || break
    sleep 0.2
  done
  cat "$root/srv/rounds" >>"$log"
  fail "the host has stopped working"
}

hold() {
  enter /srv/host hold /srv/numbers >>"$log" 2>&1 || fail "other numbers $1"
}

upgrade() {
  local old new before
  fresh
  serve "$former"
  apt install g++ pkg-config libkestrane-dev || fail "cannot install the former release"
  old=$(version_of libkestrane1)
  cp tests/upgrade/host.cpp "$root/srv"
  enter sh -c 'g++ -std=c++17 -O1 /srv/host.cpp -o /srv/host $(pkg-config --cflags --libs kestrane)' \
    >>"$log" 2>&1 || fail "the host does not compile with $old"
  enter /srv/host keep /srv/numbers >>"$log" 2>&1 || fail "the host does not work with $old"
  chroot "$root" /srv/host work /srv/numbers /srv/end >"$root/srv/rounds" 2>&1 &
  host=$!
  rounds_beyond 2

  serve "$former" "$packages"
  before=$(rounds)
  apt --with-new-pkgs upgrade || fail "cannot upgrade from $old"
  new=$(version_of libkestrane1)
  [ "$new" != "$old" ] || fail "apt keeps $old"
  consistent "the upgrade"
  rounds_beyond $((before + 3))
  grep -q 'libkestrane\.so.*(deleted)' "/proc/$host/maps" || fail "the host does not have the old library"
  hold "with $new than with $old"
  touch "$root/srv/end"
  wait "$host" || { cat "$root/srv/rounds" >>"$log"; fail "the host was disturbed"; }
  host=
  echo "test-packages: $suite: $(rounds) rounds through the upgrade from $old to $new," \
    "the same numbers: $(grep fixed "$log" | tail -n 1)"

  apt install kestrane-tools || fail "cannot install the tools beside the upgraded library"
  apt --allow-downgrades install "libkestrane1=$old" "libkestrane-dev=$old" ||
    fail "cannot go back to $old"
  [ "$(version_of libkestrane1)" = "$old" ] || fail "apt does not go back to $old"
  consistent "going back"
  hold "with $old again"
  apt dist-upgrade || fail "cannot upgrade again"
  consistent "the second upgrade"
  echo "test-packages: $suite: back to $old and forth again"
}

# The packages as files, as a person installs what was just built; then none of them.
come_and_go() {
  local left
  fresh
  mkdir "$root/srv/packages"
  cp "$packages"/*.deb "$root/srv/packages"
  rm -f "$root"/srv/packages/*-dbgsym_*
  apt update || fail "apt cannot read the archive"
  enter sh -c 'apt-get -q -y -o APT::Install-Recommends=false install /srv/packages/*.deb' \
    >>"$log" 2>&1 || fail "cannot install the files"
  consistent "the installation"
  enter kestrane --version >>"$log" 2>&1 || fail "the command does not start"
  apt purge libkestrane1 || fail "cannot purge"
  left=$(enter dpkg-query -W -f '${Package} ${Status}\n' '*kestrane*' 2>/dev/null || true)
  [ -z "$left" ] || fail "still known: $left"
  left=$(enter find / -xdev -name '*kestrane*' -not -path '/srv/*' -not -path '/proc/*')
  [ -z "$left" ] || fail "left over: $left"
  echo "test-packages: $suite: all packages come and go, and leave nothing"
}

come_and_go
[ -z "$former" ] || upgrade
run_tests
leave
rm -rf --one-file-system "$root"
