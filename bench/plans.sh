#!/usr/bin/env bash
# What the plan commands cost with many plans, against orvd on a temporary
# instance with PLANS plans (1,000 by default) on one folder account:
#
#   orvV2 version                  the baseline, the same start-up doing nothing
#   orvV2 plan list                every plan with its status and last run;
#                                  goal: median within 20 ms of the baseline's
#   orvV2 plan details --name X    one plan found among them and summarised;
#                                  goal: the same
#   orvd idle RSS                  with the plans loaded and scheduled
#
# Medians over RUNS runs (30 by default) in rounds that visit every command in
# turn. The plans are copies of one made by `plan create_backup`, each with its
# own id, name and daily time.
#
#   bench/plans.sh               uses build/bin (builds it when missing)
#   RUNS=100 PLANS=5000 bench/plans.sh
set -euo pipefail

repo="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
bin="$(cd "${BIN:-$repo/build/bin}" 2>/dev/null && pwd)" || bin=
runs="${RUNS:-30}"
plans="${PLANS:-1000}"

for tool in hyperfine python3; do
    if ! command -v "$tool" >/dev/null 2>&1; then
        echo "plans: $tool is missing; scripts/setup installs hyperfine" >&2
        exit 1
    fi
done
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

start_orvd() {
    "$bin/orvd" >"$ORV_ROOT/logs/orvd.console.log" 2>&1 &
    orvd_pid=$!
    for _ in $(seq 400); do
        grep -qs '\] Ready' "$ORV_ROOT/logs/orvd.log" && return
        sleep 0.05
    done
    echo "plans: orvd did not start" >&2
    exit 1
}

export ORV_ROOT="$work/instance"
mkdir -p "$ORV_ROOT"/{config,logs,data,run} "$work/store" "$work/source"
start_orvd
"$bin/orvV2" account add filesystem --name Desk -p desk -f "$work/store" >/dev/null
"$bin/orvV2" plan create_backup --name Template --format nbf --account Desk \
    --source "$work/source" --schedule true \
    --frequency-value Daily --occurs-at-option true --occurs-at-value 02:00 --confirm >/dev/null
sleep 0.5
template="$(ls "$ORV_ROOT/config/plans/"*.xml | head -1)"
stop
python3 - "$template" "$plans" <<'PY'
import os, re, sys, uuid
template, count = sys.argv[1], int(sys.argv[2])
text = open(template).read()
old_id = re.search(r'ID="\{([0-9a-f-]+)\}"', text).group(1)
folder = os.path.dirname(template)
os.remove(template)
for i in range(count):
    new_id = str(uuid.uuid4())
    plan = text.replace(old_id, new_id).replace('Name="Template"', 'Name="Plan %05d"' % i)
    plan = plan.replace(">02:00:00", ">%02d:%02d:00" % (i // 60 % 24, i % 60))
    with open(os.path.join(folder, new_id + ".xml"), "w") as out:
        out.write(plan)
PY
start_orvd
listed="$("$bin/orvV2" plan list | grep -c '^Display name: ' || true)"
if [[ $listed -ne $plans ]]; then
    echo "plans: plan list showed $listed of $plans plans" >&2
    exit 1
fi
rounds=5
per_round=$(((runs + rounds - 1) / rounds))
for round in $(seq "$rounds"); do
    hyperfine -N --style none --warmup 2 --runs "$per_round" --export-json "$work/r$round.json" \
        "$bin/orvV2 version" "$bin/orvV2 plan list" \
        "$bin/orvV2 plan details --name 'Plan 00500'" >/dev/null
done
sleep 2
rss_kb="$(awk '/^VmRSS/ {print $2}' "/proc/$orvd_pid/status")"
python3 - "$rss_kb" "$plans" "$work"/r*.json <<'PY'
import json, statistics, sys
rss, plans, files = int(sys.argv[1]), int(sys.argv[2]), sys.argv[3:]
samples = {}
for name in files:
    for i, result in enumerate(json.load(open(name))["results"]):
        samples.setdefault(i, []).extend(result["times"])
m = [statistics.median(samples[i]) * 1000 for i in sorted(samples)]
print("plans: %d plans" % plans)
print("  orvV2 version               %6.1f ms (baseline)" % m[0])
print("  orvV2 plan list             %6.1f ms  (+%.1f ms)" % (m[1], m[1] - m[0]))
print("  orvV2 plan details          %6.1f ms  (+%.1f ms)" % (m[2], m[2] - m[0]))
print("  orvd idle RSS               %6.1f MB" % (rss / 1024))
PY
