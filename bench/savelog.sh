#!/usr/bin/env bash
# What `feedback save-log` costs with a large log folder: LOGS_MB megabytes of
# log text (100 by default, in 10 files) on a temporary instance with one
# folder account and one plan.
#
#   time          wall time of `orvV2 feedback save-log` (orvd writes the
#                 archive; the command waits for it)
#   orvd RSS      orvd's peak resident memory (VmHWM) before and after; the
#                 archive streams, so the peak must not grow with the logs
#   orvV2 RSS     the command line's own peak
#
#   bench/savelog.sh             uses build/bin (builds it when missing)
#   LOGS_MB=500 bench/savelog.sh
set -euo pipefail

repo="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
bin="$(cd "${BIN:-$repo/build/bin}" 2>/dev/null && pwd)" || bin=
logs_mb="${LOGS_MB:-100}"

if [[ ! -x /usr/bin/time ]]; then
    echo "savelog: GNU time (/usr/bin/time) is missing" >&2
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

export ORV_ROOT="$work/instance"
mkdir -p "$ORV_ROOT"/{config,logs,data,run} "$work/store" "$work/source" "$work/out"
# Log-like lines: a time, a level, a category and varying words and numbers.
python3 - "$ORV_ROOT/logs" "$logs_mb" <<'PY'
import os, random, sys
folder, total = sys.argv[1], int(sys.argv[2]) << 20
words = "backup plan chunk upload retry storage account restore index pack".split()
rng = random.Random(7)
per_file = total // 10
for n in range(10):
    with open(os.path.join(folder, f"old{n}.log"), "w") as out:
        written = 0
        while written < per_file:
            lines = []
            for i in range(1000):
                lines.append(f"2024-05-{n + 1:02d} 12:{i % 60:02d}:{rng.randrange(60):02d}.{rng.randrange(1000):03d} "
                             f"orvd[{rng.randrange(99999)}] INFO [orvd.{rng.choice(words)}] "
                             f"{' '.join(rng.choice(words) for _ in range(6))} {rng.getrandbits(48):x}\n")
            block = "".join(lines)
            out.write(block)
            written += len(block)
PY

"$bin/orvd" >"$work/orvd.console.log" 2>&1 &
orvd_pid=$!
for _ in $(seq 400); do
    grep -qs '\] Ready' "$ORV_ROOT/logs/orvd.log" && break
    sleep 0.05
done
"$bin/orvV2" account add filesystem --name Desk -p desk -f "$work/store" >/dev/null
"$bin/orvV2" plan create_backup --confirm --name Home --format nbf --account Desk \
    --source "$work/source" >/dev/null

hwm() { awk '/VmHWM/ {print $2}' "/proc/$orvd_pid/status"; }
before="$(hwm)"
/usr/bin/time -f '%e %M' -o "$work/time" "$bin/orvV2" feedback save-log --path "$work/out" >"$work/out.txt"
after="$(hwm)"
read -r seconds cli_kb <"$work/time"
archive="$(ls "$work"/out/Logs_*.zip)"
printf 'save-log, %s MB of logs: %s s, archive %s MB; orvd peak RSS %s MB before, %s MB after; orvV2 peak RSS %s MB\n' \
    "$logs_mb" "$seconds" "$(( $(stat -c %s "$archive") >> 20 ))" \
    "$(( before / 1024 ))" "$(( after / 1024 ))" "$(( cli_kb / 1024 ))"
