#!/usr/bin/env bash
# Start-up cost of orvV2 and the cost of one round trip to orvd, as medians
# over RUNS runs (30 by default) against a running orvd on a temporary
# instance. Every figure is also printed as a ratio to a baseline measured in
# the same run: bench_roundtrip --no-exchange, a process that loads Qt and the
# client library, runs its event loop once and exits.
#
#   bench/startup.sh            uses build/bin (builds it when missing)
#   RUNS=100 bench/startup.sh
#   BIN=build-asan/bin bench/startup.sh
set -euo pipefail

repo="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
bin="$(cd "${BIN:-$repo/build/bin}" 2>/dev/null && pwd)" || bin=
runs="${RUNS:-30}"
dispatch_delay_ms=100 # orvV2 dispatches 100 ms after its event loop starts, on purpose
startup_goal_ms=15    # what orvV2 version may add to a process that sleeps that long
roundtrip_goal_ms=5

if [[ -z $bin || ! -x $bin/orvV2 || ! -x $bin/orvd || ! -x $bin/bench_roundtrip ]]; then
    "$repo/scripts/build" >&2
    bin="$repo/build/bin"
fi

work="$(mktemp -d)"
orvd_pid=
cleanup() {
    if [[ -n $orvd_pid ]]; then
        kill -TERM "$orvd_pid" 2>/dev/null || true
        wait "$orvd_pid" 2>/dev/null || true
    fi
    rm -rf "$work"
}
trap cleanup EXIT

export ORV_ROOT="$work/instance"
mkdir -p "$ORV_ROOT"/{config,logs,data,run}
"$bin/orvd" </dev/null >"$work/orvd.out" 2>&1 &
orvd_pid=$!
socket="$ORV_ROOT/run/orvd.sock"
for _ in $(seq 100); do
    [[ -n $(ss -xlH src "$socket" 2>/dev/null) ]] && break
    kill -0 "$orvd_pid" 2>/dev/null || break
    sleep 0.1
done
if [[ -z $(ss -xlH src "$socket" 2>/dev/null) ]]; then
    echo "startup: orvd did not listen on $socket" >&2
    cat "$work/orvd.out" >&2
    exit 1
fi

sleeper="$(command -v sleep)"
labels=("baseline (bench_roundtrip --no-exchange)" "orvV2 version"
    "bench_roundtrip (one PlanGetList)" "sleep 0.1 (the dispatch delay alone)")
commands=("$bin/bench_roundtrip --no-exchange" "$bin/orvV2 version" "$bin/bench_roundtrip"
    "$sleeper 0.1")
# The real command when the command line has it: its cost over `version`
# is the round trip as an administrator sees it.
has_plan_list=false
if "$bin/orvV2" plan 2>/dev/null | grep -qE '^list +- '; then
    has_plan_list=true
    labels+=("orvV2 plan list")
    commands+=("$bin/orvV2 plan list")
fi

# Each must work before its time means anything.
for command in "${commands[@]}"; do
    # shellcheck disable=SC2086 # the command is words on purpose
    if ! $command >/dev/null 2>"$work/err"; then
        echo "startup: '$command' failed:" >&2
        cat "$work/err" >&2
        exit 1
    fi
done

# Samples are taken in rounds that visit every command in turn, so that a
# change in the machine's load during the run falls on all of them alike.
rounds=5
per_round=$(((runs + rounds - 1) / rounds))
medians=()
if command -v hyperfine >/dev/null 2>&1 && command -v node >/dev/null 2>&1; then
    tool="hyperfine $(hyperfine --version | awk '{print $2}'), $rounds interleaved rounds"
    for round in $(seq "$rounds"); do
        hyperfine -N --style none --warmup 2 --runs "$per_round" \
            --export-json "$work/round$round.json" "${commands[@]}" >/dev/null 2>"$work/hyperfine.err" ||
            { cat "$work/hyperfine.err" >&2; exit 1; }
    done
    mapfile -t medians < <(node -e '
        const fs = require("fs");
        const samples = [];
        for (const file of process.argv.slice(1))
            JSON.parse(fs.readFileSync(file)).results.forEach((result, i) => {
                samples[i] = (samples[i] || []).concat(result.times);
            });
        for (const times of samples) {
            times.sort((a, b) => a - b);
            const n = times.length;
            const median = n % 2 ? times[(n - 1) / 2] : (times[n / 2 - 1] + times[n / 2]) / 2;
            console.log((median * 1000).toFixed(3));
        }' "$work"/round*.json)
else
    tool="date +%s%N loop, $rounds interleaved rounds"
    declare -A samples=()
    for _ in $(seq "$rounds"); do
        for i in "${!commands[@]}"; do
            for _ in $(seq "$per_round"); do
                start=$(date +%s%N)
                # shellcheck disable=SC2086 # the command is words on purpose
                ${commands[i]} >/dev/null 2>&1
                samples[$i]+="$(($(date +%s%N) - start)) "
            done
        done
    done
    for i in "${!commands[@]}"; do
        # shellcheck disable=SC2086 # one sample a word
        medians+=("$(printf '%s\n' ${samples[$i]} | sort -n |
            awk '{v[NR] = $1} END {m = NR % 2 ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2;
                 printf "%.3f\n", m / 1e6}')")
    done
fi

verdict() { awk -v v="$1" -v g="$2" 'BEGIN {print (v < g) ? "met" : "MISSED"}'; }
ms() { awk -v v="$1" 'BEGIN {printf "%.1f", v}'; }
ratio() { awk -v v="$1" -v b="$2" 'BEGIN {printf "%.2fx", v / b}'; }

baseline="${medians[0]}"
version="${medians[1]}"
exchange="${medians[2]}"
echo "Median of $((rounds * per_round)) runs each ($tool); orvd running on a temporary instance;" \
    "load average $(cut -d" " -f1-3 /proc/loadavg)"
printf '  %-44s %9s  %8s\n' "" "median" "ratio"
for i in "${!labels[@]}"; do
    printf '  %-44s %6s ms  %8s\n' "${labels[i]}" "$(ms "${medians[i]}")" \
        "$(ratio "${medians[i]}" "$baseline")"
done
echo
sleeping="${medians[3]}"
added_startup=$(awk -v v="$version" -v s="$sleeping" 'BEGIN {print v - s}')
echo "  orvV2 version: $(ms "$version") ms, of which ${dispatch_delay_ms} ms is the dispatch" \
    "delay kept on purpose; $(ms "$added_startup") ms more than sleep 0.1" \
    "($(ratio "$version" "$sleeping") of it); goal < ${startup_goal_ms} ms:" \
    "$(verdict "$added_startup" "$startup_goal_ms")"
added_exchange=$(awk -v a="$exchange" -v b="$baseline" 'BEGIN {print a - b}')
echo "  one PlanGetList round trip from process start adds $(ms "$added_exchange") ms" \
    "($(ratio "$exchange" "$baseline") the baseline);" \
    "goal < ${roundtrip_goal_ms} ms: $(verdict "$added_exchange" "$roundtrip_goal_ms")"
if $has_plan_list; then
    added_plan=$(awk -v a="${medians[4]}" -v b="$version" 'BEGIN {print a - b}')
    echo "  orvV2 plan list adds $(ms "$added_plan") ms over orvV2 version" \
        "($(ratio "${medians[4]}" "$version") of it);" \
        "goal < ${roundtrip_goal_ms} ms: $(verdict "$added_plan" "$roundtrip_goal_ms")"
fi
