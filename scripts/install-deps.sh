#!/bin/sh
# Installs the build and test dependencies of QUBOR on Debian 12.
# Idempotent: does nothing when every package is already present.
set -eu
PKGS="g++ cmake ninja-build pkg-config libopenblas-dev liblapacke-dev zlib1g-dev libzstd-dev libgtest-dev rapidjson-dev"
missing=""
for p in $PKGS; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing="$missing $p"
done
[ -z "$missing" ] && exit 0
SUDO=""
if [ "$(id -u)" != "0" ]; then SUDO="sudo"; fi
$SUDO apt-get update -qq
DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq $missing
