#!/usr/bin/env python3
"""A day of a messaging host, pressed into a minute or two: jobs for thirty carriers through the running host, of which
some refuse, some are slow, some are away for a while and some know another password. In the end every job's state is
confirmed by what the mail servers themselves took:

  delivered   the server took it, once; more often only when the job was in doubt after a crash
  failed      the server never took it; or, after a crash, no more often than the job was in doubt

    day.py --bin build/release/bin [--jobs 20000] [--kills 0] [--seconds 40] [--limit 900] [--keep FOLDER]

Exit status 0 when every job is confirmed, 1 otherwise.
"""

import argparse
import collections
import json
import os
import random
import shutil
import sys
import tempfile
import time

from kvhost_program import FINAL, STATES, Kvhost, percentile, wait_until
from smtp_peers import REFUSED_PREFIX, Behaviour, SmtpPeers

# By the part that a kind has in all jobs; the carriers of a kind share it.
KINDS = (
    # name, carriers, share of the jobs, behaviour in a day of so many seconds
    ("healthy", 14, 0.55, lambda day: Behaviour()),
    ("picky", 5, 0.17, lambda day: Behaviour(refuses_nobody=True)),
    ("busy", 4, 0.12, lambda day: Behaviour(busy=(day * 0.1, day * 0.4))),
    ("slow", 3, 0.05, lambda day: Behaviour(reply_delay=0.02)),
    ("away", 3, 0.10, lambda day: Behaviour(closed=(day * 0.15, day * 0.5))),
    ("locked", 1, 0.01, lambda day: Behaviour(refuses_login=True)),
)
CHUNKS = 10        # submissions after the first half, one after the other over the day
SEED = 20261122    # every run has the same jobs


def carriers_by_kind():
    return {kind: [f"{kind}-{number}" for number in range(1, count + 1)] for kind, count, _, _ in KINDS}


def configuration(peers):
    text = """
[driver]
threadpool_size = 16
diff_carrier_connection_count = 64
same_carrier_connection_count = 2
[run]
tick = "50ms"
probe_limit = "1s"
stop_limit = "10s"
keep = "0s"
[retry]
first = "300ms"
factor = 1.5
longest = "5s"
lifetime = "1h"
"""
    for name, peer in peers.peers.items():
        text += (f'[carrier.{name}]\nserver = "127.0.0.1"\nport = {peer.port}\nsecurity = "clear"\n'
                 f'sender = "host@example.org"\nuser = "{name}"\npassword = "pw-{name}"\n')
    return text


def make_jobs(count, day):
    """One job for each recipient, and each recipient once: that is how the servers' record names the job."""
    choice = random.Random(SEED)
    kinds = [kind for kind, *_ in KINDS]
    shares = [share for _, _, share, _ in KINDS]
    names = carriers_by_kind()
    jobs = []
    for number in range(1, count + 1):
        kind = choice.choices(kinds, shares)[0]
        refused = kind == "picky" and choice.random() < 0.2
        job = {"id": f"day-{number}", "carrier": choice.choice(names[kind]), "subject": f"day-{number}",
               "recipient": f"{REFUSED_PREFIX if refused else 'ops'}{number}@example.org",
               "text": "Pump %d: pressure is low.\n" % number + "x" * choice.randrange(0, 800)}
        if choice.random() < 0.05:
            job["urgent"] = True
        if kind == "locked":  # nothing else ends these: the account may be mended at any time
            job["deadline"] = f"{max(2, round(day))}s"
        jobs.append(job)
    return jobs


class Day:
    """The run itself."""

    def __init__(self, host, peers, arguments):
        self.host = host
        self.peers = peers
        self.arguments = arguments
        self.jobs = make_jobs(arguments.jobs, arguments.seconds)
        self.recoveries = []

    def run(self):
        half = self.jobs[:len(self.jobs) // 2]
        rest = self.jobs[len(self.jobs) // 2:]
        took = self.host.submit(half, "jobs-0.jsonl")
        print(f"submitted {len(half)} jobs in one go: {len(half) / took:.0f} jobs/s")
        begin = time.monotonic()
        self.peers.restart_clocks()
        self.host.start()
        self.submit_over_the_day(rest, begin)
        wait_until(self.is_over, self.arguments.limit, "every job has ended", self.host.check_alive, 0.2)
        took = time.monotonic() - begin
        peak = self.host.resident_mib()
        stop = self.host.stop()
        print(f"all jobs have ended after {took:.1f} s: {len(self.jobs) / took:.0f} jobs/s, retries and outages included")
        print(f"memory of the host at most {peak:.0f} MiB; its stop took {stop:.1f} s")

    def submit_over_the_day(self, jobs, begin):
        size = -(-len(jobs) // CHUNKS)
        kills = {round((number + 1) * CHUNKS / (self.arguments.kills + 1)) for number in range(self.arguments.kills)}
        for number in range(CHUNKS):
            # The pace of the day is what is being tested here.
            time.sleep(max(0, begin + number * self.arguments.seconds * 0.8 / CHUNKS - time.monotonic()))
            self.host.check_alive()
            if number in kills:
                self.crash()
            chunk = jobs[number * size:(number + 1) * size]
            if chunk:
                self.host.submit(chunk, f"jobs-{number + 1}.jsonl")

    def crash(self):
        self.host.kill()
        lost = dict(self.host.counts()).get("handed over", 0)
        self.host.start()
        self.recoveries.append(lost)

    def is_over(self):
        counts = self.host.counts()
        return sum(counts.get(state, 0) for state in FINAL) == len(self.jobs)


class Audit:
    """Holds the store against the servers' record."""

    def __init__(self, host, record, jobs):
        self.accepted = record.by_recipient
        self.faults = []
        self.duplicates = 0
        self.doubted = collections.Counter(dict(host.rows(
            "SELECT job.id, count(*) FROM attempt JOIN job ON job.key = attempt.job WHERE outcome = 2 GROUP BY job.id")))
        self.stored = {row[0]: row[1:] for row in host.rows(
            "SELECT job.id, job.state, job.carrier, job.recipient, job.attempts, submission.submitted, job.decision "
            "FROM job JOIN submission ON submission.key = job.submission")}
        for job in jobs:
            self.check(job)
        known = {job["recipient"] for job in jobs}
        for recipient in self.accepted.keys() - known:
            self.faults.append(f"a mail to {recipient}, whom no job names")

    def check(self, job):
        if job["id"] not in self.stored:
            self.faults.append(f"{job['id']}: acknowledged and not in the store")
            return
        state, carrier, recipient = self.stored[job["id"]][:3]
        taken = self.accepted.get(recipient, [])
        times, doubts = len(taken), self.doubted[job["id"]]
        if STATES[state] == "delivered":
            self.expect(1 <= times <= 1 + doubts, job, f"delivered, and taken {times} times, in doubt {doubts} times")
        elif STATES[state] == "failed":
            self.expect(times <= doubts, job, f"failed, and taken {times} times, in doubt {doubts} times")
        else:
            self.expect(False, job, f"is {STATES[state]}")
        self.expect((carrier, recipient) == (job["carrier"], job["recipient"]), job, "is another job in the store")
        for mail in taken:
            self.expect((mail.carrier, mail.user, mail.job) == (carrier, carrier, job["id"]), job,
                        f"went out as {mail.job} through {mail.carrier} of {mail.user}")
        self.duplicates += max(0, times - 1)

    def expect(self, holds, job, fault):
        if not holds:
            self.faults.append(f"{job['id']} ({job['carrier']}): {fault}")

    def expect_outcomes(self):
        """What must have become of the jobs, whatever the store says."""
        for name, (state, carrier, recipient, _, _, decision) in self.stored.items():
            doomed = recipient.startswith(REFUSED_PREFIX) or carrier.startswith("locked")
            if doomed != (STATES[state] == "failed"):
                self.faults.append(f"{name} ({carrier}, {recipient}): {STATES[state]}: {decision}")

    def latencies(self, kind):
        return [self.accepted[recipient][0].at - submitted / 1000
                for state, carrier, recipient, _, submitted, _ in self.stored.values()
                if carrier.startswith(kind) and STATES[state] == "delivered" and recipient in self.accepted]


def check_list(host, audit):
    """The command tells what the store has."""
    status, output, error = host.command("list", "--json", "--limit", "50")
    if status != 0:
        audit.faults.append(f"kvhost list ended with {status}: {error}")
        return
    answer = json.loads(output)
    rows = answer["jobs"] if isinstance(answer, dict) else answer
    if len(rows) != min(50, len(audit.stored)):
        audit.faults.append(f"kvhost list tells {len(rows)} jobs")
    for row in rows:
        if row["state"] != STATES[audit.stored[row["job"]][0]]:
            audit.faults.append(f"kvhost list tells {row['state']} of {row['id']}")


def check_store(host, audit):
    status, output, error = host.command("fsck")
    if status != 0:
        audit.faults.append(f"kvhost fsck ended with {status}: {output} {error}")


def tell(audit, peers, day):
    states = collections.Counter(STATES[row[0]] for row in audit.stored.values())
    print("states: " + ", ".join(f"{count} {state}" for state, count in sorted(states.items())))
    print(f"attempts: {sum(row[3] for row in audit.stored.values())}; mails taken by the servers: {peers.record.mails}; "
          "their replies: " + ", ".join(f"{count} x {code}" for code, count in sorted(peers.record.replies.items())))
    for kind, *_ in KINDS:
        times = audit.latencies(kind)
        if times:
            print(f"from submitted to taken, {kind}: " + ", ".join(
                f"{share:.0%} in {percentile(times, share):.2f} s" for share in (0.5, 0.95, 0.99)))
    if day.recoveries:
        print(f"kills: {len(day.recoveries)}, with the driver then: {day.recoveries}; attempts in doubt: "
              f"{sum(audit.doubted.values())}, mails taken twice: {audit.duplicates}")


def run(arguments, folder):
    names = carriers_by_kind()
    behaviours = {name: behaviour(arguments.seconds) for kind, _, _, behaviour in KINDS for name in names[kind]}
    with SmtpPeers(behaviours) as peers, Kvhost(arguments.bin, folder) as host:
        host.configure(configuration(peers))
        day = Day(host, peers, arguments)
        try:
            day.run()
        except RuntimeError as error:
            print(f"FAULT: {error}\nstates: {host.counts()}\n{host.said()}")
            return 1
        audit = Audit(host, peers.record, day.jobs)
        audit.expect_outcomes()
        check_list(host, audit)
        check_store(host, audit)
        tell(audit, peers, day)
    for fault in audit.faults[:50]:
        print("FAULT: " + fault)
    print(f"{len(audit.faults)} faults, {len(day.jobs)} jobs held against the servers' record")
    return 1 if audit.faults else 0


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--bin", required=True, help="folder of kvhost and the driver")
    parser.add_argument("--jobs", type=int, default=20000)
    parser.add_argument("--kills", type=int, default=0, help="how often the host is killed and started again")
    parser.add_argument("--seconds", type=float, default=40, help="length of the day, over which jobs come in")
    parser.add_argument("--limit", type=float, default=900, help="seconds after which unfinished jobs are a fault")
    parser.add_argument("--keep", help="folder for store, log and jobs, which is then left there")
    arguments = parser.parse_args()
    if arguments.keep:
        shutil.rmtree(arguments.keep, ignore_errors=True)
        os.makedirs(arguments.keep)
        return run(arguments, arguments.keep)
    with tempfile.TemporaryDirectory(prefix="kvhost-day-") as folder:
        return run(arguments, folder)


if __name__ == "__main__":
    sys.exit(main())
