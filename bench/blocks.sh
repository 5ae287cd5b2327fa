#!/usr/bin/env bash
# Block-level backup of the current format on one large file: a 200 MB file
# of random bytes backed up, one 4 KiB block changed in its middle, then the
# second run's uploaded bytes and time with and without block level, and the
# restore of that second run (wall seconds, peak RSS). bench_engine runs on a
# folder account with zstd and AES-256 on, as a plan run would.
#
#   bench/blocks.sh [WORKDIR]          WORKDIR defaults to /tmp/orv-bench-blocks
set -euo pipefail
repo="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
bin="${BIN:-$repo/build/bin}"
work="${1:-/tmp/orv-bench-blocks}"
rm -rf "$work"
mkdir -p "$work/data"
head -c 200000000 /dev/urandom >"$work/data/big.bin"
export ORV_BENCH_FORMAT=cbf

# The engine's own line (uploaded bytes), then time's.
measure() {
    /usr/bin/time -f "$1: %e s wall, %M KB peak RSS" "${@:2}" 2>&1 | sed "s/^Backup/$1: Backup/"
}

for blocks in 0 1; do
    mkdir -p "$work/storage-$blocks"
    ORV_BENCH_BLOCKS=$blocks measure "block level $blocks, first backup" "$bin/bench_engine" \
        backup "$work/data" "$work/storage-$blocks" "$work/cache-$blocks"
done
head -c 4096 /dev/urandom |
    dd of="$work/data/big.bin" bs=4096 seek=24414 conv=notrunc status=none
sync
for blocks in 0 1; do
    ORV_BENCH_BLOCKS=$blocks measure "block level $blocks, one block changed" \
        "$bin/bench_engine" backup "$work/data" "$work/storage-$blocks" "$work/cache-$blocks"
    mkdir -p "$work/out-$blocks"
    measure "block level $blocks, restore" "$bin/bench_engine" \
        restore "$work/storage-$blocks" "$work/cache-$blocks" "$work/out-$blocks" | tail -n 1
    cmp -s "$work/data/big.bin" "$work/out-$blocks$work/data/big.bin" &&
        echo "block level $blocks, restore: identical" ||
        echo "block level $blocks, restore: DIFFERS"
done
rm -rf "$work"
