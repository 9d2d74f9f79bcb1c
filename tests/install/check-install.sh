#!/usr/bin/env bash
# Installs a built tree into a scratch prefix, checks what is installed (headers, pkg-config
# flags), builds the consumer program against it with find_package(filterutilities) and with
# pkg-config, then builds the installed filter template both ways and runs jobs through it with
# the installed xpsfilter. Usage: check-install.sh BUILD_DIR
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
# Every installed header compiles on its own, so none leans on an uninstalled one (two at a
# time, as CI has two cores).
(cd "$include" && find . -name '*.h' | sort) | xargs -P 2 -I{} sh -c \
    'echo "#include \"{}\"" | c++ -std=c++20 -fsyntax-only -I"$1" -x c++ - ||
     { echo "installed header {} does not compile alone" >&2; exit 255; }' sh "$include"

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
# The filter template, as a driver maker starts from it: copied out of the installed tree, built
# with CMake (its own test runs a corpus job through xpsfilter and checks the pixels with mutool
# draw) and, separately, as a module compiled in one line with pkg-config.
template="$scratch/prefix/share/filterutilities/examples/filter-template"
job="$here/../../samples/sample_job.xps"
corpus_job="$here/../../../shared/corpus/xps/winprintrs_test_document.xps"
[ -e "$corpus_job" ] || corpus_job="$job"

echo "== filter template via find_package"
cp -r "$template" "$scratch/template"
cmake -S "$scratch/template" -B "$scratch/template-build" -G Ninja \
    -DCMAKE_PREFIX_PATH="$scratch/prefix" -DPROOFMARK_TEST_JOB="$corpus_job" >/dev/null
cmake --build "$scratch/template-build" >/dev/null
ctest --test-dir "$scratch/template-build" --output-on-failure --no-tests=error | grep "tests passed"

echo "== filter template via pkg-config"
c++ -std=c++20 -shared -fPIC -fvisibility=hidden -o "$scratch/libproofmarkfilter.so" \
    "$template"/*.cpp $(pkg-config --cflags --libs filterutilities)
exported="$(nm -D --defined-only "$scratch/libproofmarkfilter.so" | awk '$2 == "T" { print $3 }')"
[ "$exported" = CreatePipelineFilter ] ||
    { echo "the module exports: $exported" >&2; exit 1; }
cmake -DXPSFILTER="$scratch/prefix/bin/xpsfilter" -DMODULE="$scratch/libproofmarkfilter.so" \
    -DPIPELINE="$template/pipeline.xml" -DJOB="$job" -DMUTOOL="$(command -v mutool)" \
    -DWORK="$scratch/template-pc" -P "$template/test/check.cmake"

echo "install check passed"
