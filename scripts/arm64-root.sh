#!/usr/bin/env bash
# Makes a folder with the arm64 packages of this machine's own Debian release that the cross build
# compiles against and the emulator runs with. Nothing of the machine is changed: the packages are
# unpacked, not installed, and nobody has to be root.
#   arm64-root.sh <folder>    does nothing where the folder is complete
set -euo pipefail

packages=(
  libc6-dev libstdc++6
  libeigen3-dev libceres-dev libsuitesparse-dev
  libgtest-dev libgmock-dev
)

root=$1
stamp=$root/.packages
[ "$(cat "$stamp" 2>/dev/null)" = "${packages[*]}" ] && exit 0

rm -rf "$root"
mkdir -p "$root"
root=$(cd "$root" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# A state of its own, in which nothing is installed; the mirrors and keys are the machine's.
mkdir -p "$work/state/lists/partial" "$work/cache/archives/partial"
: >"$work/status"
apt() {
  apt-get -q -o APT::Architecture=arm64 -o APT::Architectures=arm64 \
    -o Dir::State="$work/state" -o Dir::State::status="$work/status" \
    -o Dir::Cache="$work/cache" -o APT::Sandbox::User= -o Debug::NoLocking=true \
    -o APT::Update::Post-Invoke-Success= -o APT::Update::Post-Invoke= "$@"
}
echo "arm64-root: fetching the arm64 packages"
apt update >"$work/log" 2>&1 &&
  apt install -y --download-only --no-install-recommends "${packages[@]}" >>"$work/log" 2>&1 ||
  { cat "$work/log" >&2; exit 1; }

# One tree under usr, as every machine of the release has it.
for folder in bin sbin lib; do
  mkdir -p "$root/usr/$folder"
  ln -s "usr/$folder" "$root/$folder"
done
for package in "$work"/cache/archives/*.deb; do
  dpkg-deb --fsys-tarfile "$package" | tar -x -C "$root" --keep-directory-symlink
done

# What a package leaves to its installation: which of the linear algebra libraries serves.
libraries=$root/usr/lib/aarch64-linux-gnu
for name in blas lapack; do
  for version in .so .so.3; do
    [ -e "$libraries/lib$name$version" ] && continue
    for provider in "$name" atlas; do
      [ -e "$libraries/$provider/lib$name$version" ] || continue
      ln -s "$provider/lib$name$version" "$libraries/lib$name$version"
      break
    done
  done
done

# Links to places of a whole machine lead into the folder.
find "$root" -type l -lname '/*' -print0 | while IFS= read -r -d '' link; do
  target=$root$(readlink "$link")
  ln -sfn "$(realpath -m --relative-to="$(dirname "$link")" "$target")" "$link"
done

echo "${packages[*]}" >"$stamp"
echo "arm64-root: $(find "$work/cache/archives" -name '*.deb' | wc -l) packages in $root"
