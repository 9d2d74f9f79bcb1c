#!/usr/bin/env bash
# Installs the Debian packages the project builds, tests and runs with. Does nothing for
# packages already present; needs root (or sudo) only when something is missing.
set -euo pipefail

packages=(
    build-essential cmake ninja-build pkg-config ccache
    libxml2-dev libzip-dev zlib1g-dev libcli11-dev
    libgtest-dev libgmock-dev libbenchmark-dev
    clang libclang-rt-14-dev gcovr
    mupdf-tools libgxps-utils ghostscript fonts-dejavu-core python3
    unzip man-db groff-base
    libcups2-dev cups cups-client
)

missing=()
for p in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"
echo "Installing: ${missing[*]}"
$sudo apt-get update -qq
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
