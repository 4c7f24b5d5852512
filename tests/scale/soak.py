#!/usr/bin/env python3
"""A soak: the running host under all faults at once. Most jobs go to fast, honest servers (kvsink), which are killed and
started again now and then; the others to servers of which every reply may be a fault. Jobs come in all the time, through
the command and over HTTP; the configuration is changed and read anew again and again. When nearly all have ended the
faults stop, and every job must be accounted for by what the servers themselves took:

  delivered   taken, and the client was told so; taken once more only where an earlier answer was lost on the way
  failed      never taken with an answer, and its reason is a refusal for good that one of the servers gave once

The host is sampled meanwhile: its memory, descriptors and threads must not grow. The medians of the second and the last
quarter of the samples are compared; the last may be higher by a tenth and 8 MiB of memory or 8 descriptors, and by 4
threads. Descriptors may also be 8 more than at the start with all the connections that the driver may have.

    soak.py --bin build/release/bin [--seconds 1200] [--jobs 500000] [--out FOLDER] [--keep FOLDER]

Exit status 0 when everything holds, 1 otherwise.
"""

import argparse
import collections
import contextlib
import json
import pathlib
import random
import shutil
import signal
import sys
import tempfile
import time
import urllib.request

from kvhost_program import FINAL, Kvhost, percentile, wait_until
from soak_audit import Audit, check_self
from soak_setting import SEED, TOKEN, Jobs, Setting
from vitals import Vitals, draw

# How often in the whole run, and the seconds between two that there are at least.
PARTS = {"submit": (1200, 0.2), "sample": (240, 0.1), "reload": (60, 0.5), "kill": (40, 0.8), "restart": (40, 1.5)}


class Soak:
    """The run itself."""

    def __init__(self, host, setting, arguments):
        self.host = host
        self.setting = setting
        self.arguments = arguments
        self.jobs = Jobs(setting, arguments.wild)
        self.vitals = None
        self.counts = collections.Counter()
        self.edition = 0
        self.choice = random.Random(SEED + 1)

    def run(self):
        self.host.start()
        wait_until(self.is_ready, 30, "the host is ready", self.host.check_alive)
        self.vitals = Vitals(self.host, self.setting.http_port, self.setting.connections())
        begin = time.monotonic()
        due = {name: 0.0 for name in PARTS}
        while (elapsed := time.monotonic() - begin) < self.arguments.seconds or self.is_behind(elapsed):
            for name in [name for name, at in due.items() if at <= elapsed]:
                getattr(self, name)(elapsed)
                times, least = PARTS[name]
                due[name] = max(elapsed, due[name] + max(self.arguments.seconds / times, least))
            self.host.check_alive()
            time.sleep(max(0, min(min(due.values()) - (time.monotonic() - begin), 0.1)))  # the pace is what is tested here
        self.heal()
        wait_until(self.is_over, self.arguments.limit, "every job has ended", self.host.check_alive, 0.5)
        self.counts["seconds"] = round(time.monotonic() - begin, 1)
        self.counts["stop_seconds"] = round(self.host.stop(), 2)

    def is_behind(self, elapsed):
        """The faults go on until nearly all jobs have ended."""
        self.submit(elapsed)
        ended = self.ended()
        self.counts.setdefault("in_time", ended)
        return ended < self.arguments.until * self.arguments.jobs and elapsed < self.arguments.seconds + self.arguments.limit

    def is_ready(self):
        try:
            self.request("GET", "/readyz")
            return True
        except OSError:
            return False

    def request(self, method, path, body=None):
        request = urllib.request.Request(f"http://127.0.0.1:{self.setting.http_port}{path}", method=method,
                                         data=None if body is None else json.dumps(body).encode(),
                                         headers={"Authorization": "Bearer " + TOKEN, "Content-Type": "application/json"})
        with urllib.request.urlopen(request, timeout=60) as answer:
            return answer.read()

    # What happens over and over

    def submit(self, elapsed):
        wanted = round(self.arguments.jobs * min(1.0, elapsed / self.arguments.seconds)) - len(self.jobs.carriers)
        if wanted <= 0:
            return
        self.counts["batches"] += 1
        if self.counts["batches"] % 4 == 0:
            self.submit_by_http(self.jobs.make(min(wanted, 500)))
        else:
            self.host.submit(self.jobs.make(min(wanted, 5000)), "jobs.jsonl")

    def submit_by_http(self, jobs):
        """Twice now and then, as a client does that missed the answer."""
        again = self.counts["batches"] % 40 == 0
        for wanted in ("stored", "repeated") if again else ("stored",):
            answers = [receipt["status"] for receipt in json.loads(self.request("POST", "/v1/jobs", jobs))["jobs"]]
            if wanted == "repeated":  # a wait of so many seconds is another moment now
                answers = ["repeated" if status == "stored" else status for status in answers if status != "stored"]
            if any(status != wanted for status in answers) or (wanted == "stored" and len(answers) != len(jobs)):
                raise RuntimeError(f"HTTP answered {collections.Counter(answers)} where {wanted} was to be")
        self.counts["by_http"] += len(jobs)

    def sample(self, _):
        counts = self.host.counts()
        self.host.check_alive()
        self.vitals.sample(submitted=len(self.jobs.carriers), delivered=counts.get("delivered", 0),
                           failed=counts.get("failed", 0), queued=counts.get("queued", 0),
                           faults=sum(self.setting.record.faults.values()))

    def reload(self, elapsed):
        if elapsed == 0:
            return
        self.edition += 1
        self.host.configure(self.setting.configuration(self.edition))
        self.host.daemon.send_signal(signal.SIGHUP)
        self.counts["reloads"] += 1

    def kill(self, elapsed):
        """One sink ends, in turn by SIGKILL and by SIGTERM, and comes back on its port."""
        if elapsed == 0:
            return
        sink = self.choice.choice(self.setting.sinks)
        sink.end(signal.SIGKILL if self.counts["kills"] % 2 == 0 else signal.SIGTERM)
        sink.start()
        self.counts["kills"] += 1

    def restart(self, elapsed):
        """One of the faulty servers cuts all its connections and is away for a second."""
        if elapsed == 0:
            return
        self.setting.peers.call(self.choice.choice(list(self.setting.wild)), lambda peer: peer.restart(1.0))
        self.counts["restarts"] += 1

    # The end

    def heal(self):
        """Ends the faults and every connection that they left behind. The driver keeps a connection whose EHLO went wrong as
        long as it answers RSET, and a carrier with such a one alone would stay in trouble with it."""
        for name, peer in self.setting.peers.peers.items():
            peer.is_healed = True
            self.setting.peers.call(name, lambda peer: peer.restart(0.1))

    def ended(self):
        counts = self.host.counts()
        return sum(counts.get(state, 0) for state in FINAL)

    def is_over(self):
        return self.ended() == len(self.jobs.carriers)


def figures_of(soak, audit, slack):
    record = soak.setting.record
    samples = soak.vitals.samples
    return {
        "seconds": soak.arguments.seconds, "jobs": len(soak.jobs.carriers), "run": dict(soak.counts),
        "audit": dict(audit.figures), "faults_injected": sum(record.faults.values()),
        "faults_by_kind": dict(sorted(record.faults.items())),
        "replies_of_faulty_servers": dict(sorted(record.replies.items())), "connections_to_faulty_servers": record.connections,
        "healthz_ms": {share: percentile([sample["healthz_ms"] for sample in samples], part)
                       for share, part in (("50%", 0.5), ("99%", 0.99), ("100%", 1.0))},
        "vitals": soak.vitals.verdict(slack), "violations": audit.faults, "samples": samples}


def tell(figures):
    run, audit = figures["run"], figures["audit"]
    print(f"{figures['jobs']} jobs submitted in {figures['seconds']} s ({run['by_http']} over HTTP); "
          f"{run['in_time']} had ended by then, all after {run['seconds']} s; the stop took {run['stop_seconds']} s")
    print(f"{figures['faults_injected']} faults of {len(figures['faults_by_kind'])} kinds on "
          f"{figures['connections_to_faulty_servers']} connections; servers killed {run['kills']} times, cut off "
          f"{run['restarts']} times; the configuration read anew {run['reloads']} times")
    print(", ".join(f"{name}: {count}" for name, count in sorted(audit.items())))
    print("from        " + "".join(f"{name:>14}" for name in ("memory/MiB", "descriptors", "threads", "CPU/s", "delivered")))
    samples = figures["samples"]
    for sample in samples[::max(1, len(samples) // 12)]:
        print(f"{sample['at']:>8.0f} s  " + "".join(
            f"{sample[name]:>14}" for name in ("rss_mib", "descriptors", "threads", "cpu_s", "delivered")))
    for name, verdict in figures["vitals"].items():
        print(f"{name}: median {verdict['second_quarter']} in the second quarter, {verdict['last_quarter']} in the last, "
              f"limit {verdict['limit']}: {'holds' if verdict['holds'] else 'GROWS'}")
    print(f"/healthz answered within {figures['healthz_ms']['100%']} ms, half of the time {figures['healthz_ms']['50%']} ms")


def write(figures, out):
    out.mkdir(parents=True, exist_ok=True)
    (out / "soak.json").write_text(json.dumps(figures, indent=1) + "\n", encoding="utf-8")
    draw(figures["samples"], {"rss_mib": "memory, MiB", "descriptors": "descriptors", "threads": "threads",
                              "queued": "queued jobs", "delivered": "delivered jobs", "faults": "faults injected"},
         out / "soak.svg", f"kvhost under faults, {figures['jobs']} jobs")


def run(arguments, folder):
    binaries = pathlib.Path(arguments.bin).resolve()
    with contextlib.ExitStack() as stack:
        setting = Setting(stack, binaries, folder)
        host = stack.enter_context(Kvhost(binaries, folder))
        host.configure(setting.configuration(0))
        soak = Soak(host, setting, arguments)
        try:
            soak.run()
        except RuntimeError as error:
            print(f"FAULT: {error}\nstates: {host.counts()}\n{host.said()}")
            return 1
        audit = Audit(soak)
        audit.check()
    figures = figures_of(soak, audit, arguments.slack)
    tell(figures)
    if arguments.out:
        write(figures, pathlib.Path(arguments.out))
    growth = [name for name, verdict in figures["vitals"].items() if not verdict["holds"]]
    for fault in audit.faults[:50]:
        print("FAULT: " + fault)
    print(f"{len(audit.faults)} faults, {figures['jobs']} jobs held against the servers' records")
    return 1 if audit.faults or growth else 0


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--bin", help="folder of kvhost, kvsink and the driver")
    parser.add_argument("--self-check", action="store_true", help="show that the audit finds what is wrong, and end")
    parser.add_argument("--seconds", type=float, default=1200, help="how long jobs come in and servers misbehave")
    parser.add_argument("--jobs", type=int, help="how many; 500000 in 1200 seconds, by default")
    parser.add_argument("--wild", type=float, default=0.05, help="share of the jobs for the servers with faults")
    parser.add_argument("--until", type=float, default=0.98, help="share of the jobs that end before the faults stop")
    parser.add_argument("--limit", type=float, default=3600, help="seconds after that in which all jobs have to end")
    parser.add_argument("--slack", type=float, default=0, help="MiB by which the memory may grow besides")
    parser.add_argument("--out", help="folder for soak.json and soak.svg")
    parser.add_argument("--keep", help="folder for store, logs and journals, which is then left there")
    arguments = parser.parse_args()
    if arguments.self_check:
        return check_self()
    if not arguments.bin:
        parser.error("--bin is needed")
    if arguments.jobs is None:
        arguments.jobs = round(500000 * arguments.seconds / 1200)
    if arguments.keep:
        shutil.rmtree(arguments.keep, ignore_errors=True)
        pathlib.Path(arguments.keep).mkdir(parents=True)
        return run(arguments, pathlib.Path(arguments.keep).resolve())
    with tempfile.TemporaryDirectory(prefix="kvhost-soak-") as folder:
        return run(arguments, pathlib.Path(folder).resolve())


if __name__ == "__main__":
    sys.exit(main())
