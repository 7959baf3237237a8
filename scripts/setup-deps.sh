#!/usr/bin/env bash
# Installs the Debian packages that tabledb builds with, and nothing else.
# apt-get update runs only when something is actually missing.
set -euo pipefail

packages=(cmake g++ make pkg-config ccache qtbase5-dev zlib1g-dev libgtest-dev libbenchmark-dev
    # tabledb-view: Qt Widgets and the offscreen platform come with qtbase5-dev
    # (libqt5gui5); its pictures need a font that fontconfig finds
    fonts-dejavu-core
    # benchmark-only: the comparisons in bench/peers_bench.cpp and bench/tableio_bench.cpp
    libsqlite3-dev libboost-dev
    # fuzzing only: scripts/fuzz.sh
    clang libclang-rt-14-dev)

missing=()
for p in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
        missing+=("$p")
    fi
done

if [ ${#missing[@]} -eq 0 ]; then
    exit 0
fi

sudo=""
if [ "$(id -u)" -ne 0 ]; then
    sudo="sudo"
fi
echo "Installing: ${missing[*]}"
$sudo apt-get update -qq
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
