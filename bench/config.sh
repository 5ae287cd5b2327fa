#!/usr/bin/env bash
# What "config export" and "config import" cost on an instance with ACCOUNTS
# folder accounts and PLANS backup plans (1,000 each by default), each plan
# with its data's password, against `orvV2 plan list` on the same instance in
# the same run:
#
#   orvV2 plan list       the baseline: one request that reads every plan
#   orvV2 config export   settings, accounts and plans to one file, the plans'
#                         passwords opened and sealed again under a passphrase
#   orvV2 config import   that file into a fresh instance (a new one each run,
#                         so that nothing clashes)
#   orvd peak RSS         VmHWM of the exporting orvd after its exports, and of
#                         each importing orvd after its import (the largest)
#
# Medians over RUNS runs (5 by default). The accounts and plans are copies of
# one made by the command line, each with its own id and name.
#
#   bench/config.sh                 uses build/bin (builds it when missing)
#   RUNS=9 PLANS=5000 bench/config.sh
#   BIN=build-config/bin bench/config.sh
set -euo pipefail

repo="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
bin="$(cd "${BIN:-$repo/build/bin}" 2>/dev/null && pwd)" || bin=
runs="${RUNS:-5}"
accounts="${ACCOUNTS:-1000}"
plans="${PLANS:-1000}"
passphrase="bench passphrase"

if ! command -v python3 >/dev/null 2>&1; then
    echo "config: python3 is missing" >&2
    exit 1
fi
if [[ -z $bin || ! -x $bin/orvV2 || ! -x $bin/orvd ]]; then
    "$repo/scripts/build" >&2
    bin="$repo/build/bin"
fi

work="$(mktemp -d)"
orvd_pid=
stop() {
    [[ -n $orvd_pid ]] && kill "$orvd_pid" 2>/dev/null && wait "$orvd_pid" 2>/dev/null
    orvd_pid=
    return 0
}
trap 'stop; rm -rf "$work"' EXIT

# Makes a fresh instance at $1 and starts orvd on it.
start_orvd() {
    export ORV_ROOT="$1"
    mkdir -p "$ORV_ROOT"/{config,logs,data,run}
    "$bin/orvd" >"$ORV_ROOT/logs/orvd.console.log" 2>&1 &
    orvd_pid=$!
    for _ in $(seq 400); do
        grep -qs '\] Ready' "$ORV_ROOT/logs/orvd.log" && return
        sleep 0.05
    done
    echo "config: orvd did not start" >&2
    exit 1
}

peak_kb() {
    awk '/^VmHWM/ {print $2}' "/proc/$orvd_pid/status"
}

# Runs orvV2 with the words (standard input from $input) and prints its wall
# time in ms; a failure ends the benchmark.
input=/dev/null
time_run() {
    local start end
    start=$(date +%s%N)
    if ! "$bin/orvV2" "$@" <"$input" >"$work/out" 2>&1; then
        echo "config: 'orvV2 $*' failed:" >&2
        cat "$work/out" >&2
        exit 1
    fi
    end=$(date +%s%N)
    echo $(((end - start) / 1000000))
}

source_root="$work/source"
mkdir -p "$work/store" "$work/data"
start_orvd "$source_root"
"$bin/orvV2" account add filesystem --name Template -p desk -f "$work/store" >/dev/null
"$bin/orvV2" plan create_backup --name Template --format nbf --account Template \
    --source "$work/data" --encryption true --encryption-password 'data password' \
    --schedule true --frequency-value Daily --occurs-at-option true --occurs-at-value 02:00 \
    --confirm >/dev/null
sleep 0.5
stop
python3 - "$source_root/config" "$accounts" "$plans" <<'PY'
import glob, json, os, re, sys, uuid
config, account_count, plan_count = sys.argv[1], int(sys.argv[2]), int(sys.argv[3])
account_file = glob.glob(os.path.join(config, "accounts", "*.json"))[0]
plan_file = glob.glob(os.path.join(config, "plans", "*.xml"))[0]
record = json.load(open(account_file))
old_account = record["ID"].strip("{}")
text = json.dumps(record)
plan = open(plan_file).read()
old_plan = re.search(r'ID="\{([0-9a-f-]+)\}"', plan).group(1)
os.remove(account_file)
os.remove(plan_file)
ids = [str(uuid.uuid4()) for _ in range(account_count)]
for i, new_id in enumerate(ids):
    copy = text.replace(old_account, new_id).replace('"Template"', '"Account %05d"' % i)
    open(os.path.join(config, "accounts", new_id + ".json"), "w").write(copy)
for i in range(plan_count):
    new_id = str(uuid.uuid4())
    copy = plan.replace(old_plan, new_id).replace(old_account, ids[i % account_count])
    copy = copy.replace('Name="Template"', 'Name="Plan %05d"' % i)
    open(os.path.join(config, "plans", new_id + ".xml"), "w").write(copy)
PY

start_orvd "$source_root"
listed="$("$bin/orvV2" plan list | grep -c '^Display name: ' || true)"
if [[ $listed -ne $plans ]]; then
    echo "config: plan list showed $listed of $plans plans" >&2
    exit 1
fi
printf '%s\n' "$passphrase" >"$work/passphrase"
list_ms=()
export_ms=()
for run in $(seq "$runs"); do
    input=/dev/null
    list_ms+=("$(time_run plan list)")
    input="$work/passphrase"
    export_ms+=("$(time_run config export -p "$work/exported")")
done
export_peak="$(peak_kb)"
file_size="$(stat -c %s "$work/exported.orvconfiguration")"
stop

import_ms=()
import_peak=0
for run in $(seq "$runs"); do
    start_orvd "$work/target-$run"
    input="$work/passphrase"
    import_ms+=("$(time_run config import -p "$work/exported.orvconfiguration")")
    if ! grep -q "^Plans imported: $plans from $plans" "$work/out"; then
        echo "config: the import did not bring every plan:" >&2
        cat "$work/out" >&2
        exit 1
    fi
    peak="$(peak_kb)"
    ((peak > import_peak)) && import_peak=$peak
    stop
    rm -rf "$work/target-$run"
done

python3 - "$accounts" "$plans" "$file_size" "$export_peak" "$import_peak" \
    "${list_ms[*]}" "${export_ms[*]}" "${import_ms[*]}" <<'PY'
import statistics, sys
accounts, plans, size, export_peak, import_peak = map(int, sys.argv[1:6])
lists, exports, imports = ([int(x) for x in arg.split()] for arg in sys.argv[6:9])
m = [statistics.median(x) for x in (lists, exports, imports)]
print("config: %d accounts, %d plans, file %.1f MB, medians of %d runs"
      % (accounts, plans, size / 1e6, len(lists)))
print("  orvV2 plan list             %7.0f ms (baseline)" % m[0])
print("  orvV2 config export         %7.0f ms  (x%.1f)" % (m[1], m[1] / m[0]))
print("  orvV2 config import         %7.0f ms  (x%.1f)" % (m[2], m[2] / m[0]))
print("  orvd peak RSS               %7.1f MB exporting, %.1f MB importing"
      % (export_peak / 1024, import_peak / 1024))
PY
