#!/usr/bin/env bash
# The crash soak: backups killed with SIGKILL at random moments, hundreds of
# times, each followed by a restore of the newest visible restore point and,
# at the end, a complete run and a check of every stored object. The suite
# runs the same test with 20 rounds.
#
#   bench/soak.sh [ROUNDS]      default 500; BIN=build/bin
set -euo pipefail
repo="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
bin="${BIN:-$repo/build/bin}"
ORV_KILL_ROUNDS="${1:-500}" exec "$bin/engine_tests" \
    --gtest_filter='Folder/EngineFaultTest.KilledRunsLeaveEveryVisiblePointRestorable/*'
