#!/usr/bin/env bash
# Installs a built tree into a scratch prefix and builds the consumer program against it twice:
# with find_package(filterutilities) and with pkg-config. Usage: check-install.sh BUILD_DIR
set -euo pipefail
build="$(cd "${1:?usage: check-install.sh BUILD_DIR}" && pwd)"
here="$(cd "$(dirname "$0")" && pwd)"
scratch="$(mktemp -d)"
trap 'rm -rf "$scratch"' EXIT

cmake --install "$build" --prefix "$scratch/prefix" >/dev/null

echo "== consumer via find_package"
cmake -S "$here/consumer" -B "$scratch/cmake" -G Ninja -DCMAKE_PREFIX_PATH="$scratch/prefix" >/dev/null
cmake --build "$scratch/cmake" >/dev/null
"$scratch/cmake/consumer"

echo "== consumer via pkg-config"
export PKG_CONFIG_PATH="$(dirname "$(find "$scratch/prefix" -name filterutilities.pc | head -n 1)")"
c++ -o "$scratch/consumer-pc" "$here/consumer/main.cpp" $(pkg-config --cflags --libs filterutilities)
"$scratch/consumer-pc"
echo "install check passed"
