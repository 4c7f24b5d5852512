#!/usr/bin/env python3
"""A store with a million queued jobs: how long the host takes to its first hand-over, how much memory it has, and how
long a look at the list takes.

    million.py --bin build/release/bin [--jobs 1000000] [--seconds 20] [--limit 5] [--rate 300] [--memory 256] [--keep FOLDER]

Exit status 1 when the first mail arrives later than --limit seconds after the start, when fewer than --rate jobs a
second are delivered then, or when the host holds more than --memory MiB.
"""

import argparse
import json
import pathlib
import sys
import tempfile
import time

from kvhost_program import Kvhost, wait_until
from smtp_peers import Behaviour, SmtpPeers

CARRIERS = 30
SUBMITTED_TOGETHER = 100000


def configuration(peers):
    text = "[driver]\nthreadpool_size = 8\ndiff_carrier_connection_count = 60\nsame_carrier_connection_count = 2\n"
    text += '[run]\nkeep = "0s"\nstop_limit = "10s"\n'
    for name, peer in peers.peers.items():
        text += (f'[carrier.{name}]\nserver = "127.0.0.1"\nport = {peer.port}\nsecurity = "clear"\n'
                 'sender = "host@example.org"\n')
    return text


def fill(host, count):
    begin = time.monotonic()
    for first in range(0, count, SUBMITTED_TOGETHER):
        numbers = range(first + 1, min(first + SUBMITTED_TOGETHER, count) + 1)
        host.submit([{"id": f"job-{number}", "carrier": f"relay-{number % CARRIERS + 1}", "subject": f"job-{number}",
                      "recipient": f"ops{number}@example.org", "text": f"Pump {number}: pressure is low."}
                     for number in numbers], "jobs.jsonl")
    took = time.monotonic() - begin
    size = sum(path.stat().st_size for path in host.store.glob("jobs.db*")) / 1e6
    print(f"{count} jobs submitted in {took:.1f} s, {count / took:.0f} jobs/s; the database has {size:.0f} MB")


def time_of(host, *command):
    begin = time.monotonic()
    status, output, error = host.command(*command)
    if status != 0:
        raise RuntimeError(f"kvhost {command[0]} ended with {status}: {error}")
    return time.monotonic() - begin, output


def look(host, when):
    """The list and the figures, in seconds."""
    listed, output = time_of(host, "list", "--limit", "20", "--json")
    answer = json.loads(output)
    rows = answer["jobs"] if isinstance(answer, dict) else answer
    if len(rows) != 20:
        raise RuntimeError(f"kvhost list told {len(rows)} jobs")
    counted, _ = time_of(host, "stats", "--json")
    print(f"{when}: list --limit 20 takes {listed * 1000:.0f} ms, stats {counted * 1000:.0f} ms")


def run(arguments, folder):
    faults = []
    with SmtpPeers({f"relay-{number}": Behaviour() for number in range(1, CARRIERS + 1)}) as peers, \
            Kvhost(arguments.bin, folder) as host:
        host.configure(configuration(peers))
        fill(host, arguments.jobs)
        look(host, "before the start")
        begin = time.monotonic()
        host.start()
        wait_until(lambda: peers.record.mails > 0, 300, "a first mail", host.check_alive, 0.005)
        first = time.monotonic() - begin
        print(f"first mail taken {first:.2f} s after the start")
        if first > arguments.limit:
            faults.append(f"the first mail took {first:.2f} s, more than {arguments.limit} s")
        at_first = peers.record.mails
        span = time.monotonic()
        wait_until(lambda: time.monotonic() - span > arguments.seconds or peers.record.mails >= arguments.jobs,
                   arguments.seconds + 60, "the end of the measurement", host.check_alive, 0.1)
        span = time.monotonic() - span
        look(host, "beside the running host")
        rate = (peers.record.mails - at_first) / span
        print(f"{rate:.0f} jobs/s delivered over {span:.1f} s")
        if rate < arguments.rate:
            faults.append(f"{rate:.0f} jobs/s, fewer than {arguments.rate:.0f}")
        resident = host.resident_mib()
        print(f"memory of the host at most {resident:.0f} MiB")
        if resident > arguments.memory:
            faults.append(f"the host holds {resident:.0f} MiB, more than {arguments.memory}")
        print(f"its stop took {host.stop():.1f} s")
        counts = host.counts()
        print("states: " + ", ".join(f"{count} {state}" for state, count in sorted(counts.items())))
        if sum(counts.values()) != arguments.jobs:
            faults.append(f"{sum(counts.values())} jobs in the store")
        if counts.get("delivered", 0) != peers.record.mails:
            faults.append(f"{peers.record.mails} mails taken, {counts.get('delivered', 0)} delivered")
    for fault in faults:
        print("FAULT: " + fault)
    return 1 if faults else 0


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--bin", required=True, help="folder of kvhost and the driver")
    parser.add_argument("--jobs", type=int, default=1000000)
    parser.add_argument("--seconds", type=float, default=20, help="how long it is watched after the first mail")
    parser.add_argument("--limit", type=float, default=5, help="seconds to the first mail")
    parser.add_argument("--rate", type=float, default=300, help="jobs a second that are to be delivered at least")
    parser.add_argument("--memory", type=float, default=256, help="MiB that the host may hold")
    parser.add_argument("--keep", help="folder for store and log, which is then left there")
    arguments = parser.parse_args()
    if arguments.keep:
        pathlib.Path(arguments.keep).mkdir(parents=True)
        return run(arguments, arguments.keep)
    with tempfile.TemporaryDirectory(prefix="kvhost-million-") as folder:
        return run(arguments, folder)


if __name__ == "__main__":
    sys.exit(main())
