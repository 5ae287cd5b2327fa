#!/usr/bin/env bash
# What the account commands cost, against orvd on a temporary instance:
#
#   orvV2 version                        the baseline, the same start-up doing nothing
#   orvV2 account list                   1,000 accounts (ACCOUNTS) listed; goal: median
#                                        within 15 ms of the baseline's
#   orvV2 account add filesystem         a new account in a local folder
#   orvV2 account add s3compatible       a new account in a bucket of the loopback S3 server
#
# Medians over RUNS runs (30 by default), taken in rounds that visit every
# command in turn, so that a change in the machine's load falls on all alike.
# Each add is a new account, so adds are timed one by one with a plain loop
# (the baseline again beside them); where their time goes (configuration
# check, container listing, save) is read from the command line's own log,
# which records each step's duration.
#
#   bench/accounts.sh            uses build/bin (builds it when missing)
#   RUNS=100 ACCOUNTS=5000 bench/accounts.sh
#   BIN=build-asan/bin bench/accounts.sh
set -euo pipefail

repo="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
bin="$(cd "${BIN:-$repo/build/bin}" 2>/dev/null && pwd)" || bin=
runs="${RUNS:-30}"
accounts="${ACCOUNTS:-1000}"
s3rver="$repo/node_modules/.bin/s3rver"

for tool in hyperfine python3; do
    if ! command -v "$tool" >/dev/null 2>&1; then
        echo "accounts: $tool is missing; scripts/setup installs hyperfine" >&2
        exit 1
    fi
done
if [[ ! -x $s3rver ]]; then
    echo "accounts: $s3rver is missing; run scripts/setup" >&2
    exit 1
fi
if [[ -z $bin || ! -x $bin/orvV2 || ! -x $bin/orvd ]]; then
    "$repo/scripts/build" >&2
    bin="$repo/build/bin"
fi

work="$(mktemp -d)"
orvd_pid=
s3_pid=
stop() {
    local pid=$1
    [[ -n $pid ]] && kill "$pid" 2>/dev/null && wait "$pid" 2>/dev/null
    return 0
}
cleanup() {
    stop "$orvd_pid"
    stop "$s3_pid"
    rm -rf "$work"
}
trap cleanup EXIT

# Starts orvd on the instance and waits until it is ready for every request.
start_orvd() {
    "$bin/orvd" >"$ORV_ROOT/logs/orvd.console.log" 2>&1 &
    orvd_pid=$!
    for _ in $(seq 200); do
        grep -qs '\] Ready' "$ORV_ROOT/logs/orvd.log" && return
        sleep 0.05
    done
    echo "accounts: orvd did not start" >&2
    exit 1
}

# Runs orvV2 with the words and prints its wall time in ms; a failure ends
# the benchmark.
time_run() {
    local start end
    start=$(date +%s%N)
    if ! "$bin/orvV2" "$@" >"$work/out" 2>&1; then
        echo "accounts: 'orvV2 $*' failed:" >&2
        cat "$work/out" >&2
        exit 1
    fi
    end=$(date +%s%N)
    awk -v ns=$((end - start)) 'BEGIN {printf "%.1f\n", ns / 1e6}'
}

# --- account list against many accounts -------------------------------------
export ORV_ROOT="$work/list"
mkdir -p "$ORV_ROOT"/{config/accounts,logs,data,run}
python3 - "$ORV_ROOT/config/accounts" "$accounts" <<'PY'
import json, sys, uuid
folder, count = sys.argv[1], int(sys.argv[2])
for i in range(count):
    id = "{%s}" % uuid.uuid4()
    path = "/srv/backups/ORV_" + id
    record = {"ID": id, "DisplayName": "Account %05d" % i, "Type": 1, "Path": path,
              "Prefix": "host", "SpaceLimit": 0,
              "DetailParams": {"Id": id, "Type": "FileSystem", "Path": path,
                               "BackupPrefix": "host"}}
    with open("%s/%s.json" % (folder, id[1:-1]), "w") as out:
        json.dump(record, out, indent=4)
PY
start_orvd
lines="$("$bin/orvV2" account list | grep -c ' : File System' || true)"
if [[ $lines -ne $accounts ]]; then
    echo "accounts: account list showed $lines of $accounts accounts" >&2
    exit 1
fi
rounds=5
per_round=$(((runs + rounds - 1) / rounds))
for round in $(seq "$rounds"); do
    hyperfine -N --style none --warmup 2 --runs "$per_round" --export-json "$work/list$round.json" \
        "$bin/orvV2 version" "$bin/orvV2 account list" >/dev/null
done
mapfile -t list_medians < <(python3 - "$work"/list*.json <<'PY'
import json, statistics, sys
samples = {}
for name in sys.argv[1:]:
    for i, result in enumerate(json.load(open(name))["results"]):
        samples.setdefault(i, []).extend(result["times"])
for i in sorted(samples):
    print("%.1f" % (statistics.median(samples[i]) * 1000))
PY
)
stop "$orvd_pid"
orvd_pid=

# --- account add -------------------------------------------------------------
export ORV_ROOT="$work/add"
mkdir -p "$ORV_ROOT"/{config,logs,data,run} "$work/store" "$work/s3"
start_orvd
"$s3rver" -d "$work/s3" -a 127.0.0.1 -p 0 --no-vhost-buckets --configure-bucket bench \
    >"$work/s3rver.log" 2>&1 &
s3_pid=$!
port=
for _ in $(seq 300); do
    port="$(grep -o 'listening on [^:]*:[0-9]*' "$work/s3rver.log" | grep -o '[0-9]*$' || true)"
    [[ -n $port ]] && break
    sleep 0.1
done
if [[ -z $port ]]; then
    echo "accounts: the S3 server did not start" >&2
    exit 1
fi

log="$ORV_ROOT/logs/CommandLineV2.log"
for i in $(seq "$runs"); do
    time_run version >>"$work/version.times"
    time_run account add filesystem --name "fs$i" -f "$work/store" >>"$work/filesystem.times"
    time_run account add s3compatible --name "s3-$i" -e "127.0.0.1:$port" -a S3RVER \
        -s S3RVER -b bench -v AWS4 >>"$work/s3compatible.times"
done
saved="$(grep -c 'Account saved' "$log" || true)"
if [[ $saved -ne $((2 * runs)) ]]; then
    echo "accounts: $saved of $((2 * runs)) accounts were saved" >&2
    exit 1
fi
# The steps of each add come before its "Command:" line in the log.
python3 - "$log" "$work" <<'PY'
import re, statistics, sys
log, work = sys.argv[1], sys.argv[2]
times = {"version": [], "filesystem": [], "s3compatible": []}
for kind in times:
    times[kind] = [float(line) for line in open("%s/%s.times" % (work, kind))]
steps, pending = {"filesystem": {}, "s3compatible": {}}, {}
for line in open(log):
    found = re.search(r"(Configuration check|Container listing|Account saved):? (\d+) ms", line)
    if found:
        pending.setdefault(found.group(1), []).append(int(found.group(2)))
    command = re.search(r"Command: account add (\w+)", line)
    if command:
        for step, values in pending.items():
            steps[command.group(1)].setdefault(step, []).extend(values)
        pending = {}
with open("%s/adds" % work, "w") as out:
    baseline = statistics.median(times["version"])
    out.write("  %-44s %6.1f ms\n" % ("orvV2 version (baseline of the adds)", baseline))
    for kind in ("filesystem", "s3compatible"):
        total = statistics.median(times[kind])
        out.write("  %-44s %6.1f ms  %+.1f ms\n" % ("orvV2 account add " + kind, total,
                                                     total - baseline))
        for step in ("Configuration check", "Container listing", "Account saved"):
            if step in steps[kind]:
                out.write("      %-40s %6.1f ms\n" % (step, statistics.median(steps[kind][step])))
PY

load="$(cut -d' ' -f1-3 /proc/loadavg)"
echo "Medians of $((rounds * per_round)) runs (hyperfine $(hyperfine --version | awk '{print $2}')," \
    "$rounds interleaved rounds) and of $runs adds of each kind; load average $load"
printf '  %-44s %9s  %s\n' "" "median" "over baseline"
printf '  %-44s %6s ms\n' "orvV2 version (baseline)" "${list_medians[0]}"
awk -v label="orvV2 account list ($accounts accounts)" -v v="${list_medians[1]}" \
    -v b="${list_medians[0]}" 'BEGIN {d = v - b
        printf "  %-44s %6.1f ms  %+.1f ms  (goal: within 15 ms: %s)\n", label, v, d,
            (d <= 15 ? "met" : "MISSED")}'
cat "$work/adds"
