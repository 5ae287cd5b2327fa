#!/usr/bin/env bash
# What browsing and restoring through the service cost, against orvd on a
# temporary instance with a folder account:
#
#   orvV2 version                       the baseline start-up
#   orvV2 storage list --path --limit 100
#                                       the first page of a folder of ENTRIES
#                                       (100,000) entries; goal: median within
#                                       30 ms of the baseline's
#   restore plan vs bench_engine restore
#                                       the engine benchmark's data set backed
#                                       up by a plan and restored by a restore
#                                       plan, against the engine's own restore
#                                       of the same data in the same run;
#                                       goal: within 10 %
#
#   bench/storage.sh [WORKDIR]          WORKDIR defaults to /tmp/orv-bench (the
#                                       data set of bench/engine.sh is reused)
set -euo pipefail

repo="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
bin="$(cd "${BIN:-$repo/build/bin}" 2>/dev/null && pwd)" || bin=
runs="${RUNS:-30}"
entries="${ENTRIES:-100000}"
data_root="${1:-/tmp/orv-bench}"

if ! command -v hyperfine >/dev/null 2>&1; then
    echo "storage: hyperfine is missing; scripts/setup installs it" >&2
    exit 1
fi
if [[ -z $bin || ! -x $bin/orvV2 || ! -x $bin/orvd || ! -x $bin/bench_engine ]]; then
    "$repo/scripts/build" >&2
    bin="$repo/build/bin"
fi
mkdir -p "$data_root"
[[ -d $data_root/data ]] || python3 "$repo/../shared/bench/mkdata.py" "$data_root/data"

work="$(mktemp -d)"
orvd_pid=
trap '[[ -n $orvd_pid ]] && kill "$orvd_pid" 2>/dev/null; wait 2>/dev/null; rm -rf "$work"' EXIT

export ORV_ROOT="$work/instance"
mkdir -p "$ORV_ROOT"/{config,logs,data,run} "$work/store" "$work/source/big" "$work/out"
"$bin/orvd" >"$ORV_ROOT/logs/orvd.console.log" 2>&1 &
orvd_pid=$!
for _ in $(seq 400); do
    grep -qs '\] Ready' "$ORV_ROOT/logs/orvd.log" && break
    sleep 0.05
done
"$bin/orvV2" account add filesystem --name Desk -p desk -f "$work/store" >/dev/null

# Runs the plan now and waits until it is idle again; fails unless it succeeded.
run_plan() {
    "$bin/orvV2" plan start --name "$1" >/dev/null
    for _ in $(seq 12000); do
        details="$("$bin/orvV2" plan details --name "$1" 2>/dev/null || true)"
        if grep -q '^Status: Idle' <<<"$details" && ! grep -q 'Last run status: Never run' <<<"$details"; then
            grep -q '^Last run status: Success' <<<"$details" && return
            echo "storage: plan $1 did not succeed:" >&2
            echo "$details" >&2
            exit 1
        fi
        sleep 0.05
    done
    echo "storage: plan $1 did not end" >&2
    exit 1
}
seconds() { date +%s.%N; }

# --- browsing a large folder ---------------------------------------------------
python3 - "$work/source/big" "$entries" <<'PY'
import os, sys
folder, count = sys.argv[1], int(sys.argv[2])
for i in range(count):
    open(os.path.join(folder, "f%06d" % i), "w").close()
PY
"$bin/orvV2" plan create_backup --name Big --format nbf --account Desk \
    --source "$work/source" --confirm >/dev/null
sleep 0.3
run_plan Big
generation="$("$bin/orvV2" storage list -a Desk | grep -o '[0-9]\{8\}T[0-9]*Z-[0-9a-f]*' | head -1)"
point="$(python3 -c 'import sys, datetime
g = sys.argv[1]
t = datetime.datetime.strptime(g[:15], "%Y%m%dT%H%M%S").replace(tzinfo=datetime.timezone.utc)
print(t.astimezone().strftime("%d.%m.%y %H:%M"))' "$generation")"
page="$("$bin/orvV2" storage list -a Desk -b Big -g "$generation" -r "$point" \
    --path "$work/source/big" --limit 100 | grep -c $'^\t\t\t\t' || true)"
if [[ $page -ne 100 ]]; then
    echo "storage: the first page listed $page entries, not 100" >&2
    exit 1
fi
hyperfine -N --style none --warmup 2 --runs "$runs" --export-json "$work/browse.json" \
    "$bin/orvV2 version" \
    "$bin/orvV2 storage list -a Desk -b Big -g $generation -r '$point' --path $work/source/big --limit 100" \
    >/dev/null

# --- a full restore through a restore plan ---------------------------------------
"$bin/orvV2" plan create_backup --name Data --format nbf --account Desk --compression true \
    --source "$data_root/data" --encryption true --encryption-password bench --confirm >/dev/null
sleep 0.3
run_plan Data
"$bin/orvV2" plan create_restore --name Back --account Desk --bunch Data --latest-version \
    --overwrite-files true --restore-location "$work/out/plan" --decryption-password bench \
    --confirm >/dev/null
sleep 0.3
# The engine alone, on its own copy of the same backup.
mkdir -p "$work/engine-store"
"$bin/bench_engine" backup "$data_root/data" "$work/engine-store" "$work/engine-cache" >/dev/null

# Alternating rounds, so that a change in the machine's load falls on both;
# the medians are compared. The plan's time is its run's own, from orvd's
# log: the command line's start-up and the polling are not the service's cost.
plan_times=()
engine_times=()
for round in 1 2 3; do
    rm -rf "$work/out/plan" "$work/out/engine"
    mkdir -p "$work/out/engine"
    sync
    run_plan Back
    plan_times+=("$(python3 - "$ORV_ROOT/logs/orvd.log" "$round" <<'PY'
import re, sys, datetime
lines = open(sys.argv[1]).read().splitlines()
stamp = lambda line: datetime.datetime.strptime(line[:23], "%Y-%m-%d %H:%M:%S.%f")
n = int(sys.argv[2]) - 1
start = [l for l in lines if 'Plan "Back" (' in l and l.endswith(" starts")][n]
plan = re.search(r"\((\{[^}]+\})\)", start).group(1)
end = [l for l in lines if "Plan %s ended" % plan in l][n]
print((stamp(end) - stamp(start)).total_seconds())
PY
)")
    diff -r "$data_root/data" "$work/out/plan$data_root/data" >/dev/null ||
        { echo "storage: the restore plan's copy differs" >&2; exit 1; }
    sync
    start=$(seconds)
    # The thread count of the settings' default, as the plan's run takes.
    ORV_BENCH_THREADS=5 "$bin/bench_engine" restore "$work/engine-store" "$work/engine-cache" \
        "$work/out/engine" >/dev/null
    engine_times+=("$(echo "$(seconds) - $start" | bc)")
done
plan_restore="$(printf '%s\n' "${plan_times[@]}" | sort -n | sed -n 2p)"
engine_restore="$(printf '%s\n' "${engine_times[@]}" | sort -n | sed -n 2p)"

python3 - "$work/browse.json" "$entries" "$plan_restore" "$engine_restore" <<'PY'
import json, statistics, sys
results = json.load(open(sys.argv[1]))["results"]
base, page = (statistics.median(r["times"]) * 1000 for r in results)
entries, plan, engine = int(sys.argv[2]), float(sys.argv[3]), float(sys.argv[4])
print("storage: a folder of %d entries, the engine data set" % entries)
print("  orvV2 version                        %7.1f ms (baseline)" % base)
print("  storage list --path --limit 100      %7.1f ms  (+%.1f ms)" % (page, page - base))
print("  restore plan (its run, orvd log)     %7.2f s   (median of 3)" % plan)
print("  engine restore alone                 %7.2f s   (median of 3; plan / engine = %.2f)" % (engine, plan / engine))
PY
