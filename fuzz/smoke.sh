#!/usr/bin/env bash
# fuzz/smoke.sh [SECONDS [TARGET...]]: builds the libFuzzer targets with clang in build/fuzz (the
# whole tree instrumented with AddressSanitizer and UndefinedBehaviorSanitizer) and runs each
# of them (default: all) for SECONDS seconds (default 12), starting from the seeds made from
# the real-world corpus (fuzz/make-seeds.py), the hand-made seeds in fuzz/seeds/<target> and the
# inputs kept in fuzz/regressions/<target>, with the dictionary fuzz/dicts/<target>.dict where
# there is one. A crash, a leak, a time-out, a sanitizer report or a trap fails the script; the
# input that caused it is left in build/fuzz/artifacts/<target>/.
#
# Longer runs: FUZZ_RUNS=1000000 fuzz/smoke.sh 600 package  (stops at whichever comes first).
set -euo pipefail
cd "$(dirname "$0")/.."

seconds="${1:-12}"
shift || true
targets=("$@")
[ ${#targets[@]} -gt 0 ] ||
    targets=(devmode base64 printticket merge package packagereader page pipelineconfig)
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
cmake --build "$build" -j2 --target "${targets[@]/#/fuzz_}"

rm -rf "$build/seeds"
python3 fuzz/make-seeds.py "$build/seeds"

# Per target: the longest input tried, the dictionary, and whose seeds it starts from.
declare -A max_len=([devmode]=16384 [base64]=16384 [printticket]=65536 [merge]=65536
                    [package]=131072 [packagereader]=131072 [page]=65536 [pipelineconfig]=8192)
declare -A dict=([printticket]=printschema [merge]=printschema [package]=package
                 [packagereader]=package [page]=page [pipelineconfig]=pipelineconfig)
declare -A seeds=([packagereader]=package)

for target in "${targets[@]}"; do
    corpus="$build/corpus/$target"
    mkdir -p "$corpus" "$build/artifacts/$target"
    options=(-max_total_time="$seconds" -max_len="${max_len[$target]:-16384}" -rss_limit_mb=2048
             -timeout=10 -print_final_stats=1 -artifact_prefix="$build/artifacts/$target/")
    [ -z "${FUZZ_RUNS:-}" ] || options+=(-runs="$FUZZ_RUNS")
    if [ -n "${dict[$target]:-}" ]; then
        cat "fuzz/dicts/${dict[$target]}.dict" fuzz/dicts/xml.dict >"$build/$target.dict"
        options+=(-dict="$build/$target.dict")
    fi
    inputs=("$corpus")
    seed="${seeds[$target]:-$target}"
    for folder in "$build/seeds/$seed" "fuzz/seeds/$seed" "fuzz/regressions/$target"; do
        [ -d "$folder" ] && inputs+=("$folder")
    done
    echo "fuzz_$target: ${seconds}s"
    ASAN_OPTIONS="detect_leaks=1:abort_on_error=1" \
    UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1" \
        "$build/bin/fuzz_$target" "${options[@]}" "${inputs[@]}"
done
