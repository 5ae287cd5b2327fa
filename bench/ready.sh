#!/usr/bin/env bash
# orvd's start-up as systemd sees it: from exec to READY=1 on NOTIFY_SOCKET
# (socket bound, database open), and on to the answer of a first account list
# (StorageGetConnection, which reads every account), on an instance with
# ACCOUNTS accounts and PLANS plans (1,000 each by default); medians of RUNS
# runs (20). The baseline is `orvd --version` (loading the program and Qt).
#
#   bench/ready.sh                 uses build/bin (builds it when missing)
#   BIN=build-ops/bin ACCOUNTS=0 PLANS=0 bench/ready.sh
set -euo pipefail

repo="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
bin="$(cd "${BIN:-$repo/build/bin}" 2>/dev/null && pwd)" || bin=
if [[ -z $bin || ! -x $bin/orvd ]]; then
    "$repo/scripts/build" >&2
    bin="$repo/build/bin"
fi
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

python3 - "$bin/orvd" "$work" "${ACCOUNTS:-1000}" "${PLANS:-1000}" "${RUNS:-20}" <<'PY'
import json, os, signal, socket, statistics, struct, subprocess, sys, time, uuid

orvd, work, accounts, plans, runs = sys.argv[1], sys.argv[2], *map(int, sys.argv[3:])
root = os.path.join(work, "instance")
for folder in ("config/accounts", "config/plans", "logs", "data", "run"):
    os.makedirs(os.path.join(root, folder))
for i in range(accounts):
    id = "{%s}" % uuid.uuid4()
    path = "/srv/backups/ORV_" + id
    record = {"ID": id, "DisplayName": "Account %05d" % i, "Type": 1, "Path": path,
              "Prefix": "host", "SpaceLimit": 0,
              "DetailParams": {"Id": id, "Type": "FileSystem", "Path": path,
                               "BackupPrefix": "host"}}
    with open(os.path.join(root, "config/accounts", id[1:-1] + ".json"), "w") as out:
        json.dump(record, out, indent=4)
for i in range(plans):
    with open(os.path.join(root, "config/plans", "plan%05d.xml" % i), "w") as out:
        out.write('<Plan ID="{%s}" Name="Plan %05d" Type="Backup"/>' % (uuid.uuid4(), i))

env = dict(os.environ, ORV_ROOT=root)

def ready_ms():
    path = os.path.join(work, "notify.sock")
    listener = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
    listener.bind(path)
    listener.settimeout(10)
    start = time.perf_counter()
    service = subprocess.Popen([orvd], env=dict(env, NOTIFY_SOCKET=path),
                               stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                               stderr=subprocess.DEVNULL)
    try:
        while b"READY=1" not in listener.recv(4096).split(b"\n"):
            pass
        ready = (time.perf_counter() - start) * 1000
        client = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        client.connect(os.path.join(root, "run/orvd.sock"))
        request = json.dumps({"type": "request", "command": "StorageGetConnection",
                              "id": "1", "session_id": "bench", "params": {}}).encode()
        client.sendall(struct.pack(">I", len(request)) + request)
        reply = b""
        while len(reply) < 4 or len(reply) < 4 + struct.unpack(">I", reply[:4])[0]:
            chunk = client.recv(1 << 20)
            if not chunk:
                raise SystemExit("the service closed the connection")
            reply += chunk
        answered = (time.perf_counter() - start) * 1000
        listed = len(json.loads(reply[4:]).get("data", {}).get("storageConnection", []))
        if listed != accounts:
            raise SystemExit("the first list had %d of %d accounts" % (listed, accounts))
        client.close()
    finally:
        service.send_signal(signal.SIGTERM)
        service.wait(10)
        listener.close()
        os.unlink(path)
    return ready, answered

def version_ms():
    start = time.perf_counter()
    subprocess.run([orvd, "--version"], env=env, stdout=subprocess.DEVNULL, check=True)
    return (time.perf_counter() - start) * 1000

ready_ms()  # the first run warms the page cache and makes the database
times = [ready_ms() for _ in range(runs)]
ready = statistics.median(t[0] for t in times)
answered = statistics.median(t[1] for t in times)
baseline = statistics.median(version_ms() for _ in range(runs))
print("orvd start-up to READY=1, %d accounts, %d plans, median of %d runs" % (accounts, plans, runs))
print("  orvd --version (baseline)  %6.1f ms" % baseline)
print("  exec to READY=1            %6.1f ms  (%.1fx the baseline; goal: under 50 ms: %s)"
      % (ready, ready / baseline, "met" if ready < 50 else "NOT met"))
print("  exec to a first account list %4.1f ms  (%.1fx the baseline)" % (answered, answered / baseline))
PY
