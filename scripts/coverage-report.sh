#!/usr/bin/env bash
# Line and branch coverage of the library's folders from the counters a coverage build left
# behind (run the tests first: scripts/test.sh coverage). Prints one row per top-level folder,
# the five library folders together (the figure the suite is held to) and all of them.
#   scripts/coverage-report.sh [BUILD_DIR]     default build/coverage
set -euo pipefail
cd "$(dirname "$0")/.."
build="${1:-build/coverage}"
library=(platform support utilitiesstaticlib filterpipeline pipelinehost)
folders=("${library[@]}" filters tools)
out="$build/coverage-report"
mkdir -p "$out"

# One pass over the counters, kept as a tracefile; the rows below only filter it.
gcovr --root . --object-directory "$build" --exclude-unreachable-branches \
      --gcov-ignore-parse-errors -j 2 --exclude-directories '.*/CMakeFiles/[0-9.]+' \
      --filter "^($(IFS='|'; echo "${folders[*]}"))/" \
      --json "$out/all.json" >/dev/null

row() {  # name, filter regex
    local summary
    summary=$(gcovr --root . --add-tracefile "$out/all.json" --exclude-unreachable-branches \
                    --filter "$2" --print-summary --txt "$out/$1.txt")
    local lines branches
    lines=$(sed -n 's/^lines: *\(.*\)$/\1/p' <<<"$summary")
    branches=$(sed -n 's/^branches: *\(.*\)$/\1/p' <<<"$summary")
    printf '%-22s lines %-28s branches %s\n' "$1" "$lines" "$branches"
}

for f in "${folders[@]}"; do
    row "$f" "^$f/"
done
row "library (5 folders)" "^($(IFS='|'; echo "${library[*]}"))/"
row "all" "^($(IFS='|'; echo "${folders[*]}"))/"
echo "Per-file tables: $out/*.txt"
