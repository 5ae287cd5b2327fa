#!/usr/bin/env bash
# What reading and changing a setting costs on top of the command line's own
# start-up: medians over RUNS runs (30 by default) of
#   orvV2 version                        the baseline, the same start-up doing nothing
#   orvV2 config get threadcount         reads the settings store and prints one value
#   orvV2 config set threadcount -v 4    validates, locks, re-reads and rewrites the store
# on a temporary instance, each with its ratio to the baseline. Settings do not
# talk to orvd, so none is started.
#
#   bench/settings.sh            uses build/bin (builds it when missing)
#   RUNS=100 bench/settings.sh
#   BIN=build-asan/bin bench/settings.sh
set -euo pipefail

repo="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
bin="$(cd "${BIN:-$repo/build/bin}" 2>/dev/null && pwd)" || bin=
runs="${RUNS:-30}"

if ! command -v hyperfine >/dev/null 2>&1; then
    echo "settings: hyperfine is missing; scripts/setup installs it" >&2
    exit 1
fi
if [[ -z $bin || ! -x $bin/orvV2 ]]; then
    "$repo/scripts/build" >&2
    bin="$repo/build/bin"
fi

work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
export ORV_ROOT="$work/instance"
mkdir -p "$ORV_ROOT"/{config,logs,data,run}

labels=("orvV2 version (baseline)" "orvV2 config get threadcount"
    "orvV2 config set threadcount -v 4")
commands=("$bin/orvV2 version" "$bin/orvV2 config get threadcount"
    "$bin/orvV2 config set threadcount -v 4")

# Each must work before its time means anything.
for command in "${commands[@]}"; do
    # shellcheck disable=SC2086 # the command is words on purpose
    if ! $command >"$work/out" 2>&1; then
        echo "settings: '$command' failed:" >&2
        cat "$work/out" >&2
        exit 1
    fi
done
if ! grep -q '"MultiThread threads count": "4"' "$ORV_ROOT/config/defaultSettings.conf"; then
    echo "settings: 'config set threadcount -v 4' did not reach the store" >&2
    exit 1
fi

hyperfine -N --style none --warmup 3 --runs "$runs" --export-json "$work/times.json" \
    "${commands[@]}" >/dev/null
mapfile -t medians < <(grep -o '"median": *[0-9.eE+-]*' "$work/times.json" |
    awk '{printf "%.3f\n", $2 * 1000}')

echo "Median of $runs runs (hyperfine $(hyperfine --version | awk '{print $2}')), temporary instance"
printf '  %-36s %9s  %7s  %s\n' "" "median" "ratio" "over baseline"
for i in "${!labels[@]}"; do
    awk -v label="${labels[i]}" -v v="${medians[i]}" -v b="${medians[0]}" \
        'BEGIN {printf "  %-36s %6.1f ms  %6.2fx  %+.1f ms\n", label, v, v / b, v - b}'
done
