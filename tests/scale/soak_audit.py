"""The audit of a soak: each job held against what the servers took, and the proof that it finds what is wrong."""

import argparse
import collections
import re
import time

from faulty_peers import NO, PERHAPS, YES
from kvhost_program import STATES
from vitals import Vitals


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
