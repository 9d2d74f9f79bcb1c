#!/usr/bin/env bash
# Installs what is missing, configures, builds and runs every test.
#   scripts/test.sh            the dev preset (debug, warnings are errors)
#   scripts/test.sh asan       the same under AddressSanitizer and UndefinedBehaviorSanitizer
#   scripts/test.sh coverage   the same with gcc coverage counters, then line and branch
#                              coverage per top-level folder and in total (gcovr)
set -euo pipefail
cd "$(dirname "$0")/.."
preset="${1:-dev}"
scripts/install-deps.sh
cmake --preset "$preset"
cmake --build --preset "$preset"
if [ "$preset" = coverage ]; then
    # Counters of earlier runs would add up; each report covers one run of the suite.
    find build/coverage -name '*.gcda' -delete
fi
status=0
ctest --preset "$preset" -j2 || status=$?
if [ "$preset" = coverage ]; then
    # The report is made even when a test failed (the hostile-job corpus can run out of time
    # under the counters); the exit status is still the suite's.
    scripts/coverage-report.sh build/coverage
fi
exit "$status"
