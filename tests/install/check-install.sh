#!/usr/bin/env bash
# Installs a built tree into a scratch prefix and builds the consumer program against it twice:
# with find_package(filterutilities) and with pkg-config. Usage: check-install.sh BUILD_DIR
set -euo pipefail
build="$(cd "${1:?usage: check-install.sh BUILD_DIR}" && pwd)"
here="$(cd "$(dirname "$0")" && pwd)"
scratch="$(mktemp -d)"
trap 'rm -rf "$scratch"' EXIT

cmake --install "$build" --prefix "$scratch/prefix" >/dev/null
include="$scratch/prefix/include/filterutilities"

echo "== installed headers"
# The filter API stays apart from the host: filterutilities.h names no host header, and the
# host's internals (ZIP writing, the deflate pool, part objects) are not installed at all.
if grep -q pipelinehost/ "$include/filterutilities.h"; then
    echo "filterutilities.h includes host headers" >&2; exit 1
fi
for internal in deflatepool.h zipfilewriter.h packagewriter.h partobjects.h jobwriter.h; do
    if [ -e "$include/pipelinehost/$internal" ]; then
        echo "host internal header $internal is installed" >&2; exit 1
    fi
done
grep -q 'CreatePipelineFilter' "$include/filterpipeline/filterutilities/filtermodule.h"
# Every installed header compiles on its own, so none leans on an uninstalled one.
for header in $(cd "$include" && find . -name '*.h' | sort); do
    echo "#include \"${header#./}\"" | c++ -std=c++20 -fsyntax-only -I"$include" -x c++ - ||
        { echo "installed header $header does not compile alone" >&2; exit 1; }
done

echo "== consumer via find_package"
cmake -S "$here/consumer" -B "$scratch/cmake" -G Ninja -DCMAKE_PREFIX_PATH="$scratch/prefix" >/dev/null
cmake --build "$scratch/cmake" >/dev/null
"$scratch/cmake/consumer"

echo "== consumer via pkg-config"
export PKG_CONFIG_PATH="$(dirname "$(find "$scratch/prefix" -name filterutilities.pc | head -n 1)")"
if pkg-config --cflags --libs filterutilities | grep -E -q -- '-std=|rpath'; then
    echo "filterutilities.pc forces a standard or a run path" >&2; exit 1
fi
# The package adds no run path and forces no standard: the user picks both.
c++ -std=c++20 -o "$scratch/consumer-pc" "$here/consumer/main.cpp" $(pkg-config --cflags --libs filterutilities)
LD_LIBRARY_PATH="$(pkg-config --variable=libdir filterutilities)" "$scratch/consumer-pc"
echo "install check passed"
