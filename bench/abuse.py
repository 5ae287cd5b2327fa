#!/usr/bin/env python3
"""Hostile clients against a real orvd, and what the others see meanwhile.

Each attack runs on its own orvd (fresh temporary instance), so that the peak
resident memory (VmHWM) printed for it is that attack's alone:

  stall     40 clients each announce a 15 MiB frame, send half of it and stop.
            Printed: orvd's peak RSS, how long `orvV2 account list` took and
            whether it worked while they stalled, and after how long orvd
            dropped them (or that it did not, within --stall-wait seconds).
  mixed     20 times, one write holding a valid request and then a broken
            frame. Printed: how many of the valid requests were answered.
  fds       orvd started with its descriptor limit at 64 (soft and hard), 150
            clients connect and stay. Printed: how long `orvV2 account list`
            took to end and how, how many "Cannot accept" lines the log took,
            and whether a client is served once the others have left.

    bench/abuse.py                      # build/bin
    bench/abuse.py --bin build-hard/bin --only stall,fds

Nothing is asserted; the figures are for before/after comparisons.
"""

import argparse
import json
import os
import resource
import shutil
import socket
import struct
import subprocess
import sys
import tempfile
import time

MIB = 1024 * 1024
MAX_FRAME = 16 * MIB


def frame(obj):
    body = json.dumps(obj, separators=(",", ":")).encode()
    return struct.pack(">I", len(body)) + body


def plan_list_request(exchange_id):
    return {"type": "request", "command": "PlanGetList", "id": exchange_id,
            "session_id": "probe", "params": {}}


class Instance:
    def __init__(self, bin_dir, nofile=None):
        self.bin = bin_dir
        self.root = tempfile.mkdtemp(prefix="orv-abuse-")
        for sub in ("config", "logs", "data", "run"):
            os.makedirs(os.path.join(self.root, sub))
        self.env = dict(os.environ, ORV_ROOT=self.root)
        self.socket = os.path.join(self.root, "run", "orvd.sock")

        def limit():
            if nofile:
                resource.setrlimit(resource.RLIMIT_NOFILE, (nofile, nofile))

        self.console = open(os.path.join(self.root, "orvd.console"), "wb")
        self.proc = subprocess.Popen([os.path.join(bin_dir, "orvd")], env=self.env,
                                     stdin=subprocess.DEVNULL, stdout=self.console,
                                     stderr=subprocess.STDOUT, preexec_fn=limit)
        deadline = time.monotonic() + 10
        while time.monotonic() < deadline:
            if self.proc.poll() is not None:
                sys.exit("abuse: orvd exited at start; see " + self.console.name)
            try:
                probe = socket.socket(socket.AF_UNIX)
                probe.connect(self.socket)
                probe.close()
                if self.serves():
                    break
            except OSError:
                pass
            time.sleep(0.05)
        else:
            sys.exit("abuse: orvd did not answer on " + self.socket)
        # One account, so that a working `account list` ends with status 0.
        subprocess.run([os.path.join(bin_dir, "orvV2"), "account", "add", "filesystem",
                        "--name", "Probe", "-f", os.path.join(self.root, "storage")],
                       env=self.env, capture_output=True, check=True)

    def status(self, field):
        with open("/proc/%d/status" % self.proc.pid) as status:
            for line in status:
                if line.startswith(field + ":"):
                    return int(line.split()[1]) / 1024.0
        return 0.0

    def serves(self, timeout=5):
        """One PlanGetList on a fresh connection; True when answered."""
        try:
            with socket.socket(socket.AF_UNIX) as client:
                client.settimeout(timeout)
                client.connect(self.socket)
                client.sendall(frame(plan_list_request("probe")))
                reply = receive_frame(client)
                return reply is not None and reply.get("status") == "success"
        except OSError:
            return False

    def account_list(self, timeout=90):
        """Runs orvV2 account list; returns (seconds, exit status, last line of output)."""
        start = time.monotonic()
        try:
            done = subprocess.run([os.path.join(self.bin, "orvV2"), "account", "list"],
                                  env=self.env, capture_output=True, timeout=timeout)
            code = done.returncode
            text = (done.stdout + done.stderr).decode(errors="replace").strip()
        except subprocess.TimeoutExpired:
            code, text = "killed", "no answer within %d s" % timeout
        return time.monotonic() - start, code, text.splitlines()[-1] if text else ""

    def log_count(self, *needles):
        count = 0
        logs = os.path.join(self.root, "logs")
        for name in os.listdir(logs):
            if name.startswith("orvd.log"):
                with open(os.path.join(logs, name), errors="replace") as log:
                    count += sum(1 for line in log if any(n in line for n in needles))
        return count

    def stop(self):
        self.proc.terminate()
        try:
            self.proc.wait(10)
        except subprocess.TimeoutExpired:
            self.proc.kill()
            self.proc.wait()
        self.console.close()
        shutil.rmtree(self.root, ignore_errors=True)


def receive_frame(client):
    header = receive_exactly(client, 4)
    if header is None:
        return None
    body = receive_exactly(client, struct.unpack(">I", header)[0])
    return json.loads(body) if body is not None else None


def receive_exactly(client, count):
    data = b""
    while len(data) < count:
        chunk = client.recv(count - len(data))
        if not chunk:
            return None
        data += chunk
    return data


def is_closed(client):
    try:
        return client.recv(65536, socket.MSG_DONTWAIT) == b""
    except BlockingIOError:
        return False
    except OSError:
        return True


def attack_stall(bin_dir, clients, stall_wait):
    instance = Instance(bin_dir)
    idle = instance.status("VmRSS")
    length = 15 * MIB
    half = b"{\"type\":\"request\",\"params\":\"" + b"x" * (length // 2)
    sockets, offsets = [], []
    for _ in range(clients):
        client = socket.socket(socket.AF_UNIX)
        client.connect(instance.socket)
        client.setblocking(False)
        sockets.append(client)
        offsets.append(0)
    payload = struct.pack(">I", length) + half
    # Push for a while: orvd takes what it is willing to take.
    deadline = time.monotonic() + 5
    while time.monotonic() < deadline and any(o < len(payload) for o in offsets):
        progressed = False
        for i, client in enumerate(sockets):
            if offsets[i] >= len(payload):
                continue
            try:
                sent = client.send(payload[offsets[i]:offsets[i] + 256 * 1024])
                offsets[i] += sent
                progressed = progressed or sent > 0
            except BlockingIOError:
                pass
            except OSError:
                offsets[i] = len(payload)
        if not progressed:
            time.sleep(0.01)
    start = time.monotonic()
    seconds, code, first = instance.account_list()
    served = instance.serves()
    print("stall: %d clients x half of a 15 MiB frame (%.0f MiB written in all)"
          % (clients, sum(offsets) / MIB))
    print("  orvd RSS idle %.1f MB, peak %.1f MB" % (idle, instance.status("VmHWM")))
    print("  orvV2 account list meanwhile: exit %s after %.2f s (%s); raw PlanGetList %s"
          % (code, seconds, first or "no output", "answered" if served else "NOT answered"))
    dropped_at = None
    while time.monotonic() - start < stall_wait:
        if all(is_closed(client) for client in sockets):
            dropped_at = time.monotonic() - start
            break
        time.sleep(0.2)
    if dropped_at is None:
        still = sum(1 for client in sockets if not is_closed(client))
        print("  stalled clients dropped: %d of %d still connected after %d s"
              % (still, clients, stall_wait))
    else:
        print("  stalled clients dropped: all, %.1f s after the attack" % dropped_at)
    print("  orvd RSS afterwards %.1f MB, peak %.1f MB"
          % (instance.status("VmRSS"), instance.status("VmHWM")))
    for client in sockets:
        client.close()
    instance.stop()


def attack_mixed(bin_dir, rounds):
    instance = Instance(bin_dir)
    answered = 0
    broken = b"not json"
    for i in range(rounds):
        with socket.socket(socket.AF_UNIX) as client:
            client.settimeout(5)
            client.connect(instance.socket)
            client.sendall(frame(plan_list_request("valid-%d" % i))
                           + struct.pack(">I", len(broken)) + broken)
            try:
                reply = receive_frame(client)
            except OSError:
                reply = None
            if reply is not None and reply.get("id") == "valid-%d" % i:
                answered += 1
    print("mixed: a valid request and a broken frame in one write, %d times" % rounds)
    print("  valid requests answered: %d of %d; orvd still serving others: %s"
          % (answered, rounds, "yes" if instance.serves() else "NO"))
    instance.stop()


def attack_fds(bin_dir, clients):
    instance = Instance(bin_dir, nofile=64)
    held = []
    for _ in range(clients):
        client = socket.socket(socket.AF_UNIX)
        try:
            client.connect(instance.socket)
        except OSError:
            client.close()
            break
        held.append(client)
    time.sleep(0.5)
    seconds, code, first = instance.account_list()
    time.sleep(2)
    lines = instance.log_count("Cannot accept", "Turning clients away", "Turned away")
    for client in held:
        client.close()
    time.sleep(0.5)
    after, after_code, _ = instance.account_list()
    print("fds: orvd limited to 64 descriptors, %d clients connected and idle" % len(held))
    print("  orvV2 account list meanwhile: exit %s after %.2f s (%s)"
          % (code, seconds, first or "no output"))
    print("  log lines about refused or failed accepts: %d; orvd RSS peak %.1f MB"
          % (lines, instance.status("VmHWM")))
    print("  once they left: account list exit %s after %.2f s" % (after_code, after))
    instance.stop()


def main():
    repo = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--bin", default=os.path.join(repo, "build", "bin"))
    parser.add_argument("--only", default="stall,mixed,fds")
    parser.add_argument("--clients", type=int, default=40)
    parser.add_argument("--stall-wait", type=int, default=90)
    args = parser.parse_args()
    bin_dir = os.path.abspath(args.bin)
    for program in ("orvd", "orvV2"):
        if not os.access(os.path.join(bin_dir, program), os.X_OK):
            sys.exit("abuse: no %s in %s (build it first)" % (program, bin_dir))
    print("orvd from %s; load average %s" % (bin_dir, " ".join(os.getloadavg().__repr__()
                                                            .strip("()").split(", "))))
    wanted = args.only.split(",")
    if "stall" in wanted:
        attack_stall(bin_dir, args.clients, args.stall_wait)
    if "mixed" in wanted:
        attack_mixed(bin_dir, 20)
    if "fds" in wanted:
        attack_fds(bin_dir, 150)


if __name__ == "__main__":
    main()
