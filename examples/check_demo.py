#!/usr/bin/env python3
"""Checks what the demonstration has produced.

check_demo.py EXAMPLES WORK

Compares the outcomes in WORK/report.json with EXAMPLES/expected.json, and the mails under WORK/received with
EXAMPLES/jobs.jsonl: every delivered job arrived as one transaction, with its recipients, subject, text and
attachments. Prints every difference and ends with 1 if there is one.
"""

import email.policy
import json
import pathlib
import sys


def read_json(path):
    return json.loads(path.read_text(encoding="utf-8"))


def outcome_faults(outcomes, expected):
    """What differs between the outcomes and the expected ones, which stand in the same order."""
    if len(outcomes) != len(expected):
        yield f"expected {len(expected)} outcomes, found {len(outcomes)}"
    for found, wanted in zip(outcomes, expected):
        for key, value in wanted.items():
            if found[key] != value:
                yield f"{wanted['job']} to {wanted['recipient']}: {key}: expected {value}, found {found[key]}"
        if found["status"] == "failed" and not found["reason"]:
            yield f"{wanted['job']} to {wanted['recipient']}: failed without a reason"


class Mail:
    """One received mail: the transaction's recipients and the message."""

    def __init__(self, path):
        message = email.message_from_bytes(path.read_bytes(), policy=email.policy.compat32)
        self.recipients = [text.strip("<>") for text in message.get_all("X-Envelope-To", [])]
        self.subject = message.get("Subject", "")
        parts = message.get_payload() if message.is_multipart() else []
        self.text = parts[0].get_payload() if parts else None
        self.attachments = [part.get_payload(decode=True) for part in parts[1:]]


def mail_fault(job, mail, folder):
    """Why `mail` is not the message of `job`, or None."""
    wanted = [(folder / path).read_bytes() for path in job.get("attachments", [])]
    if mail.subject != job.get("subject", ""):
        return f"subject {mail.subject!r}"
    if mail.text is None or mail.text.replace("\r\n", "\n").rstrip("\n") != job["text"].rstrip("\n"):
        return f"text {mail.text!r}"
    if "\n" in mail.text.replace("\r\n", ""):
        return "a line feed without a carriage return in the text"
    if mail.attachments != wanted:
        return f"attachments of {[len(data) for data in mail.attachments]} bytes"
    return None


def mail_faults(jobs, mails, folder):
    """What differs between the delivered jobs of one carrier and the mails that its server received."""
    if len(jobs) != len(mails):
        yield f"expected {len(jobs)} mails, found {len(mails)}"
    rest = list(mails)
    for job in jobs:
        recipients = job.get("recipients") or [job["recipient"]]
        candidates = [mail for mail in rest if mail.recipients == recipients]
        faults = [mail_fault(job, mail, folder) for mail in candidates]
        if None in faults:
            rest.remove(candidates[faults.index(None)])
        else:
            yield f"{job['id']}: no mail of one transaction to {recipients} is right: {faults}"


def main(examples, work):
    outcomes = read_json(work / "report.json")["outcomes"]
    faults = list(outcome_faults(outcomes, read_json(examples / "expected.json")))
    delivered = {outcome["job"] for outcome in outcomes if outcome["status"] == "delivered"}
    jobs = [json.loads(line) for line in (examples / "jobs.jsonl").read_text(encoding="utf-8").splitlines()]
    for carrier in ("alarms", "pager"):
        sent = [job for job in jobs if job["carrier"] == carrier and job["id"] in delivered]
        mails = [Mail(path) for path in sorted((work / "received" / carrier).glob("*.eml"))]
        faults += [f"{carrier}: {fault}" for fault in mail_faults(sent, mails, examples)]
    for fault in faults:
        print(f"demo: {fault}", file=sys.stderr)
    if not faults:
        print(f"{len(outcomes)} outcomes and the received mails are as expected")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main(pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2])))
