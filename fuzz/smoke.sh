#!/usr/bin/env bash
# fuzz/smoke.sh [SECONDS]: builds the libFuzzer targets with clang in build/fuzz (the whole tree
# instrumented with AddressSanitizer and UndefinedBehaviorSanitizer) and runs each of them for
# SECONDS seconds (default 30), starting from the seeds in fuzz/seeds/<target>. A crash, a leak
# or a sanitizer report fails the script; the input that caused it is left in build/fuzz.
set -euo pipefail
cd "$(dirname "$0")/.."

seconds="${1:-30}"
build=build/fuzz
sanitizers="address,undefined"
flags="-fsanitize=fuzzer-no-link,${sanitizers} -fno-omit-frame-pointer -fno-sanitize-recover=undefined -g -O1"

cmake -S . -B "$build" -G Ninja \
    -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
    -DFU_BUILD_FUZZ=ON -DFU_BUILD_TESTS=OFF -DFU_BUILD_BENCH=OFF \
    -DCMAKE_C_FLAGS="$flags" -DCMAKE_CXX_FLAGS="$flags" \
    -DCMAKE_SHARED_LINKER_FLAGS="-fsanitize=${sanitizers}" \
    -DCMAKE_EXE_LINKER_FLAGS="-fsanitize=${sanitizers}" >/dev/null
cmake --build "$build" --target fuzz_devmode -j2

for target in devmode; do
    corpus="$build/corpus/$target"
    mkdir -p "$corpus" "$build/artifacts/$target"
    echo "fuzz_$target: ${seconds}s"
    ASAN_OPTIONS="detect_leaks=1:abort_on_error=1" \
    UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1" \
        "$build/bin/fuzz_$target" -max_total_time="$seconds" -max_len=16384 -rss_limit_mb=2048 \
        -timeout=10 -print_final_stats=1 -artifact_prefix="$build/artifacts/$target/" \
        "$corpus" "fuzz/seeds/$target"
done
