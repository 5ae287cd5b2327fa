#!/usr/bin/env bash
# The engine beside the tools administrators compare us with, in one
# invocation on one data set: first backup, no-change backup and full restore
# (wall seconds, peak RSS), then the stored sizes. Our figures come from
# bench_engine (new format, folder account, zstd and AES-256 on; with
# ORV_BENCH_FORMAT=cbf the current format, the same settings); the others
# from ../shared/bench/peers.sh, run right after on the same data.
#
#   bench/engine.sh [WORKDIR]          WORKDIR defaults to /tmp/orv-bench
#   ROUNDS=5 bench/engine.sh           rounds over every tool (default 3); medians
#   SMALL=1 bench/engine.sh [WORKDIR]  also the 100,000 small files set
set -euo pipefail
repo="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
shared="$repo/../shared/bench"
bin="${BIN:-$repo/build/bin}"
work="${1:-/tmp/orv-bench}"
mkdir -p "$work"
[ -d "$work/data" ] || python3 "$shared/mkdata.py" "$work/data"

measure() { /usr/bin/time -f "$1: %e s wall, %M KB peak RSS" "${@:2}" 2>&1 >/dev/null | tail -n 1; }

ours() {
    local data=$1 label=$2
    export ORV_BENCH_FORMAT=${3:-nbf}
    rm -rf "$work/orv-storage" "$work/orv-cache" "$work/orv-out"
    mkdir -p "$work/orv-storage" "$work/orv-out"
    sync
    measure "orv $label first backup" "$bin/bench_engine" backup "$data" "$work/orv-storage" "$work/orv-cache"
    measure "orv $label no-change backup" "$bin/bench_engine" backup "$data" "$work/orv-storage" "$work/orv-cache"
    measure "orv $label restore" "$bin/bench_engine" restore "$work/orv-storage" "$work/orv-cache" "$work/orv-out"
    printf 'orv %s storage size: %sM\n' "$label" "$(du -sm "$work/orv-storage" | cut -f1)"
    diff -r "$data" "$work/orv-out$data" >/dev/null && echo "orv $label restore: identical" ||
        echo "orv $label restore: DIFFERS"
}

# Rounds visit every tool in turn, so that a change in the machine's state
# during the invocation falls on all of them alike; the summary takes medians.
log="$work/engine-bench.log"
: >"$log"
for round in $(seq "${ROUNDS:-3}"); do
    echo "== round $round"
    {
        ours "$work/data" "mixed"
        ours "$work/data" "mixed cbf" cbf
        unset ORV_BENCH_FORMAT
        bash "$shared/peers.sh" "$work"
    } | tee -a "$log"
done
python3 "$repo/bench/engine_summary.py" "$log"

if [[ ${SMALL:-0} == 1 ]]; then
    small="$work/small100k"
    if [ ! -d "$small" ]; then
        python3 - "$small" <<'PY'
import os, sys, random
random.seed(7)
root = sys.argv[1]
for i in range(100000):
    d = os.path.join(root, f"d{i // 1000}")
    os.makedirs(d, exist_ok=True)
    with open(os.path.join(d, f"f{i}"), "wb") as f:
        f.write(os.urandom(random.randint(16, 512)))
PY
    fi
    ours "$small" "100k small"
    ours "$small" "100k small cbf" cbf
    export RESTIC_PASSWORD=bench
    rm -rf "$work/restic-small"
    restic init -r "$work/restic-small" -q
    measure "restic 100k small first backup" restic -r "$work/restic-small" backup -q "$small"
    measure "restic 100k small no-change backup" restic -r "$work/restic-small" backup -q "$small"
fi
