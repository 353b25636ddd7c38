#!/usr/bin/env bash
# A simulated device is calibrated, knocked, and calibrated in the field, by the command line; the last
# line names the page of both.
#   demo-page.sh <build folder>
set -euo pipefail

build=$(cd "$1" && pwd)
settings=$(cd "$(dirname "$0")/../examples" && pwd)
mkdir -p "$build/page"
cd "$build/page"

kestrane() {
  echo "\$ kestrane $*"
  "$build/bin/kestrane" "$@"
  echo
}

cp "$settings/limits.toml" "$settings/device.toml" .
echo
echo 'Another device, by the command line:'
echo
kestrane simulate -o factory.npz --planes 24 --frame-noise 0.02
kestrane calibrate factory.npz -o rig --limits limits.toml --device device.toml
kestrane simulate -o field.npz --planes 24 --frame-noise 0.02 --motion 1.2,0.4,-0.6,0.15,0,0.1
kestrane field rig/table.txt field.npz -o field --limits limits.toml --device device.toml
kestrane report rig/run.npz -o page.html --compare field/run.npz
echo "What the factory and the field have found, on one page: $PWD/page.html"
