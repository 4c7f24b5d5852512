#!/usr/bin/env python3
"""A soak: the running host under all faults at once. Most jobs go to fast, honest servers (kvsink), which are killed and
started again now and then; the others to servers of which every reply may be a fault. Jobs come in all the time, through
the command and over HTTP; the configuration is changed and read anew again and again. In the end the faults stop, and
every job must be accounted for by what the servers themselves took:

  delivered   taken, and the client was told so; taken once more only where an earlier answer was lost on the way
  failed      never taken with an answer, and its reason is a refusal for good that one of the servers gave once

The host is sampled meanwhile: its memory, descriptors and threads must not grow. The medians of the second and the last
quarter of the samples are compared; the last may be higher by a tenth and 8 MiB of memory or 8 descriptors, and by 4
threads.

    soak.py --bin build/release/bin [--seconds 1200] [--jobs 500000] [--out FOLDER] [--keep FOLDER]

Exit status 0 when everything holds, 1 otherwise.
"""

import argparse
import collections
import contextlib
import json
import pathlib
import random
import re
import shutil
import signal
import socket
import ssl
import sys
import tempfile
import time
import urllib.request

from faulty_peers import NO, PERHAPS, YES, FaultRecord, FaultyPeer, Wildness
from kvhost_program import FINAL, STATES, Kvhost, percentile, wait_until
from sink_process import Sink, make_certificates
from smtp_peers import SmtpPeers
from vitals import Vitals, draw

SEED = 20261122
SINKS = 8                 # the last two want TLS and AUTH
TOKEN = "token-of-the-soak-0123456789"
PASSWORDS = ("first-password", "second-password")   # of the sinks with AUTH: each reload takes the other one
# How often in the whole run, and the seconds between two that there are at least.
PARTS = {"submit": (1200, 0.2), "sample": (240, 0.1), "reload": (60, 0.5), "kill": (40, 0.8), "restart": (40, 1.5)}
BODIES = ("Pump %d: pressure is low.\n", "Line one of %d\n.\nbehind a lone dot\n", "Über %d: Druck zu niedrig\n")


def wild_servers(tls, foreign):
    """Each way to connect that the driver has, by carrier: its security, and the server."""
    return {
        "wild-clear": ("clear", Wildness()),
        "wild-plain": ("clear", Wildness(mechanisms="PLAIN LOGIN")),
        "wild-login": ("clear", Wildness(mechanisms="LOGIN")),
        "wild-tls": ("required", Wildness(mechanisms="PLAIN", tls=tls, foreign_tls=foreign)),
        "wild-maybe": ("if-available", Wildness(mechanisms="PLAIN LOGIN", tls=tls, foreign_tls=foreign)),
        "wild-demand": ("on-demand", Wildness(mechanisms="LOGIN", tls=tls, foreign_tls=foreign, demands_tls=True)),
        "wild-mails": ("clear", Wildness(connecting=0.0, mailing=0.05)),
        "wild-calls": ("clear", Wildness(connecting=0.1, mailing=0.0, mechanisms="PLAIN")),
    }


def server_context(folder):
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(folder / "cert.pem", folder / "key.pem")
    return context


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


class Setting:
    """Servers and configuration."""

    def __init__(self, stack, binaries, folder):
        certificates = make_certificates(binaries, folder / "tls")
        foreign = make_certificates(binaries, folder / "foreign")
        self.ca_file = certificates / "ca.pem"
        self.sinks = [stack.enter_context(Sink(binaries, folder, f"sink-{number}", self.sink_options(number, certificates)))
                      for number in range(1, SINKS + 1)]
        self.wild = wild_servers(server_context(certificates), server_context(foreign))
        self.record = FaultRecord()
        self.peers = stack.enter_context(SmtpPeers({name: wildness for name, (_, wildness) in self.wild.items()},
                                                   self.record, FaultyPeer))
        self.http_port = free_port()
        (folder / "token").write_text(TOKEN + "\n", encoding="ascii")

    @staticmethod
    def wants_login(number):
        return number > SINKS - 2

    def sink_options(self, number, certificates):
        if not self.wants_login(number):
            return []
        accounts = [option for password in PASSWORDS for option in ("--user", "host", "--password", password)]
        return ["--cert", certificates / "cert.pem", "--key", certificates / "key.pem", "--require-tls", "--require-auth",
                *accounts]

    def configuration(self, edition):
        """Each edition has another password for the sinks, another slice and other waits."""
        text = f"""
[driver]
threadpool_size = 16
diff_carrier_connection_count = 80
same_carrier_connection_count = 3
[run]
tick = "50ms"
probe_limit = "2s"
stop_limit = "20s"
keep = "0s"
slice = {(200, 100)[edition % 2]}
max_under_way = 3000
[http]
port = {self.http_port}
submit = true
token_file = "token"
[retry]
first = "{(300, 500)[edition % 2]}ms"
factor = 1.5
longest = "5s"
lifetime = "0s"
unclear_attempts = 0
"""
        for number, sink in enumerate(self.sinks, 1):
            text += carrier(sink.name, sink.port, "required" if self.wants_login(number) else "clear", self.ca_file,
                            PASSWORDS[edition % 2] if self.wants_login(number) else "")
        for name, (security, wildness) in self.wild.items():
            text += carrier(name, self.peers.port(name), security, self.ca_file,
                            "pw-of-the-wild" if wildness.mechanisms else "")
        return text


def carrier(name, port, security, ca_file, password):
    text = f'[carrier.{name}]\nserver = "127.0.0.1"\nport = {port}\nsecurity = "{security}"\nsender = "{name}@example.org"\n'
    if security != "clear":
        text += f'ca_file = "{ca_file}"\n'
    if password:
        text += f'user = "host"\npassword = "{password}"\n'
    return text


class Jobs:
    """Jobs by number: which carrier each has, and what is submitted. The recipient names the job in the servers' records."""

    def __init__(self, setting, wild_share):
        self.choice = random.Random(SEED)
        self.wild_share = wild_share
        self.calm = [sink.name for sink in setting.sinks]
        self.wild = list(setting.wild)
        self.carriers = []

    def make(self, count):
        return [self.one(len(self.carriers) + 1) for _ in range(count)]

    def one(self, number):
        name = self.choice.choice(self.wild if self.choice.random() < self.wild_share else self.calm)
        self.carriers.append(name)
        job = {"id": f"soak-{number}", "carrier": name, "subject": f"soak-{number}",
               "recipient": f"ops{number}@example.org",
               "text": self.choice.choice(BODIES) % number + "x" * self.choice.randrange(0, 500)}
        kind = self.choice.random()
        if kind < 0.02:
            job["urgent"] = True
        elif kind < 0.03:
            job["not_before"] = f"{self.choice.randrange(1, 5)}s"
        elif kind < 0.035:
            job["attachments"] = [{"name": "plan.txt", "content_base64": "cGxhbnBsYW5z" * self.choice.randrange(1, 50)}]
        return job


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
        self.vitals = Vitals(self.host, self.setting.http_port)
        begin = time.monotonic()
        due = {name: 0.0 for name in PARTS}
        while (elapsed := time.monotonic() - begin) < self.arguments.seconds:
            for name in [name for name, at in due.items() if at <= elapsed]:
                getattr(self, name)(elapsed)
                times, least = PARTS[name]
                due[name] = max(elapsed, due[name] + max(self.arguments.seconds / times, least))
            time.sleep(max(0, min(min(due.values()) - (time.monotonic() - begin), 0.1)))  # the pace is what is tested here
        self.submit(self.arguments.seconds)
        self.counts["in_time"] = self.ended()
        self.heal()
        wait_until(self.is_over, self.arguments.limit, "every job has ended", self.host.check_alive, 0.5)
        self.counts["seconds"] = round(time.monotonic() - begin, 1)
        self.counts["stop_seconds"] = round(self.host.stop(), 2)

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
        for peer in self.setting.peers.peers.values():
            peer.is_healed = True

    def ended(self):
        counts = self.host.counts()
        return sum(counts.get(state, 0) for state in FINAL)

    def is_over(self):
        return self.ended() == len(self.jobs.carriers)


class Audit:
    """Holds the store against the servers' records."""

    def __init__(self, soak):
        self.soak = soak
        self.faults = []
        self.figures = collections.Counter()
        self.arrivals = collections.defaultdict(list)   # job number -> (carrier, answer)

    def check(self):
        self.collect()
        self.check_jobs()
        self.check_store()

    def fault(self, text):
        self.faults.append(text)

    def collect(self):
        for number, sink in enumerate(self.soak.setting.sinks, 1):
            wanted = "ESMTPSA" if self.soak.setting.wants_login(number) else "ESMTP"
            for at, protocol, sender, recipients in sink.arrivals():
                self.note(recipients, sink.name, PERHAPS if sink.is_in_doubt(at) else YES)
                if (protocol, sender) != (wanted, f"{sink.name}@example.org"):
                    self.fault(f"{recipients}: came to {sink.name} by {protocol} from {sender}")
        for recipient, arrivals in self.soak.setting.record.by_recipient.items():
            for arrival in arrivals:
                self.note([recipient], arrival.carrier, arrival.answer)
                if arrival.job != recipient.replace("ops", "soak-").split("@")[0]:
                    self.fault(f"{recipient}: got the mail of {arrival.job}")

    def note(self, recipients, carrier_name, answer):
        for recipient in recipients:
            name = re.fullmatch(r"ops(\d+)@example\.org", recipient)
            if not name:
                self.fault(f"a mail to {recipient}, whom no job names")
                continue
            self.arrivals[int(name[1])].append((carrier_name, answer))
            self.figures[f"taken, told: {answer}"] += 1

    def check_jobs(self):
        marks = set()
        seen = 0
        for name, state, carrier_name, recipient, reason in self.soak.host.rows(
                "SELECT id, state, carrier, recipient, reason FROM job"):
            seen += 1
            number = int(name.removeprefix("soak-"))
            if (carrier_name, recipient) != (self.soak.jobs.carriers[number - 1], f"ops{number}@example.org"):
                self.fault(f"{name}: is another job in the store")
            self.check_job(name, STATES[state], reason, self.arrivals.pop(number, []), carrier_name, marks)
        if seen != len(self.soak.jobs.carriers):
            self.fault(f"{len(self.soak.jobs.carriers)} jobs were acknowledged, {seen} are in the store")
        for number in self.arrivals:
            self.fault(f"a mail for the job {number}, which is not in the store")

    def check_job(self, name, state, reason, arrivals, carrier_name, marks):
        answers = [answer for _, answer in arrivals]
        if any(carrier_of != carrier_name for carrier_of, _ in arrivals):
            self.fault(f"{name}: went out through {arrivals}")
        self.figures[state] += 1
        self.figures["taken a second time"] += max(0, len(answers) - 1)
        if answers.count(YES) > 1:
            self.fault(f"{name}: {state}, and was taken again although the client had been told: {answers}")
        if state == "delivered":
            if not answers:
                self.fault(f"{name}: delivered, and never taken")
            elif set(answers) == {NO}:
                self.fault(f"{name}: delivered, and no server said so: {answers}")
        elif state == "failed":
            mark = re.search(r"fault-(\d+)", reason)
            if YES in answers:
                self.fault(f"{name}: failed, and was taken: {answers}")
            if not mark or int(mark[1]) not in self.soak.setting.record.lasting or mark[1] in marks:
                self.fault(f"{name}: failed, and no server refused it for good: {reason}")
            elif mark:
                marks.add(mark[1])
        else:
            self.fault(f"{name}: is {state}")

    def check_store(self):
        begin = time.monotonic()
        status, output, error = self.soak.host.command("fsck", timeout=1800)
        self.figures["fsck_seconds"] = round(time.monotonic() - begin, 1)
        if status != 0:
            self.fault(f"kvhost fsck ended with {status}: {output} {error}")
        [(attempts,)] = self.soak.host.rows("SELECT count(*) FROM attempt")
        self.figures["attempts"] = attempts


# A job's state, reason and arrivals, and what the audit has to say to it; mark 7 is a refusal for good, 8 is none.
KNOWN_CASES = (
    ("delivered", "", (YES,), ""),
    ("delivered", "", (NO, YES), ""),
    ("delivered", "", (PERHAPS, PERHAPS), ""),
    ("delivered", "", (), "delivered, and never taken"),
    ("delivered", "", (YES, YES), "was taken again"),
    ("delivered", "", (NO,), "no server said so"),
    ("failed", "5.3.0 Never, fault-7", (), ""),
    ("failed", "5.3.0 Never, fault-7", (NO,), ""),
    ("failed", "5.3.0 Never, fault-7", (YES,), "failed, and was taken"),
    ("failed", "4.3.0 Not now, fault-8", (), "no server refused it for good"),
    ("failed", "Socket is closed", (), "no server refused it for good"),
    ("queued", "", (), "is queued"),
    ("in doubt", "", (PERHAPS,), "is in doubt"),
)


def check_self():
    """Shows that the audit finds what it is there to find, and that growth does not pass."""
    bad = []
    for state, reason, answers, expected in KNOWN_CASES:
        audit = Audit(argparse.Namespace(setting=argparse.Namespace(record=argparse.Namespace(lasting={7: "MAIL"}))))
        audit.check_job("soak-1", state, reason, [("wild", answer) for answer in answers], "wild", set())
        if bool(audit.faults) != bool(expected) or not all(expected in fault for fault in audit.faults):
            bad.append(f"{state}, {answers}: {audit.faults}")
    for growth, holds in ((0.0, True), (0.5, False)):
        vitals = Vitals(None, 0)
        vitals.samples = [{"rss_mib": 20 + number * growth, "descriptors": 30 + number * growth,
                           "threads": 20 + number * growth} for number in range(100)]
        if any(verdict["holds"] != holds for verdict in vitals.verdict().values()):
            bad.append(f"growth of {growth} a sample: {vitals.verdict()}")
    print("\n".join(bad) or "every known case is told as it should be")
    return 1 if bad else 0


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
