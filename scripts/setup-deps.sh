#!/usr/bin/env bash
# Installs the Debian 12 packages that building and testing ncds needs, when they are missing.
# Safe to run again: it does nothing when everything is there. Run as root (or with sudo).
#   scripts/setup-deps.sh          build and test tools
#   scripts/setup-deps.sh --ci     also clang and its runtimes, for the sanitizer and fuzz builds
set -euo pipefail

packages=(
  cmake ninja-build g++ make git gettext
  libboost-dev libboost-locale-dev libboost-thread-dev libboost-date-time-dev
  libgtest-dev libgmock-dev libbenchmark-dev libfast-float-dev libpugixml-dev libsqlite3-dev
  libcli11-dev
  libdeflate-dev libmuparser-dev libmd-dev
  ccache
  pybind11-dev python3-dev python3-numpy python3-pandas python3-pytest python3-matplotlib
  python3-xarray python3-dask python3-distributed
)
if [[ "${1:-}" == "--ci" ]]; then
  packages+=(clang libclang-rt-14-dev clang-format)
fi

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if ((${#missing[@]} == 0)); then
  exit 0
fi

echo "Installing: ${missing[*]}"
SUDO=""
if [[ $(id -u) -ne 0 ]]; then SUDO="sudo"; fi
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
