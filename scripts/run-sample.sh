#!/usr/bin/env bash
# Installs what is missing, builds, and runs the xpsfilter pipeline over the embedded sample job:
#   scripts/run-sample.sh [PIPELINE.xml]     (default: the pass-through pipeline)
# The output is written to build/sample_out.xps.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake --preset dev >/dev/null
cmake --build --preset dev
pipeline=()
[ $# -ge 1 ] && pipeline=(--pipeline "$1")
export FU_PRINTER_REGISTRY="${FU_PRINTER_REGISTRY:-$PWD/samples/printers}"
build/dev/bin/xpsfilter run "${pipeline[@]}" --printer "Zorun Sample Printer" \
    samples/sample_job.xps build/sample_out.xps
